#pragma once

#include "runtime/SafePointer.h"
#include "xmlconfig/XmlConfigureNode.h"

#include <cstdint>
#include <memory>
#include <string>

// TinyXML's header stays out of ours, so each declares the types that it names, and takes them from no other.
// IWYU pragma: no_include "xmlconfig/XmlConfigureItem.h"
class TiXmlDocument; // IWYU pragma: keep
class TiXmlElement;  // IWYU pragma: keep

/// The parsed XML document behind an `XmlConfigureDocument`, which alone uses it.
///
/// Owns:    the TinyXML document and so every element. Not copied.
/// Fails:   by result; throws only std::bad_alloc and, from `FindNode`, what the safe pointers throw. A parse that ends
///          by std::bad_alloc inside TinyXML's parser leaks what `XmlConfigureDocument` says.
/// Threads: one.
///
/// Every parse first deletes what the document held, so nodes and items of an earlier parse dangle. A text ends at its
/// first zero byte, line ends CR LF and CR become LF, and a text whose elements nest deeper than 5,000 counts as one
/// that does not parse: TinyXML recurses and would overflow the stack.
class XmlConfigureTree {
public:
    XmlConfigureTree();
    ~XmlConfigureTree();
    XmlConfigureTree(const XmlConfigureTree&) = delete;
    XmlConfigureTree& operator=(const XmlConfigureTree&) = delete;

    /// Parses a text whose encoding is not known yet, to learn it from its declaration (`IsUtf8`).
    /// @return whether it parsed; `charset` is stored only then.
    bool ParseText(const std::string& text, uint32_t charset);

    /// @return whether the last `ParseText` that met a declaration on the top level found UTF-8: an encoding of "UTF-8"
    ///         or "UTF8" in any letter case, or an empty or missing one. False before; a text without a declaration,
    ///         with a byte-order mark in front, or nested too deep to be parsed, changes nothing.
    bool IsUtf8() const noexcept;

    /// Parses a text as UTF-8 when `charset` is 1 and bytewise for every other charset, and checks its root.
    /// @return whether it parsed and its root is an element "Configure" with an attribute "name" of any value. A root
    ///         that fails these checks stays set; after a text that does not parse there is none.
    bool ParseAndValidate(const std::string& text, uint32_t charset);

    /// Appends a declaration and an empty root named `name` to whatever the document holds.
    void CreateEmpty(const std::string& name);

    /// Prints the document, indented by tabs; its declaration, if it comes first, says "utf-8" from then on.
    /// @return false, with `out` as it was, when the library does not print.
    bool PrintToString(std::string& out);

    /// Finds a node beneath the root as `XmlConfigureNode::GetNode` does. @return false too when there is no root.
    bool FindNode(const std::string& name, SafePointer<XmlConfigureNode>& out) const;

private:
    bool LoadMem(const char* text, int encoding);
    void RecordEncoding(const char* text);

    std::unique_ptr<TiXmlDocument> document;
    TiXmlElement* root;   ///< an element of `document`, or null
    uint32_t charset;     ///< code of the text in `document` (`CharSetType`)
    int DetectedEncoding; ///< a TiXmlEncoding: 0 unknown, 1 UTF-8, 2 any other; kept from parse to parse
};
