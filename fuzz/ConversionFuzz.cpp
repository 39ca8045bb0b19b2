// Every conversion of a whole text, from any character set to any, and the conversion to wide characters.
//
// Input: one byte for the set of the text, one for the set asked for, one for the room of a second conversion into a
// short output, then the text.
//
// UTF-8 and UTF-16 are written down a second time below. For GB2312 and GBK the library is asked in another way: one
// character at a time, and back again.

#include "charset/CharSetConverter.h"
#include "fuzz/Check.h"
#include "fuzz/LibraryConversion.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr uint32_t Types[] = {0, 1, 2, 3, 4, 99, 0x80000000U, UINT32_MAX};

// The characters in front of the first place where the text is not UTF-8, and whether that is its end. GNU libiconv
// takes what Unicode has; the C library still takes the five and six bytes of RFC 2279. Both refuse surrogates.
constexpr uint32_t MostOfUnicode = 0x10FFFF;
constexpr uint32_t MostOfRfc2279 = 0x7FFFFFFF;

bool DecodeUtf8(const std::string& text, uint32_t most, std::vector<uint32_t>& characters) {
    struct Length {
        uint32_t endOfFirst; // the first bytes below, from the end of the line before, begin a sequence
        size_t bytes;
        uint32_t least;
    };
    static constexpr Length Lengths[] = {{0x80, 1, 0},         {0xC0, 0, 0},       {0xE0, 2, 0x80},
                                         {0xF0, 3, 0x800},     {0xF8, 4, 0x10000}, {0xFC, 5, 0x200000},
                                         {0xFE, 6, 0x4000000}, {0x100, 0, 0}};
    for (size_t i = 0; i < text.size();) {
        uint32_t character = static_cast<unsigned char>(text[i]);
        const Length* length = Lengths;
        while (character >= length->endOfFirst) {
            ++length;
        }
        if (length->bytes == 0 || i + length->bytes > text.size()) {
            return false;
        }
        if (length->bytes > 1) {
            character &= 0x7FU >> length->bytes;
        }
        for (size_t k = 1; k < length->bytes; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80U) {
                return false;
            }
            character = character << 6U | (next & 0x3FU);
        }
        if (character < length->least || character > most || (character >= 0xD800 && character < 0xE000)) {
            return false;
        }
        characters.push_back(character);
        i += length->bytes;
    }
    return true;
}

// Big-endian until a byte-order mark says otherwise; the library takes marks anywhere.
void DecodeUtf16(const std::string& text, std::vector<uint32_t>& characters) {
    bool littleEndian = false;
    const auto unit = [&](size_t i) {
        const auto first = static_cast<unsigned char>(text[i]);
        const auto second = static_cast<unsigned char>(text[i + 1]);
        return littleEndian ? static_cast<uint32_t>(second << 8U | first) : static_cast<uint32_t>(first << 8U | second);
    };
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        uint32_t character = unit(i);
        if (character == 0xFEFF) {
            continue;
        }
        if (character == 0xFFFE) {
            littleEndian = !littleEndian;
            continue;
        }
        if (character >= 0xDC00 && character < 0xE000) {
            return;
        }
        if (character >= 0xD800 && character < 0xDC00) {
            if (i + 3 >= text.size()) {
                return;
            }
            const uint32_t low = unit(i + 2);
            if (low < 0xDC00 || low >= 0xE000) {
                return;
            }
            character = 0x10000 + ((character - 0xD800) << 10U) + (low - 0xDC00);
            i += 2;
        }
        characters.push_back(character);
    }
}

std::string EncodeUtf8(const std::vector<uint32_t>& characters) {
    std::string text;
    for (const uint32_t c : characters) {
        const auto tail = [&](unsigned shift) { text += static_cast<char>(0x80U | (c >> shift & 0x3FU)); };
        if (c < 0x80) {
            text += static_cast<char>(c);
        } else if (c < 0x800) {
            text += static_cast<char>(0xC0U | c >> 6U);
            tail(0);
        } else if (c < 0x10000) {
            text += static_cast<char>(0xE0U | c >> 12U);
            tail(6);
            tail(0);
        } else {
            text += static_cast<char>(0xF0U | c >> 18U);
            tail(12);
            tail(6);
            tail(0);
        }
    }
    return text;
}

// With a mark in front, big-endian; nothing at all for no character. U+FFFE is no character and would look like a mark:
// the library writes its replacement character instead.
std::string EncodeUtf16(const std::vector<uint32_t>& characters) {
    std::string text;
    const auto unit = [&text](uint32_t value) {
        text += static_cast<char>(value >> 8U & 0xFFU);
        text += static_cast<char>(value & 0xFFU);
    };
    if (!characters.empty()) {
        unit(0xFEFF);
    }
    for (const uint32_t c : characters) {
        if (c == 0xFFFE) {
            unit(0xFFFD);
        } else if (c < 0x10000) {
            unit(c);
        } else {
            unit(0xD800 + ((c - 0x10000) >> 10U));
            unit(0xDC00 + ((c - 0x10000) & 0x3FFU));
        }
    }
    return text;
}

