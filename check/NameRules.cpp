#include "check/NameRules.h"

#include <algorithm>
#include <cstring>

namespace {

// POSIX, Shell Command Language, 2.2 Quoting: what the shell does not take as a letter wherever it stands in a word.
constexpr const char* SpecialAnywhere = "|&;<>()$`\\\"' *?[]{}";
// At the beginning: a comment, a home directory, an option of killall. There stands the prefix in the stop command.
constexpr const char* SpecialAtTheStart = "#~-";

bool IsSpecial(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || std::strchr(SpecialAnywhere, c) != nullptr;
}

} // namespace

void CheckName(const std::string& hostPath, const std::string& name, FindingList& findings) {
    const auto found = std::strchr(SpecialAtTheStart, name.front()) != nullptr
                           ? name.begin()
                           : std::find_if(name.begin(), name.end(), IsSpecial);
    if (found != name.end()) {
        const std::string which = *found == ' ' ? "a blank" : "the special character '" + std::string(1, *found) + "'";
        findings.add(hostPath, {}, "name-shell-characters", "the name reaches the shell unquoted, and has " + which);
    }
}
