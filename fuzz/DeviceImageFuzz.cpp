// What wyvern-check reads of an image that may be anybody's. The first byte chooses: an ELF file, the first line of a
// script and its commands, or a tree of links, whose every path must lead where the kernel says.

#include "check/DeviceRoot.h"
#include "check/ElfFile.h"
#include "check/EscapedText.h"
#include "check/InterpreterLine.h"
#include "check/StartScript.h"
#include "check/Utf8.h"
#include "fuzz/Check.h"
#include "tests/support/ElfText.h"
#include "tests/support/OpenInRoot.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

// Where links are made, from the top down; the directories among them are there from the start.
constexpr std::array<const char*, 8> Places = {"/b", "/c", "/a/a", "/a/c", "/a/b/a", "/a/b/b", "/a/b/c/a", "/a/b/c/b"};

// So that no way is longer than what `DeviceRoot` follows, of which the kernel knows nothing.
constexpr size_t MaxLine = 16;

void Expect(bool holds, const char* what) {
    if (!holds) {
        Fail(what);
    }
}

void CheckElf(const std::string& content) {
    const ElfFile file = ReadElfText(content);

    Expect(file.needed.size() <= 256, "more libraries than a linker writes");
    Expect(file.interpreter.size() <= content.size(), "an interpreter longer than the file");
    Expect((file.state == ElfFile::State::NotElf) == (content.compare(0, 4,
                                                                      "\x7F"
                                                                      "ELF") != 0),
           "a file is ELF by its first bytes");
    Expect(file.state != ElfFile::State::Read || file.bits == 32 || file.bits == 64, "a class that there is not");
}

void CheckLine(const std::string& content) {
    const InterpreterLine line = ReadInterpreterLine(content);

    Expect(line.interpreter.find_first_of(" \t\n") == std::string::npos, "a blank in the interpreter");
    Expect(line.interpreter.empty() != line.isPresent, "an interpreter that is not there");
    Expect(line.argument.find('\n') == std::string::npos, "a line end in the argument");
    Expect(line.interpreter.size() + line.argument.size() <= InterpreterLine::KernelBuffer,
           "more than the kernel reads");
    static_cast<void>(line.program());
    static_cast<void>(StartsThroughInterpreter(content, "A", {"/A"}));
    const std::string printable = EscapedText(content);
    Expect(FirstInvalidUtf8(printable) == std::string::npos, "an escaped text is UTF-8");
    Expect(printable.find_first_of("\t\n\x1B") == std::string::npos, "an escaped text moves a cursor");
}

/// The links' targets and then the paths that are looked at, one a line.
void CheckLinks(const std::string& text) {
    std::string root = (fs::temp_directory_path() / "wyvern-fuzz-XXXXXX").string();
    Expect(mkdtemp(root.data()) != nullptr, "no directory");
    fs::create_directories(root + "/a/b/c");
    const DeviceRoot device(root);
    size_t place = 0;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size());
        const std::string line = text.substr(start, std::min<size_t>(end - start, MaxLine)).c_str();
        start = end + 1;
        std::error_code ignored;
        if (place < Places.size()) {
            fs::create_symlink(line, root + Places.at(place++), ignored);
            continue;
        }
        const OpenedInRoot kernel(root, "/" + line);
        const DeviceEntry entry = device.look("/" + line);
        Expect((entry.kind == DeviceEntry::Kind::Directory) == (kernel.error == 0),
               "a path leads elsewhere than the kernel says");
        Expect((entry.kind == DeviceEntry::Kind::LinkLoop) == (kernel.error == ELOOP),
               "a loop that the kernel does not see, or the other way round");
        Expect(entry.inode == kernel.status.st_ino, "another entry than the kernel finds");
    }
    fs::remove_all(root);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string content(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 3) {
    case 0:
        CheckElf(content);
        break;
    case 1:
        CheckLine(content);
        break;
    default:
        CheckLinks(content);
        break;
    }
    return 0;
}
