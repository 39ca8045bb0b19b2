#include "check/ConfigurationReport.h"

#include "protocol/ProtocolConfig.h"
#include "protocol/ProtocolVocabulary.h"
#include "xmlconfig/XmlNestingLimit.h"
#include "xmlconfig/XmlVocabulary.h"

#include <algorithm>
#include <iterator>
#include <memory>

namespace {

using State = ConfigurationReport::State;

// In front of a text in UTF-16, of either byte order.
constexpr const char* Utf16Marks[] = {"\xFF\xFE", "\xFE\xFF"};

void Refuse(ConfigurationReport& report, State state, const std::string& reason, XmlPlace place = {}) {
    report.state = state;
    report.reason = reason;
    report.place = place;
}

// @return whether there is a file to read.
bool LookAtFile(const DeviceEntry& entry, ConfigurationReport& report) {
    switch (entry.kind) {
    case DeviceEntry::Kind::Missing:
        Refuse(report, State::Absent, "there is no such file");
        return false;
    case DeviceEntry::Kind::DanglingLink:
        Refuse(report, State::NotAFile, "it is a link that leads to nothing");
        return false;
    case DeviceEntry::Kind::LinkLoop:
        Refuse(report, State::NotAFile, "a link on the way to it leads to itself, or over too many others");
        return false;
    case DeviceEntry::Kind::Unreachable:
        Refuse(report, State::Unreadable, "it cannot be read here");
        return false;
    case DeviceEntry::Kind::Directory:
        Refuse(report, State::NotAFile, "it is a directory");
        return false;
    case DeviceEntry::Kind::Fifo:
        Refuse(report, State::Waits, "it is a FIFO: the launcher waits there until something opens it for writing");
        return false;
    case DeviceEntry::Kind::Terminal:
        Refuse(report, State::Unreadable,
               "it is a device, and whether the launcher waits when it opens it is not known");
        return false;
    case DeviceEntry::Kind::Other:
        Refuse(report, State::NotAFile, "it is not a regular file");
        return false;
    default:
        break;
    }
    if (entry.size == 0) {
        Refuse(report, State::Empty, "it is empty");
        return false;
    }
    if (entry.size > ConfigurationReport::MaxSize) {
        Refuse(report, State::TooLarge,
               "it has more than " + std::to_string(ConfigurationReport::MaxSize) + " bytes and was not looked at");
        return false;
    }
    return true;
}

// @return whether the text is one that the launcher's parser may be given here, well-formed or not.
bool LookAtText(ConfigurationReport& report) {
    report.text = ParseWithPlaces(report.content);
    const XmlPlacedText& text = report.text;
    switch (text.state) {
    case XmlPlacedText::State::TooMuch:
        Refuse(report, State::TooMuch,
               "it has too many elements or attributes, or parsing it would take too long: more than " +
                   std::to_string(MaxParseSteps) + " steps; it was not looked at");
        return false;
    case XmlPlacedText::State::TooDeep:
        Refuse(report, State::TooDeep, "its elements nest deeper than " + std::to_string(MaxElementDepth));
        break;
    case XmlPlacedText::State::NotWellFormed:
        if (report.content.compare(0, 3, ByteOrderMark) == 0) {
            Refuse(report, State::NotWellFormed, "it begins with a byte-order mark, after which nothing is read");
            break;
        }
        if (std::any_of(std::begin(Utf16Marks), std::end(Utf16Marks),
                        [&report](const char* mark) { return report.content.compare(0, 2, mark) == 0; })) {
            Refuse(report, State::NotWellFormed, "it is written in UTF-16, which is not read");
            break;
        }
        Refuse(report, text.endsEarly ? State::Cut : State::NotWellFormed,
               (text.endsEarly ? "the text ends too early: " : "not well-formed: ") + text.reason, text.place);
        break;
    default:
        break;
    }
    return true;
}

// The parser takes the first ">" for the end of a document type declaration, and stops at the "]" behind it.
std::string NoRootReason(const std::string& content) {
    const size_t type = content.find("<!DOCTYPE");
    const bool hasOwnPart =
        type != std::string::npos && content.find('[', type) < std::min(content.find('>', type), content.size());
    return std::string("no root element is found") +
           (hasOwnPart ? ": the parser stops in the DOCTYPE, whose part in brackets it does not know" : "");
}

// This walk and the next only explain: they stop where the launcher's own, in xmlconfig/, does, and keep the places, which
// that has not. TakeReading holds them to its result.
void FindSection(ConfigurationReport& report) {
    const std::vector<XmlPlacedElement>& topLevel = report.text.topLevel;
    if (topLevel.empty()) {
        Refuse(report, State::WrongRoot, NoRootReason(report.content));
        return;
    }
    const XmlPlacedElement& root = topLevel.front();
    if (root.name != NodeElementName) {
        Refuse(report, State::WrongRoot, "its root element is \"" + root.name + "\", not \"" + NodeElementName + "\"",
               root.place);
        return;
    }
    if (root.find(KeyAttributeName) == nullptr) {
        Refuse(report, State::NamelessRoot,
               std::string("its root element has no attribute \"") + KeyAttributeName + "\"", root.place);
        return;
    }
    report.sectionParent = &root;
    const auto isNode = [](const XmlPlacedElement& element) { return element.name == NodeElementName; };
    const auto isDecisive = [](const XmlPlacedElement& element) {
        const XmlPlacedAttribute* name = element.find(KeyAttributeName);
        return name == nullptr || name->value == ProtocolSectionName;
    };
    const auto last = root.children.end();
    const auto found = std::find_if(std::find_if(root.children.begin(), last, isNode), last, isDecisive);
    if (found == last) {
        Refuse(report, State::NoSection, std::string("it has no section \"") + ProtocolSectionName + "\"", root.place);
    } else if (found->find(KeyAttributeName) == nullptr) {
        Refuse(report, State::SearchEnded,
               "the element \"" + found->name + "\" has no attribute \"" + KeyAttributeName +
                   "\" and ends the search for the section",
               found->place);
    } else {
        report.section = &*found;
    }
}

void FindEntries(ConfigurationReport& report) {
    const std::vector<XmlPlacedElement>& children = report.section->children;
    const auto first = std::find_if(children.begin(), children.end(),
                                    [](const XmlPlacedElement& element) { return element.name == ItemElementName; });
    report.firstEntry = static_cast<size_t>(first - children.begin());
    const auto count = static_cast<size_t>(children.end() - first);
    if (count == 0) {
        Refuse(report, State::NoEntry, std::string("its section has no \"") + ItemElementName + "\"",
               report.section->place);
    } else if (count > ConfigurationReport::MaxEntries) {
        Refuse(report, State::TooManyEntries,
               "it has " + std::to_string(count) + " entries, more than " +
                   std::to_string(ConfigurationReport::MaxEntries) + ": the launcher ends by signal 6 when it reads it",
               children[report.firstEntry + ConfigurationReport::MaxEntries].place);
    }
}

} // namespace

