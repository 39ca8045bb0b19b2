#pragma once

#include <cstdint>
#include <string>

class TiXmlElement;

/// One item of the configuration tree: an element whose attributes are the item's values.
///
/// Owns:    nothing. Valid while the document that handed it out lives and is not loaded again; nothing tracks that.
/// Fails:   by result, as `XmlAttributeReader`.
/// Threads: as the document: one.
class XmlConfigureItem {
public:
    /// Made by `XmlConfigureNode` only.
    XmlConfigureItem(const TiXmlElement* viewedElement, uint32_t textCharset) noexcept;

    /// As the reads of `XmlAttributeReader`: GetInt writes 0 for a missing attribute although it answers false, and
    /// GetBool answers true for any text and changes `out` only for "true" and "false".
    bool GetInt(const std::string& key, int& out) const;
    bool GetBool(const std::string& key, bool& out) const;
    bool GetString(const std::string& key, std::string& out) const;

private:
    const TiXmlElement* element;
    uint32_t charset; ///< the node's; carried along, consulted by no read
};
