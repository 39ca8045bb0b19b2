#include "check/EscapedText.h"

#include "check/Utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace {

uint32_t CharacterAt(const std::string& text, size_t at, size_t length) {
    const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
    // The first of several bytes tells their number by as many ones and a zero.
    uint32_t character = length == 1 ? byte(at) : byte(at) & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        character = character << 6U | (byte(at + i) & 0x3FU);
    }
    return character;
}

// The control characters, and those that are not seen but end a line, turn the direction of writing or hide.
bool MovesText(uint32_t character) {
    struct Range {
        uint32_t first;
        uint32_t last;
    };
    constexpr std::array<Range, 7> ranges = {{{0, 0x1F},
                                              {0x7F, 0x9F},
                                              {0x61C, 0x61C},
                                              {0x200B, 0x200F},
                                              {0x2028, 0x202E},
                                              {0x2060, 0x206F},
                                              {0xFEFF, 0xFEFF}}};
    return std::any_of(ranges.begin(), ranges.end(),
                       [character](const Range& range) { return character >= range.first && character <= range.last; });
}

} // namespace

std::string EscapedText(const std::string& text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8SequenceLength(text, at);
        if (length == 0 || MovesText(CharacterAt(text, at, length))) {
            const size_t escaped = length == 0 ? 1 : length;
            for (size_t i = 0; i < escaped; ++i) {
                char code[5];
                static_cast<void>(std::snprintf(code, sizeof code, "\\x%02X",
                                                static_cast<unsigned>(static_cast<unsigned char>(text[at + i]))));
                out += code;
            }
            at += escaped;
        } else {
            out += text[at] == '\\' ? "\\\\" : text.substr(at, length);
            at += length;
        }
    }
    return out;
}