const char* StateName(State state) noexcept {
    switch (state) {
    case State::Usable:
        return "usable";
    case State::Absent:
        return "absent";
    case State::NotAFile:
        return "not-a-file";
    case State::Waits:
        return "waits";
    case State::Unreadable:
        return "unreadable";
    case State::Empty:
        return "empty";
    case State::TooLarge:
    case State::TooMuch:
        return "not-looked-at";
    case State::Cut:
        return "cut";
    case State::NotWellFormed:
        return "not-well-formed";
    case State::TooDeep:
        return "too-deep";
    case State::WrongRoot:
        return "wrong-root";
    case State::NamelessRoot:
        return "nameless-root";
    case State::SearchEnded:
        return "search-ended";
    case State::NoSection:
        return "no-section";
    case State::NoEntry:
        return "no-entry";
    case State::Contradictory:
        return "contradictory";
    default:
        break;
    }
    return "too-many-entries";
}

void TakeReading(const std::vector<ProtocolTypeInfo>* records, ConfigurationReport& report) {
    if (!report.isUsable() && records == nullptr) {
        return;
    }
    if (report.isUsable() && records != nullptr &&
        records->size() == report.section->children.size() - report.firstEntry) {
        report.records = *records;
        return;
    }
    Refuse(report, State::Contradictory,
           "the launcher's parser reads it otherwise than this program explains it: the file was changed meanwhile, or "
           "this program has an error, which please report");
}

ConfigurationReport ReadConfiguration(const DeviceRoot& root, const std::string& path, const std::string& role) {
    ConfigurationReport report;
    report.role = role;
    report.path = root.onHost(path);
    report.state = State::Usable; // until something speaks against it
    const DeviceEntry entry = root.look(path);
    if (!LookAtFile(entry, report)) {
        return report;
    }
    if (!root.read(path, ConfigurationReport::MaxSize, report.content)) {
        Refuse(report, State::Unreadable, "it cannot be read here");
        return report;
    }
    if (!LookAtText(report)) {
        return report;
    }
    if (report.isUsable()) {
        FindSection(report);
    }
    if (report.isUsable()) {
        FindEntries(report);
    }
    if (report.state == State::TooManyEntries) {
        return report; // the launcher's parser would end this process, too
    }
    // What counts is what the launcher's own parser makes of the file; what was found above only explains it.
    ProtocolConfig config;
    TakeReading(config.parse(root.onHost(entry.path)) ? &config.getProtocolList() : nullptr, report);
    return report;
}
