#pragma once

#include <algorithm>
#include <string>

/// @return the text with its ASCII letters in lower case; other bytes, those of UTF-8 too, stay as they are.
inline std::string ToLower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}
