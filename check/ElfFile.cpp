#include "check/ElfFile.h"

#include <elf.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace {

// More than any linker writes; a hostile file may claim more.
constexpr size_t MaxSegments = 1024;
constexpr size_t MaxDynamicEntries = 4096;
constexpr size_t MaxNeeded = 256;
constexpr size_t MaxText = 4096; // of one path or name

std::string MoreThan(size_t count, const char* what) {
    return "more than " + std::to_string(count) + " " + what;
}

/// The bytes of a file of either byte order and size, read only where the file has them.
class Source {
public:
    Source(uint64_t fileSize, const ReadAt& reader) : size(fileSize), readAt(reader) {}

    bool has(uint64_t offset, uint64_t count) const { return offset <= size && count <= size - offset; }

    // All of them; or none, and `isDamaged` from then on, where the file ends before.
    std::string bytes(uint64_t offset, uint64_t count) {
        std::string read = has(offset, count) ? readAt(offset, static_cast<size_t>(count)) : std::string();
        if (read.size() == count) {
            return read;
        }
        damage();
        return {};
    }

    // A text that ends with a zero byte before `end`.
    std::string text(uint64_t offset, uint64_t end) {
        end = std::min(end, size);
        const std::string read = bytes(offset, offset < end ? std::min<uint64_t>(end - offset, MaxText) : 0);
        const size_t zero = read.find('\0');
        if (zero == std::string::npos) {
            if (read.size() == MaxText && end - offset > MaxText) {
                leftOut = MoreThan(MaxText - 1, "bytes in a name or run path");
            } else {
                damage();
            }
            return {};
        }
        return read.substr(0, zero);
    }

    void damage() { damaged = true; }
    bool isDamaged() const { return damaged; }

    const uint64_t size;
    bool is64 = false;
    bool isLittle = false;
    std::string leftOut; // as in ElfFile

private:
    const ReadAt& readAt; // of one parse: the object lives no longer
    bool damaged = false;
};

/// Numbers out of bytes that were read as one piece; zero behind their end, as where the file was too short for it.
class Numbers {
public:
    Numbers(std::string piece, const Source& source)
        : bytes(std::move(piece)), is64(source.is64), isLittle(source.isLittle) {}

    uint64_t number(size_t offset, size_t size) const {
        uint64_t value = 0;
        for (size_t i = 0; i < size && offset + size <= bytes.size(); ++i) {
            const size_t at = isLittle ? size - 1 - i : i;
            value = value << 8U | static_cast<unsigned char>(bytes[offset + at]);
        }
        return value;
    }

    // A field that stands at one offset in a file of 32 bits and at another in one of 64, with 4 and 8 bytes.
    uint64_t word(size_t base, size_t offset32, size_t offset64) const {
        return is64 ? number(base + offset64, 8) : number(base + offset32, 4);
    }

private:
    std::string bytes;
    bool is64;
    bool isLittle;
};

struct Segment {
    uint64_t type;
    uint64_t offset;
    uint64_t address;
    uint64_t size;
};

std::vector<Segment> ReadSegments(const Numbers& header, Source& source) {
    const uint64_t start = header.word(0, offsetof(Elf32_Ehdr, e_phoff), offsetof(Elf64_Ehdr, e_phoff));
    const size_t sizeAt = source.is64 ? offsetof(Elf64_Ehdr, e_phentsize) : offsetof(Elf32_Ehdr, e_phentsize);
    const size_t countAt = source.is64 ? offsetof(Elf64_Ehdr, e_phnum) : offsetof(Elf32_Ehdr, e_phnum);
    const size_t entrySize = source.is64 ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr);
    const size_t count = std::min<size_t>(header.number(countAt, 2), MaxSegments);
    if (header.number(countAt, 2) > MaxSegments) {
        source.leftOut = MoreThan(MaxSegments, "segments");
    }
    std::vector<Segment> segments;
    if (count > 0 && header.number(sizeAt, 2) != entrySize) { // the kernel refuses it, too
        source.damage();
        return segments;
    }
    const Numbers table(source.bytes(start, count * entrySize), source);
    for (size_t base = 0; base < count * entrySize; base += entrySize) {
        segments.push_back({table.number(base, 4),
                            table.word(base, offsetof(Elf32_Phdr, p_offset), offsetof(Elf64_Phdr, p_offset)),
                            table.word(base, offsetof(Elf32_Phdr, p_vaddr), offsetof(Elf64_Phdr, p_vaddr)),
                            table.word(base, offsetof(Elf32_Phdr, p_filesz), offsetof(Elf64_Phdr, p_filesz))});
    }
    return segments;
}

const Segment* FirstOf(const std::vector<Segment>& segments, uint64_t type) {
    const auto found =
        std::find_if(segments.begin(), segments.end(), [type](const Segment& segment) { return segment.type == type; });
    return found == segments.end() ? nullptr : &*found;
}

// Where in the file an address is loaded from; the end of the file for none.
uint64_t OffsetOfAddress(const std::vector<Segment>& segments, uint64_t address, const Source& source) {
    for (const Segment& segment : segments) {
        if (segment.type == PT_LOAD && address >= segment.address && address - segment.address < segment.size &&
            source.has(segment.offset, address - segment.address)) {
            return segment.offset + (address - segment.address);
        }
    }
    return source.size;
}

