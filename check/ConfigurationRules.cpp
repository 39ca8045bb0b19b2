#include "check/ConfigurationRules.h"

#include "check/LetterCase.h"
#include "check/Utf8.h"
#include "protocol/ProtocolVocabulary.h"
#include "xmlconfig/XmlAttributeReader.h"
#include "xmlconfig/XmlPlaces.h"
#include "xmlconfig/XmlVocabulary.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using State = ConfigurationReport::State;

constexpr std::array<const char*, 4> EntryAttributes = {ProtocolNameAttribute, ProtocolIdAttribute,
                                                        ProtocolTypeAttribute, ProtocolEnableAttribute};
constexpr std::array<const char*, 1> NodeAttributes = {KeyAttributeName};
// In front of the names that XML keeps for itself, and of those that connect a file with its schema.
constexpr std::array<const char*, 2> ForeignPrefixes = {"xml", "xsi:"};
// What they have in front, and is left out at times.
constexpr const char* CommonPrefix = "protocol";
// A name further away than this from all that are known is another name, not a slip of the pen.
constexpr size_t MaxSlips = 2;
constexpr size_t MaxNameLength = 64;

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// @return how many letters must be put in, left out or changed to make one name of the other.
size_t SlipsBetween(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    for (size_t j = 0; j < row.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= from.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            const size_t changed = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

/// @return what was probably meant by an attribute's name; empty for none.
template <class Names>
std::string MeantBy(const std::string& name, const Names& known) {
    if (name.size() > MaxNameLength) {
        return {};
    }
    const std::string lower = ToLower(name);
    std::string meant;
    size_t fewest = MaxSlips + 1;
    for (const char* each : known) {
        const std::string whole = ToLower(each);
        const bool isShort = CommonPrefix + lower == whole || CommonPrefix + lower == whole + "d"; // "Enabled"
        const size_t slips = isShort ? 0 : SlipsBetween(lower, whole);
        if (slips < fewest) {
            fewest = slips;
            meant = each;
        }
    }
    return meant;
}

/// The rules of one file, with what all of them need.
class Check {
public:
    Check(const ConfigurationReport& checked, FindingList& findingList) : report(checked), findings(findingList) {}

    void checkEncoding() const {
        const std::string& content = report.content;
        const size_t zero = content.find('\0');
        const std::string text = content.substr(0, zero);
        if (zero != std::string::npos) {
            addAtOffset(zero, "zero-byte", "a zero byte at offset " + std::to_string(zero) + " ends the text");
        }
        if (text.compare(0, 3, ByteOrderMark) == 0) {
            addAtOffset(0, "byte-order-mark",
                        "a byte-order mark: the launcher takes the text for GB2312 and does not read it");
            return;
        }
        const size_t invalid = FirstInvalidUtf8(text);
        const std::string declared = report.text.declaredEncoding;
        if (report.text.isUtf8) {
            if (invalid != std::string::npos) {
                addAtOffset(invalid, "encoding-mismatch",
                            "declared as UTF-8, but the byte at offset " + std::to_string(invalid) + " is not");
            }
            return;
        }
        if (!report.text.hasDeclaration) {
            if (!IsAscii(text)) {
                findings.add(report.path, {}, "encoding-undeclared",
                             "no declaration of the encoding, so the text is read as GB2312");
            }
        } else if (ToLower(declared) != "gb2312") {
            findings.add(report.path, report.text.declarationPlace, "encoding-not-known",
                         "declared as " + Quoted(declared) + ", but every text that is not UTF-8 is read as GB2312");
        } else if (invalid == std::string::npos && looksLikeUtf8(text)) {
            findings.add(report.path, report.text.declarationPlace, "encoding-mismatch",
                         "declared as GB2312, but its bytes are UTF-8");
        }
        if (report.text.cutAt != XmlPlacedText::None) {
            addAtOffset(report.text.cutAt, "encoding-cut",
                        "the byte at offset " + std::to_string(report.text.cutAt) +
                            " is not GB2312: the launcher sees nothing of the text from there on");
        }
    }

    void checkState() const {
        switch (report.state) {
        case State::Usable:
            break;
        case State::Absent:
            add({}, "configuration-absent", report.reason);
            break;
        case State::Unreadable:
        case State::TooLarge:
        case State::TooMuch:
            add({}, "not-looked-at", report.reason);
            break;
        case State::Waits:
            add({}, "configuration-waits", report.reason);
            break;
        case State::TooDeep:
            add({}, "nesting-depth", report.reason);
            break;
        case State::TooManyEntries:
            add(report.place, "too-many-entries", report.reason);
            break;
        case State::SearchEnded:
            add(report.place, "search-ended", report.reason);
            break;
        default:
            add(report.place, "configuration-unusable", report.reason);
            break;
        }
    }

    // The elements beneath the root, as far as the search for the section looks at them, and the sections behind it.
    void checkSections() const {
        if (report.state == State::NamelessRoot) {
            checkAttributes(report.text.topLevel.front(), NodeAttributes);
        }
        if (report.sectionParent == nullptr) {
            return;
        }
        checkAttributes(*report.sectionParent, NodeAttributes);
        if (report.section != nullptr) {
            checkAttributes(*report.section, NodeAttributes);
        }
        const std::vector<XmlPlacedElement>& children = report.sectionParent->children;
        const bool isEnded = report.state == State::SearchEnded;
        bool isSectionSeen = false;
        for (const XmlPlacedElement& child : children) {
            const XmlPlacedAttribute* name = child.find(KeyAttributeName);
            if (isEnded && name == nullptr) {
                explainMissingName(child);
            } else if (isSectionSeen && name != nullptr && name->value == ProtocolSectionName) {
                add(child.place, "section-duplicate",
                    "a second section " + Quoted(ProtocolSectionName) + ": only the first one is read");
            }
            isSectionSeen = isSectionSeen || &child == report.section;
        }
    }

    void checkEntries() {
        if (report.section == nullptr) {
            return;
        }
        const std::vector<XmlPlacedElement>& children = report.section->children;
        for (size_t i = 0; i < children.size(); ++i) {
            if (i < report.firstEntry) {
                if (report.firstEntry < children.size()) {
                    add(children[i].place, "entry-before-first",
                        "the element " + Quoted(children[i].name) +
                            " comes before the first \"ConfigItem\" and is ignored");
                }
            } else {
                checkEntry(children[i]);
            }
        }
    }

private:
    // Of a text that is valid as UTF-8. Some characters of GB2312 are as well, by their two bytes; sequences of three bytes,
    // such as Chinese has in UTF-8, or a conversion that fails, are no chance.
    bool looksLikeUtf8(const std::string& text) const {
        return report.text.cutAt != XmlPlacedText::None ||
               std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0xE0; });
    }

    void add(XmlPlace place, const char* rule, const std::string& text) const {
        findings.add(report.path, place, rule, text);
    }

    void addAtOffset(size_t offset, const char* rule, const std::string& text) const {
        add(PlaceOfOffset(report.content, offset, report.text.isUtf8), rule, text);
    }

    void explainMissingName(const XmlPlacedElement& element) const {
        for (const XmlPlacedAttribute& attribute : element.attributes) {
            if (!MeantBy(attribute.name, NodeAttributes).empty()) {
                add(attribute.place, "attribute-unknown",
                    "unknown attribute " + Quoted(attribute.name) + ": was \"name\" meant?");
            }
        }
    }

    template <class Names>
    void checkAttributes(const XmlPlacedElement& element, const Names& known) const {
        for (const XmlPlacedAttribute& attribute : element.attributes) {
            const auto isIt = [&attribute](const char* name) { return attribute.name == name; };
            const auto isInFront = [&attribute](const char* prefix) { return attribute.name.rfind(prefix, 0) == 0; };
            if (std::none_of(known.begin(), known.end(), isIt) &&
                std::none_of(ForeignPrefixes.begin(), ForeignPrefixes.end(), isInFront)) {
                const std::string meant = MeantBy(attribute.name, known);
                add(attribute.place, "attribute-unknown",
                    "unknown attribute " + Quoted(attribute.name) +
                        (meant.empty() || element.find(meant) != nullptr ? " is ignored"
                                                                         : ": was " + Quoted(meant) + " meant?"));
            }
        }
    }

    void checkEntry(const XmlPlacedElement& entry) {
        if (entry.name != ItemElementName) {
            add(entry.place, "entry-other-element",
                "the element " + Quoted(entry.name) + " after a \"ConfigItem\" is taken as an entry, too");
            if (std::none_of(EntryAttributes.begin(), EntryAttributes.end(),
                             [&entry](const char* known) { return entry.find(known) != nullptr; })) {
                return; // disabled, and nothing more about it helps
            }
        }
        checkAttributes(entry, EntryAttributes);
        checkText(entry, ProtocolNameAttribute, IsEnabled(entry) ? "name-empty" : nullptr, "name-duplicate", names);
        checkText(entry, ProtocolIdAttribute, "id-empty", "id-duplicate", ids);
        checkType(entry);
        checkEnable(entry);
    }

    static bool IsEnabled(const XmlPlacedElement& entry) {
        const XmlPlacedAttribute* attribute = entry.find(ProtocolEnableAttribute);
        bool isEnabled = false;
        return attribute != nullptr && ParseBool(attribute->value, isEnabled) && isEnabled;
    }

    // @param emptyRule null when an empty text is of no matter.
    void checkText(const XmlPlacedElement& entry, const char* attributeName, const char* emptyRule,
                   const char* duplicateRule, std::map<std::string, int>& seen) const {
        const XmlPlacedAttribute* attribute = entry.find(attributeName);
        if (attribute == nullptr || attribute->value.empty()) {
            if (emptyRule != nullptr) {
                add(attribute == nullptr ? entry.place : attribute->place, emptyRule,
                    std::string(attributeName) + (attribute == nullptr ? " is missing" : " is empty"));
            }
            return;
        }
        const auto first = seen.emplace(attribute->value, attribute->place.line);
        if (!first.second) {
            add(attribute->place, duplicateRule,
                std::string(attributeName) + " " + Quoted(attribute->value) + " is already that of line " +
                    std::to_string(first.first->second));
        }
    }

    // The launcher's atoi takes leading blanks, a sign and digits, and ignores what follows.
    void checkType(const XmlPlacedElement& entry) const {
        const XmlPlacedAttribute* attribute = entry.find(ProtocolTypeAttribute);
        if (attribute == nullptr) {
            add(entry.place, "type-value", "ProtocolType is missing and counts as 0");
            return;
        }
        const char* text = attribute->value.c_str();
        char* end = nullptr;
        errno = 0;
        const long long number = std::strtoll(text, &end, 10);
        if (end == text || *end != '\0' || std::isspace(static_cast<unsigned char>(*text)) != 0) {
            add(attribute->place, "type-value",
                "ProtocolType " + Quoted(attribute->value) + " is not a whole decimal number");
        } else if (errno == ERANGE || number > INT_MAX || number < INT_MIN) {
            add(attribute->place, "type-value",
                "ProtocolType " + Quoted(attribute->value) + " does not fit in 32 bits");
        }
    }

    void checkEnable(const XmlPlacedElement& entry) const {
        const XmlPlacedAttribute* attribute = entry.find(ProtocolEnableAttribute);
        bool ignored = false;
        if (attribute == nullptr) {
            add(entry.place, "enable-value", "ProtocolEnable is missing: the protocol is disabled");
        } else if (!ParseBool(attribute->value, ignored)) {
            add(attribute->place, "enable-value",
                "ProtocolEnable " + Quoted(attribute->value) + " is neither true nor false: the protocol is disabled");
        }
    }

    const ConfigurationReport& report;
    FindingList& findings;
    std::map<std::string, int> names; ///< and the line of each
    std::map<std::string, int> ids;
};

} // namespace

void CheckConfiguration(const ConfigurationReport& report, FindingList& findings) {
    Check check(report, findings);
    check.checkState();
    if (!report.content.empty() && report.state != State::TooMuch) {
        check.checkEncoding();
        check.checkSections();
        check.checkEntries();
    }
}
