#pragma once

#include "check/DeviceRoot.h"
#include "check/ElfFile.h"
#include "check/FindingList.h"
#include "check/InterpreterLine.h"
#include "check/LibrarySearch.h"

#include <set>
#include <string>

/// Will it run: what the kernel, the shell and the dynamic linker of the device will say of a program, found out without
/// running it.
///
/// Owns:    what it has read of the device's libraries. The root and the findings must outlive it.
/// Fails:   throws only std::bad_alloc.
/// Threads: one at a time per object.
class ProgramRules {
public:
    /// Scripts of which each is the interpreter of the one before that the kernel runs. Tried with Linux 6.18; execve(2)
    /// grants "four recursions" since 2.6.28.
    static constexpr int MaxScripts = 5;

    ProgramRules(const DeviceRoot& deviceRoot, FindingList& findingList);

    /// Whether the tree is only a part of a device's, such as what is laid over a system that comes from elsewhere: it has
    /// neither /bin nor /usr/bin. What the system brings along (interpreters, libraries, killall) cannot be missed then.
    bool isPartialTree() const noexcept { return isPartial; }

    /// Looks at a start program or a server.
    /// @param path on the device.
    void check(const std::string& path);

    /// Looks at what the launcher needs whatever it is to run: the shell, and that nobody else may write where the
    /// configurations and the start programs stand.
    void checkGround();

    /// @return the device path of a program that a shell of the device would find by its name, empty for none.
    std::string findInPath(const std::string& name) const;

private:
    void checkScript(const std::string& program, const std::string& path, const InterpreterLine& line, int before);
    void checkEnv(const std::string& path, const InterpreterLine& line, const DeviceEntry& env);
    void checkElf(const std::string& path, const std::string& realPath);
    void checkKind(const std::string& path, const ElfFile& file);
    void checkDynamic(const std::string& path, const std::string& realPath, const ElfFile& file);
    void checkShell();
    void checkWritable(const std::string& path);
    bool canRun(const std::string& path, const char* rule, const std::string& what, const DeviceEntry& entry);
    void add(const std::string& path, const char* rule, const std::string& text);

    const DeviceRoot& root;
    FindingList& findings;
    LibrarySearch libraries;
    bool isPartial;
    std::string referencePath; ///< a program of the system, by which the image's machine is known; empty for none
    ElfFile reference;
    std::set<std::string> checked; ///< each path once, whatever configuration names it
};
