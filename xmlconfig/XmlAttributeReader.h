#pragma once

#include <cstdint>
#include <string>

// TinyXML's header stays out of ours, so each declares the types that it names, and takes them from no other.
// IWYU pragma: no_include "xmlconfig/XmlConfigureItem.h"
class TiXmlElement; // IWYU pragma: keep

/// Reads "true" or "false" in any letter case.
/// @return false, with `out` as it was, for any other text: a blank, or a digit such as "1", is not accepted.
bool ParseBool(const std::string& text, bool& out);

/// Reads the attributes of one element as values. Made on the stack for the length of one read.
///
/// Owns:    nothing. The element must live through the read.
/// Fails:   by result; throws only std::bad_alloc, from `GetString`.
/// Threads: as the document that the element belongs to: one.
class XmlAttributeReader {
public:
    /// @param viewedElement may be null: every read fails then.
    /// @param textCharset code of the document's text (`CharSetType`); no read consults it.
    XmlAttributeReader(const TiXmlElement* viewedElement, uint32_t textCharset) noexcept;

    /// Reads an attribute with atoi(3): leading blanks, a sign, digits up to the first other character; 0 without
    /// digits.
    /// @return false when the element is null (`out` as it was) or the attribute missing: deliberately, `out` becomes 0
    ///         then. True for any text.
    bool GetInt(const std::string& key, int& out) const;

    /// Reads an attribute with `ParseBool`.
    /// @return false, with `out` as it was, when the element is null or the attribute missing. Deliberate: true for any
    ///         text, and `out` changes only when the text is "true" or "false".
    bool GetBool(const std::string& key, bool& out) const;

    /// Reads an attribute's text as it stands in the document, entities resolved.
    /// @return false, with `out` as it was, when the element is null or the attribute missing.
    bool GetString(const std::string& key, std::string& out) const;

private:
    const char* find(const std::string& key) const;

    const TiXmlElement* element;
    [[maybe_unused]] uint32_t charset;
};
