#include "check/ProgramRules.h"

#include "launcher/ConfigurationCopies.h"
#include "launcher/ServiceCommand.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace {

// Where a shell without a PATH of its own looks, and what init systems set.
constexpr std::array<const char*, 6> PathDirectories = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                                        "/usr/bin",        "/sbin",          "/bin"};
// Programs of the system that are rarely scripts.
constexpr std::array<const char*, 6> SystemPrograms = {"/bin/sh",   "/bin/busybox",     "/sbin/init",
                                                       "/bin/bash", "/usr/bin/killall", "/lib/systemd/systemd"};
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
        if (root.look(path).isExecutable()) {
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
    case DeviceEntry::Kind::Unreachable:
        add(path, "not-looked-at", "it cannot be looked at here, so nothing is known of it");
        return;
    case DeviceEntry::Kind::File:
        break;
    default:
        add(path, "not-a-program", "this is no regular file and cannot be run");
        return;
    }
    if (!entry.isExecutable()) {
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
    checkScript(path, path, ReadInterpreterLine(head), 0);
    checkElf(path, entry.path);
}

// Whether the kernel would run what a program is run by; if not, why.
bool ProgramRules::canRun(const std::string& path, const char* rule, const std::string& what,
                          const DeviceEntry& entry) {
    if (entry.kind == DeviceEntry::Kind::Unreachable) {
        add(path, "not-looked-at", what + " cannot be looked at here");
    } else if (entry.kind != DeviceEntry::Kind::File) {
        add(path, rule, what + " is not in the image");
    } else if (!entry.isExecutable()) {
        add(path, rule, what + " is not executable");
    } else {
        return true;
    }
    return false;
}

// A script, and what runs it: a script itself, at times.
// @param program by which the launcher or its shell comes to this script; `before`: the scripts in between.
void ProgramRules::checkScript(const std::string& program, const std::string& path, const InterpreterLine& line,
                               int before) {
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
    if (before == MaxScripts) {
        add(program, "interpreter-chain",
            "its interpreter is a script, and so on: the kernel runs " + std::to_string(MaxScripts) +
                " scripts one by the other, and this leads over more");
        return;
    }
    if (line.isPathCut) {
        add(path, "interpreter-missing",
            "the interpreter's path does not end within the " + std::to_string(InterpreterLine::KernelBuffer) +
                " bytes that the kernel looks at, which takes the file for no script");
        return;
    }
    if (line.isLong) {
        add(path, "interpreter-line-long",
            "the interpreter line has more than " + std::to_string(InterpreterLine::OldKernelBuffer - 1) +
                " bytes, where kernels before 5.1 cut it; later ones do so at " +
                std::to_string(InterpreterLine::KernelBuffer - 1));
    }
    if (isPartial) {
        return;
    }
    const std::string interpreter = line.interpreter.substr(0, line.interpreter.find('\r'));
    if (!interpreter.empty() && interpreter.front() != '/') {
        add(path, "interpreter-relative",
            "the interpreter \"" + interpreter +
                "\" is looked for in the launcher's working directory, which is not known");
        return;
    }
    const DeviceEntry entry = root.look(interpreter);
    if (!canRun(path, "interpreter-missing", "the interpreter \"" + interpreter + "\"", entry)) {
        return;
    }
    std::string head;
    if (root.read(entry.path, InterpreterLine::KernelBuffer + 1, head)) {
        checkScript(program, interpreter, ReadInterpreterLine(head), before + 1);
        checkElf(interpreter, entry.path);
    }
    if (line.goesThroughEnv()) {
        checkEnv(path, line, entry);
    }
}

void ProgramRules::checkEnv(const std::string& path, const InterpreterLine& line, const DeviceEntry& env) {
    const std::string file = env.path.substr(env.path.find_last_of('/') + 1);
    if (file == "busybox" && line.argument.compare(0, 2, "-S") == 0) {
        add(path, "interpreter-missing", "the env of BusyBox has no option -S");
        return;
    }
    const std::optional<std::string> program = line.program();
    const bool isPath = program && program->find('/') != std::string::npos;
    if (!program || (isPath && program->front() != '/')) { // it cannot be said, or depends on the current directory
        return;
    }
    if (program->empty()) {
        add(path, "interpreter-missing", "env gets \"" + line.argument + "\" as one argument and runs nothing");
        return;
    }
    const std::string found = isPath ? *program : findInPath(*program);
    if (found.empty()) {
        add(path, "interpreter-missing", "env finds no \"" + *program + "\" in the image");
        return;
    }
    const DeviceEntry entry = root.look(found);
    if (canRun(path, "interpreter-missing", "the interpreter \"" + found + "\"", entry)) {
        checkElf(found, entry.path);
    }
}

