#pragma once

#include <cstddef>

/// Elements that may stand inside one another, the root counted as the first; a configuration needs three. TinyXML
/// parses and deletes by recursion, a stack frame or more a level: some 35,000 levels overflow a stack of 8 MiB, and
/// 5,000 need between one and two MiB. It also walks up to the root for each node, so that time grows with nodes times
/// depth.
inline constexpr size_t MaxElementDepth = 5000;

/// Zero bytes that must stand behind a text for TinyXML and for `NestsTooDeep`: both step over a UTF-8 sequence by the
/// length that its first byte promises, and a text that ends inside one leads them up to three bytes past its
/// terminator.
inline constexpr size_t SpareBytes = 4;

/// Tells, without recursion, whether TinyXML would find more than `MaxElementDepth` elements inside one another.
///
/// The answer is exact: true only when the parse of this text with this encoding would reach such a depth before it met
/// an error. It costs one pass over the text, a second one for a text with that many tags of elements that are not
/// empty; only when the limit seems to be passed, what stands before that place is parsed to make sure.
/// @param text with `SpareBytes` zero bytes behind it.
/// @param encoding the TiXmlEncoding that the parse would be given.
/// Throws only std::bad_alloc, with the leak that `XmlConfigureDocument` tells of when it comes from TinyXML's parser.
/// Any thread.
bool NestsTooDeep(const char* text, int encoding);

/// Steps that a text may take for whoever must not be kept busy by it: about a second. Twenty thousand entries of an
/// ordinary form take a quarter of them.
inline constexpr size_t MaxParseSteps = size_t{1} << 27U;

/// Steps that stand for the memory of an attribute, of a text or a comment, and of either half of an element: some hundred
/// bytes each, of which there are no more than half a million then.
inline constexpr size_t StepsForMemory = 256;

/// Tells, without parsing, how many steps of a few nanoseconds TinyXML has to take for a text. For each node it walks up to
/// the root, and for each attribute over those of its element that came before: either can be made to grow with the square
/// of the text. `StepsForMemory` are added for each tag, text, comment and attribute, and for the end of a tag.
/// @param text and encoding as for `NestsTooDeep`.
/// @return what the parser does up to its first error, or up to the element that nests too deep.
/// Throws only std::bad_alloc. Any thread.
size_t CostOfParsing(const char* text, int encoding);
