#pragma once

#include "tests/support/TemporaryDirectory.h"

#include <string>
#include <vector>

/// What one run on a sandboxed device left behind.
struct DeviceRun {
    std::string out;                 ///< standard output, every byte
    std::vector<std::string> writes; ///< the same, one element each write(2) of up to 4096 bytes
    std::string err;                 ///< standard error, every byte
    std::string ended;               ///< "exit 0", "signal 6"; empty when the run never came about
    /// The command lines that the shell was given by system(3), in order.
    std::vector<std::string> commands;
    /// The programs that really ran: each start program and the recording killall write their own line, in order.
    std::vector<std::string> programs;
};

/// A device of the test's own: the launcher's fixed paths laid out in a temporary directory, and programs run on it in
/// a private mount, process and network namespace (bubblewrap), where the layout stands on those paths. The root of the
/// machine is neither seen nor touched, and every process that a run leaves behind ends with it.
///
/// The machine's programs are seen read-only, the build directory with its own path; PATH starts with a directory of
/// recording programs, and the programs speak the language of the C locale. A run that cannot be made is a test failure
/// that says why.
///
/// Works for root and for any user who may make user namespaces.
class DeviceSandbox {
public:
    /// An empty device: the three directories are there, no file is.
    DeviceSandbox();

    /// The path that the launcher prints and reads the working copy, or the factory copy, from.
    static constexpr const char* WorkingConfig = "/mnt/mtd/code/config_file/protocolconfig.xml";
    static constexpr const char* FactoryConfig = "/mnt/mtd/code/factory_setting/protocolconfig.xml";

    /// @return where a path of the device is on the machine that runs the tests.
    std::string onHost(const std::string& devicePath) const { return layout.path() + devicePath; }

    /// Writes a file at a path of the device.
    void write(const std::string& devicePath, const std::string& content) const;
    void writeExecutable(const std::string& devicePath, const std::string& content) const;

    /// Puts a start program into the service directory: a shell script that records its path and arguments, then does
    /// `body`.
    void addStartProgram(const std::string& name, const std::string& body = "") const;

    /// Takes the service directory away; a path that does not exist is not there in the next run either.
    void removeServiceDirectory() const;

    /// Takes the recording killall away: the machine's own is found from then on.
    void useRealKillall() const;

    /// Runs the command under test with these arguments.
    DeviceRun run(const std::vector<std::string>& arguments) const;

    /// Runs any program on the device.
    DeviceRun runProgram(const std::string& program, const std::vector<std::string>& arguments) const;

    /// Runs a program with an argument vector that has not even the program's name.
    DeviceRun runWithoutArgumentVector(const std::string& program) const;

    /// Runs a shell script on the device, in which $WYVERN is the command under test. Not recorded under `commands`.
    DeviceRun runScript(const std::string& script) const;

private:
    DeviceRun runReported(const std::vector<std::string>& reporterArguments) const;
    std::vector<std::string> recorded(const std::string& name) const;

    TemporaryDirectory layout;
};

/// One entry of a protocol configuration.
struct ConfigEntry {
    std::string name;
    bool enabled = true;
};

/// @return a protocol configuration in the bytes of the names, declared as UTF-8 if nothing else is asked for.
std::string ProtocolConfigText(const std::vector<ConfigEntry>& entries,
                               const std::string& declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n");
