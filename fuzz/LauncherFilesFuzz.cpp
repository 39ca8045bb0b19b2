// The launcher on any two configurations, any argument and any service directory.
//
// The input is a text in four parts, divided by lines "/=====/": the argument; the entries of the service directory,
// divided by "/", the first byte of each its type (d directory, l link, ? unknown, anything else a file) and the rest
// its name; the working copy; the factory copy. A copy whose part is missing is missing, and so is the directory when
// its part is "none". A name holds any byte but "/" and zero, so every name that a kernel gives can be written.

#include "fuzz/Check.h"
#include "fuzz/DocumentModel.h"
#include "fuzz/LauncherModel.h"
#include "fuzz/LauncherSeam.h"

#include <strings.h>
#include <tinyxml.h>

#include <cstdint>
#include <dirent.h>

namespace {

std::vector<std::string> Split(const std::string& text, const std::string& divider, size_t parts) {
    std::vector<std::string> all;
    size_t start = 0;
    while (all.size() + 1 < parts) {
        const size_t end = text.find(divider, start);
        if (end == std::string::npos) {
            break;
        }
        all.push_back(text.substr(start, end - start));
        start = end + divider.size();
    }
    all.push_back(text.substr(start));
    return all;
}

unsigned char TypeOf(char letter) {
    switch (letter) {
    case 'd':
        return DT_DIR;
    case 'l':
        return DT_LNK;
    case '?':
        return DT_UNKNOWN;
    default:
        return DT_REG;
    }
}

// The records of a copy, by a reading that shares nothing with the product's.
ModelConfig Read(const std::optional<std::string>& content) {
    constexpr unsigned Utf8 = 1;
    constexpr unsigned ReadOnly = 1;
    DocumentModel document;
    if (!content.has_value() || !document.load({Utf8, ReadOnly, *content})) {
        return {};
    }
    const TiXmlElement* section = FindNode(*document.rootElement(), "ProtocolConfig");
    if (section == nullptr || ItemsOf(*section).empty()) {
        return {};
    }
    std::vector<ModelRecord> records;
    for (const TiXmlElement* item : ItemsOf(*section)) {
        const char* name = item->Attribute("ProtocolName");
        const char* enable = item->Attribute("ProtocolEnable");
        records.push_back({name == nullptr ? "" : name, enable != nullptr && strcasecmp(enable, "true") == 0});
    }
    return records;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > DocumentModel::MaxBytes) {
        return 0;
    }
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::vector<std::string> parts = Split(input, "\n/=====/\n", 4);

    Device device;
    if (parts.size() > 1) {
        device.hasServices = parts[1] != "none";
        for (const std::string& entry : Split(parts[1], "/", SIZE_MAX)) {
            const std::string typeAndName(entry.c_str()); // no name holds a zero byte
            if (typeAndName.size() > 1) {
                device.services.push_back({TypeOf(typeAndName[0]), typeAndName.substr(1, 255)});
            }
        }
    }
    if (parts.size() > 2) {
        device.working = parts[2];
    }
    if (parts.size() > 3) {
        device.factory = parts[3];
    }
    const std::vector<std::string> arguments = {parts[0].c_str()};

    const Transcript expected = ExpectedRun(device, arguments, Read(device.working), Read(device.factory));
    CheckEqual(LaunchOn(device, arguments).text(), expected.text(), "the launcher differs from its model");
    return 0;
}
