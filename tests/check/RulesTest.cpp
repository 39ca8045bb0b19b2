#include "check/Rules.h"

#include "tests/check/DeviceImage.h"
#include "tests/check/ElfImage.h"
#include "tests/support/Repeated.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

/// A rule, what makes it fire on an image without a fault, and its twin: what is as near to that as can be and right.
struct RuleCase {
    const char* rule;
    void (*fault)(const DeviceImage& image);
    void (*twin)(const DeviceImage& image);
    const char* inText = ""; ///< what the finding's text says, beside the rule
};

void PrintTo(const RuleCase& each, std::ostream* out) {
    *out << each.rule;
}

using Image = DeviceImage;

const std::string TwoEntries = EntryText("Modbus", "1") + EntryText("OPCUA", "2");
const std::string Chinese = "\xE7\xBD\x91\xE5\x85\xB3"; // two characters in UTF-8
const std::string ChineseGb2312 = "\xCD\xF8\xB9\xD8";   // the same in GB2312
const std::string Gb2312 = "<?xml version=\"1.0\" encoding=\"GB2312\"?>\n";

constexpr const char* Program = "/factory_setting/Modbus_loadservice";
constexpr const char* Server = "/usr/sbin/Modbus_Server";

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    text.replace(text.find(what), what.size(), with);
    return text;
}

void Rewrite(const Image& image, const std::string& what, const std::string& with) {
    image.configureEntries(Replaced(TwoEntries, what, with));
}

void AddEntry(const Image& image, const std::string& entry) {
    image.configureEntries(TwoEntries + entry);
}

void NameInGb2312(const Image& image, const std::string& declaration, const std::string& name) {
    image.configure(ConfigurationText(TwoEntries + EntryText(name, "3", "false"), declaration));
}

void AddTwoForOneServer(const Image& image, const std::string& first, const std::string& second) {
    image.write("/factory_setting/IEC_101_loadservice", first);
    image.write("/factory_setting/IEC_104_loadservice", second);
    AddEntry(image, EntryText("101", "3") + EntryText("104", "4"));
}

ElfImage ServerProgram() {
    ElfImage program;
    program.interpreter = "/lib64/ld-linux.so";
    program.needed = {"libc.so"};
    return program;
}

