#include "check/Utf8.h"

size_t Utf8SequenceLength(const std::string& text, size_t at) noexcept {
    const auto byte = [&text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto follows = [&byte](size_t i) { return (byte(i) & 0xC0U) == 0x80U; };
    const unsigned lead = byte(at);
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        return follows(at + 1) ? 2 : 0;
    }
    if (lead >= 0xE0 && lead < 0xF0) {
        const bool inRange = (lead != 0xE0 || byte(at + 1) >= 0xA0) && (lead != 0xED || byte(at + 1) < 0xA0);
        return inRange && follows(at + 1) && follows(at + 2) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead < 0xF5) {
        const bool inRange = (lead != 0xF0 || byte(at + 1) >= 0x90) && (lead != 0xF4 || byte(at + 1) < 0x90);
        return inRange && follows(at + 1) && follows(at + 2) && follows(at + 3) ? 4 : 0;
    }
    return 0;
}

size_t FirstInvalidUtf8(const std::string& text) noexcept {
    for (size_t at = 0; at < text.size();) {
        const size_t length = Utf8SequenceLength(text, at);
        if (length == 0) {
            return at;
        }
        at += length;
    }
    return std::string::npos;
}
