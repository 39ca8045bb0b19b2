#include "tests/growth/Callgrind.h"

#include <sstream>

namespace {

// @return whether the line is of this key, and what follows that.
bool HasKey(const std::string& line, const std::string& key, std::string& value) {
    if (line.compare(0, key.size(), key) != 0) {
        return false;
    }
    value = line.substr(key.size());
    return true;
}

} // namespace

// A function's block lists its own costs, one line each position. A call is three lines more: the function called
// ("cfn="), how often ("calls="), and the position with the instructions of the calls together.
CallgrindProfile::CallgrindProfile(const std::string& text) : instructions(0) {
    std::istringstream stream(text);
    std::string called;
    std::string value;
    for (std::string line; std::getline(stream, line);) {
        if (HasKey(line, "cfn=", value)) {
            called = value;
        } else if (HasKey(line, "calls=", value)) {
            uint64_t position = 0;
            uint64_t count = 0;
            stream >> position >> count;
            calls[called] += count;
        } else if (HasKey(line, "totals:", value)) {
            instructions = std::stoull(value);
        }
    }
}

uint64_t CallgrindProfile::inclusive(const std::string& beginning) const {
    uint64_t sum = 0;
    for (auto it = calls.lower_bound(beginning); it != calls.end(); ++it) {
        if (it->first.compare(0, beginning.size(), beginning) != 0) {
            break;
        }
        sum += it->second;
    }
    return sum;
}
