#include "charset/CharSetConverter.h"
#include "runtime/SafePointer.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"

#include <cstdio>
#include <string>
#include <vector>

// Prints the entries of a protocol configuration.
int main(int argc, char** argv) {
    XmlConfigureDocument document; // before the pointers into it: they have to go first
    SafePointer<XmlConfigureNode> section;
    std::vector<SafePointer<XmlConfigureItem>> entries;
    if (argc != 2 || !document.Load(argv[1], CharSetUtf8, ReadOnly) || !document.GetNode("ProtocolConfig", section) ||
        !section->GetItems(entries)) {
        return 1;
    }
    for (const SafePointer<XmlConfigureItem>& entry : entries) {
        std::string name;
        bool isEnabled = false;
        entry->GetString("ProtocolName", name);
        entry->GetBool("ProtocolEnable", isEnabled);
        std::printf("%s: %s\n", name.c_str(), isEnabled ? "enabled" : "disabled");
    }
    return 0;
}
