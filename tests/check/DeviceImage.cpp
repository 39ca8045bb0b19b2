#include "tests/check/DeviceImage.h"

#include "tests/check/ElfImage.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

ElfImage DynamicProgram() {
    ElfImage program;
    program.interpreter = "/lib64/ld-linux.so";
    program.needed = {"libc.so"};
    return program;
}

} // namespace

DeviceImage::DeviceImage() {
    static_cast<void>(umask(022)); // directories of a device, whatever this user's are like
    fs::permissions(root(), fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec);
    write("/bin/busybox", DynamicProgram().bytes());
    link("/bin/sh", "busybox");
    link("/usr/bin/killall", "/bin/busybox");
    write("/usr/bin/env", DynamicProgram().bytes());
    write("/lib64/ld-linux.so", ElfImage().bytes());
    write("/lib/libc.so", ElfImage().bytes());
    addService("Modbus");
    addService("OPCUA");
    configureEntries(EntryText("Modbus", "1") + EntryText("OPCUA", "2"));
}

void DeviceImage::write(const std::string& path, const std::string& content, unsigned mode) const {
    remove(path);
    static_cast<void>(layout.write(path.substr(1), content));
    setMode(path, mode);
}

void DeviceImage::link(const std::string& path, const std::string& target) const {
    remove(path);
    fs::create_directories(fs::path(onHost(path)).parent_path());
    fs::create_symlink(target, onHost(path));
}

void DeviceImage::remove(const std::string& path) const {
    fs::remove_all(onHost(path));
}

void DeviceImage::rename(const std::string& from, const std::string& to) const {
    fs::rename(onHost(from), onHost(to));
}

void DeviceImage::setMode(const std::string& path, unsigned mode) const {
    EXPECT_EQ(chmod(onHost(path).c_str(), mode), 0) << path;
}

void DeviceImage::configure(const std::string& text) const {
    write(Working, text, 0644);
    write(Factory, text, 0644);
}

void DeviceImage::configureEntries(const std::string& entries) const {
    configure(ConfigurationText(entries));
}

void DeviceImage::addService(const std::string& name) const {
    write("/factory_setting/" + name + "_loadservice",
          "#!/bin/sh\n/usr/sbin/" + name + "_Server </dev/null >/dev/null 2>&1 &\n");
    write("/usr/sbin/" + name + "_Server", DynamicProgram().bytes());
}

CheckReport DeviceImage::check(const std::string& planMode) const {
    CheckRequest request;
    request.root = root();
    request.planMode = planMode;
    CheckReport report;
    EXPECT_TRUE(CheckDevice(request, report));
    return report;
}

std::string ConfigurationText(const std::string& entries, const std::string& declaration) {
    return declaration + "<Configure name=\"Device\">\n<Configure name=\"ProtocolConfig\">\n" + entries +
           "</Configure>\n</Configure>\n";
}

std::string EntryText(const std::string& name, const std::string& id, const std::string& enable) {
    return "<ConfigItem ProtocolName=\"" + name + "\" ProtocolId=\"" + id + "\" ProtocolType=\"1\" ProtocolEnable=\"" +
           enable + "\"/>\n";
}

std::string FindingsText(const CheckReport& report) {
    std::string text;
    for (const Finding& finding : report.findings.all()) {
        text += finding.path.substr(report.root.size()) + ":" + std::to_string(finding.place.line) + ":" +
                std::to_string(finding.place.column) + ": " + SeverityName(finding.severity) + ": " + finding.rule +
                ": " + finding.text + "\n";
    }
    return text;
}

bool HasRule(const CheckReport& report, const std::string& rule) {
    const std::vector<Finding>& all = report.findings.all();
    return std::any_of(all.begin(), all.end(), [&rule](const Finding& finding) { return finding.rule == rule; });
}
