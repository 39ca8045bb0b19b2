#include "check/ProgramRules.h"

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

// Where a shell without a PATH of its own looks, and what init systems set.
constexpr std::array<const char*, 6> PathDirectories = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                                        "/usr/bin",        "/sbin",          "/bin"};
// Programs of the system that are rarely scripts.
constexpr std::array<const char*, 6> SystemPrograms = {"/bin/sh",   "/bin/busybox",     "/sbin/init",
                                                       "/bin/bash", "/usr/bin/killall", "/lib/systemd/systemd"};
constexpr uint32_t AnyExecute = 0111;
constexpr uint32_t WriteByOthers = 022;

bool IsDirectory(const DeviceRoot& root, const char* path) {
    return root.look(path).kind == DeviceEntry::Kind::Directory;
}

std::string OrderName(const ElfFile& file) {
    return file.isLittleEndian ? "little-endian" : "big-endian";
}

} // namespace

ProgramRules::ProgramRules(const DeviceRoot& deviceRoot, FindingList& findingList)
    : root(deviceRoot),
      findings(findingList),
      libraries(deviceRoot),
      isPartial(!IsDirectory(deviceRoot, "/bin") && !IsDirectory(deviceRoot, "/usr/bin")) {
    for (const char* path : SystemPrograms) {
        const ElfFile* file = libraries.read(path);
        if (file != nullptr && file->state == ElfFile::State::Read) {
            referencePath = path;
            reference = *file;
            return;
        }
    }
}

void ProgramRules::add(const std::string& path, const char* rule, const std::string& text) {
    findings.add(root.onHost(path), {}, rule, text);
}

std::string ProgramRules::findInPath(const std::string& name) const {
    for (const char* directory : PathDirectories) {
        std::string path = std::string(directory) + "/" + name;
        const DeviceEntry entry = root.look(path);
        if (entry.kind == DeviceEntry::Kind::File && (entry.mode & AnyExecute) != 0) {
            return path;
        }
    }
    return {};
}

void ProgramRules::check(const std::string& path) {
    if (!checked.insert(path).second) {
        return;
    }
    const DeviceEntry entry = root.look(path);
    switch (entry.kind) {
    case DeviceEntry::Kind::DanglingLink:
        add(path, "link-dangling", "this link leads to nothing in the image");
        return;
    case DeviceEntry::Kind::LinkLoop:
        add(path, "link-loop", "this link leads to itself, or over too many others");
        return;
    case DeviceEntry::Kind::Directory:
    case DeviceEntry::Kind::Other:
        add(path, "not-a-program", "this is no regular file and cannot be run");
        return;
    case DeviceEntry::Kind::File:
        break;
    default:
        add(path, "not-looked-at", "it cannot be looked at here, so nothing is known of it");
        return;
    }
    if ((entry.mode & AnyExecute) == 0) {
        add(path, "not-executable", "it has no execute permission: the shell refuses to run it");
    }
    if ((entry.mode & WriteByOthers) != 0) {
        add(path, "writable-by-others", "its group or everyone may write it: whoever does is root at the next start");
    }
    if (entry.size == 0) {
        add(path, "file-empty", "it is empty: the shell runs it as a script that does nothing");
        return;
    }
    std::string head;
    if (!root.read(path, InterpreterLine::KernelBuffer + 1, head)) {
        add(path, "not-looked-at", "it cannot be read here, so nothing is known of its content");
        return;
    }
    checkScript(path, ReadInterpreterLine(head), 0);
    checkElf(path, entry.path);
}

void ProgramRules::checkScript(const std::string& path, const InterpreterLine& line, int depth) {
    if (line.hasByteOrderMark) {
        add(path, "interpreter-byte-order-mark",
            "a byte-order mark stands before \"#!\": the kernel takes it for no script");
        return;
    }
    if (line.hasCarriageReturn) {
        add(path, "interpreter-crlf", "the interpreter line ends in CR LF, and the CR counts as part of its last word");
    }
    if (!line.isPresent) {
        return;
    }
    if (line.isCut) {
        add(path, "interpreter-missing",
            "the interpreter line is longer than the " + std::to_string(InterpreterLine::KernelBuffer) +
                " bytes that the kernel looks at");
        return;
    }
    if (isPartial) {
        return;
    }
    const std::string program = line.program();
    if (line.goesThroughEnv()) {
        if (program.empty() || (program.find('/') == std::string::npos && findInPath(program).empty())) {
            add(path, "interpreter-missing", "env finds no \"" + program + "\" in the image");
        }
        return;
    }
    const DeviceEntry entry = root.look(program);
    std::string head;
    if (program.front() != '/' || entry.kind != DeviceEntry::Kind::File) {
        add(path, "interpreter-missing", "the interpreter \"" + program + "\" is not in the image");
    } else if ((entry.mode & AnyExecute) == 0) {
        add(path, "interpreter-missing", "the interpreter \"" + program + "\" is not executable");
    } else if (depth + 1 < MaxInterpreters && root.read(entry.path, InterpreterLine::KernelBuffer + 1, head)) {
        checkScript(program, ReadInterpreterLine(head), depth + 1);
        checkElf(program, entry.path);
    }
}

void ProgramRules::checkElf(const std::string& path, const std::string& realPath) {
    const ElfFile* read = libraries.read(realPath);
    if (read == nullptr || read->state == ElfFile::State::NotElf) {
        return;
    }
    const ElfFile& file = *read;
    if (file.state == ElfFile::State::Damaged || !file.isProgramOrLibrary) {
        add(path, "elf-damaged",
            "its ELF headers are no program's, or lead out of the file: it was cut or overwritten");
        return;
    }
    if (!referencePath.empty()) {
        const std::string theirs = " of the image's " + referencePath;
        if (file.bits != reference.bits) {
            add(path, "elf-class",
                "it is for " + std::to_string(file.bits) + " bits, unlike the " + std::to_string(reference.bits) +
                    theirs);
        }
        if (file.isLittleEndian != reference.isLittleEndian) {
            add(path, "elf-byte-order", "it is " + OrderName(file) + ", unlike the " + OrderName(reference) + theirs);
        }
        if (file.machine != reference.machine) {
            add(path, "elf-machine",
                "it is for " + ElfMachineName(file.machine) + ", unlike the " + ElfMachineName(reference.machine) +
                    theirs);
        }
    }
    if (isPartial) {
        return;
    }
    if (!file.interpreter.empty() && root.look(file.interpreter).kind != DeviceEntry::Kind::File) {
        add(path, "elf-interpreter-missing", "its dynamic linker \"" + file.interpreter + "\" is not in the image");
    }
    for (const LibrarySearch::Missing& missing : libraries.missing(realPath, file)) {
        add(path, "library-missing",
            "the library \"" + missing.library + "\" is not in the image" +
                (missing.neededBy == realPath ? std::string() : ", needed by " + missing.neededBy));
    }
}
