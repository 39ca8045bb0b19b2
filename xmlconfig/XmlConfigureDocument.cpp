#include "xmlconfig/XmlConfigureDocument.h"

#include "charset/CharSetConverter.h"
#include "xmlconfig/ConfigFile.h"
#include "xmlconfig/XmlConfigureTree.h"
#include "xmlconfig/XmlVocabulary.h"

XmlConfigureDocument::XmlConfigureDocument()
    : tree(std::make_unique<XmlConfigureTree>()),
      loaded(false),
      charset(CharSetGb2312),
      mode(ReadOnly),
      name(DefaultDocumentName) {}

XmlConfigureDocument::~XmlConfigureDocument() = default;

bool XmlConfigureDocument::Load(const std::string& newPath, unsigned newCharset, unsigned newMode) {
    std::string content;
    if (newMode == Create) {
        tree->CreateEmpty(name);
        if (!tree->PrintToString(content)) {
            return false;
        }
    } else if (!ReadFileToString(newPath, content)) {
        return false;
    }
    if (!tree->ParseText(content, newCharset)) {
        return false;
    }

    const uint32_t source = tree->IsUtf8() ? CharSetUtf8 : CharSetGb2312;
    if (newCharset != source) {
        std::string converted;
        CharSetConverter::Convert(content, converted, static_cast<CharSetType>(source),
                                  static_cast<CharSetType>(newCharset));
        content.swap(converted);
    }
    if (!tree->ParseAndValidate(content, newCharset)) {
        return false;
    }

    path = newPath; // first, since it alone can throw
    loaded = true;
    charset = newCharset;
    mode = newMode;
    return true;
}

bool XmlConfigureDocument::GetNode(const std::string& nodeName, SafePointer<XmlConfigureNode>& out) const {
    return tree->FindNode(nodeName, out);
}

bool XmlConfigureDocument::Save() {
    if (!loaded || (mode != ReadWrite && mode != Create)) {
        loaded = false;
        return true;
    }
    std::string content;
    if (!tree->PrintToString(content)) {
        return false;
    }
    if (charset != CharSetUtf8) {
        std::string converted;
        CharSetConverter::Convert(content, converted, CharSetGb2312, CharSetUtf8);
        if (converted.empty() && !content.empty()) {
            return false; // the conversion could not be opened: what is in the file is not given up for nothing
        }
        content.swap(converted);
    }
    if (!WriteStringToFile(path, content)) {
        return false;
    }
    loaded = false;
    return true;
}
