#include "xmlconfig/XmlAttributeReader.h"

#include <strings.h>
#include <tinyxml.h>

#include <cstdlib>

bool ParseBool(const std::string& text, bool& out) {
    const bool isTrue = strcasecmp(text.c_str(), "true") == 0;
    if (!isTrue && strcasecmp(text.c_str(), "false") != 0) {
        return false;
    }
    out = isTrue;
    return true;
}

XmlAttributeReader::XmlAttributeReader(const TiXmlElement* viewedElement, uint32_t textCharset) noexcept
    : element(viewedElement), charset(textCharset) {}

// The library's integer form of Attribute is not used: its versions differ in what a missing or odd value gives.
bool XmlAttributeReader::GetInt(const std::string& key, int& out) const {
    if (element == nullptr) {
        return false;
    }
    const char* text = find(key);
    // NOLINTNEXTLINE(cert-err34-c): atoi's leniency is the format's: "12abc" is 12, "abc" is 0.
    out = text == nullptr ? 0 : std::atoi(text);
    return text != nullptr;
}

bool XmlAttributeReader::GetBool(const std::string& key, bool& out) const {
    const char* text = find(key);
    if (text == nullptr) {
        return false;
    }
    // Deliberate: an attribute that is there counts as read, whatever its text.
    static_cast<void>(ParseBool(text, out));
    return true;
}

bool XmlAttributeReader::GetString(const std::string& key, std::string& out) const {
    const char* text = find(key);
    if (text == nullptr) {
        return false;
    }
    out = text;
    return true;
}

const char* XmlAttributeReader::find(const std::string& key) const {
    return element == nullptr ? nullptr : element->Attribute(key.c_str());
}
