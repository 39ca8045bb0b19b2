#include "check/StopRules.h"

#include "check/ElfFile.h"
#include "check/InterpreterLine.h"
#include "check/ServerSearch.h"
#include "check/StartScript.h"
#include "launcher/ServiceCommand.h"
#include "xmlconfig/XmlPlaces.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

// The kernel keeps 16 bytes of a process's name, the terminator among them (TASK_COMM_LEN).
constexpr size_t KernelName = 15;
// A start script larger than this is not read for how it starts its server.
constexpr size_t MaxScript = 65536;

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
            files[name].insert(step.file);
            if (first.second) {
                servers.push_back({name, step.protocol, place, step.condition()});
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
        ServerSearch search = FindServers(root, names, maxEntries);
        for (const Server& server : servers) {
            const ServerSearch::Found& found = search.found[server.name];
            checkServer(server, found, search.leftOut);
            for (const std::string& file : files[server.name]) {
                checkStart(ServiceCommand::ServiceDir + file, server, found.paths);
            }
        }
    }

private:
    void checkServer(const Server& server, const ServerSearch::Found& found, const std::string& leftOut) {
        for (const std::string& path : found.paths) {
            programs.check(path);
            checkFound(path);
        }
        if (found.isCut) {
            findings.add(report.path, server.place, "not-looked-at",
                         "more than " + std::to_string(ServerSearch::MaxPaths) + " files are called \"" + server.name +
                             "\", and only as many are looked at");
        }
        if (!found.paths.empty()) {
            return;
        }
        if (!leftOut.empty()) {
            findings.add(report.path, server.place, "not-looked-at",
                         "the server \"" + server.name + "\" was not found, but " + leftOut);
            return;
        }
        findings.add(
            report.path, server.place, "server-missing",
            "no program of the image is called \"" + server.name + "\", by which protocol \"" + server.protocol +
                "\" is stopped" + server.condition +
                (found.noProgram.empty() ? std::string() : "; " + found.noProgram + " does not look like a program"));
    }

    void checkFound(const std::string& path) {
        std::string head;
        if (!root.read(path, InterpreterLine::KernelBuffer + 1, head) || head.empty() || IsElf(head)) {
            return;
        }
        const InterpreterLine line = ReadInterpreterLine(head);
        if (!line.isPresent || line.hasByteOrderMark) {
            if (root.look(path).isExecutable()) {
                findings.add(root.onHost(path), {}, "server-no-interpreter-line",
                             "a script without an interpreter line is run by the shell that starts it, under the "
                             "shell's name: killall does not find it");
            }
        } else if (line.goesThroughEnv()) {
            findings.add(root.onHost(path), {}, "server-through-interpreter",
                         "env replaces itself by \"" + line.program().value_or("what follows it") +
                             "\", and the process bears that name: killall "
                             "does not find it by this one");
        }
    }

    void checkStart(const std::string& path, const Server& server, const std::vector<std::string>& serverPaths) {
        std::string script;
        if (!root.read(path, MaxScript + 1, script) || IsElf(script)) {
            return;
        }
        if (StartsThroughInterpreter(script.substr(0, MaxScript), server.name, serverPaths)) {
            findings.add(root.onHost(path), {}, "start-through-interpreter",
                         "it seems to start \"" + server.name +
                             "\" as the argument of an interpreter: the process bears the interpreter's name then, "
                             "and killall does not find it");
        } else if (script.size() > MaxScript) {
            findings.add(root.onHost(path), {}, "not-looked-at",
                         "only its first " + std::to_string(MaxScript) +
                             " bytes were read for how it starts its server");
        }
    }

    const DeviceRoot& root;
    const ConfigurationReport& report;
    ProgramRules& programs;
    FindingList& findings;
    std::vector<Server> servers;
    std::map<std::string, std::set<std::string>> files; ///< start programs by server name
};

} // namespace

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