const std::vector<RuleCase> Cases = {
    // Configuration.
    {"no-configuration", [](const Image& image) { image.configure("x"); },
     [](const Image& image) { image.write(Image::Working, "x"); }},
    {"configuration-absent", [](const Image& image) { image.remove(Image::Factory); },
     [](const Image& image) { image.write(Image::Factory, "x"); }},
    {"configuration-unusable",
     [](const Image& image) { image.write(Image::Working, Replaced(ConfigurationText(TwoEntries), "</", "<")); },
     [](const Image& image) { image.remove(Image::Working); }, "not-well-formed"},
    {"configuration-waits",
     [](const Image& image) {
         image.remove(Image::Working);
         ASSERT_EQ(mkfifo(image.onHost(Image::Working).c_str(), 0644), 0);
     },
     [](const Image& image) {
         image.remove(Image::Working);
         std::filesystem::create_directory(image.onHost(Image::Working));
     }},
    {"search-ended",
     [](const Image& image) {
         image.configure(
             Replaced(ConfigurationText(TwoEntries), "<Configure name=\"P", "<Configure/>\n<Configure name=\"P"));
     },
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "<Configure name=\"P",
                                  "<Other/>\n<Configure name=\"x\"/>\n<Configure name=\"P"));
     },
     "no attribute \"name\""},
    {"nesting-depth", [](const Image& image) { AddEntry(image, Repeated("<a>", 4999) + Repeated("</a>", 4999)); },
     [](const Image& image) {
         Rewrite(image, "\"1\" ProtocolEnable=\"true\"/>",
                 "\"1\" ProtocolEnable=\"true\">" + Repeated("<a>", 4997) + Repeated("</a>", 4997) + "</ConfigItem>");
     }},
    {"too-many-entries", [](const Image& image) { AddEntry(image, Repeated("<ConfigItem/>", 20094)); },
     [](const Image& image) { AddEntry(image, Repeated("<ConfigItem/>", 20093)); }, "20096"},
    {"byte-order-mark",
     [](const Image& image) { image.write(Image::Working, "\xEF\xBB\xBF" + ConfigurationText(TwoEntries)); },
     [](const Image& image) { image.write(Image::Working, "\n" + ConfigurationText(TwoEntries)); }},
    {"encoding-mismatch", [](const Image& image) { AddEntry(image, EntryText(ChineseGb2312, "3", "false")); },
     [](const Image& image) { AddEntry(image, EntryText(Chinese, "3", "false")); }, "offset"},
    {"encoding-mismatch", [](const Image& image) { NameInGb2312(image, Gb2312, Chinese); },
     [](const Image& image) { NameInGb2312(image, Gb2312, ChineseGb2312); }, "its bytes are UTF-8"},
    // CB AE is a character in GB2312, and one in UTF-8 as well; three bytes of UTF-8 do not convert.
    {"encoding-mismatch", [](const Image& image) { NameInGb2312(image, Gb2312, "\xE6\xB0\xB4\xE6\xB0\xB4"); },
     [](const Image& image) { NameInGb2312(image, Gb2312, "\xCB\xAE"); }, "its bytes are UTF-8"},
    {"encoding-mismatch", [](const Image& image) { NameInGb2312(image, Gb2312, "\xCB\xAE\xC2\x80"); },
     [](const Image& image) { NameInGb2312(image, Gb2312, "\xCB\xAE\xCB\xAE"); }, "its bytes are UTF-8"},
    {"encoding-cut", [](const Image& image) { NameInGb2312(image, Gb2312, ChineseGb2312 + "\xFF\xFF"); },
     [](const Image& image) { NameInGb2312(image, Gb2312, ChineseGb2312); }, "offset"},
    {"encoding-undeclared", [](const Image& image) { NameInGb2312(image, "", ChineseGb2312); },
     [](const Image& image) { NameInGb2312(image, "", "ABC"); }},
    {"encoding-not-known",
     [](const Image& image) { image.configure(ConfigurationText(TwoEntries, "<?xml encoding='GBK'?>\n")); },
     [](const Image& image) { image.configure(ConfigurationText(TwoEntries, "<?xml encoding='gb2312'?>\n")); }},
    {"zero-byte", [](const Image& image) { image.configure(ConfigurationText(TwoEntries) + '\0'); },
     [](const Image& image) { image.configure(ConfigurationText(TwoEntries) + '\n'); }},
    {"section-duplicate",
     [](const Image& image) { AddEntry(image, "</Configure><Configure name=\"ProtocolConfig\">"); },
     [](const Image& image) { AddEntry(image, "</Configure><Configure name=\"Protocolconfig\">"); }},
    {"entry-before-first", [](const Image& image) { image.configureEntries("<Configitem/>" + TwoEntries); },
     [](const Image& image) { image.configureEntries("<!-- ConfigItem -->" + TwoEntries); }},
    {"entry-other-element",
     [](const Image& image) { AddEntry(image, Replaced(EntryText("X", "3", "false"), "ConfigItem", "Config")); },
     [](const Image& image) { AddEntry(image, EntryText("X", "3", "false")); }},
    {"attribute-unknown",
     [](const Image& image) { Rewrite(image, "ProtocolName=\"Modbus\"", "protocolname=\"Modbus\""); },
     [](const Image& image) { image.configureEntries(TwoEntries); }, "\"ProtocolName\" meant"},
    {"attribute-unknown",
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "<Configure name=\"P",
                                  "<Configure Name=\"x\" y=\"\"/>\n<Configure name=\"P"));
     },
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "</Configure>", "</Configure>\n<x Name=\"x\"/>"));
     },
     "was \"name\" meant"},
    {"attribute-unknown",
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "name=\"Device", "Name=\"Device"));
     },
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "name=\"Device", "xml:lang=\"en\" name=\"Device"));
     },
     "was \"name\" meant"},
    // The root element, with what connects it with the schema, and the section.
    {"attribute-unknown",
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "name=\"Device", "nmae=\"\" name=\"Device"));
     },
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "name=\"Device\"",
                                  "name=\"Device\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
                                  "xsi:noNamespaceSchemaLocation=\"protocolconfig.xsd\""));
     },
     "\"nmae\" is ignored"},
    {"attribute-unknown",
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "name=\"P", "Version=\"2\" name=\"P"));
     },
     [](const Image& image) {
         image.configure(Replaced(ConfigurationText(TwoEntries), "<Configure name=\"P",
                                  "<Configure name=\"Other\" Version=\"2\"/>\n<Configure name=\"P"));
     },
     "\"Version\" is ignored"},
    {"attribute-unknown", [](const Image& image) { Rewrite(image, "ProtocolId", "Id"); },
     [](const Image& image) { AddEntry(image, "<x Id='3'/>"); }, "\"ProtocolId\" meant"},
    {"attribute-unknown", [](const Image& image) { Rewrite(image, "ProtocolEnable", "Enabled"); },
     [](const Image& image) { AddEntry(image, "<x Enabled='3'/>"); }, "\"ProtocolEnable\" meant"},
    {"attribute-unknown", [](const Image& image) { Rewrite(image, "/>", " Name=\"\"/>"); },
     [](const Image& image) { Rewrite(image, "/>", "/><!-- Name -->"); }, "\"Name\" is ignored"},
    {"attribute-unknown", [](const Image& image) { Rewrite(image, "/>", " Comment=\"\"/>"); },
     [](const Image& image) { Rewrite(image, "/>", "><x Comment=\"\"/></ConfigItem>"); }, "is ignored"},
    {"enable-value", [](const Image& image) { AddEntry(image, EntryText("X", "3", "yes")); },
     [](const Image& image) { AddEntry(image, EntryText("X", "3", "FALSE")); }},
    {"type-value", [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"12abc\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"-12\""); }},
    {"type-value", [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"2147483648\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"2147483647\""); }, "32 bits"},
    {"type-value",
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"99999999999999999999\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"+1\""); }, "32 bits"},
    {"type-value", [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"-2147483649\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"-2147483648\""); }, "32 bits"},
    {"type-value", [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"abc\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"0\""); }},
    {"type-value", [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\" 1\""); },
     [](const Image& image) { Rewrite(image, "ProtocolType=\"1\"", "ProtocolType=\"01\""); }},
    {"name-empty", [](const Image& image) { AddEntry(image, EntryText("", "3")); },
     [](const Image& image) { AddEntry(image, EntryText("", "3", "false")); }, "is empty"},
    {"name-empty", [](const Image& image) { AddEntry(image, "<ConfigItem ProtocolEnable='TRUE'/>"); },
     [](const Image& image) { AddEntry(image, "<ConfigItem/><ConfigItem ProtocolEnable='yes'/>"); }, "is missing"},
    {"name-duplicate", [](const Image& image) { AddEntry(image, EntryText("Modbus", "3", "false")); },
     [](const Image& image) { AddEntry(image, EntryText("modbus", "3", "false")); }, "line 4"},
    {"id-empty", [](const Image& image) { AddEntry(image, EntryText("X", "", "false")); },
     [](const Image& image) { AddEntry(image, EntryText("X", "0", "false")); }},
    {"id-duplicate", [](const Image& image) { AddEntry(image, EntryText("X", "1", "false")); },
     [](const Image& image) { AddEntry(image, EntryText("X", "01", "false")); }},

    // Choice of file.
    {"services-missing", [](const Image& image) { image.remove("/factory_setting"); },
     [](const Image& image) {
         image.rename("/factory_setting", "/elsewhere");
         image.link("/factory_setting", "/elsewhere");
     }},
    {"program-missing", [](const Image& image) { AddEntry(image, EntryText("X", "3")); },
     [](const Image& image) { AddEntry(image, EntryText("X", "3", "false")); }, "would be run"},
    {"program-missing",
     [](const Image& image) {
         image.remove(Program);
         image.write(std::string(Program) + "/file", "");
     },
     [](const Image& image) {
         image.rename(Program, "/elsewhere");
         image.link(Program, "/elsewhere");
     },
     "is a directory"},
    {"program-ambiguous",
     [](const Image& image) { image.write("/factory_setting/2_Modbus_loadservice", "#!/bin/sh\n"); },
     [](const Image& image) { image.write("/factory_setting/2_Modbus_loadServices", "#!/bin/sh\n"); }},
    {"program-case", [](const Image& image) { image.rename(Program, "/factory_setting/MODBUS_loadservice"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/MYBUS_loadservice"); }, "MODBUS_loadservice"},
    {"program-case", [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_LoadService"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_Load_Service"); }, "Modbus_LoadService"},
    {"program-shared", [](const Image& image) { AddEntry(image, EntryText("Mod", "3")); },
     [](const Image& image) { AddEntry(image, EntryText("Mod", "3", "false")); }},
    // Of an open choice each may be the one.
    {"program-shared",
     [](const Image& image) { image.write("/factory_setting/OPCUA_Modbus_loadservice", "#!/bin/sh\n"); },
     [](const Image& image) { image.write("/factory_setting/2_Modbus_loadservice", "#!/bin/sh\n"); },
     "if \"OPCUA_Modbus_loadservice\" comes first"},
    {"program-untaken", [](const Image& image) { image.addService("MQTT"); },
     [](const Image& image) {
         image.addService("MQTT");
         AddEntry(image, EntryText("MQTT", "3", "false"));
     }},
    // Of several that match, either may be the first on the device.
    {"program-untaken", [](const Image& image) { image.addService("MODBUS"); },
     [](const Image& image) { image.addService("Modbus2"); }},
    {"program-leftover",
     [](const Image& image) { image.write("/factory_setting/Modbus_loadservice.dpkg-old", "#!/bin/sh\n"); },
     [](const Image& image) { image.write("/factory_setting/Modbus.dpkg-old", "#!/bin/sh\n"); }},
    {"program-leftover", [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_loadservice.BAK"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_loadservice.BAKE"); }},
    {"program-leftover", [](const Image& image) { image.rename(Program, "/factory_setting/#Modbus_loadservice#"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/#Modbus_loadservice"); }},
    {"program-leftover", [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_loadservice~"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus~_loadservice"); }},
    {"name-contained", // the longer must be able to stand in a file's name
     [](const Image& image) { AddEntry(image, EntryText("Modbus" + std::string(249, 'x'), "3", "false")); },
     [](const Image& image) { AddEntry(image, EntryText("Modbus" + std::string(250, 'x'), "3", "false")); }},
    {"name-contained", [](const Image& image) { AddEntry(image, EntryText("ModbusTCP", "3", "false")); },
     [](const Image& image) { AddEntry(image, EntryText("ModTCPbus", "3", "false")); }},

    // Will it run.
    {"shell-missing", [](const Image& image) { image.remove("/bin/sh"); },
     [](const Image& image) { image.link("/bin/sh", "../usr/bin/killall"); }},
    {"not-executable", [](const Image& image) { image.setMode(Program, 0644); },
     [](const Image& image) { image.setMode(Program, 0744); }},
    {"not-a-program", [](const Image& image) { image.link(Program, "/bin"); },
     [](const Image& image) { image.link(Program, "/bin/sh"); }},
    {"link-dangling", [](const Image& image) { image.link(Program, "/opt/modbus"); },
     [](const Image& image) {
         image.link(Program, "/opt/modbus");
         image.link("/opt/modbus", "../bin/sh");
     }},
    {"link-loop", [](const Image& image) { image.link(Program, "Modbus_loadservice"); },
     [](const Image& image) { image.link(Program, "OPCUA_loadservice"); }},
    {"file-empty", [](const Image& image) { image.write(Program, ""); },
     [](const Image& image) { image.write(Program, "\n"); }},
    {"interpreter-crlf", [](const Image& image) { image.write(Program, "#!/bin/sh\r\nexit\r\n"); },
     [](const Image& image) { image.write(Program, "#!/bin/sh\nexit\r\n"); }},
    {"interpreter-byte-order-mark", [](const Image& image) { image.write(Program, "\xEF\xBB\xBF#!/bin/sh\n"); },
     [](const Image& image) { image.write(Program, "#!/bin/sh\n\xEF\xBB\xBF"); }},
    {"interpreter-missing", [](const Image& image) { image.write(Program, "#!/bin/bash\n"); },
     [](const Image& image) { image.write(Program, "#! /bin/sh -e\n"); }},
    {"interpreter-missing", [](const Image& image) { image.write(Program, "#!/usr/bin/env python3\n"); },
     [](const Image& image) { image.write(Program, "#!/usr/bin/env -S A=b sh\n"); }, "python3"},
    {"interpreter-missing", [](const Image& image) { image.write(Program, "#!/usr/bin/env sh -e\n"); },
     [](const Image& image) { image.write(Program, "#!/usr/bin/env -S -u FOO sh -e\n"); }, "\"sh -e\""},
    {"interpreter-chain", [](const Image& image) { image.write(Program, "#!/factory_setting/Modbus_loadservice\n"); },
     [](const Image& image) {
         image.write("/opt/sh", "#!/bin/sh\n");
         image.write(Program, "#!/opt/sh\n");
     }},
    {"interpreter-relative", [](const Image& image) { image.write(Program, "#!sh\n"); },
     [](const Image& image) { image.write(Program, "#! /bin/sh\n"); }, "\"sh\""},
    {"interpreter-line-long",
     [](const Image& image) { image.write(Program, "#!/bin/sh -" + std::string(117, 'e') + "\n"); },
     [](const Image& image) { image.write(Program, "#!/bin/sh -e" + std::string(300, ' ') + "\n"); }},
    {"elf-damaged", [](const Image& image) { image.write(Server, ServerProgram().bytes().substr(0, 100)); },
     [](const Image& image) { image.write(Server, ServerProgram().bytes() + "more"); }},
    {"elf-class",
     [](const Image& image) {
         ElfImage program;
         program.is64 = false;
         program.machine = 40;
         image.write(Server, program.bytes());
     },
     [](const Image& image) { image.write(Server, ElfImage().bytes()); }},
    {"elf-32-bit",
     [](const Image& image) {
         ElfImage program;
         program.is64 = false;
         program.machine = 3;
         image.write(Server, program.bytes());
     },
     [](const Image& image) {
         ElfImage program;
         program.is64 = false;
         program.machine = 40;
         image.write(Server, program.bytes());
     },
     "x86 with 32 bits"},
    {"elf-machine",
     [](const Image& image) {
         ElfImage program;
         program.machine = 40;
         image.write(Server, program.bytes());
     },
     [](const Image& image) {
         ElfImage program;
         program.machine = 62;
         image.write(Server, program.bytes());
     },
     "for ARM"},
    {"elf-byte-order",
     [](const Image& image) {
         ElfImage program;
         program.isLittle = false;
         image.write(Server, program.bytes());
     },
     [](const Image& image) { image.write(Server, ElfImage().bytes()); }},
    {"elf-interpreter-missing",
     [](const Image& image) {
         ElfImage program;
         program.interpreter = "/lib/ld-musl.so";
         image.write(Server, program.bytes());
     },
     [](const Image& image) {
         ElfImage program;
         program.interpreter = "/lib/ld-musl.so";
         image.write(Server, program.bytes());
         image.link("/lib/ld-musl.so", "libc.so");
     }},
    {"elf-interpreter-missing", [](const Image& image) { image.setMode("/lib64/ld-linux.so", 0644); },
     [](const Image& image) { image.setMode("/lib64/ld-linux.so", 0711); }, "is not executable"},
    // The run path of a program does not serve its libraries, unless it is of the old kind.
    {"library-missing",
     [](const Image& image) {
         ElfImage program = ServerProgram();
         program.needed = {"liba.so"};
         program.runPath = "/opt/lib";
         image.write(Server, program.bytes());
         program.needed = {"libb.so"};
         program.runPath = "";
         image.write("/opt/lib/liba.so", program.bytes());
         image.write("/opt/lib/libb.so", ElfImage().bytes());
     },
     [](const Image& image) {
         ElfImage program = ServerProgram();
         program.needed = {"liba.so"};
         program.runPath = "/opt/lib";
         program.hasOldRunPath = true;
         image.write(Server, program.bytes());
         program.needed = {"libb.so"};
         program.runPath = "";
         image.write("/opt/lib/liba.so", program.bytes());
         image.write("/opt/lib/libb.so", ElfImage().bytes());
     },
     "\"libb.so\""},
    {"library-missing",
     [](const Image& image) {
         ElfImage program = ServerProgram();
         program.needed.emplace_back("libmodbus.so.5");
         image.write(Server, program.bytes());
         ElfImage other;
         other.machine = 40;
         image.write("/usr/lib/libmodbus.so.5", other.bytes());
     },
     [](const Image& image) {
         ElfImage program = ServerProgram();
         program.needed.emplace_back("libmodbus.so.5");
         image.write(Server, program.bytes());
         image.write("/usr/lib/x86_64-linux-gnu/libmodbus.so.5", ElfImage().bytes());
     },
     "libmodbus.so.5"},
    {"writable-by-others", [](const Image& image) { image.setMode(Program, 0775); },
     [](const Image& image) { image.setMode(Program, 0755); }},
    {"writable-by-others", [](const Image& image) { image.setMode("/factory_setting", 0775); },
     [](const Image& image) { image.setMode("/usr/sbin", 0775); }, "put files into it"},
    {"writable-by-others", [](const Image& image) { image.setMode(Image::Factory, 0666); },
     [](const Image& image) { image.setMode(Image::Factory, 0644); }},
    {"name-shell-characters",
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_loadservice;reboot"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus_loadservice-reboot"); }},
    {"name-shell-characters", [](const Image& image) { image.rename(Program, "/factory_setting/-Modbus_loadservice"); },
     [](const Image& image) { image.rename(Program, "/factory_setting/Modbus-_loadservice"); }, "'-'"},
    {"command-too-long", [](const Image& image) { image.rename(Program, Program + std::string(29, 'x')); },
     [](const Image& image) { image.rename(Program, Program + std::string(28, 'x')); }, "to start"},
    {"command-too-long",
     [](const Image& image) { image.rename(Program, "/factory_setting/loadserviceModbus" + std::string(28, 'x')); },
     [](const Image& image) { image.rename(Program, "/factory_setting/loadserviceModbus" + std::string(27, 'x')); },
     "to stop the server of"},
    {"command-too-long", [](const Image& image) { image.write(Program + std::string(29, 'x'), "#!/bin/sh\n"); },
     [](const Image& image) { image.write(Program + std::string(28, 'x'), "#!/bin/sh\n"); }, "comes first"},

    // Stop.
    {"server-name-long",
     [](const Image& image) {
         image.addService("Modbus789");
         image.configureEntries(EntryText("Modbus", "1"));
         image.remove(Program);
     },
     [](const Image& image) {
         image.addService("Modbus78");
         image.configureEntries(EntryText("Modbus", "1"));
         image.remove(Program);
     },
     "\"Modbus789_Serve\""},
    {"server-name-shared",
     [](const Image& image) {
         image.rename("/factory_setting/OPCUA_loadservice", "/factory_setting/Modbus_OPCUA_load");
         image.rename("/factory_setting/Modbus_OPCUA_load", "/factory_setting/Modbus_OPCUA_loadservice");
         image.configureEntries(EntryText("s_loadservice", "1") + EntryText("OPCUA", "2"));
     },
     [](const Image& image) { AddEntry(image, EntryText("Mod", "3")); }},
    // Of an open choice each may have its server stopped.
    {"server-missing", [](const Image& image) { image.write("/factory_setting/2Modbus_loadservice", "#!/bin/sh\n"); },
     [](const Image& image) { image.write("/factory_setting/Modbus_2_loadservice", "#!/bin/sh\n"); },
     "\"2Modbus_Server\""},
    {"server-name-shared",
     [](const Image& image) { image.write("/factory_setting/OPCUA_Modbus_loadservice", "#!/bin/sh\n"); },
     [](const Image& image) { image.write("/factory_setting/Modbus_2_loadservice", "#!/bin/sh\n"); }, "comes first"},
    {"server-missing", [](const Image& image) { image.remove(Server); },
     [](const Image& image) { image.rename(Server, "/mnt/Modbus_Server"); }},
    // Settings that have the server's name are no server.
    {"server-missing",
     [](const Image& image) {
         image.remove(Server);
         image.write("/etc/default/Modbus_Server", "OPTS=-v\n", 0644);
     },
     [](const Image& image) {
         image.remove(Server);
         image.write("/etc/default/Modbus_Server", "#!/bin/sh\n", 0644);
     },
     "; /etc/default/Modbus_Server does not look like a program"},
    {"server-missing",
     [](const Image& image) {
         image.remove(Server);
         image.link("/etc/Modbus_Server", "/bin");
     },
     [](const Image& image) { image.setMode(Server, 0644); }, "; /etc/Modbus_Server does not"},
    {"not-executable", [](const Image& image) { image.setMode(Server, 0644); },
     [](const Image& image) { image.write(Server, "OPTS=-v\n", 0644); }},
    {"server-no-interpreter-line", [](const Image& image) { image.write(Server, "sleep 5\n"); },
     [](const Image& image) { image.write(Server, "#!/bin/sh\nsleep 5\n"); }},
    {"server-no-interpreter-line", [](const Image& image) { image.write(Server, "sleep 5\n", 0744); },
     [](const Image& image) { image.write(Server, "sleep 5\n", 0644); }},
    {"server-no-interpreter-line", [](const Image& image) { image.write(Server, "#!\nsleep 5\n", 0744); },
     [](const Image& image) { image.write(Server, "#!\nsleep 5\n", 0644); }},
    {"server-through-interpreter", [](const Image& image) { image.write(Server, "#!/usr/bin/env sh\n"); },
     [](const Image& image) { image.write(Server, "#!/bin/busybox sh\n"); }, "env"},
    {"start-through-interpreter",
     [](const Image& image) { image.write(Program, "#!/bin/sh\npython3 -u /usr/sbin/Modbus_Server &\n"); },
     [](const Image& image) {
         image.write(Program, "#!/bin/sh\n# sh Modbus_Server\nnice /usr/sbin/Modbus_Server &\n");
     }},
    {"start-through-interpreter", [](const Image& image) { image.write(Program, "sh /usr/sbin/Modbus_Server\n"); },
     [](const Image& image) { image.write(Program, "cp /usr/bin/node /usr/sbin/Modbus_Server # sh Modbus_Server\n"); }},
    // Settings may have the server's name.
    {"start-through-interpreter", [](const Image& image) { image.write(Program, ". /usr/sbin/Modbus_Server\n"); },
     [](const Image& image) {
         image.write("/etc/conf.d/Modbus_Server", "OPTS=-v\n", 0644);
         image.write(Program, "#!/bin/sh\n. /etc/conf.d/Modbus_Server\nexec /usr/local/sbin/start-modbus\n");
     }},
    {"start-through-interpreter", [](const Image& image) { image.write(Program, "sh /usr/sbin/Modbus_Server\n"); },
     [](const Image& image) { image.write(Program, "sh -n /usr/sbin/Modbus_Server && /usr/sbin/Modbus_Server &\n"); }},
    // Of several that start one server each is looked at, be it another protocol's or one that may come first.
    {"start-through-interpreter",
     [](const Image& image) { AddTwoForOneServer(image, "/usr/sbin/IEC_Server\n", "sh /usr/sbin/IEC_Server\n"); },
     [](const Image& image) { AddTwoForOneServer(image, "/usr/sbin/IEC_Server\n", "/usr/sbin/IEC_Server\n"); }},
    {"start-through-interpreter",
     [](const Image& image) {
         image.write(Program, "sh /usr/sbin/Modbus_Server\n");
         image.write("/factory_setting/Modbus_2_loadservice", "/usr/sbin/Modbus_Server\n");
     },
     [](const Image& image) { image.write("/factory_setting/Modbus_2_loadservice", "/usr/sbin/Modbus_Server\n"); }},
    {"start-through-interpreter",
     [](const Image& image) { image.write("/factory_setting/Modbus_2_loadservice", "sh /usr/sbin/Modbus_Server\n"); },
     [](const Image& image) { image.write("/factory_setting/2Modbus_loadservice", "sh /usr/sbin/Modbus_Server\n"); }},
    {"server-no-interpreter-line", [](const Image& image) { image.write(Server, "\xEF\xBB\xBF#!/bin/sh\n"); },
     [](const Image& image) { image.write(Server, ""); }},
    {"killall-missing",
     [](const Image& image) {
         image.remove("/usr/bin/killall");
         image.write("/usr/bin/killall", ElfImage().bytes(), 0644);
     },
     [](const Image& image) { image.link("/usr/bin/killall", "../../bin/sh"); }},
    {"killall-missing", [](const Image& image) { image.remove("/usr/bin/killall"); },
     [](const Image& image) { image.rename("/usr/bin/killall", "/bin/killall"); }},

    // What was not looked at.
    {"partial-tree",
     [](const Image& image) {
         image.remove("/bin");
         image.remove("/usr/bin");
     },
     [](const Image& image) { image.remove("/usr/bin"); }},
    {"not-looked-at",
     [](const Image& image) {
         image.write(Image::Working, "x");
         std::filesystem::resize_file(image.onHost(Image::Working), ConfigurationReport::MaxSize + 1);
     },
     [](const Image& image) { image.write(Image::Working, "x"); }},
    {"not-looked-at",
     [](const Image& image) {
         std::string attributes;
         for (int i = 0; i < 20000; ++i) {
             attributes += " a" + std::to_string(i) + "=''";
         }
         image.configure("<a" + attributes + "/>");
     },
     [](const Image& image) { image.configure("<a b=''/>"); }},
    {"findings-cut", [](const Image& image) { AddEntry(image, Repeated("<ConfigItem/>\n", 501)); },
     [](const Image& image) { AddEntry(image, Repeated("<ConfigItem/>\n", 500)); }},
};

