#pragma once

#include <string>

/// @return the text with what a terminal or a table would take for something else written as \xNN: control characters
///         (a tab and a line end, too), characters that are not seen but turn the direction of writing or end a line,
///         bytes that are no UTF-8, and the backslash itself as \\. Names of a hostile image cannot move the cursor.
std::string EscapedText(const std::string& text);
