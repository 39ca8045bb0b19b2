#include "xmlconfig/XmlConfigureItem.h"

#include "xmlconfig/XmlAttributeReader.h"

XmlConfigureItem::XmlConfigureItem(const TiXmlElement* viewedElement, uint32_t textCharset) noexcept
    : element(viewedElement), charset(textCharset) {}

bool XmlConfigureItem::GetInt(const std::string& key, int& out) const {
    return XmlAttributeReader(element, charset).GetInt(key, out);
}

bool XmlConfigureItem::GetBool(const std::string& key, bool& out) const {
    return XmlAttributeReader(element, charset).GetBool(key, out);
}

bool XmlConfigureItem::GetString(const std::string& key, std::string& out) const {
    return XmlAttributeReader(element, charset).GetString(key, out);
}
