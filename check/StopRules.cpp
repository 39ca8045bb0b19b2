#include "check/StopRules.h"

#include "check/InterpreterLine.h"
#include "check/ServerSearch.h"
#include "launcher/ServiceCommand.h"
#include "xmlconfig/XmlPlaces.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace {

// The kernel keeps 16 bytes of a process's name, the terminator among them (TASK_COMM_LEN).
constexpr size_t KernelName = 15;
// A start script larger than this is not read for how it starts its server.
constexpr size_t MaxScript = 65536;

// Programs that run a script, or a program, given as their argument.
constexpr std::array<const char*, 11> Interpreters = {"sh",   "bash", "dash", "ash", "zsh", "ksh",
                                                      "perl", "lua",  "node", "php", "ruby"};
constexpr const char* Python = "python";     // and a version
constexpr const char* DynamicLinker = "ld-"; // and the rest of its name

std::string FileName(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);
}

bool IsInterpreter(const std::string& word) {
    const std::string name = FileName(word);
    return name.rfind(Python, 0) == 0 || name.rfind(DynamicLinker, 0) == 0 ||
           std::find(Interpreters.begin(), Interpreters.end(), name) != Interpreters.end();
}

std::vector<std::string> Words(const std::string& line) {
    constexpr const char* Ends = " \t\r;&|()<>\"'";
    std::vector<std::string> words;
    size_t start = line.find_first_not_of(Ends);
    while (start != std::string::npos) {
        const size_t end = std::min(line.find_first_of(Ends, start), line.size());
        words.push_back(line.substr(start, end - start));
        start = line.find_first_not_of(Ends, end);
    }
    return words;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

struct Server {
    std::string name;
    std::string protocol;
    XmlPlace place;        ///< of the first protocol that has it
    std::string condition; ///< of that protocol having it
};

class Check {
public:
    Check(const DeviceRoot& deviceRoot, const ConfigurationReport& checked, ProgramRules& programRules,
          FindingList& findingList)
        : root(deviceRoot), report(checked), programs(programRules), findings(findingList) {}

    // Two protocols with one start program are another rule's; here it is two programs with one prefix.
    void collect(const std::vector<PlanStep>& plan) {
        std::map<std::string, const PlanStep*> byName;
        for (const PlanStep& step : plan) {
            if (step.file.empty()) {
                continue;
            }
            const std::string name = ServiceCommand::serverName(step.prefix);
            const XmlPlace place = report.entry(step.order - 1).place;
            const auto first = byName.emplace(name, &step);
            if (first.second) {
                servers.push_back({name, step.protocol, place, step.condition()});
                files[name] = step.file;
            } else if (first.first->second->file != step.file && first.first->second->order != step.order) {
                findings.add(report.path, place, "server-name-shared",
                             "protocol \"" + step.protocol + "\" is stopped by the name \"" + name +
                                 "\", as protocol \"" + first.first->second->protocol + "\" is: each stop ends both" +
                                 (step.isOpen ? step : *first.first->second).condition());
            }
        }
    }

    void checkNames() {
        std::map<std::string, std::string> byKernelName;
        for (const Server& server : servers) {
            if (server.name.size() <= KernelName) {
                continue;
            }
            const std::string cut = server.name.substr(0, KernelName);
            const auto first = byKernelName.emplace(cut, server.name);
            findings.add(report.path, server.place, "server-name-long",
                         "the server \"" + server.name + "\" of protocol \"" + server.protocol + "\" is \"" + cut +
                             "\" to the kernel" +
                             (first.second ? std::string() : ", as \"" + first.first->second + "\" is") +
                             server.condition);
        }
    }

    void checkServers(size_t maxEntries) {
        std::set<std::string> names;
        for (const Server& server : servers) {
            names.insert(server.name);
        }
        const ServerSearch search = FindServers(root, names, maxEntries);
        for (const Server& server : servers) {
            const auto found = search.found.find(server.name);
            if (found != search.found.end()) {
                programs.check(found->second);
                checkFound(found->second);
            } else if (search.isCut) {
                findings.add(report.path, server.place, "not-looked-at",
                             "the server \"" + server.name + "\" is not among the first " + std::to_string(maxEntries) +
                                 " files of the image");
            } else {
                findings.add(report.path, server.place, "server-missing",
                             "no file of the image is called \"" + server.name + "\", by which protocol \"" +
                                 server.protocol + "\" is stopped" + server.condition);
            }
            checkStart(server);
        }
    }

private:
    void checkFound(const std::string& path) {
        std::string head;
        if (!root.read(path, InterpreterLine::KernelBuffer + 1, head) || head.empty() ||
            head.compare(0, 4,
                         "\x7F"
                         "ELF") == 0) {
            return;
        }
        const InterpreterLine line = ReadInterpreterLine(head);
        if (!line.isPresent || line.hasByteOrderMark) {
            findings.add(root.onHost(path), {}, "server-no-interpreter-line",
                         "a script without an interpreter line is run by the shell that starts it, under the shell's "
                         "name: killall does not find it");
        } else if (line.goesThroughEnv()) {
            findings.add(root.onHost(path), {}, "server-through-interpreter",
                         "env replaces itself by \"" + line.program().value_or("what follows it") +
                             "\", and the process bears that name: killall "
                             "does not find it by this one");
        }
    }

    void checkStart(const Server& server) {
        const std::string path = ServiceCommand::ServiceDir + files[server.name];
        std::string script;
        if (root.read(path, MaxScript, script) && script.compare(0, 2, "#!") == 0 &&
            StartsThroughInterpreter(script, server.name)) {
            findings.add(root.onHost(path), {}, "server-through-interpreter",
                         "it starts \"" + server.name +
                             "\" as the argument of an interpreter, and the process bears "
                             "the interpreter's name: killall does not find it");
        }
    }

    const DeviceRoot& root;
    const ConfigurationReport& report;
    ProgramRules& programs;
    FindingList& findings;
    std::vector<Server> servers;
    std::map<std::string, std::string> files; ///< start program by server name
};

} // namespace

bool StartsThroughInterpreter(const std::string& script, const std::string& server) {
    for (const std::string& line : Lines(script)) {
        const std::vector<std::string> words = Words(line);
        if (words.empty() || words.front().front() == '#') {
            continue;
        }
        for (size_t i = 1; i < words.size(); ++i) {
            if (FileName(words[i]) != server) {
                continue;
            }
            // Options may stand between an interpreter and its script; behind -c is a command, not a script.
            size_t before = i - 1;
            while (before > 0 && words[before].front() == '-' && words[before] != "-c") {
                --before;
            }
            if (IsInterpreter(words[before])) {
                return true;
            }
        }
    }
    return false;
}

void CheckStop(const DeviceRoot& root, const ConfigurationReport& report, const std::vector<PlanStep>& plan,
               size_t maxEntries, ProgramRules& programs, FindingList& findings) {
    Check check(root, report, programs, findings);
    check.collect(plan);
    check.checkNames();
    check.checkServers(maxEntries);
    if (programs.isPartialTree()) {
        return;
    }
    const std::string killall = programs.findInPath("killall");
    if (killall.empty()) {
        findings.add(root.onHost("/usr/bin/killall"), {}, "killall-missing",
                     "there is no killall in the directories for programs: nothing can be stopped");
    } else {
        programs.check(killall);
    }
}
