#include "fuzz/LauncherModel.h"

#include <climits>
#include <cstdint>
#include <dirent.h>

namespace {

bool Contains(const std::string& text, const std::string& part) {
    for (size_t i = 0; i + part.size() <= text.size(); ++i) {
        if (text.compare(i, part.size(), part) == 0) {
            return true;
        }
    }
    return false;
}

// Blanks, a sign, digits; what a long does not hold stops at its limit, and an int takes the low half.
int Number(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) {
        ++i;
    }
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) {
        ++i;
    }
    __int128 value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        value = value > INT64_MAX ? __int128{INT64_MAX} + 1 : value;
    }
    value = negative ? -value : value;
    value = value > INT64_MAX ? INT64_MAX : value;
    return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

std::string Chosen(const Device& device, const std::string& protocol) {
    if (device.hasServices) {
        for (const Device::Entry& entry : device.services) {
            const bool listed = entry.name[0] != '.' && entry.type != DT_DIR;
            if (listed && Contains(entry.name, "loadservice") && Contains(entry.name, protocol)) {
                return entry.name;
            }
        }
    }
    return "";
}

void ExpectService(Transcript& transcript, const Device& device, const std::string& protocol, int mode) {
    transcript.listed("/factory_setting/");
    const std::string file = Chosen(device, protocol);
    std::string prefix;
    for (const char c : file) {
        if (c == '_') {
            break;
        }
        prefix += c;
    }
    if (mode != 0 && mode != 1) {
        return;
    }
    const std::string command = mode == 1 ? "/factory_setting/" + file : "killall -15 " + prefix + "_Server";
    if (command.size() > 63) {
        transcript.reported("Wyvern: protocol \"" + protocol + "\": the command for the file \"" + file +
                            "\" is longer than 63 characters and is not run\n");
        return;
    }
    transcript.ran(command);
    transcript.printed((mode == 1 ? "Run LoadServcie(" : "Stop LoadServcie(") + command + ") \n");
}

} // namespace

Transcript ExpectedRun(const Device& device, const std::vector<std::string>& arguments, const ModelConfig& working,
                       const ModelConfig& factory) {
    Transcript transcript;
    if (arguments.size() != 1) {
        transcript.printed("Useage: Wyvern [Type 1:start,0:stop]\n");
        transcript.ended(-1);
        return transcript;
    }
    const ModelConfig* used = &working;
    transcript.opened("/mnt/mtd/code/config_file/protocolconfig.xml");
    if (!working.has_value()) {
        transcript.printed("Run ConfigFile(/mnt/mtd/code/config_file/protocolconfig.xml) failed\n");
        transcript.opened("/mnt/mtd/code/factory_setting/protocolconfig.xml");
        used = &factory;
        if (!factory.has_value()) {
            transcript.printed("Run ConfigFile(/mnt/mtd/code/factory_setting/protocolconfig.xml) failed\n");
            transcript.ended(0);
            return transcript;
        }
    }
    for (const ModelRecord& record : **used) {
        if (record.enabled) {
            ExpectService(transcript, device, record.name, Number(arguments[0]));
        } else {
            transcript.printed("Protocol(" + record.name + ") disable\n");
        }
    }
    transcript.ended(0);
    return transcript;
}
