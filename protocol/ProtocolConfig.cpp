#include "protocol/ProtocolConfig.h"

#include "charset/CharSetConverter.h"
#include "protocol/ProtocolVocabulary.h"
#include "runtime/ConsoleLog.h"
#include "runtime/SafePointer.h"
#include "xmlconfig/XmlConfigureDocument.h"
#include "xmlconfig/XmlConfigureItem.h"
#include "xmlconfig/XmlConfigureNode.h"

#include <cstdint>

namespace {

constexpr const char* SourceName = "ProtocolConfig";

// Where parse stands. The numbers are those that readers of the log have always seen; they do not follow this file.
enum TracePoint : int32_t {
    Entered = 28,
    Loaded = 35,
    SectionFound = 42,
    ListCleared = 47,
    EntryStarted = 50,
    NameRead = 57,
    IdRead = 62,
    EntryAppended = 70,
    EntriesRead = 72,
};

void Trace(TracePoint point) {
    static_cast<void>(ConsoleLog().print(LogInfo, SourceName, "%s %s %d \n", SourceName, "parse", point));
}

ProtocolTypeInfo ReadEntry(const SafePointer<XmlConfigureItem>& item) {
    // The results of the reads are not looked at: what is missing keeps its default.
    Trace(EntryStarted);
    ProtocolTypeInfo entry;

    std::string name;
    static_cast<void>(item->GetString(ProtocolNameAttribute, name));
    entry.setProtocolName(name);
    Trace(NameRead);

    std::string id;
    static_cast<void>(item->GetString(ProtocolIdAttribute, id));
    entry.setProtocolId(id);
    Trace(IdRead);

    int32_t type = 1; // never survives: the read writes 0 when the attribute is missing
    static_cast<void>(item->GetInt(ProtocolTypeAttribute, type));
    entry.setProtocolType(type);

    bool enable = false;
    static_cast<void>(item->GetBool(ProtocolEnableAttribute, enable));
    entry.setProtocolEnable(enable);
    return entry;
}

} // namespace

ProtocolConfig::ProtocolConfig() = default;

bool ProtocolConfig::parse(const std::string& path) {
    Trace(Entered);
    XmlConfigureDocument document;
    if (!document.Load(path, CharSetUtf8, ReadOnly)) {
        static_cast<void>(ConsoleLog().print(LogError, SourceName, "parse(%s)error\n", path.c_str()));
        return false;
    }
    Trace(Loaded);

    SafePointer<XmlConfigureNode> section;
    if (!document.GetNode(ProtocolSectionName, section)) {
        static_cast<void>(
            ConsoleLog().print(LogError, SourceName, "parse(%s),not find Node(RecordDir)\n", path.c_str()));
        return false;
    }
    Trace(SectionFound);

    std::vector<SafePointer<XmlConfigureItem>> items;
    if (!section->GetItems(items)) {
        return false;
    }
    protocols.clear();
    Trace(ListCleared);

    protocols.reserve(items.size());
    for (const SafePointer<XmlConfigureItem>& item : items) {
        protocols.push_back(ReadEntry(item));
        Trace(EntryAppended);
    }
    Trace(EntriesRead);
    static_cast<void>(document.Save()); // opened for reading only: nothing is written, nothing can fail
    return true;
}
