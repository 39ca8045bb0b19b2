#pragma once

#include "runtime/SafePointer.h"
#include "xmlconfig/XmlConfigureItem.h"

#include <cstdint>
#include <string>
#include <vector>

// TinyXML's header stays out of ours, so each declares the types that it names, and takes them from no other.
class TiXmlDocument;
class TiXmlElement; // IWYU pragma: keep

/// One node of the configuration tree: an element "Configure" beneath the root or another node. Nodes are found by
/// name; they cannot be listed, and do not tell their names.
///
/// Owns:    nothing. Valid while the document that handed it out lives and is not loaded again; nothing tracks that.
/// Fails:   by result, with the output untouched. Throws only what the safe pointers throw ("too much safe poniter"
///          when 20,096 nodes and items are held at once) and std::bad_alloc.
/// Threads: as the document: one.
class XmlConfigureNode {
public:
    /// Made by the tree only. None of the pointers is null.
    XmlConfigureNode(const TiXmlDocument* owner, const TiXmlElement* viewedElement, uint32_t textCharset) noexcept;

    /// Finds the child node of a name, compared byte for byte.
    ///
    /// The search starts at the first child element "Configure". Deliberate: from there on every sibling element is
    /// looked at, whatever its element name, so that an item with the wanted name is found as a node; and the first one
    /// without a "name" attribute ends the search, even when a later one would match. `out` may be the very pointer
    /// that this node was reached through: the assignment then deletes this node.
    /// @return whether `out` was assigned a new node.
    bool GetNode(const std::string& name, SafePointer<XmlConfigureNode>& out) const;

    /// Appends the node's items to `out`, in document order.
    ///
    /// They are the first child element "ConfigItem" and, deliberately, every sibling element after it, whatever its
    /// name.
    /// @return false, with `out` as it was, when there is no "ConfigItem".
    bool GetItems(std::vector<SafePointer<XmlConfigureItem>>& out) const;

private:
    const TiXmlElement* element;
    const TiXmlDocument* document;
    uint32_t charset; ///< code of the document's text (`CharSetType`)
};
