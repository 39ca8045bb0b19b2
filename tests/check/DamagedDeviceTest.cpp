// The sample device with faults planted in a copy of it, as an integrator would make them: the real program finds each.
#include "tests/check/RunCheck.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const std::string WorkingCopy = "mnt/mtd/code/config_file/protocolconfig.xml";
const std::string FactoryCopy = "mnt/mtd/code/factory_setting/protocolconfig.xml";
const std::string Programs = "factory_setting/";
const std::string Servers = "mnt/mtd/code/services/";

class SampleDeviceCopy {
public:
    SampleDeviceCopy() {
        fs::copy(SAMPLE_DEVICE, root(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    }

    std::string root() const { return directory / "device"; }
    fs::path at(const std::string& path) const { return fs::path(root()) / path; }

    void replace(const std::string& path, const std::string& from, const std::string& to) const {
        std::string text = ReadWholeFile(at(path));
        const size_t place = text.find(from);
        ASSERT_NE(place, std::string::npos) << path << " has no " << from;
        write(path, text.replace(place, from.size(), to));
    }

    void cut(const std::string& path) const { fs::resize_file(at(path), fs::file_size(at(path)) / 2); }

    void write(const std::string& path, const std::string& content) const {
        std::ofstream(at(path), std::ios::binary) << content;
    }

private:
    TemporaryDirectory directory;
};

struct Plant {
    const char* rule; ///< that has to report it
    const char* file; ///< that it has to be reported of
    int status;       ///< of the whole run
    std::function<void(const SampleDeviceCopy&)> plant;
};

// What stands in one copy of the device without hiding another of them.
const std::vector<Plant>& PlantsThatGoTogether() {
    static const std::vector<Plant> plants = {
        {"attribute-unknown", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, R"(ProtocolId="modbus-tcp")", R"(ProtocolID="modbus-tcp")");
         }},
        {"enable-value", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, R"(ProtocolEnable="false")", R"(ProtocolEnable="no")");
         }},
        {"type-value", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, R"(ProtocolType="2")", R"(ProtocolType="2,5")");
         }},
        {"id-duplicate", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) { device.replace(WorkingCopy, "iec-60870-5-104", "mqtt-5"); }},
        {"configuration-unusable", FactoryCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { device.cut(FactoryCopy); }},
        {"not-executable", "factory_setting/OPCUA_loadservice", 2,
         [](const SampleDeviceCopy& device) {
             fs::permissions(device.at(Programs + "OPCUA_loadservice"), fs::perms(0644));
         }},
        {"interpreter-crlf", "factory_setting/MQTT_loadservice", 2,
         [](const SampleDeviceCopy& device) {
             device.replace(Programs + "MQTT_loadservice", "#!/bin/sh\n", "#!/bin/sh\r\n");
         }},
        {"program-leftover", "factory_setting/Modbus_loadservice.bak", 1,
         [](const SampleDeviceCopy& device) {
             fs::copy_file(device.at(Programs + "Modbus_loadservice"), device.at(Programs + "Modbus_loadservice.bak"));
         }},
        {"link-dangling", "factory_setting/IEC104_loadservice", 2,
         [](const SampleDeviceCopy& device) {
             fs::remove(device.at(Programs + "IEC104_loadservice"));
             fs::create_symlink("/opt/iec104/start", device.at(Programs + "IEC104_loadservice"));
         }},
        {"writable-by-others", "factory_setting/网关_loadservice", 1,
         [](const SampleDeviceCopy& device) {
             fs::permissions(device.at(Programs + "网关_loadservice"), fs::perms(0777));
         }},
        {"server-no-interpreter-line", "mnt/mtd/code/services/OPCUA_Server", 2,
         [](const SampleDeviceCopy& device) { device.replace(Servers + "server", "#!/bin/sh\n", ""); }},
    };
    return plants;
}

