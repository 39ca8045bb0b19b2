#pragma once

#include <gtest/gtest.h>

#include <tinyxml.h>

#include <string>

/// A document parsed by the library alone, for the tests of what looks at elements.
class ParsedXml {
public:
    explicit ParsedXml(const std::string& text) {
        document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
        EXPECT_FALSE(document.Error()) << document.ErrorDesc() << " in " << text;
    }

    ParsedXml(const ParsedXml&) = delete;
    ParsedXml& operator=(const ParsedXml&) = delete;

    const TiXmlElement* root() const { return document.RootElement(); }

    const TiXmlDocument* get() const { return &document; }

private:
    TiXmlDocument document;
};
