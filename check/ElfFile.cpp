#include "check/ElfFile.h"

#include <elf.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

// More than any linker writes; a hostile file may claim more.
constexpr size_t MaxSegments = 1024;
constexpr size_t MaxDynamicEntries = 4096;
constexpr size_t MaxNeeded = 256;
constexpr size_t MaxText = 4096; // of one path or name

/// Numbers of a file of either byte order and size, read only where the file has them.
class Bytes {
public:
    Bytes(const std::string& fileContent, bool fileIs64, bool fileIsLittle)
        : content(fileContent), is64(fileIs64), isLittle(fileIsLittle) {}

    bool has(uint64_t offset, uint64_t size) const {
        return offset <= content.size() && size <= content.size() - offset;
    }

    // Zero, and `isDamaged` from then on, where the file ends before.
    uint64_t number(uint64_t offset, size_t size) {
        if (!has(offset, size)) {
            damaged = true;
            return 0;
        }
        uint64_t value = 0;
        for (size_t i = 0; i < size; ++i) {
            const size_t at = isLittle ? size - 1 - i : i;
            value = value << 8U | static_cast<unsigned char>(content[static_cast<size_t>(offset) + at]);
        }
        return value;
    }

    // A field that stands at one offset in a file of 32 bits and at another in one of 64, with 4 and 8 bytes.
    uint64_t word(uint64_t base, size_t offset32, size_t offset64) {
        return is64 ? number(base + offset64, 8) : number(base + offset32, 4);
    }

    // A text that ends with a zero byte before `end`.
    std::string text(uint64_t offset, uint64_t end) {
        end = std::min<uint64_t>(end, content.size());
        if (offset >= end) {
            damaged = true;
            return {};
        }
        const char* start = content.data() + offset;
        const size_t limit = std::min<uint64_t>(end - offset, MaxText);
        const void* zero = std::memchr(start, '\0', limit);
        if (zero == nullptr) {
            damaged = true;
            return {};
        }
        return {start, static_cast<const char*>(zero)};
    }

    bool isDamaged() const { return damaged; }

    // References and constants of one parse: the object lives no longer.
    const std::string& content;
    const bool is64;
    const bool isLittle;

private:
    bool damaged = false;
};

struct Segment {
    uint64_t type;
    uint64_t offset;
    uint64_t address;
    uint64_t size;
};

std::vector<Segment> ReadSegments(Bytes& bytes) {
    const uint64_t start = bytes.word(0, offsetof(Elf32_Ehdr, e_phoff), offsetof(Elf64_Ehdr, e_phoff));
    const uint64_t entrySize =
        bytes.number(bytes.is64 ? offsetof(Elf64_Ehdr, e_phentsize) : offsetof(Elf32_Ehdr, e_phentsize), 2);
    const uint64_t count = bytes.number(bytes.is64 ? offsetof(Elf64_Ehdr, e_phnum) : offsetof(Elf32_Ehdr, e_phnum), 2);
    std::vector<Segment> segments;
    for (uint64_t i = 0; i < std::min<uint64_t>(count, MaxSegments) && !bytes.isDamaged(); ++i) {
        const uint64_t base = start + i * entrySize;
        if (base > bytes.content.size()) {                            // never wraps: the first lies in the file
            static_cast<void>(bytes.number(bytes.content.size(), 1)); // marks the damage
            break;
        }
        segments.push_back({bytes.number(base, 4),
                            bytes.word(base, offsetof(Elf32_Phdr, p_offset), offsetof(Elf64_Phdr, p_offset)),
                            bytes.word(base, offsetof(Elf32_Phdr, p_vaddr), offsetof(Elf64_Phdr, p_vaddr)),
                            bytes.word(base, offsetof(Elf32_Phdr, p_filesz), offsetof(Elf64_Phdr, p_filesz))});
    }
    return segments;
}

// Where in the file an address is loaded from; the end of the file for none.
uint64_t OffsetOfAddress(const std::vector<Segment>& segments, uint64_t address, const Bytes& bytes) {
    for (const Segment& segment : segments) {
        if (segment.type == PT_LOAD && address >= segment.address && address - segment.address < segment.size &&
            bytes.has(segment.offset, address - segment.address)) {
            return segment.offset + (address - segment.address);
        }
    }
    return bytes.content.size();
}

