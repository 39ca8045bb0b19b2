#include "check/InterpreterLine.h"

#include <algorithm>
#include <array>

namespace {

constexpr const char* Blanks = " \t";
constexpr const char* ByteOrderMark = "\xEF\xBB\xBF";

std::string WithoutCarriageReturn(const std::string& text) {
    return !text.empty() && text.back() == '\r' ? text.substr(0, text.size() - 1) : text;
}

// What follows the option -S (--split-string) in env's only argument; none without it.
std::optional<std::string> SplitByEnv(const std::string& argument) {
    const std::string longOption = "--split-string=";
    if (argument.rfind(longOption, 0) == 0) {
        return argument.substr(longOption.size());
    }
    const size_t last = argument.find_first_not_of("iv0", 1); // options that may stand in front of it, in one word
    return last != std::string::npos && argument[last] == 'S' ? std::optional(argument.substr(last + 1)) : std::nullopt;
}

// The kernel gives env the rest of the line as one argument: a program, or, with -S, a line to be split.
std::optional<std::string> EnvProgram(const std::string& argument) {
    if (argument.compare(0, 1, "-") != 0) {
        return argument.find('=') == std::string::npos ? argument : std::string(); // a variable, and no program
    }
    const std::optional<std::string> line = SplitByEnv(argument);
    if (!line) {
        return std::string();
    }
    if (line->find_first_of("\\\"'$#") != std::string::npos) {
        return std::nullopt;
    }
    const std::array<std::string, 6> withValue = {"-u", "--unset", "-C", "--chdir", "-a", "--argv0"};
    bool isValue = false;
    for (size_t start = line->find_first_not_of(Blanks); start != std::string::npos;) {
        const size_t end = std::min(line->find_first_of(Blanks, start), line->size());
        const std::string word = line->substr(start, end - start);
        if (!isValue && word.front() != '-' && word.find('=') == std::string::npos) {
            return word;
        }
        isValue = !isValue && std::find(withValue.begin(), withValue.end(), word) != withValue.end();
        start = line->find_first_not_of(Blanks, end);
    }
    return std::string();
}

} // namespace

std::optional<std::string> InterpreterLine::program() const {
    return goesThroughEnv() ? EnvProgram(WithoutCarriageReturn(argument)) : WithoutCarriageReturn(interpreter);
}

bool InterpreterLine::goesThroughEnv() const {
    const std::string path = WithoutCarriageReturn(interpreter);
    return path.substr(path.find_last_of('/') + 1) == "env";
}

InterpreterLine ReadInterpreterLine(const std::string& head) {
    InterpreterLine line;
    std::string text = head.substr(0, InterpreterLine::KernelBuffer);
    if (text.compare(0, 3, ByteOrderMark) == 0 && text.compare(3, 2, "#!") == 0) {
        line.hasByteOrderMark = true;
        text.erase(0, 3);
    }
    if (text.compare(0, 2, "#!") != 0) {
        return line;
    }
    text.resize(InterpreterLine::KernelBuffer, '\0'); // as the kernel's buffer
    const size_t start = text.find_first_not_of(Blanks, 2);
    size_t end = text.find_first_of(std::string("\n\0", 2));
    if (end == std::string::npos) {
        end = InterpreterLine::KernelBuffer - 1;
        line.isPathCut = start != std::string::npos && text.find_first_of(Blanks, start) == std::string::npos;
    }
    if (start >= end) {
        return line;
    }
    text.resize(text.find_last_not_of(Blanks, end - 1) + 1);
    line.isPresent = true;
    line.hasCarriageReturn = text.back() == '\r';
    line.isLong = text.size() >= InterpreterLine::OldKernelBuffer;
    const size_t stop = std::min(text.find_first_of(Blanks, start), text.size());
    line.interpreter = text.substr(start, stop - start);
    const size_t rest = text.find_first_not_of(Blanks, stop);
    if (rest != std::string::npos) {
        line.argument = text.substr(rest);
    }
    return line;
}