std::string CaseName(const testing::TestParamInfo<RuleCase>& info) {
    std::string name = info.param.rule;
    for (char& c : name) {
        c = c == '-' ? '_' : c;
    }
    return name + "_" + std::to_string(info.index);
}

class RulesTest : public testing::TestWithParam<RuleCase> {};

} // namespace

TEST(RulesTest, AnImageWithoutAFaultHasNoFinding) {
    const CheckReport report = DeviceImage().check();

    EXPECT_EQ(FindingsText(report), "");
    EXPECT_EQ(report.exitStatus(), 0);
}

TEST(RulesTest, EveryRuleHasACaseAndATextAndIsFoundByItsId) {
    std::set<std::string> tried;
    for (const RuleCase& each : Cases) {
        tried.insert(each.rule);
    }
    std::set<std::string> ids;
    size_t count = 0;
    const Rule* rules = AllRules(count);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(ids.insert(rules[i].id).second) << rules[i].id;
        EXPECT_EQ(FindRule(rules[i].id), rules + i);
        EXPECT_GT(std::string(rules[i].explanation).size(), 50U) << rules[i].id;
    }
    EXPECT_EQ(tried, ids);
    EXPECT_EQ(FindRule("no-such-rule"), nullptr);
}

TEST(RulesTest, AStrayElementHasOneFinding) {
    const DeviceImage image;
    image.write(DeviceImage::Working, ConfigurationText(TwoEntries + "<a b='c'/>"));

    EXPECT_EQ(FindingsText(image.check()), std::string(DeviceImage::Working) +
                                               ":6:1: warning: entry-other-element: the element \"a\" after a "
                                               "\"ConfigItem\" is taken as an entry, too\n");
}

