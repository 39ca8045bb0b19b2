#pragma once

#include "check/CheckReport.h"
#include "check/DeviceCheck.h"
#include "tests/support/TemporaryDirectory.h"

#include <cstdint>
#include <string>
#include <vector>

/// The tree of a device in a temporary directory, whole and without a fault until a test makes one: a system with a shell,
/// killall and a C library, two equal configurations with the protocols Modbus and OPCUA, their start programs (shell
/// scripts) and servers (dynamic programs).
class DeviceImage {
public:
    DeviceImage();

    static constexpr const char* Working = "/mnt/mtd/code/config_file/protocolconfig.xml";
    static constexpr const char* Factory = "/mnt/mtd/code/factory_setting/protocolconfig.xml";

    /// @return where a path of the device is on this machine.
    std::string onHost(const std::string& path) const { return layout.path() + path; }

    const std::string& root() const { return layout.path(); }

    /// Writes a file of the device, replacing what was there.
    void write(const std::string& path, const std::string& content, unsigned mode = 0755) const;
    void link(const std::string& path, const std::string& target) const;
    void remove(const std::string& path) const;
    void rename(const std::string& from, const std::string& to) const;
    void setMode(const std::string& path, unsigned mode) const;

    /// Writes both copies of the configuration.
    void configure(const std::string& text) const;

    /// Writes both copies with these lines as the entries.
    void configureEntries(const std::string& entries) const;

    /// Adds a start script and its server for a name.
    void addService(const std::string& name) const;

    CheckReport check(const std::string& planMode = "") const;

private:
    TemporaryDirectory layout;
};

/// @return a configuration in UTF-8 with these lines as the entries, which begin in line 4.
std::string ConfigurationText(const std::string& entries,
                              const std::string& declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n");

/// @return an entry with these values, one line.
std::string EntryText(const std::string& name, const std::string& id, const std::string& enable = "true");

/// @return the findings as "line:column: severity: RULE: text" with the file's device path in front, one a line.
std::string FindingsText(const CheckReport& report);

/// @return whether a rule found something.
bool HasRule(const CheckReport& report, const std::string& rule);
