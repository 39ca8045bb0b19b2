// Two loads on one document, with any character set and mode, then all that a caller can read, and Save; every answer
// is compared with a second reading that uses TinyXML alone.
//
// Input: a byte for each load, then the two texts, divided by a line "=====" (one text serves both when there is none).
// In a byte, the low three bits choose the character set and the next three the mode: "1" is UTF-8, read only.

#include "charset/CharSetConverter.h"
#include "fuzz/Check.h"
#include "fuzz/MemoryFile.h"
#include "runtime/SafePointer.h"
#include "tests/support/SafePointerRecords.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"
#include "xmlconfig/XmlNestingLimit.h"

#include <strings.h>
#include <tinyxml.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr unsigned Charsets[] = {0, 1, 2, 3, 4, 99, UINT32_MAX, 1};
constexpr unsigned Modes[] = {0, 1, 2, 3, 4, 99, 1, 2};
constexpr char Divider[] = "=====\n";
// The model parses at any depth. Longer inputs could nest beyond the limit of the product ("<a>" a level) and are left
// out; scripts/fuzz makes none. The limit is the subject of NestingLimitFuzz.
constexpr size_t MaxBytes = (sizeof "<a>" - 1) * MaxElementDepth;

struct Load {
    unsigned charset;
    unsigned mode;
    std::string text;
};

// What a document has to be after its loads.
class Model {
public:
    bool load(const Load& wanted) {
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
            std::string converted;
            CharSetConverter::Convert(content, converted, static_cast<CharSetType>(source),
                                      static_cast<CharSetType>(wanted.charset));
            content = converted;
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

    // What the file holds after a Save.
    std::string saved(const std::string& before) {
        if (!loaded || (mode != ReadWrite && mode != Create)) {
            loaded = false;
            return before;
        }
        loaded = false;
        const std::string printed = print();
        if (charset == 1) {
            return printed;
        }
        std::string converted;
        CharSetConverter::Convert(printed, converted, CharSetGb2312, CharSetUtf8);
        return converted;
    }

    const TiXmlElement* rootElement() const { return root; }

private:
    void createEmpty() {
        document.InsertEndChild(TiXmlDeclaration("1.0", "utf-8", "no"));
        TiXmlElement element("Configure");
        element.SetAttribute("name", "HardwareConfig");
        document.InsertEndChild(element);
    }

    std::string print() {
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

    bool parse(const std::string& bytes, TiXmlEncoding encoding) {
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

    void learnEncoding() {
        for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
            if (const TiXmlDeclaration* declaration = node->ToDeclaration()) {
                const std::string name = declaration->Encoding();
                isUtf8 =
                    name.empty() || strcasecmp(name.c_str(), "utf-8") == 0 || strcasecmp(name.c_str(), "utf8") == 0;
                return;
            }
        }
    }

    TiXmlDocument document;
    const TiXmlElement* root = nullptr;
    bool isUtf8 = false;
    bool loaded = false;
    unsigned charset = 0;
    unsigned mode = ReadOnly;
};

const TiXmlElement* FindChild(const TiXmlElement& parent, const std::string& name) {
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

// The names to look for: those that are there, and some that may not be.
std::set<std::string> NamesIn(const TiXmlElement* parent) {
    std::set<std::string> names = {"ProtocolConfig", "protocolconfig", ""};
    if (parent != nullptr) {
        for (const TiXmlElement* child = parent->FirstChildElement(); child != nullptr;
             child = child->NextSiblingElement()) {
            const char* name = child->Attribute("name");
            names.insert(name == nullptr ? "" : name);
        }
    }
    return names;
}

void CheckItem(const SafePointer<XmlConfigureItem>& item, const TiXmlElement& element) {
    std::set<std::string> keys = {"ProtocolName", "ProtocolId", "ProtocolType", "ProtocolEnable", "name", ""};
    for (const TiXmlAttribute* a = element.FirstAttribute(); a != nullptr; a = a->Next()) {
        keys.insert(a->Name());
    }
    for (const std::string& key : keys) {
        const char* value = element.Attribute(key.c_str());

        std::string text = "before";
        Check(item->GetString(key, text) == (value != nullptr), "GetString answers differently");
        CheckEqual(text, value != nullptr ? value : "before", "GetString");

        int number = 77;
        Check(item->GetInt(key, number) == (value != nullptr), "GetInt answers differently");
        Check(number == (value != nullptr ? static_cast<int>(std::strtol(value, nullptr, 10)) : 0), "GetInt");

        for (const bool before : {false, true}) {
            bool flag = before;
            bool expected = before;
            if (value != nullptr && strcasecmp(value, "true") == 0) {
                expected = true;
            } else if (value != nullptr && strcasecmp(value, "false") == 0) {
                expected = false;
            }
            Check(item->GetBool(key, flag) == (value != nullptr), "GetBool answers differently");
            Check(flag == expected, "GetBool");
        }
    }
}

void CheckItems(const SafePointer<XmlConfigureNode>& node, const TiXmlElement& element) {
    const std::vector<const TiXmlElement*> expected = ItemsOf(element);
    std::vector<SafePointer<XmlConfigureItem>> items;
    Check(node->GetItems(items) == !expected.empty(), "GetItems answers differently");
    Check(items.size() == expected.size(), "GetItems finds another number of items");
    for (size_t i = 0; i < items.size(); ++i) {
        CheckItem(items[i], *expected[i]);
    }
    static_cast<void>(node->GetItems(items));
    Check(items.size() == 2 * expected.size(), "GetItems does not append");
}

// `parent` points to the document or to a node; both find nodes by name.
template <class Pointer>
void CheckNodes(const Pointer& parent, const TiXmlElement* element) {
    for (const std::string& name : NamesIn(element)) {
        const TiXmlElement* expected = element == nullptr ? nullptr : FindChild(*element, name);
        SafePointer<XmlConfigureNode> node;
        Check(parent->GetNode(name, node) == (expected != nullptr), "GetNode answers differently");
        if (expected != nullptr) {
            CheckItems(node, *expected);
            CheckNodes(node, expected);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const MemoryFile file;
    if (size < 2 || size > MaxBytes) {
        return 0;
    }
    const std::string texts(reinterpret_cast<const char*>(data + 2), size - 2);
    const size_t divider = texts.find(Divider);
    const std::string first = texts.substr(0, divider);
    const std::string second = divider == std::string::npos ? first : texts.substr(divider + sizeof Divider - 1);
    const Load loads[] = {{Charsets[data[0] & 7U], Modes[data[0] >> 3U & 7U], first},
                          {Charsets[data[1] & 7U], Modes[data[1] >> 3U & 7U], second}};
    {
        XmlConfigureDocument document;
        Model model;
        for (const Load& load : loads) {
            file.write(load.text);
            Check(document.Load(file.path(), load.charset, load.mode) == model.load(load), "Load answers differently");
            CheckNodes(&document, model.rootElement());
            CheckEqual(file.read(), load.text, "a Load changes the file");
        }
        const std::string expected = model.saved(loads[1].text);
        Check(document.Save(), "Save fails");
        CheckEqual(file.read(), expected, "Save writes something else");
        file.write("again");
        Check(document.Save(), "a second Save fails");
        CheckEqual(file.read(), "again", "a second Save writes");
    }
    Check(TakenRecords() == 0, "a record of the pool is still taken");
    return 0;
}
