// A document that is parsed, printed and parsed again is the same document, wherever the printed text can say so.
//
// The first byte chooses the character set of the parse (odd: UTF-8, even: bytewise), the rest is the text.
//
// What is printed cannot say it in these cases, which belong to TinyXML's own rules. Two cost the text its white space
// only, so such a text is compared as the parser condenses it:
//  - two blanks in a row or one at an end, which only references can write;
//  - in UTF-8, the byte-order mark, U+FFFE or U+FFFF at its start: they count as white space there.
// Two can change what stands behind them up to the end of the document, so nothing is asserted of a document with
//  - in UTF-8, a value in which a sequence is incomplete or has an ASCII byte inside: the parser steps over the length
//    that the first byte promises, the printer escapes byte by byte;
//  - a declaration with a value other than printable ASCII without quote and "&": declarations are printed unescaped.
// Everything else comes back: elements, attributes and their order, texts, CDATA sections, comments, declarations (the
// first child's encoding is "utf-8" from then on) and unknown nodes.

#include "fuzz/Check.h"
#include "tests/support/PrivateMember.h"
#include "xmlconfig/XmlConfigureTree.h"

#include <tinyxml.h>

#include <cstdint>
#include <memory>
#include <string>

PRIVATE_MEMBER(PrintedDocumentOf, XmlConfigureTree, std::unique_ptr<TiXmlDocument>, document);

namespace {

const TiXmlDocument& DocumentOf(const XmlConfigureTree& tree) {
    return *(tree.*Get(PrintedDocumentOf()));
}

// Whether the parser, in UTF-8, steps through a value as it stands, and through what the printer makes of it alike.
bool HasWholeSequences(const std::string& value) {
    for (size_t i = 0; i < value.size(); ++i) {
        const auto byte = static_cast<unsigned char>(value[i]);
        size_t more = 0;
        if (byte >= 0xC2 && byte <= 0xF4) {
            more = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
        }
        for (; more > 0; --more) {
            if (++i == value.size() || static_cast<unsigned char>(value[i]) < 0x80) {
                return false;
            }
        }
    }
    return true;
}

bool StartsWithMark(const std::string& value) {
    return value.compare(0, 3, "\xEF\xBB\xBF") == 0 || value.compare(0, 3, "\xEF\xBF\xBE") == 0 ||
           value.compare(0, 3, "\xEF\xBF\xBF") == 0;
}

// What comes back of a text. Other white space than blanks is printed as references, but alone it makes no text.
std::string Condensed(std::string value, bool isUtf8) {
    while (!value.empty() && (value.front() == ' ' || (isUtf8 && StartsWithMark(value)))) {
        value.erase(0, value.front() == ' ' ? 1 : 3);
    }
    for (size_t i = value.find("  "); i != std::string::npos; i = value.find("  ", i)) {
        value.erase(i, 1);
    }
    if (!value.empty() && value.back() == ' ') {
        value.pop_back();
    }
    return value.find_first_not_of(" \t\n\v\f\r") == std::string::npos ? "" : value;
}

bool SurvivesInDeclaration(const std::string& value) {
    for (const char c : value) {
        if (c < ' ' || c > '~' || c == '"' || c == '&') {
            return false;
        }
    }
    return true;
}

bool Survives(const TiXmlNode& node, bool isUtf8) {
    if (const TiXmlText* text = node.ToText()) {
        return text->CDATA() || !isUtf8 || HasWholeSequences(text->ValueStr());
    }
    if (const TiXmlDeclaration* declaration = node.ToDeclaration()) {
        return SurvivesInDeclaration(declaration->Version()) && SurvivesInDeclaration(declaration->Encoding()) &&
               SurvivesInDeclaration(declaration->Standalone());
    }
    if (const TiXmlElement* element = node.ToElement()) {
        for (const TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) {
            if (isUtf8 && !HasWholeSequences(a->ValueStr())) {
                return false;
            }
        }
    }
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
        if (!Survives(*child, isUtf8)) {
            return false;
        }
    }
    return true;
}

// The tree as a text in which nothing is escaped or left out, but for the white space that is lost: what is compared.
struct Description {
    std::string text;
    bool losesWhiteSpace = false;
};

// A declaration that comes first is described as it is after printing.
void Describe(const TiXmlNode& node, bool isUtf8, Description& out) {
    const auto add = [&out](const char* kind, const std::string& value) {
        out.text += kind + std::to_string(value.size()) + ":" + value + "\n";
    };
    if (const TiXmlDeclaration* declaration = node.ToDeclaration()) {
        add("declaration ", declaration->Version());
        const bool comesFirst = node.Parent()->ToDocument() != nullptr && node.PreviousSibling() == nullptr;
        add(" encoding ", comesFirst ? "utf-8" : declaration->Encoding());
        add(" standalone ", declaration->Standalone());
    } else if (const TiXmlElement* element = node.ToElement()) {
        add("element ", element->ValueStr());
        for (const TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) {
            add(" attribute ", a->Name());
            add(" value ", a->ValueStr());
        }
    } else if (const TiXmlText* text = node.ToText()) {
        const std::string value = text->CDATA() ? text->ValueStr() : Condensed(text->ValueStr(), isUtf8);
        out.losesWhiteSpace = out.losesWhiteSpace || value != text->ValueStr();
        if (!text->CDATA() && value.empty()) {
            return;
        }
        add(text->CDATA() ? "cdata " : "text ", value);
    } else if (node.ToDocument() == nullptr) {
        add(node.ToComment() != nullptr ? "comment " : "unknown ", node.ValueStr());
    }
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
        Describe(*child, isUtf8, out);
    }
    out.text += "end\n";
}

Description DescriptionOf(const XmlConfigureTree& tree, uint32_t charset) {
    Description out;
    Describe(DocumentOf(tree), charset == 1, out);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const uint32_t charset = data[0] & 1U;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    XmlConfigureTree first;
    if (!first.ParseAndValidate(text, charset)) {
        return 0;
    }
    const bool survives = Survives(DocumentOf(first), charset == 1);
    const Description original = DescriptionOf(first, charset); // before it is printed: that changes the declaration
    std::string printed;
    Check(first.PrintToString(printed), "a document does not print");

    XmlConfigureTree second;
    const bool parsed = second.ParseAndValidate(printed, charset);
    if (!survives) {
        return 0;
    }
    Check(parsed, "what was printed does not parse");
    CheckEqual(DescriptionOf(first, charset).text, original.text, "printing changes the document");
    CheckEqual(DescriptionOf(second, charset).text, original.text, "what was printed is another document");
    std::string again;
    Check(second.PrintToString(again), "a document does not print again");
    if (!original.losesWhiteSpace) {
        CheckEqual(again, printed, "a document prints in two ways");
        return 0;
    }
    // What could be lost is gone after one print.
    XmlConfigureTree third;
    Check(third.ParseAndValidate(again, charset), "what was printed again does not parse");
    std::string last;
    Check(third.PrintToString(last), "a document does not print a third time");
    CheckEqual(last, again, "white space is lost a second time");
    return 0;
}