TEST(RulesTest, WhereAGb2312TextIsCutIsToldInCharacters) {
    const DeviceImage image;
    NameInGb2312(image, Gb2312, ChineseGb2312 + "\xFF");

    EXPECT_NE(FindingsText(image.check()).find(":6:29: error: encoding-cut: "), std::string::npos)
        << FindingsText(image.check());
}

TEST(RulesTest, ManyFindingsOfOneRuleDoNotHideThoseOfAnother) {
    FindingList findings;
    const int limit = static_cast<int>(FindingList::Limit);
    for (const int count : {limit, limit}) { // what is listed already is not added, and not left out
        for (int i = 0; i < count; ++i) {
            findings.add("a", {i, 1}, "id-empty", "");
        }
        EXPECT_EQ(findings.all().size(), FindingList::Limit);
    }
    for (int i = 0; i < 10; ++i) {
        findings.add("b", {i, 1}, "id-empty", "");
    }
    EXPECT_EQ(findings.all().size(), FindingList::Limit + 1);
    EXPECT_STREQ(findings.all().back().rule, "findings-cut");

    findings.add("c", {}, "link-loop", "");

    EXPECT_STREQ(findings.all().back().rule, "link-loop");
    EXPECT_EQ(findings.count(Severity::Error), 1U);
    EXPECT_EQ(findings.count(Severity::Warning), FindingList::Limit + 1);
    findings.makeStrict();
    EXPECT_EQ(findings.count(Severity::Error), FindingList::Limit + 2);
    EXPECT_EQ(findings.count(Severity::Warning), 0U);
}

