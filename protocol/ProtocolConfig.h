#pragma once

#include "protocol/ProtocolTypeInfo.h"

#include <string>
#include <vector>

/// The protocols that the device can run, read from its configuration file.
///
/// Owns:    the records, by value, in file order.
/// Fails:   by result. Trace and error lines go to the console log, which is silent unless its settings are changed.
/// Threads: one at a time per object.
class ProtocolConfig {
public:
    /// Holds an empty list.
    ProtocolConfig();

    /// Reads a file and replaces the list.
    ///
    /// The file: a root "Configure" with a "name"; in it, from its first child "Configure" on, every sibling element is
    /// looked at until one has the name "ProtocolConfig" (one without a name ends the search); in that, the first
    /// "ConfigItem" and every sibling element behind it are the entries. Attributes of an entry: "ProtocolName",
    /// "ProtocolId" (text, empty when missing), "ProtocolType" (atoi, 0 when missing), "ProtocolEnable" ("true" in any
    /// letter case enables, everything else does not). A missing or odd attribute never fails the parse.
    ///
    /// @return false, with the list as it was, when the file does not load ("parse(%s)error\n" is logged), has no
    ///         protocol section ("parse(%s),not find Node(RecordDir)\n" is logged) or the section has no "ConfigItem".
    /// @param path reaches the log, which interprets percent signs again: it must hold none while level 1 is printed.
    /// Throws `WyRuntimeError` "too much safe poniter" for more than 20,095 entries, and std::bad_alloc. An exception
    /// while the entries are read leaves the records read so far.
    bool parse(const std::string& path);

    /// @return the records, valid while this object lives; the next `parse` replaces them.
    std::vector<ProtocolTypeInfo>& getProtocolList() noexcept { return protocols; }

private:
    std::vector<ProtocolTypeInfo> protocols;
};