void ReadDynamic(const Segment& dynamic, const std::vector<Segment>& segments, Bytes& bytes, ElfFile& out) {
    const size_t entrySize = bytes.is64 ? sizeof(Elf64_Dyn) : sizeof(Elf32_Dyn);
    const uint64_t count = std::min<uint64_t>(dynamic.size / entrySize, MaxDynamicEntries);
    if (!bytes.has(dynamic.offset, count * entrySize)) {
        static_cast<void>(bytes.number(bytes.content.size(), 1)); // marks the damage
        return;
    }
    std::vector<uint64_t> needed;
    uint64_t texts = 0;
    uint64_t textsSize = 0;
    uint64_t runPath = 0;
    uint64_t oldRunPath = 0;
    bool ended = false;
    for (uint64_t i = 0; i < count && !ended; ++i) {
        const uint64_t base = dynamic.offset + i * entrySize;
        const uint64_t value = bytes.word(base, 4, 8);
        switch (bytes.word(base, 0, 0)) {
        case DT_NEEDED:
            needed.push_back(value);
            break;
        case DT_STRTAB:
            texts = value;
            break;
        case DT_STRSZ:
            textsSize = value;
            break;
        case DT_RUNPATH:
            runPath = value;
            break;
        case DT_RPATH:
            oldRunPath = value;
            break;
        case DT_NULL:
            ended = true;
            break;
        default:
            break;
        }
    }
    const uint64_t start = OffsetOfAddress(segments, texts, bytes);
    const uint64_t end = start + std::min<uint64_t>(textsSize, bytes.content.size());
    const auto textAt = [&bytes, start, end](uint64_t offset) {
        return bytes.text(offset > end ? end : start + offset, end);
    };
    needed.resize(std::min(needed.size(), MaxNeeded));
    for (const uint64_t offset : needed) {
        out.needed.push_back(textAt(offset));
    }
    if (runPath != 0 || oldRunPath != 0) {
        out.runPath = textAt(runPath != 0 ? runPath : oldRunPath);
    }
}

} // namespace

ElfFile ReadElfFile(const std::string& content) {
    ElfFile file;
    if (content.compare(0, SELFMAG, ELFMAG) != 0) {
        return file;
    }
    file.state = ElfFile::State::Damaged;
    if (content.size() < sizeof(Elf32_Ehdr)) {
        return file;
    }
    const char bits = content[EI_CLASS];
    const char order = content[EI_DATA];
    if ((bits != ELFCLASS32 && bits != ELFCLASS64) || (order != ELFDATA2LSB && order != ELFDATA2MSB)) {
        return file;
    }
    file.bits = bits == ELFCLASS64 ? 64 : 32;
    file.isLittleEndian = order == ELFDATA2LSB;
    Bytes bytes(content, bits == ELFCLASS64, file.isLittleEndian);
    const uint64_t type = bytes.number(offsetof(Elf32_Ehdr, e_type), 2);
    file.isProgramOrLibrary = type == ET_EXEC || type == ET_DYN;
    file.machine = static_cast<uint16_t>(bytes.number(offsetof(Elf32_Ehdr, e_machine), 2));

    const std::vector<Segment> segments = ReadSegments(bytes);
    for (const Segment& segment : segments) {
        if (segment.type == PT_INTERP && bytes.has(segment.offset, segment.size)) {
            file.interpreter = bytes.text(segment.offset, segment.offset + segment.size);
        } else if (segment.type == PT_INTERP || (segment.type == PT_LOAD && !bytes.has(segment.offset, segment.size))) {
            static_cast<void>(bytes.number(content.size(), 1)); // the file was cut
        }
    }
    const auto dynamic = std::find_if(segments.begin(), segments.end(),
                                      [](const Segment& segment) { return segment.type == PT_DYNAMIC; });
    if (dynamic != segments.end()) {
        ReadDynamic(*dynamic, segments, bytes, file);
    }
    file.state = bytes.isDamaged() ? ElfFile::State::Damaged : ElfFile::State::Read;
    return file;
}

std::string ElfMachineName(uint16_t machine) {
    switch (machine) {
    case EM_386:
        return "x86";
    case EM_X86_64:
        return "x86-64";
    case EM_ARM:
        return "ARM";
    case EM_AARCH64:
        return "AArch64";
    case EM_MIPS:
        return "MIPS";
    case EM_PPC:
        return "PowerPC";
    case EM_PPC64:
        return "PowerPC64";
    case EM_RISCV:
        return "RISC-V";
    case EM_S390:
        return "S/390";
    default:
        return "machine " + std::to_string(machine);
    }
}