TEST(RulesTest, AVeryLongAttributeIsNoSlipOfThePen) {
    const DeviceImage image;
    Rewrite(image, "/>", " " + std::string(100, 'P') + "=''/>");

    EXPECT_NE(FindingsText(image.check()).find("PPP\" is ignored"), std::string::npos);
}

TEST(RulesTest, WhatStandsAtTheEndOfALeftoversName) {
    for (const char* end : {".disabled", ".backup", "_old", ".apk-new", ".swn", ".Orig"}) {
        const DeviceImage image;
        image.rename(Program, Program + std::string(end));

        EXPECT_TRUE(HasRule(image.check(), "program-leftover")) << end;
    }
}

TEST(RulesTest, ASectionWithoutAnEntryHasNothingInFrontOfTheFirst) {
    const DeviceImage image;
    image.configureEntries("<x/>");

    EXPECT_FALSE(HasRule(image.check(), "entry-before-first"));
}

TEST_P(RulesTest, FiresOnItsFaultAndIsSilentOnItsTwin) {
    const DeviceImage faulty;
    GetParam().fault(faulty);
    const DeviceImage right;
    GetParam().twin(right);

    const CheckReport found = faulty.check();
    const CheckReport silent = right.check();

    bool isTold = false;
    for (const Finding& finding : found.findings.all()) {
        isTold = isTold || (finding.rule == std::string(GetParam().rule) &&
                            (finding.text.find(GetParam().inText) != std::string::npos ||
                             std::string(GetParam().inText) == "not-well-formed"));
    }
    EXPECT_TRUE(isTold) << FindingsText(found);
    EXPECT_FALSE(HasRule(silent, GetParam().rule)) << FindingsText(silent);
}

INSTANTIATE_TEST_SUITE_P(Table, RulesTest, testing::ValuesIn(Cases), CaseName);