void ProgramRules::checkElf(const std::string& path, const std::string& realPath) {
    const ElfFile* read = libraries.read(realPath);
    if (read == nullptr) {
        add(path, "not-looked-at",
            libraries.isExhausted() ? "so many programs and libraries were looked at before that this one was not"
                                    : "it cannot be read here, so nothing is known of its content");
        return;
    }
    if (read->state == ElfFile::State::NotElf) {
        return;
    }
    if (read->state == ElfFile::State::Damaged || !read->isProgramOrLibrary) {
        add(path, "elf-damaged",
            "its ELF headers are no program's, or lead out of the file: it was cut or overwritten");
        return;
    }
    if (!referencePath.empty()) {
        checkKind(path, *read);
    }
    if (!isPartial) {
        checkDynamic(path, realPath, *read);
    }
}

void ProgramRules::checkKind(const std::string& path, const ElfFile& file) {
    const std::string theirs = " of the image's " + referencePath;
    if (file.isLittleEndian == reference.isLittleEndian && IsSmallerKin(file, reference)) {
        add(path, "elf-32-bit",
            "it is for " + ElfMachineName(file.machine) + " with 32 bits, unlike the " +
                ElfMachineName(reference.machine) + " with 64" + theirs);
        return;
    }
    if (file.bits != reference.bits) {
        add(path, "elf-class",
            "it is for " + std::to_string(file.bits) + " bits, unlike the " + std::to_string(reference.bits) + theirs);
    }
    if (file.isLittleEndian != reference.isLittleEndian) {
        add(path, "elf-byte-order", "it is " + OrderName(file) + ", unlike the " + OrderName(reference) + theirs);
    }
    if (file.machine != reference.machine) {
        add(path, "elf-machine",
            "it is for " + ElfMachineName(file.machine) + ", unlike the " + ElfMachineName(reference.machine) + theirs);
    }
}

void ProgramRules::checkDynamic(const std::string& path, const std::string& realPath, const ElfFile& file) {
    if (!file.interpreter.empty()) {
        static_cast<void>(canRun(path, "elf-interpreter-missing", "its dynamic linker \"" + file.interpreter + "\"",
                                 root.look(file.interpreter)));
    }
    const LibrarySearch::Result& found = libraries.look(realPath, file);
    for (const LibrarySearch::Missing& missing : found.missing) {
        add(path, "library-missing",
            "the library \"" + missing.library + "\" is not in the image" +
                (missing.neededBy == realPath ? std::string() : ", needed by " + missing.neededBy));
    }
    if (!found.leftOut.empty()) {
        add(path, "not-looked-at", found.leftOut);
    }
}

void ProgramRules::checkGround() {
    checkWritable(WorkingCopyPath());
    checkWritable(FactoryCopyPath());
    checkWritable(ServiceCommand::ServiceDir);
    if (!isPartial) {
        checkShell();
    }
}

void ProgramRules::checkShell() {
    const std::string shell = "/bin/sh";
    if (!canRun(shell, "shell-missing", "the shell, which runs all commands of the launcher,", root.look(shell))) {
        return;
    }
    std::string head;
    if (root.read(shell, InterpreterLine::KernelBuffer, head) && !IsElf(head) && !ReadInterpreterLine(head).isPresent) {
        add(shell, "shell-missing", "the shell is neither an ELF program nor a script with an interpreter line");
        return;
    }
    check(shell);
}

// Whoever may write a directory may put another file in the place of one that he may not write.
void ProgramRules::checkWritable(const std::string& path) {
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        const std::string directory = path.substr(0, end);
        const DeviceEntry entry = root.look(directory);
        if (entry.kind == DeviceEntry::Kind::Directory && (entry.mode & WriteByOthers) != 0) {
            add(directory, "writable-by-others",
                "its group or everyone may put files into it: whoever does decides what runs as root");
        }
    }
    const DeviceEntry entry = root.look(path);
    if (entry.kind == DeviceEntry::Kind::File && (entry.mode & WriteByOthers) != 0) {
        add(path, "writable-by-others", "its group or everyone may write it: whoever does decides what runs as root");
    }
}