bool IsUnicode(uint32_t type) {
    return type == 1 || type == 3;
}

std::string UpToZero(const std::string& text) {
    return text.c_str();
}

// The library drops tag characters that the target lacks: they do not come back.
bool HasTagCharacters(const std::string& text) {
    return text.find("\xF3\xA0\x80") != std::string::npos || text.find("\xF3\xA0\x81") != std::string::npos;
}

void CheckConvert(const std::string& text, uint32_t from, uint32_t to) {
    std::string converted = "before";
    CharSetConverter::Convert(text, converted, static_cast<CharSetType>(from), static_cast<CharSetType>(to));

    CheckEqual(converted, UpToZero(ConvertInSteps(text, from, to)), "a whole conversion differs from one in steps");
    if (IsUnicode(from) && IsUnicode(to)) {
        std::vector<uint32_t> characters;
        if (from == 1) {
            static_cast<void>(DecodeUtf8(text, MostOfUnicode, characters));
        } else {
            DecodeUtf16(text, characters);
        }
        const std::string expected = to == 1 ? EncodeUtf8(characters) : EncodeUtf16(characters);
        CheckEqual(converted, UpToZero(expected), "a conversion between UTF-8 and UTF-16 differs from the model");
    }
    if (from != 3 && to != 3) {
        size_t ascii = 0;
        while (ascii < text.size() && text[ascii] > 0) {
            ++ascii;
        }
        CheckEqual(converted.substr(0, ascii), text.substr(0, ascii), "ASCII in front is not kept");

        std::string back;
        CharSetConverter::Convert(converted, back, static_cast<CharSetType>(to), static_cast<CharSetType>(from));
        if (!HasTagCharacters(text)) {
            CheckEqual(text.substr(0, back.size()), back, "what was converted does not come back");
        }
        std::string again;
        CharSetConverter::Convert(back, again, static_cast<CharSetType>(from), static_cast<CharSetType>(to));
        CheckEqual(again, converted, "what came back converts to something else");
    }
}

// One call into an output of any size: all that fits of the whole, a zero byte behind it, and nothing beyond (the block
// on the heap is exactly as large, so the address sanitizer sees a byte too many).
void CheckShortOutput(const std::string& text, uint32_t from, uint32_t to, size_t room) {
    const std::string whole = ConvertInSteps(text, from, to);
    const std::unique_ptr<char[]> out(new char[room + 1]);
    std::memset(out.get(), 'x', room + 1);
    size_t left = room;

    CharSetConverter converter(GetCharSetName(static_cast<CharSetType>(from)).c_str(),
                               GetCharSetName(static_cast<CharSetType>(to)).c_str());
    const size_t result = converter.Convert(text.data(), text.size(), out.get(), &left);

    Check(left <= room, "more is left than there was");
    const size_t used = room - left;
    Check(out[used] == '\0', "the output does not end in a zero byte");
    CheckEqual(std::string(out.get(), used), whole.substr(0, used), "a short output holds something else");
    if (used == whole.size()) {
        return;
    }
    Check(result == static_cast<size_t>(-1), "a cut conversion reports success");
    // A character takes four bytes at most; the first of UTF-16 comes together with the mark.
    Check(left < (used == 0 ? 6U : 4U), "room is left for the next character");
}

void CheckWide(const std::string& text) {
    std::vector<uint32_t> characters;
    const bool valid = DecodeUtf8(text, MostOfRfc2279, characters);
    std::wstring expected;
    for (size_t i = 0; valid && i < characters.size() && characters[i] != 0; ++i) {
        expected += static_cast<wchar_t>(characters[i]);
    }

    std::wstring wide = L"before";
    const int32_t result = Utf8ToWide(text, wide);

    Check(result == (valid ? 0 : -1), "the result of the wide conversion differs from the model's");
    Check(wide == expected, "the wide text differs from the model's");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) {
        return 0;
    }
    const uint32_t from = Types[data[0] % 8U];
    const uint32_t to = Types[data[1] % 8U];
    const std::string text(reinterpret_cast<const char*>(data + 3), size - 3);

    CheckEqual(GetCharSetName(static_cast<CharSetType>(from)), LibraryNameOf(from), "the name of a set");
    CheckConvert(text, from, to);
    CheckShortOutput(text, from, to, data[2]);
    CheckWide(text);
    return 0;
}
