#pragma once

#include "check/Finding.h"
#include "xmlconfig/XmlPlaces.h"

#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

/// The findings of one check, in the order in which they were made, each once.
///
/// Owns:    the findings. Of each rule at most `Limit` are kept, so that a hostile image cannot make the list grow without
///          end, and much of one kind hides nothing of another.
/// Fails:   throws only std::bad_alloc.
/// Threads: one at a time per object.
class FindingList {
public:
    static constexpr size_t Limit = 1000;

    /// Adds a finding of a rule of the table; one that is there already is left out.
    /// @param rule an id of the table.
    void add(const std::string& path, XmlPlace place, const char* rule, const std::string& text);

    const std::vector<Finding>& all() const noexcept { return findings; }

    /// Makes every warning an error.
    void makeStrict() noexcept;

    /// @return how many findings have this severity.
    size_t count(Severity severity) const noexcept { return counts[static_cast<size_t>(severity)]; }

private:
    void keep(Finding finding);

    std::vector<Finding> findings;
    std::array<size_t, 3> counts = {}; ///< of `findings`, by severity
    std::map<std::string, size_t> countOfRule;
    std::set<std::string> cutRules; ///< those of which some were left out
    std::set<std::tuple<std::string, int, int, std::string, std::string>> known;
};
