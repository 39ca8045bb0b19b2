#pragma once

#include "xmlconfig/XmlNestingLimit.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <string>

/// @return the text with the zero bytes that TinyXML and `NestsTooDeep` need behind it.
inline std::string WithSpareBytes(std::string text) {
    return text.append(SpareBytes, '\0');
}

/// @return how many elements stand inside one another at the deepest place of a document.
inline size_t DepthOf(const TiXmlDocument& document) {
    size_t deepest = 0;
    size_t depth = 0;
    const TiXmlNode* node = document.FirstChild();
    while (node != nullptr) {
        if (node->ToElement() != nullptr) {
            deepest = std::max(deepest, ++depth);
            if (node->FirstChild() != nullptr) {
                node = node->FirstChild();
                continue;
            }
            --depth;
        }
        while (node != nullptr && node->NextSibling() == nullptr) {
            node = node->Parent();
            if (node != nullptr && node->ToElement() == nullptr) {
                return deepest; // the document
            }
            --depth;
        }
        node = node == nullptr ? nullptr : node->NextSibling();
    }
    return deepest;
}

/// @return how deep TinyXML really went in a text, before it met an error or the end.
inline size_t ParserDepth(const std::string& text, TiXmlEncoding encoding) {
    TiXmlDocument document;
    document.SetTabSize(0);
    document.Parse(WithSpareBytes(text).c_str(), nullptr, encoding);
    return DepthOf(document);
}