// What would hide others, or change what they are told of.
const std::vector<Plant>& PlantsOfTheirOwn() {
    static const std::vector<Plant> plants = {
        {"configuration-absent", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) { fs::remove(device.at(WorkingCopy)); }},
        {"configuration-unusable", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { device.cut(WorkingCopy); }},
        {"configuration-unusable", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { device.write(WorkingCopy, ""); }},
        {"no-configuration", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             device.cut(WorkingCopy);
             device.cut(FactoryCopy);
         }},
        {"byte-order-mark", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { device.replace(WorkingCopy, "<?xml", "\xEF\xBB\xBF<?xml"); }},
        {"encoding-mismatch", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { device.replace(WorkingCopy, "utf-8", "gb2312"); }},
        {"encoding-undeclared", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n", "");
         }},
        {"search-ended", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, "\t<Configure name=", "\t<Configure nam=\"Log\"/>\n\t<Configure name=");
         }},
        {"name-empty", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             device.replace(WorkingCopy, R"(ProtocolName="MQTT")", R"(ProtocolNam="MQTT")");
         }},
        {"entry-before-first", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) { device.replace(WorkingCopy, "<ConfigItem ", "<Configitem "); }},
        {"name-duplicate", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) { device.replace(WorkingCopy, "\"OPCUA\"", "\"Modbus\""); }},
        {"services-missing", "factory_setting/", 2,
         [](const SampleDeviceCopy& device) { fs::remove_all(device.at(Programs)); }},
        {"program-missing", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) { fs::remove(device.at(Programs + "MQTT_loadservice")); }},
        {"program-case", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             fs::rename(device.at(Programs + "MQTT_loadservice"), device.at(Programs + "Mqtt_loadservice"));
         }},
        {"program-ambiguous", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) {
             fs::copy_file(device.at(Programs + "MQTT_loadservice"), device.at(Programs + "MQTT2_loadservice"));
         }},
        {"program-untaken", "factory_setting/LonWorks_loadservice", 1,
         [](const SampleDeviceCopy& device) {
             fs::copy_file(device.at(Programs + "BACnet_loadservice"), device.at(Programs + "LonWorks_loadservice"));
         }},
        {"file-empty", "factory_setting/MQTT_loadservice", 1,
         [](const SampleDeviceCopy& device) { device.write(Programs + "MQTT_loadservice", ""); }},
        {"interpreter-byte-order-mark", "factory_setting/MQTT_loadservice", 2,
         [](const SampleDeviceCopy& device) { device.replace(Programs + "MQTT_loadservice", "#!", "\xEF\xBB\xBF#!"); }},
        {"link-loop", "factory_setting/MQTT_loadservice", 2,
         [](const SampleDeviceCopy& device) {
             fs::remove(device.at(Programs + "MQTT_loadservice"));
             fs::create_symlink("MQTT_loadservice", device.at(Programs + "MQTT_loadservice"));
         }},
        {"name-shell-characters", "factory_setting/MQTT_loadservice (1)", 2,
         [](const SampleDeviceCopy& device) {
             fs::rename(device.at(Programs + "MQTT_loadservice"), device.at(Programs + "MQTT_loadservice (1)"));
         }},
        {"command-too-long", WorkingCopy.c_str(), 2,
         [](const SampleDeviceCopy& device) {
             fs::rename(device.at(Programs + "MQTT_loadservice"),
                        device.at(Programs + "MQTT_loadservice_of_the_gateway_for_the_northern_plant"));
         }},
        {"server-name-long", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) {
             fs::rename(device.at(Programs + "MQTT_loadservice"), device.at(Programs + "MQTTSparkplug_loadservice"));
             fs::rename(device.at(Servers + "MQTT_Server"), device.at(Servers + "MQTTSparkplug_Server"));
         }},
        {"server-missing", WorkingCopy.c_str(), 1,
         [](const SampleDeviceCopy& device) { fs::remove(device.at(Servers + "MQTT_Server")); }},
    };
    return plants;
}

using Reported = std::set<std::pair<std::string, std::string>>; ///< rule, file below the device's root

Reported FindingsOf(const SampleDeviceCopy& device, int status) {
    const ChildResult result = RunCheck({"--root", device.root(), "--format", "json"});
    EXPECT_TRUE(result.exitedWith(status)) << result.output;
    Reported reported;
    const nlohmann::json report = nlohmann::json::parse(result.output);
    for (const auto& finding : report["findings"]) {
        const fs::path path(finding["path"].get<std::string>());
        const fs::path below = path.lexically_proximate(fs::canonical(device.root()));
        reported.emplace(finding["rule"].get<std::string>(), below == "." ? "" : below.string());
    }
    return reported;
}

bool Has(const Reported& reported, const Plant& plant) {
    return reported.count({plant.rule, plant.file}) != 0;
}

} // namespace

TEST(DamagedDeviceTest, TheSampleDeviceItselfHasNothingButItsNote) {
    const SampleDeviceCopy device;

    EXPECT_EQ(FindingsOf(device, 0), (Reported{{"partial-tree", ""}}));
}

TEST(DamagedDeviceTest, EachFaultIsReportedWhereItIsWithItsStatus) {
    for (const std::vector<Plant>* plants : {&PlantsThatGoTogether(), &PlantsOfTheirOwn()}) {
        for (const Plant& each : *plants) {
            SCOPED_TRACE(each.rule);
            const SampleDeviceCopy device;
            each.plant(device);

            EXPECT_TRUE(Has(FindingsOf(device, each.status), each)) << RunCheck({"--root", device.root()}).output;
            EXPECT_TRUE(RunCheck({"--root", device.root(), "--strict"}).exitedWith(2));
        }
    }
}

TEST(DamagedDeviceTest, ADeviceWithManyFaultsHasAllOfThemReported) {
    const SampleDeviceCopy device;
    for (const Plant& each : PlantsThatGoTogether()) {
        each.plant(device);
    }

    const Reported reported = FindingsOf(device, 2);

    for (const Plant& each : PlantsThatGoTogether()) {
        EXPECT_TRUE(Has(reported, each)) << each.rule;
    }
}
