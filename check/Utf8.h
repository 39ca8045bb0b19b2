#pragma once

#include <cstddef>
#include <string>

/// @return the length of the UTF-8 sequence that stands at an offset of a text, 0 for one that is none (RFC 3629: no
///         overlong forms, no surrogates, nothing beyond U+10FFFF).
size_t Utf8SequenceLength(const std::string& text, size_t at) noexcept;

/// @return the offset of the first byte that is no UTF-8; npos for none.
size_t FirstInvalidUtf8(const std::string& text) noexcept;
