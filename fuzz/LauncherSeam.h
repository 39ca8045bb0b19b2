#pragma once

#include <optional>
#include <string>
#include <vector>

/// What the launcher finds on a device.
struct Device {
    struct Entry {
        unsigned char type; ///< of dirent's d_type
        std::string name;   ///< 1 to 255 bytes, none of them "/" or zero, as the kernel has it
    };

    /// The paths of the device.
    static constexpr const char* WorkingPath = "/mnt/mtd/code/config_file/protocolconfig.xml";
    static constexpr const char* FactoryPath = "/mnt/mtd/code/factory_setting/protocolconfig.xml";
    static constexpr const char* ServicePath = "/factory_setting/";

    std::optional<std::string> working; ///< content of the working copy, if there is one
    std::optional<std::string> factory; ///< the same of the factory copy
    bool hasServices = true;            ///< whether the service directory opens
    std::vector<Entry> services;
};

/// What a run did, in the order in which an onlooker sees it: opens, listings, commands and what reached the streams.
class Transcript {
public:
    void opened(const std::string& path) { add("open", path); }

    void listed(const std::string& path) { add("list", path); }

    void ran(const std::string& command) { add("run", command); }

    void ended(int status) { add("exit", std::to_string(status)); }

    /// Pieces of one stream that nothing came between count as one.
    void printed(const std::string& text) { write("out", text); }

    void reported(const std::string& text) { write("err", text); }

    std::string text() const;

private:
    struct Event {
        std::string kind;
        std::string what;
    };

    void add(const char* kind, const std::string& what) { events.push_back({kind, what}); }

    void write(const char* stream, const std::string& what);

    std::vector<Event> events;
};

/// Runs the program's entry point in this process on a device. Nothing of the machine is opened or run: what the
/// program asks of the C library (--wrap) is answered from `device`, and anything else that it asks for is a finding.
Transcript LaunchOn(const Device& device, const std::vector<std::string>& arguments);
