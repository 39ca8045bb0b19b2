#include "fuzz/DocumentModel.h"

#include "fuzz/Check.h"
#include "fuzz/LibraryConversion.h"
#include "xmlconfig/XmlConfigureDocument.h"

#include <strings.h>

bool DocumentModel::load(const Load& wanted) {
    std::string content = wanted.text;
    if (wanted.mode == Create) {
        createEmpty();
        content = print();
    } else if (content.empty()) {
        return false;
    }
    if (!parse(content, TIXML_ENCODING_UNKNOWN)) {
        return false;
    }
    const unsigned source = isUtf8 ? 1 : 0;
    if (source != wanted.charset) {
        content = ConvertInSteps(content, source, wanted.charset);
    }
    if (!parse(content, wanted.charset == 1 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY)) {
        return false;
    }
    root = document.RootElement();
    if (root == nullptr || root->ValueStr() != "Configure" || root->Attribute("name") == nullptr) {
        return false;
    }
    loaded = true;
    charset = wanted.charset;
    mode = wanted.mode;
    return true;
}

std::string DocumentModel::saved(const std::string& before) {
    if (!loaded || (mode != ReadWrite && mode != Create)) {
        loaded = false;
        return before;
    }
    loaded = false;
    const std::string printed = print();
    return charset == 1 ? printed : ConvertInSteps(printed, 0, 1);
}

void DocumentModel::createEmpty() {
    document.InsertEndChild(TiXmlDeclaration("1.0", "utf-8", "no"));
    TiXmlElement element("Configure");
    element.SetAttribute("name", "HardwareConfig");
    document.InsertEndChild(element);
}

std::string DocumentModel::print() {
    TiXmlNode* first = document.FirstChild();
    if (first != nullptr && first->ToDeclaration() != nullptr) {
        const TiXmlDeclaration* old = first->ToDeclaration();
        document.ReplaceChild(first, TiXmlDeclaration(old->Version(), "utf-8", old->Standalone()));
    }
    TiXmlPrinter printer;
    printer.SetIndent("\t");
    Check(document.Accept(&printer), "TinyXML does not print");
    return printer.CStr();
}

bool DocumentModel::parse(const std::string& bytes, TiXmlEncoding encoding) {
    std::string text;
    const std::string upToZero = bytes.c_str();
    for (size_t i = 0; i < upToZero.size(); ++i) {
        if (upToZero[i] != '\r') {
            text += upToZero[i];
        } else if (i + 1 == upToZero.size() || upToZero[i + 1] != '\n') {
            text += '\n';
        }
    }
    root = nullptr;
    document.Clear();
    document.SetTabSize(0);
    document.ClearError();
    const bool hasMark = text.compare(0, 3, "\xEF\xBB\xBF") == 0;
    document.Parse(text.append(4, '\0').c_str(), nullptr, encoding);
    if (encoding == TIXML_ENCODING_UNKNOWN && !hasMark) {
        learnEncoding();
    }
    return !document.Error();
}

void DocumentModel::learnEncoding() {
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const TiXmlDeclaration* declaration = node->ToDeclaration()) {
            const std::string name = declaration->Encoding();
            isUtf8 = name.empty() || strcasecmp(name.c_str(), "utf-8") == 0 || strcasecmp(name.c_str(), "utf8") == 0;
            return;
        }
    }
}

const TiXmlElement* FindNode(const TiXmlElement& parent, const std::string& name) {
    const TiXmlElement* child = parent.FirstChildElement();
    while (child != nullptr && child->ValueStr() != "Configure") {
        child = child->NextSiblingElement();
    }
    for (; child != nullptr; child = child->NextSiblingElement()) {
        const char* found = child->Attribute("name");
        if (found == nullptr) {
            return nullptr;
        }
        if (name == found) {
            return child;
        }
    }
    return nullptr;
}

std::vector<const TiXmlElement*> ItemsOf(const TiXmlElement& parent) {
    std::vector<const TiXmlElement*> items;
    for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (!items.empty() || child->ValueStr() == "ConfigItem") {
            items.push_back(child);
        }
    }
    return items;
}
