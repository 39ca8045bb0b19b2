// Two loads on one document, with any character set and mode, then all that a caller can read, and Save; every answer
// is compared with a second reading (DocumentModel.h).
//
// Input: a byte for each load, then the two texts, divided by a line "=====" (one text serves both when there is none).
// In a byte, the low three bits choose the character set and the next three the mode: "1" is UTF-8, read only.

#include "fuzz/Check.h"
#include "fuzz/DocumentModel.h"
#include "fuzz/MemoryFile.h"
#include "runtime/SafePointer.h"
#include "tests/support/SafePointerRecords.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"

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
        const TiXmlElement* expected = element == nullptr ? nullptr : FindNode(*element, name);
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
    if (size < 2 || size > DocumentModel::MaxBytes) {
        return 0;
    }
    const std::string texts(reinterpret_cast<const char*>(data + 2), size - 2);
    const size_t divider = texts.find(Divider);
    const std::string first = texts.substr(0, divider);
    const std::string second = divider == std::string::npos ? first : texts.substr(divider + sizeof Divider - 1);
    const DocumentModel::Load loads[] = {{Charsets[data[0] & 7U], Modes[data[0] >> 3U & 7U], first},
                                         {Charsets[data[1] & 7U], Modes[data[1] >> 3U & 7U], second}};
    {
        XmlConfigureDocument document;
        DocumentModel model;
        for (const DocumentModel::Load& load : loads) {
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
