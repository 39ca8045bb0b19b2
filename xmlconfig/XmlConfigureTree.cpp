#include "xmlconfig/XmlConfigureTree.h"

#include "charset/CharSetConverter.h"
#include "xmlconfig/XmlNestingLimit.h"
#include "xmlconfig/XmlVocabulary.h"

#include <strings.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

// The declaration written by this system: version, encoding, standalone.
constexpr const char* DeclaredVersion = "1.0";
constexpr const char* DeclaredEncoding = "utf-8";
constexpr const char* DeclaredStandalone = "no";

// The tree of the parse before leaves its memory in small pieces, which glibc's malloc merges when it is next asked for
// a kilobyte or more: for the working buffer, so that its place among the steps decides. After a big tree it comes
// behind the clearing. Pieces left as they are make the next parse jump about in memory: 20,000 entries then take 1.3
// times as long. After a small one it comes first, and the next parse takes the pieces as they are: 16 entries then
// take 6 % fewer instructions in the whole process. The ways meet at some 1,000 entries.
constexpr size_t BigText = 65536;

// Copies a text with the line ends that TinyXML's own file loading makes, and with the zero bytes behind it that its
// parser needs.
std::unique_ptr<char[]> MakeWorkingBuffer(const char* text, size_t length) {
    std::unique_ptr<char[]> buffer(new char[length + SpareBytes]);
    char* out = buffer.get();
    const char* const end = text + length;
    while (const auto* lineEnd = static_cast<const char*>(std::memchr(text, '\r', static_cast<size_t>(end - text)))) {
        out = std::copy(text, lineEnd, out);
        *out++ = '\n';
        text = lineEnd + (lineEnd[1] == '\n' ? 2 : 1); // at the end of the text the terminator follows
    }
    out = std::copy(text, end, out);
    std::memset(out, 0, SpareBytes);
    return buffer;
}

} // namespace

XmlConfigureTree::XmlConfigureTree()
    : document(std::make_unique<TiXmlDocument>()),
      root(nullptr),
      charset(CharSetUtf8),
      DetectedEncoding(TIXML_ENCODING_UNKNOWN) {
    // No positions: nobody sees them here, and keeping them costs every parse about a sixth of its instructions.
    document->SetTabSize(0);
}

XmlConfigureTree::~XmlConfigureTree() = default;

bool XmlConfigureTree::LoadMem(const char* text, int encoding) {
    const auto parseEncoding = static_cast<TiXmlEncoding>(encoding);
    const size_t length = std::strlen(text);
    std::unique_ptr<char[]> buffer;
    // Refused memory leaves the old tree here, which the clearing would take.
    if (length < BigText) {
        buffer = MakeWorkingBuffer(text, length);
    }
    root = nullptr; // before the elements go: it points at one of them
    document->Clear();
    if (buffer == nullptr) {
        buffer = MakeWorkingBuffer(text, length);
    }
    if (NestsTooDeep(buffer.get(), encoding)) {
        document->ClearError();
        document->SetError(TiXmlBase::TIXML_ERROR_PARSING_ELEMENT, nullptr, nullptr, parseEncoding);
        return false;
    }
    // An empty text is an error of the document too: the library sets it.
    document->Parse(buffer.get(), nullptr, parseEncoding);
    if (parseEncoding == TIXML_ENCODING_UNKNOWN) {
        RecordEncoding(buffer.get());
    }
    return !document->Error();
}

// The first declaration on the top level decides, also when the parse failed behind it. The library itself compares
// only the beginning of the name ("UTF-8859" would be UTF-8 to it), which is why this is not left to it.
void XmlConfigureTree::RecordEncoding(const char* text) {
    if (std::strncmp(text, "\xEF\xBB\xBF", 3) == 0) {
        return;
    }
    for (const TiXmlNode* node = document->FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const TiXmlDeclaration* declaration = node->ToDeclaration()) {
            const char* name = declaration->Encoding();
            const bool isUtf8 = *name == '\0' || strcasecmp(name, "UTF-8") == 0 || strcasecmp(name, "UTF8") == 0;
            DetectedEncoding = isUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
            return;
        }
    }
}

bool XmlConfigureTree::ParseText(const std::string& text, uint32_t textCharset) {
    if (!LoadMem(text.c_str(), TIXML_ENCODING_UNKNOWN)) {
        return false;
    }
    charset = textCharset;
    return true;
}

bool XmlConfigureTree::IsUtf8() const noexcept {
    return DetectedEncoding == TIXML_ENCODING_UTF8;
}

bool XmlConfigureTree::ParseAndValidate(const std::string& text, uint32_t textCharset) {
    if (!LoadMem(text.c_str(), textCharset == CharSetUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY)) {
        return false;
    }
    root = document->RootElement();
    return root != nullptr && std::strcmp(root->Value(), NodeElementName) == 0 &&
           root->Attribute(KeyAttributeName) != nullptr;
}

void XmlConfigureTree::CreateEmpty(const std::string& name) {
    auto declaration = std::make_unique<TiXmlDeclaration>(DeclaredVersion, DeclaredEncoding, DeclaredStandalone);
    auto element = std::make_unique<TiXmlElement>(NodeElementName);
    element->SetAttribute(KeyAttributeName, name.c_str());
    // LinkEndChild takes the node over, whatever it answers.
    document->LinkEndChild(declaration.release());
    root = element.get();
    document->LinkEndChild(element.release());
}

bool XmlConfigureTree::PrintToString(std::string& out) {
    // The library has no setter for the encoding, so the declaration is assigned anew, in its place. A first child that
    // is no declaration (the file had none) is left alone.
    TiXmlNode* first = document->FirstChild();
    if (TiXmlDeclaration* declaration = first == nullptr ? nullptr : first->ToDeclaration()) {
        *declaration = TiXmlDeclaration(declaration->Version(), DeclaredEncoding, declaration->Standalone());
    }
    TiXmlPrinter printer;
    printer.SetIndent("\t");
    if (!document->Accept(&printer)) {
        return false;
    }
    out = printer.CStr();
    return true;
}

bool XmlConfigureTree::FindNode(const std::string& name, SafePointer<XmlConfigureNode>& out) const {
    return root != nullptr && XmlConfigureNode(document.get(), root, charset).GetNode(name, out);
}
