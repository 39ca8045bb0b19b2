#include "xmlconfig/XmlPlaces.h"

#include "charset/CharSetConverter.h"
#include "xmlconfig/XmlNestingLimit.h"
#include "xmlconfig/XmlWorkingText.h"

#include <tinyxml.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace {

// The root, the sections, the entries.
constexpr int PlacedLevels = 3;

// A tab is one column: an editor that is told a column counts characters.
constexpr int TabSize = 1;

XmlPlace PlaceOf(const TiXmlBase& node) {
    return {node.Row(), node.Column()};
}

std::vector<XmlPlacedElement> PlacedChildren(const TiXmlNode& parent, int levels) {
    std::vector<XmlPlacedElement> placed;
    for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        XmlPlacedElement element;
        element.name = child->Value();
        element.place = PlaceOf(*child);
        for (const TiXmlAttribute* at = child->FirstAttribute(); at != nullptr; at = at->Next()) {
            element.attributes.push_back({at->Name(), at->Value(), PlaceOf(*at)});
        }
        if (levels > 1) {
            element.children = PlacedChildren(*child, levels - 1);
        }
        placed.push_back(std::move(element));
    }
    return placed;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// @return the offset of a place that the library told, whose columns are characters in UTF-8 and else bytes.
size_t OffsetOfPlace(const std::string& text, const XmlPlace& place, bool isUtf8) {
    size_t at = 0;
    for (int line = 1; line < place.line; ++line) {
        at = text.find('\n', at) + 1; // the library counted it, so it is there
    }
    for (int column = 1; column < place.column; ++column) {
        do {
            ++at;
        } while (isUtf8 && at < text.size() && IsContinuation(text[at]));
    }
    return at;
}

/// One reading of a text. The document keeps the result.
XmlPlacedText::State Read(TiXmlDocument& document, const char* workingText, TiXmlEncoding encoding,
                          XmlPlacedText& out) {
    document.SetTabSize(TabSize);
    if (CostOfParsing(workingText, encoding) > MaxParseSteps) {
        return XmlPlacedText::State::TooMuch;
    }
    if (NestsTooDeep(workingText, encoding)) {
        return XmlPlacedText::State::TooDeep;
    }
    document.Parse(workingText, nullptr, encoding);
    if (!document.Error()) {
        return XmlPlacedText::State::WellFormed;
    }
    out.reason = document.ErrorDesc();
    std::string text = workingText;
    bool isUtf8 = encoding == TIXML_ENCODING_UTF8 || DetectEncoding(document, workingText) == TIXML_ENCODING_UTF8;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        // The library takes the rest for UTF-8, and does not count the mark. Nor does an editor.
        text.erase(0, 3);
        isUtf8 = true;
    }
    // The library gives no place, row 0, where the text ends between two tags; where it ends inside one, no ">" follows.
    const bool hasPlace = document.ErrorRow() > 0;
    const size_t offset =
        hasPlace ? OffsetOfPlace(text, {document.ErrorRow(), document.ErrorCol()}, isUtf8) : text.size();
    out.endsEarly = text.find('>', offset) == std::string::npos;
    out.place = PlaceOfOffset(text, offset, isUtf8);
    return XmlPlacedText::State::NotWellFormed;
}

void ReadDeclaration(const TiXmlDocument& document, XmlPlacedText& out) {
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const TiXmlDeclaration* declaration = node->ToDeclaration()) {
            out.hasDeclaration = true;
            out.declaredEncoding = declaration->Encoding();
            out.declarationPlace = PlaceOf(*declaration);
            return;
        }
    }
}

// How many bytes of a GB2312 text became these bytes of UTF-8: a character of more than one byte here has two there.
size_t Gb2312Length(const std::string& utf8) {
    size_t length = 0;
    for (const char c : utf8) {
        length += static_cast<unsigned char>(c) < 0x80 ? 1 : (IsContinuation(c) ? 0 : 2);
    }
    return length;
}

} // namespace

const XmlPlacedAttribute* XmlPlacedElement::find(const std::string& attributeName) const {
    const auto at =
        std::find_if(attributes.begin(), attributes.end(),
                     [&attributeName](const XmlPlacedAttribute& each) { return each.name == attributeName; });
    return at == attributes.end() ? nullptr : &*at;
}

XmlPlace PlaceOfOffset(const std::string& text, size_t offset, bool isUtf8) {
    XmlPlace place;
    // The first of the two bytes that are a character in GB2312.
    bool isHalf = false; // cppcheck-suppress variableScope; it is that of the byte before, too
    for (size_t i = 0; i < std::min(offset, text.size()); ++i) {
        const char c = text[i];
        isHalf = !isUtf8 && static_cast<unsigned char>(c) >= 0x80 && !isHalf;
        if (c == '\n' || (c == '\r' && text[i + 1] != '\n')) { // a string's end is a zero byte
            ++place.line;
            place.column = 1;
        } else if (c != '\r' && !isHalf && (!isUtf8 || !IsContinuation(c))) {
            ++place.column;
        }
    }
    return place;
}

XmlPlacedText ParseWithPlaces(const std::string& content) {
    XmlPlacedText out;
    std::string text = content.substr(0, content.find('\0'));
    const auto firstText = MakeWorkingText(text.c_str(), text.size());
    TiXmlDocument first;
    out.state = Read(first, firstText.get(), TIXML_ENCODING_UNKNOWN, out);
    ReadDeclaration(first, out);
    out.isUtf8 = DetectEncoding(first, firstText.get()) == TIXML_ENCODING_UTF8;
    if (out.state != XmlPlacedText::State::WellFormed) {
        return out;
    }
    if (!out.isUtf8) {
        std::string converted;
        CharSetConverter::Convert(text, converted, CharSetGb2312, CharSetUtf8);
        const size_t taken = Gb2312Length(converted);
        if (taken < text.size()) {
            out.cutAt = taken;
        }
        text.swap(converted);
    }
    const auto secondText = MakeWorkingText(text.c_str(), text.size());
    TiXmlDocument second;
    out.state = Read(second, secondText.get(), TIXML_ENCODING_UTF8, out);
    if (out.state == XmlPlacedText::State::WellFormed) {
        out.topLevel = PlacedChildren(second, PlacedLevels);
    }
    return out;
}
