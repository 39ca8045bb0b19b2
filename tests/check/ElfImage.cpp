#include "tests/check/ElfImage.h"

#include <elf.h>

#include <cstddef>

namespace {

/// Numbers in the byte order of the file.
class Writer {
public:
    Writer(bool isLittleEndian, bool isWide) : isLittle(isLittleEndian), is64(isWide) {}

    void number(uint64_t value, size_t size) {
        for (size_t i = 0; i < size; ++i) {
            const size_t shift = 8 * (isLittle ? i : size - 1 - i);
            out += static_cast<char>(value >> shift & 0xFFU);
        }
    }

    void word(uint64_t value) { number(value, is64 ? 8 : 4); }

    std::string out;

private:
    bool isLittle;
    bool is64;
};

} // namespace

std::string ElfImage::bytes() const {
    const size_t headerSize = is64 ? sizeof(Elf64_Ehdr) : sizeof(Elf32_Ehdr);
    const size_t segmentSize = is64 ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr);
    const size_t segments = interpreter.empty() ? 2 : 3;
    const size_t textsAt = headerSize + segments * segmentSize;
    std::string texts(1, '\0');
    const auto add = [&texts](const std::string& text) {
        const size_t at = texts.size();
        texts += text + '\0';
        return at;
    };
    const size_t interpreterAt = textsAt + add(interpreter);
    std::vector<std::pair<uint64_t, uint64_t>> dynamic;
    for (const std::string& library : needed) {
        dynamic.emplace_back(DT_NEEDED, add(library));
    }
    if (!soname.empty()) {
        dynamic.emplace_back(DT_SONAME, add(soname));
    }
    if (!runPath.empty()) {
        dynamic.emplace_back(hasOldRunPath ? DT_RPATH : DT_RUNPATH, add(runPath));
    }
    dynamic.emplace_back(DT_STRTAB, textsAt);
    dynamic.emplace_back(DT_STRSZ, texts.size());
    dynamic.emplace_back(DT_NULL, 0);
    const size_t dynamicAt = textsAt + texts.size();
    const size_t dynamicSize = dynamic.size() * (is64 ? 16 : 8);
    const size_t size = dynamicAt + dynamicSize;

    Writer file(isLittle, is64);
    file.out = std::string(ELFMAG) + static_cast<char>(is64 ? ELFCLASS64 : ELFCLASS32) +
               static_cast<char>(isLittle ? ELFDATA2LSB : ELFDATA2MSB) + '\1' + std::string(9, '\0');
    file.number(type, 2);
    file.number(machine, 2);
    file.number(1, 4);
    file.word(0);          // entry
    file.word(headerSize); // segments
    file.word(0);          // sections
    file.number(0, 4);
    file.number(headerSize, 2);
    file.number(segmentSize, 2);
    file.number(segments, 2);
    file.number(0, 6); // sections
    const auto segment = [&file, this](uint32_t kind, uint64_t at, uint64_t length) {
        file.number(kind, 4);
        if (is64) {
            file.number(4, 4);
        }
        for (const uint64_t value : {at, at, at, length, length}) { // offset, addresses, sizes
            file.word(value);
        }
        if (!is64) {
            file.number(4, 4);
        }
        file.word(1);
    };
    segment(PT_LOAD, 0, size);
    if (!interpreter.empty()) {
        segment(PT_INTERP, interpreterAt, interpreter.size() + 1);
    }
    segment(PT_DYNAMIC, dynamicAt, dynamicSize);
    file.out += texts;
    for (const auto& entry : dynamic) {
        file.word(entry.first);
        file.word(entry.second);
    }
    return file.out;
}
