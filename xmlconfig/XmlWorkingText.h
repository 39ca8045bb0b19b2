#pragma once

#include <cstddef>
#include <memory>

// TinyXML's header stays out of ours.
// IWYU pragma: no_include "xmlconfig/XmlConfigureTree.h"
class TiXmlDocument; // IWYU pragma: keep

/// What every parse of this system does before and after the library's own: the copy of a text that the parser needs, and
/// the encoding that a text declares. Both stand here because a parse that keeps places must read as the others do.

/// Copies a text with the line ends that TinyXML's own file loading makes (CR LF and CR become LF), and with the zero
/// bytes behind it that its parser needs (`SpareBytes`).
/// @param text `length` bytes with a terminator behind them.
/// Throws only std::bad_alloc.
std::unique_ptr<char[]> MakeWorkingText(const char* text, size_t length);

/// Tells what a text that was parsed with unknown encoding declares. The first declaration on the top level decides, also
/// when the parse failed behind it.
/// @param text the text that `document` was parsed from.
/// @return a TiXmlEncoding: UTF-8 for an encoding of "UTF-8" or "UTF8" in any letter case and for an empty or missing one,
///         legacy for every other, unknown for a text without a declaration or with a byte-order mark in front.
int DetectEncoding(const TiXmlDocument& document, const char* text);
