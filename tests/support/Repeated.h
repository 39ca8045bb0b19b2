#pragma once

#include <cstddef>
#include <string>

/// @return `count` times the text.
inline std::string Repeated(const std::string& text, size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}
