#include "check/StartScript.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

using Command = std::vector<std::string>; // its words, without quotes and redirections

// Programs that run a script, or a program, given as their argument.
constexpr std::array<const char*, 17> Interpreters = {"sh",   "bash",  "dash", "ash",         "zsh",   "ksh",
                                                      "mksh", "perl",  "lua",  "luajit",      "node",  "php",
                                                      "ruby", "tclsh", "java", "micropython", "python"};
// Run it in the shell itself; mostly it has settings.
constexpr std::array<const char*, 2> Readers = {".", "source"};
constexpr const char* Python = "python";     // and a version
constexpr const char* DynamicLinker = "ld-"; // and the rest of its name

// Words in front of a command: the shell's own, and programs that run what follows them.
constexpr std::array<const char*, 20> Prefixes = {"if",   "then",   "elif",    "else",    "while", "until", "do",
                                                  "!",    "{",      "time",    "exec",    "eval",  "env",   "nohup",
                                                  "nice", "setsid", "command", "busybox", "sudo",  "chrt"};

template <size_t Count>
bool IsOneOf(const std::array<const char*, Count>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

std::string FileName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

bool IsInterpreter(const std::string& word) {
    const std::string name = FileName(word);
    return name.rfind(Python, 0) == 0 || name.rfind(DynamicLinker, 0) == 0 || IsOneOf(Interpreters, name);
}

/// Splits a script into its commands, a character at a time.
class Splitter {
public:
    std::vector<Command> split(const std::string& script) {
        for (size_t i = 0; i < script.size(); ++i) {
            const char c = script[i];
            if (quote != '\'' && c == '\\') {
                ++i; // the next character stands for itself, and a line end for nothing
                if (i < script.size() && script[i] != '\n') {
                    word += script[i];
                }
            } else if (quote != '\0') {
                take(c == quote ? '\0' : c);
            } else if (c == '#' && word.empty()) {
                i = std::min(script.find('\n', i), script.size()) - 1;
            } else {
                next(c);
            }
        }
        endCommand();
        return std::move(commands);
    }

private:
    // Inside quotes: zero for the quote itself.
    void take(char c) {
        if (c == '\0') {
            quote = '\0';
        } else {
            word += c;
        }
    }

    void next(char c) {
        if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '<' || c == '>') {
            word.clear(); // the number of a descriptor
            isRedirection = true;
        } else if (c == '&' && isRedirection && word.empty()) {
            return; // ">&2"
        } else if (std::strchr(" \t\r", c) != nullptr) {
            endWord();
        } else if (std::strchr("\n;&|()`", c) != nullptr) {
            endCommand();
        } else {
            word += c;
        }
    }

    void endWord() {
        if (word.empty()) {
            return;
        }
        if (!isRedirection) {
            command.push_back(word);
        }
        isRedirection = false;
        word.clear();
    }

    void endCommand() {
        endWord();
        isRedirection = false;
        commands.push_back(std::move(command));
        command.clear();
    }

    std::vector<Command> commands;
    Command command;
    std::string word;
    char quote = '\0';
    bool isRedirection = false; ///< the word that comes is the name of a file
};

bool IsOption(const std::string& word) {
    return word.front() == '-';
}

// "A=b" in front of a command, or the number that an option of a prefix takes ("nice -n 5").
bool IsSetting(const std::string& word) {
    return word.find('=') != std::string::npos || std::isdigit(static_cast<unsigned char>(word.front())) != 0;
}

enum class Start : uint8_t { None, ByName, ThroughInterpreter };

Start StartOf(const Command& command, const std::string& server, const std::vector<std::string>& paths) {
    auto word = command.begin();
    const auto end = command.end();
    word = std::find_if(word, end, [](const std::string& each) {
        return !IsOneOf(Prefixes, FileName(each)) && !IsOption(each) && !IsSetting(each);
    });
    if (word == end) {
        return Start::None;
    }
    if (FileName(*word) == server) {
        return Start::ByName;
    }
    const bool isRead = IsOneOf(Readers, *word);
    if (!isRead && !IsInterpreter(*word)) {
        return Start::None;
    }
    // Options may stand between an interpreter and its script; behind -c is a command, not a script.
    for (++word; word != end && IsOption(*word) && *word != "-c"; ++word) {
        if (*word == "-o" && word + 1 != end) {
            ++word; // the option's name
        }
    }
    if (word == end ||
        (isRead ? std::find(paths.begin(), paths.end(), *word) == paths.end() : FileName(*word) != server)) {
        return Start::None;
    }
    return Start::ThroughInterpreter;
}

} // namespace

bool StartsThroughInterpreter(const std::string& script, const std::string& server,
                              const std::vector<std::string>& paths) {
    bool isThroughInterpreter = false;
    for (const Command& command : Splitter().split(script)) {
        const Start start = StartOf(command, server, paths);
        if (start == Start::ByName) {
            return false;
        }
        isThroughInterpreter = isThroughInterpreter || start == Start::ThroughInterpreter;
    }
    return isThroughInterpreter;
}