void ReadDynamic(const Segment& dynamic, const std::vector<Segment>& segments, Source& source, ElfFile& out) {
    const size_t entrySize = source.is64 ? sizeof(Elf64_Dyn) : sizeof(Elf32_Dyn);
    const size_t count = std::min<uint64_t>(dynamic.size / entrySize, MaxDynamicEntries);
    const Numbers table(source.bytes(dynamic.offset, count * entrySize), source);
    std::vector<uint64_t> needed;
    std::map<uint64_t, uint64_t> values; // by their tag, of those that stand there once; DT_NULL is found last
    for (size_t i = 0; i < count && values.count(DT_NULL) == 0; ++i) {
        const uint64_t tag = table.word(i * entrySize, 0, 0);
        const uint64_t value = table.word(i * entrySize, 4, 8);
        values[tag] = value;
        if (tag == DT_NEEDED && needed.size() == MaxNeeded) {
            source.leftOut = MoreThan(MaxNeeded, "libraries");
        } else if (tag == DT_NEEDED) {
            needed.push_back(value);
        }
    }
    if (count == MaxDynamicEntries && values.count(DT_NULL) == 0) {
        source.leftOut = MoreThan(MaxDynamicEntries - 1, "dynamic entries");
    }
    const uint64_t start = OffsetOfAddress(segments, values[DT_STRTAB], source);
    const uint64_t end = start + std::min(values[DT_STRSZ], source.size);
    const auto textAt = [&source, start, end](uint64_t offset) {
        return source.text(offset > end ? end : start + offset, end);
    };
    for (const uint64_t offset : needed) {
        out.needed.push_back(textAt(offset));
    }
    if (values[DT_SONAME] != 0) {
        out.soname = textAt(values[DT_SONAME]);
    }
    out.hasOldRunPath = values[DT_RUNPATH] == 0 && values[DT_RPATH] != 0;
    if (out.hasOldRunPath || values[DT_RUNPATH] != 0) {
        out.runPath = textAt(values[out.hasOldRunPath ? DT_RPATH : DT_RUNPATH]);
    }
}

} // namespace

ElfFile ReadElfFile(uint64_t size, const ReadAt& readAt) {
    ElfFile file;
    const std::string head = readAt(0, sizeof(Elf64_Ehdr)); // the longer one; of a short file, what there is
    if (!IsElf(head)) {
        return file;
    }
    file.state = ElfFile::State::Damaged;
    if (head.size() < sizeof(Elf32_Ehdr)) {
        return file;
    }
    const char bits = head[EI_CLASS];
    const char order = head[EI_DATA];
    if ((bits == ELFCLASS64 && head.size() < sizeof(Elf64_Ehdr)) || (bits != ELFCLASS32 && bits != ELFCLASS64) ||
        (order != ELFDATA2LSB && order != ELFDATA2MSB)) {
        return file;
    }
    Source source(size, readAt);
    source.is64 = bits == ELFCLASS64;
    source.isLittle = order == ELFDATA2LSB;
    file.bits = source.is64 ? 64 : 32;
    file.isLittleEndian = source.isLittle;
    const Numbers header(head, source);
    const uint64_t type = header.number(offsetof(Elf32_Ehdr, e_type), 2);
    file.isProgramOrLibrary = type == ET_EXEC || type == ET_DYN;
    file.machine = static_cast<uint16_t>(header.number(offsetof(Elf32_Ehdr, e_machine), 2));

    const std::vector<Segment> segments = ReadSegments(header, source);
    if (std::any_of(segments.begin(), segments.end(), [&source](const Segment& segment) {
            return segment.type == PT_LOAD && !source.has(segment.offset, segment.size);
        })) {
        source.damage(); // the file was cut
    }
    if (const Segment* interpreter = FirstOf(segments, PT_INTERP)) {
        // The kernel refuses a longer one.
        const uint64_t length = std::min<uint64_t>(interpreter->size, MaxText);
        file.interpreter = source.text(interpreter->offset, interpreter->offset + length);
    }
    if (const Segment* dynamic = FirstOf(segments, PT_DYNAMIC)) {
        ReadDynamic(*dynamic, segments, source, file);
    }
    file.leftOut = source.leftOut;
    file.state = source.isDamaged() ? ElfFile::State::Damaged : ElfFile::State::Read;
    return file;
}

bool IsElf(const std::string& head) {
    return head.compare(0, SELFMAG, ELFMAG) == 0;
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

bool IsSmallerKin(const ElfFile& file, const ElfFile& reference) {
    constexpr std::array<std::pair<uint16_t, uint16_t>, 3> Kin = {
        {{EM_386, EM_X86_64}, {EM_ARM, EM_AARCH64}, {EM_PPC, EM_PPC64}}};
    return file.bits < reference.bits &&
           (file.machine == reference.machine ||
            std::find(Kin.begin(), Kin.end(), std::make_pair(file.machine, reference.machine)) != Kin.end());
}
