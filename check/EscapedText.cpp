#include "check/EscapedText.h"

#include "check/Utf8.h"

#include <cstdio>

std::string EscapedText(const std::string& text) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8SequenceLength(text, at);
        const auto byte = static_cast<unsigned char>(text[at]);
        // U+0080 to U+009F are control characters as well, C2 80 to C2 9F in UTF-8.
        const bool isControl =
            length == 1 ? byte < 0x20 || byte == 0x7F : byte == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0;
        if (length == 0 || isControl) {
            const size_t escaped = length == 0 ? 1 : length;
            for (size_t i = 0; i < escaped; ++i) {
                char code[5];
                static_cast<void>(std::snprintf(code, sizeof code, "\\x%02X",
                                                static_cast<unsigned>(static_cast<unsigned char>(text[at + i]))));
                out += code;
            }
            at += escaped;
        } else {
            out += byte == '\\' ? "\\\\" : text.substr(at, length);
            at += length;
        }
    }
    return out;
}
