#include "tests/support/DeviceSandbox.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <sstream>

namespace {

namespace fs = std::filesystem;

// Paths of the sandbox that are no part of the device.
constexpr const char* Tools = "/sandbox/bin";
constexpr const char* Record = "/sandbox/record";
constexpr const char* Shell = "/sandbox/shell";

// A run takes some 50 ms, ten times that in an emulator; this is for one that hangs.
constexpr std::chrono::seconds Patience(*WYVERN_EMULATOR == '\0' ? 100 : 500);

// /bin/sh of the device, which system(3) runs: it writes down the command line and becomes the real shell.
constexpr const char* RecordingShell = "#!/usr/bin/sh\n"
                                       "for line; do :; done\n"
                                       "printf '%s\\n' \"$line\" >>/sandbox/record/commands\n"
                                       "exec /usr/bin/sh \"$@\"\n";

// The machine's programs, and nothing else of it: an own root, own processes, no network. /bin holds the shell alone,
// and PATH does not name it. Sanitizers need /proc.
constexpr const char* BareMachine = "bwrap --unshare-pid --unshare-net --die-with-parent --chdir / "
                                    "--tmpfs / --proc /proc --dev /dev --dir /tmp --ro-bind /usr /usr "
                                    "--symlink usr/sbin /sbin --symlink usr/lib /lib --symlink usr/lib64 /lib64 "
                                    "--ro-bind-try /etc/ld.so.cache /etc/ld.so.cache";

std::vector<std::string> Words(const char* text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

/// @return what EndReporter is told to run a program of this build by its own name. An emulator is the program then, and
///         takes that name and the program as arguments.
std::vector<std::string> ReporterArguments(const std::string& program) {
    std::vector<std::string> arguments = Words(WYVERN_EMULATOR);
    if (arguments.empty()) {
        return {program, program};
    }
    arguments.insert(arguments.begin(), arguments.front());
    arguments.insert(arguments.end(), {"-0", program, program});
    return arguments;
}

std::string RecordingProgram(const std::string& name) {
    return "#!/usr/bin/sh\n"
           "line=" +
           name +
           "\n"
           "for argument; do line=\"$line $argument\"; done\n"
           "printf '%s\\n' \"$line\" >>/sandbox/record/programs\n";
}

/// A pipe whose reading end collects what a child writes. In packet mode (pipe(7), O_DIRECT): each read gets one write.
class CapturePipe {
public:
    CapturePipe() {
        if (pipe2(ends.data(), O_CLOEXEC | O_DIRECT) != 0) {
            ADD_FAILURE() << "no pipe: " << std::strerror(errno);
        }
    }

    ~CapturePipe() {
        closeEnd(0);
        closeEnd(1);
    }

    CapturePipe(const CapturePipe&) = delete;
    CapturePipe& operator=(const CapturePipe&) = delete;

    int readEnd() const { return ends[0]; }

    int writeEnd() const { return ends[1]; }

    void closeWriteEnd() { closeEnd(1); }

    // Takes what one write put there; closes the reading end when nothing will come any more.
    void take(std::vector<std::string>& writes) {
        std::array<char, 65536> buffer;
        const ssize_t count = read(ends[0], buffer.data(), buffer.size());
        if (count > 0) {
            writes.emplace_back(buffer.data(), static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            closeEnd(0);
        }
    }

private:
    void closeEnd(size_t i) {
        if (ends[i] >= 0) {
            static_cast<void>(close(ends[i]));
            ends[i] = -1;
        }
    }

    std::array<int, 2> ends{-1, -1};
};

// Reads both pipes to their ends. @return false when that takes too long.
bool Collect(CapturePipe& out, std::vector<std::string>& outWrites, CapturePipe& err,
             std::vector<std::string>& errWrites) {
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    while (out.readEnd() >= 0 || err.readEnd() >= 0) {
        std::array<pollfd, 2> waits{{{out.readEnd(), POLLIN, 0}, {err.readEnd(), POLLIN, 0}}};
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        if (poll(waits.data(), waits.size(), static_cast<int>(left.count())) <= 0) {
            continue;
        }
        if (waits[0].revents != 0) {
            out.take(outWrites);
        }
        if (waits[1].revents != 0) {
            err.take(errWrites);
        }
    }
    return true;
}

/// Takes out what an emulator of processes says of its own when a program ends by a signal.
std::string WithoutEmulator(const std::string& text) {
    std::string rest;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (*WYVERN_EMULATOR == '\0' || line.rfind("qemu: uncaught target signal ", 0) != 0) {
            rest += line + (stream.eof() ? "" : "\n");
        }
    }
    return rest;
}

std::string Joined(const std::vector<std::string>& writes) {
    std::string text;
    for (const std::string& write : writes) {
        text += write;
    }
    return text;
}

// Runs a command found in PATH with nothing on standard input. @return false when it could not be started.
bool Spawn(const std::vector<std::string>& command, DeviceRun& result) {
    CapturePipe out;
    CapturePipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.writeEnd(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.writeEnd(), STDERR_FILENO);

    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);

    pid_t child = -1;
    const int error = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT) {
        ADD_FAILURE() << "no " << command[0]
                      << " on this machine: install the package bubblewrap, or run scripts/setup";
        return false;
    }
    if (error != 0) {
        ADD_FAILURE() << "cannot start " << command[0] << ": " << std::strerror(error);
        return false;
    }
    out.closeWriteEnd();
    err.closeWriteEnd();
    std::vector<std::string> errWrites;
    const bool inTime = Collect(out, result.writes, err, errWrites);
    result.out = Joined(result.writes);
    result.err = WithoutEmulator(Joined(errWrites));
    if (!inTime) {
        ADD_FAILURE() << "no end after " << Patience.count() << " s; it is killed. Standard output:\n" << result.out;
        kill(child, SIGKILL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return true;
}

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace

DeviceSandbox::DeviceSandbox() {
    for (const char* directory : {"/mnt/mtd/code/config_file", "/mnt/mtd/code/factory_setting", "/factory_setting"}) {
        fs::create_directories(onHost(directory));
    }
    fs::create_directories(onHost(Record));
    writeExecutable(Shell, RecordingShell);
    writeExecutable(std::string(Tools) + "/killall", RecordingProgram("killall"));
}

void DeviceSandbox::write(const std::string& devicePath, const std::string& content) const {
    static_cast<void>(layout.write(devicePath.substr(1), content));
}

void DeviceSandbox::writeExecutable(const std::string& devicePath, const std::string& content) const {
    write(devicePath, content);
    fs::permissions(onHost(devicePath), fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec,
                    fs::perm_options::add);
}

void DeviceSandbox::addStartProgram(const std::string& name, const std::string& body) const {
    writeExecutable("/factory_setting/" + name, RecordingProgram("\"$0\"") + body + "\n");
}

void DeviceSandbox::removeServiceDirectory() const {
    fs::remove_all(onHost("/factory_setting"));
}

void DeviceSandbox::useRealKillall() const {
    fs::remove(onHost(std::string(Tools) + "/killall"));
}

DeviceRun DeviceSandbox::run(const std::vector<std::string>& arguments) const {
    return runProgram(WYVERN_BINARY, arguments);
}

DeviceRun DeviceSandbox::runProgram(const std::string& program, const std::vector<std::string>& arguments) const {
    std::vector<std::string> reporterArguments = ReporterArguments(program);
    reporterArguments.insert(reporterArguments.end(), arguments.begin(), arguments.end());
    return runReported(reporterArguments);
}

DeviceRun DeviceSandbox::runWithoutArgumentVector(const std::string& program) const {
    return runReported({program});
}

DeviceRun DeviceSandbox::runScript(const std::string& script) const {
    std::string command = WYVERN_BINARY;
    if (*WYVERN_EMULATOR != '\0') {
        command = std::string(Tools) + "/wyvern";
        writeExecutable(command, "#!/usr/bin/sh\n"
                                 "exec " WYVERN_EMULATOR " -0 '" WYVERN_BINARY "' '" WYVERN_BINARY "' \"$@\"\n");
    }
    return runReported({"/usr/bin/sh", "/usr/bin/sh", "-c", "WYVERN='" + command + "'\n" + script});
}

DeviceRun DeviceSandbox::runReported(const std::vector<std::string>& reporterArguments) const {
    for (const char* name : {"commands", "programs", "ended"}) {
        fs::remove(onHost(Record) + "/" + name);
    }
    std::vector<std::string> command = Words(BareMachine);
    command.insert(command.end(), {"--setenv", "PATH", std::string(Tools) + ":/usr/bin:/usr/sbin"});
    // What the machine's programs say does not depend on the language of whoever runs the tests.
    command.insert(command.end(), {"--setenv", "LC_ALL", "C"});
    const auto bind = [&command](const char* option, const std::string& from, const std::string& to) {
        command.insert(command.end(), {option, from, to});
    };
    bind("--bind", WYVERN_BUILD_DIRECTORY, WYVERN_BUILD_DIRECTORY); // a coverage build writes its counts there
    bind("--ro-bind", onHost(Shell), "/bin/sh");
    bind("--ro-bind", onHost(Tools), Tools);
    bind("--bind", onHost(Record), Record);
    bind("--bind", onHost("/mnt/mtd/code"), "/mnt/mtd/code");
    if (fs::exists(onHost("/factory_setting"))) {
        bind("--bind", onHost("/factory_setting"), "/factory_setting");
    }
    command.emplace_back("--");
    for (const std::string& word : Words(WYVERN_EMULATOR)) {
        command.push_back(word);
    }
    command.insert(command.end(), {WYVERN_END_REPORTER, std::string(Record) + "/ended"});
    command.insert(command.end(), reporterArguments.begin(), reporterArguments.end());

    DeviceRun result;
    if (!Spawn(command, result)) {
        return result;
    }
    if (!fs::exists(onHost(Record) + "/ended")) {
        ADD_FAILURE() << "the sandbox did not come up, or was killed. Standard error:\n" << result.err;
        return result;
    }
    result.ended = ReadWholeFile(onHost(Record) + "/ended");
    result.commands = recorded("commands");
    result.programs = recorded("programs");
    return result;
}

std::vector<std::string> DeviceSandbox::recorded(const std::string& name) const {
    const std::string file = onHost(Record) + "/" + name;
    return fs::exists(file) ? SplitLines(ReadWholeFile(file)) : std::vector<std::string>();
}

std::string ProtocolConfigText(const std::vector<ConfigEntry>& entries, const std::string& declaration) {
    std::string text = declaration + "<Configure name=\"Device\"><Configure name=\"ProtocolConfig\">\n";
    for (const ConfigEntry& entry : entries) {
        text += "<ConfigItem ProtocolName=\"" + entry.name +
                "\" ProtocolId=\"id\" ProtocolType=\"1\" ProtocolEnable=\"" + (entry.enabled ? "true" : "false") +
                "\"/>\n";
    }
    return text + "</Configure></Configure>\n";
}
