#pragma once

#include "check/DeviceRoot.h"
#include "protocol/ProtocolTypeInfo.h"
#include "xmlconfig/XmlPlaces.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// U+FEFF in UTF-8, which some editors put in front of a text.
inline constexpr char ByteOrderMark[] = "\xEF\xBB\xBF";

/// One configuration file: what the launcher would read from it, or why it would not.
struct ConfigurationReport {
    enum class State : uint8_t {
        Usable,
        Absent,
        NotAFile,   ///< a directory, a socket, a link that leads nowhere
        Waits,      ///< a FIFO: the launcher waits for its other end, and the other copy is not tried
        Unreadable, ///< for this program: this user may not, or opening it may wait
        Empty,
        TooLarge, ///< for this program: not looked at
        TooMuch,  ///< for this program: parsing takes more than a second or so, or much memory
        Cut,      ///< the text ends where it may not
        NotWellFormed,
        TooDeep,
        WrongRoot, ///< none, or one of another name
        NamelessRoot,
        SearchEnded, ///< an element without a name stands before any protocol section
        NoSection,
        NoEntry,
        Contradictory,  ///< what the launcher's parser reads is not what was explained
        TooManyEntries, ///< ends the launcher: the other copy is not tried
    };

    /// More than a launcher's memory is likely to have room for: a text takes several times its size there.
    static constexpr size_t MaxSize = size_t{16} << 20U;
    /// What the launcher's pool of safe pointers has room for, beside the one that holds the section.
    static constexpr size_t MaxEntries = 20095;

    std::string role; ///< "working copy", "factory copy" or "configuration"
    std::string path; ///< on the machine that runs the check
    State state = State::Absent;
    std::string reason; ///< in words, empty when usable
    XmlPlace place;     ///< where what is wrong stands
    bool inForce = false;

    std::string content; ///< the bytes of the file, as far as it was read
    XmlPlacedText text;
    const XmlPlacedElement* sectionParent = nullptr; ///< the root element, when it is one
    const XmlPlacedElement* section = nullptr;       ///< the protocol section; into `text`
    size_t firstEntry = 0;                           ///< index of the first entry among the section's children
    std::vector<ProtocolTypeInfo> records;           ///< what the launcher reads; record i is the child firstEntry + i

    bool isUsable() const noexcept { return state == State::Usable; }

    /// @return whether the launcher gets no further than this file, and uses neither copy.
    bool isLastTried() const noexcept { return state == State::TooManyEntries || state == State::Waits; }

    /// @return whether this program could not find out if the launcher would use the file.
    bool isUnknown() const noexcept {
        return state == State::Unreadable || state == State::TooLarge || state == State::TooMuch ||
               state == State::Contradictory;
    }

    /// @return the element that a record was read from.
    const XmlPlacedElement& entry(size_t record) const { return section->children[firstEntry + record]; }

    ConfigurationReport() = default;
    ConfigurationReport(ConfigurationReport&&) = default;
    ConfigurationReport& operator=(ConfigurationReport&&) = default;
    ConfigurationReport(const ConfigurationReport&) = delete;
    ConfigurationReport& operator=(const ConfigurationReport&) = delete;
    ~ConfigurationReport() = default;
};

/// @return a word for a state, as it stands in tables: "usable", "absent", "not-well-formed".
const char* StateName(ConfigurationReport::State state) noexcept;

/// Takes over what the launcher's parser read of a file that was explained. Its answer is what counts; where it is not the
/// explanation's, the file was changed in between or the explanation is wrong, and the state becomes `Contradictory`.
/// @param records null when the parser refuses the file.
void TakeReading(const std::vector<ProtocolTypeInfo>* records, ConfigurationReport& report);

/// Reads a configuration as the launcher does, by the launcher's own parser, and explains what it refuses.
/// Threads: one. Throws only std::bad_alloc.
ConfigurationReport ReadConfiguration(const DeviceRoot& root, const std::string& path, const std::string& role);
