#include "xmlconfig/XmlConfigureTree.h"

#include "charset/CharSetConverter.h"
#include "xmlconfig/XmlNestingLimit.h"
#include "xmlconfig/XmlVocabulary.h"
#include "xmlconfig/XmlWorkingText.h"

#include <tinyxml.h>

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
        buffer = MakeWorkingText(text, length);
    }
    root = nullptr; // before the elements go: it points at one of them
    document->Clear();
    if (buffer == nullptr) {
        buffer = MakeWorkingText(text, length);
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

void XmlConfigureTree::RecordEncoding(const char* text) {
    const int declared = DetectEncoding(*document, text);
    if (declared != TIXML_ENCODING_UNKNOWN) {
        DetectedEncoding = declared;
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
