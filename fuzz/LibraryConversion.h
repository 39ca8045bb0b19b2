#pragma once

#include <cstdint>
#include <string>

/// What GNU libiconv makes of a text, asked another way than the product asks it: one whole conversion by many calls,
/// each with room for little more than one character.

/// @return the library's name of a character set by its code, "gbk" for any code that has no name of its own.
const char* LibraryNameOf(uint32_t charset);

/// @return what was converted in front of the first place that does not convert, zero bytes included.
std::string ConvertInSteps(const std::string& text, uint32_t from, uint32_t to);
