#pragma once

#include "xmlconfig/XmlPlaces.h"

#include <cstdint>
#include <string>

/// How bad a finding is: an error keeps a service from starting or stopping as configured, a warning may, a note tells
/// what could not be looked at.
enum class Severity : uint8_t { Note, Warning, Error };

/// @return "note", "warning" or "error".
const char* SeverityName(Severity severity) noexcept;

/// One thing that a rule found.
struct Finding {
    std::string path; ///< the file, on the machine that runs the check
    XmlPlace place;   ///< 1:1 for what concerns a file as a whole
    Severity severity = Severity::Error;
    const char* rule = ""; ///< the rule's id, of the table of rules
    std::string text;
};
