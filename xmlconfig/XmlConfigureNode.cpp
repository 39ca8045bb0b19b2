#include "xmlconfig/XmlConfigureNode.h"

#include "xmlconfig/XmlVocabulary.h"

#include <tinyxml.h>

#include <cstddef>
#include <memory>

namespace {

// Until a safe pointer has taken its record the new object is still ours to delete.
template <class T, class... Arguments>
SafePointer<T> MakeSafe(Arguments... arguments) {
    auto created = std::make_unique<T>(arguments...);
    SafePointer<T> pointer(created.get());
    static_cast<void>(created.release());
    return pointer;
}

} // namespace

XmlConfigureNode::XmlConfigureNode(const TiXmlDocument* owner, const TiXmlElement* viewedElement,
                                   uint32_t textCharset) noexcept
    : element(viewedElement), document(owner), charset(textCharset) {}

bool XmlConfigureNode::GetNode(const std::string& name, SafePointer<XmlConfigureNode>& out) const {
    const TiXmlElement* child = element->FirstChildElement(NodeElementName);
    for (; child != nullptr; child = child->NextSiblingElement()) {
        const char* childName = child->Attribute(KeyAttributeName);
        if (childName == nullptr) {
            return false; // deliberate: see the header
        }
        if (name == childName) {
            break;
        }
    }
    if (child == nullptr) {
        return false;
    }
    // The assignment is the last use of this object: `out` may hold it, and let it go.
    out = MakeSafe<XmlConfigureNode>(document, child, charset);
    return true;
}

bool XmlConfigureNode::GetItems(std::vector<SafePointer<XmlConfigureItem>>& out) const {
    const TiXmlElement* child = element->FirstChildElement(ItemElementName);
    if (child == nullptr) {
        return false;
    }
    // Room for all at once: a vector that grows copies safe pointers, and each copy and release takes a lock. One that
    // holds some already grows by itself, since exact room would be outgrown by each node that is added.
    if (out.empty()) {
        size_t count = 0;
        for (const TiXmlElement* item = child; item != nullptr; item = item->NextSiblingElement()) {
            ++count;
        }
        out.reserve(count);
    }
    for (; child != nullptr; child = child->NextSiblingElement()) {
        out.push_back(MakeSafe<XmlConfigureItem>(child, charset));
    }
    return true;
}
