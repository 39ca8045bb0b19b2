#include "charset/CharSetConverter.h"
#include "protocol/ProtocolConfig.h"
#include "runtime/WyRuntimeError.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RecordLines.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

// docs/protocolconfig.xsd and the examples: tried with xmllint, and with the reader whose files they describe.
namespace {

constexpr const char* Declaration = "<?xml version='1.0' encoding='utf-8'?>\n";
constexpr const char* Modbus =
    "<ConfigItem ProtocolName='Modbus' ProtocolId='m' ProtocolType='1' ProtocolEnable='true'/>";
constexpr const char* ModbusRecord = "Modbus,m,1,on\n";
constexpr const char* Unread = "unread";

// What xmllint exits with.
constexpr int Valid = 0;
constexpr int NotWellFormed = 1;
constexpr int Invalid = 3;

std::string InProject(const std::string& name) {
    return std::string(WYVERN_SOURCE_DIR "/") + name;
}

std::string Root(const std::string& content) {
    return Declaration + ("<Configure name='any'>" + content + "</Configure>");
}

std::string Section(const std::string& entries) {
    return Root("<Configure name='ProtocolConfig'>" + entries + "</Configure>");
}

std::string Entry(const std::string& name, const std::string& id, const std::string& type, const std::string& enable) {
    return Section("<ConfigItem ProtocolName='" + name + "' ProtocolId='" + id + "' ProtocolType='" + type +
                   "' ProtocolEnable='" + enable + "'/>");
}

std::string Entries(int count) {
    std::string entries;
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        entries += "<ConfigItem ProtocolName='P" + number + "' ProtocolId='" + number +
                   "' ProtocolType='1' ProtocolEnable='false'/>";
    }
    return Section(entries);
}

ChildResult Validate(const std::string& path) {
    return RunInChild([&path] {
        dup2(STDOUT_FILENO, STDERR_FILENO); // the findings
        const std::string schema = InProject("docs/protocolconfig.xsd");
        execlp("xmllint", "xmllint", "--nonet", "--noout", "--schema", schema.c_str(), path.c_str(), nullptr);
        _exit(127);
    });
}

// The records that the launcher would work on.
std::string RecordsOf(const std::string& path) {
    ProtocolConfig config;
    return config.parse(path) ? RecordLines(config) : Unread;
}

struct ValidCase {
    const char* what;
    std::string text;
    std::string records;
};

TEST(ProtocolConfigSchemaTest, WhatItTakesIsReadAsItIsWritten) {
    const ValidCase cases[] = {
        {"one entry", Section(Modbus), ModbusRecord},
        {"an entry with an end tag",
         Section("<ConfigItem ProtocolName='A' ProtocolId='a' ProtocolType='1' "
                 "ProtocolEnable='false'></ConfigItem>"),
         "A,a,1,off\n"},
        {"a root with an empty name",
         Declaration + ("<Configure name=''><Configure name='ProtocolConfig'>" + std::string(Modbus) +
                        "</Configure></Configure>"),
         ModbusRecord},
        {"comments",
         Root("<!-- a --><Configure name='ProtocolConfig'><!-- b -->" + std::string(Modbus) + "<!-- c --></Configure>"),
         ModbusRecord},
        {"the place of the schema",
         Declaration + ("<Configure name='any' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                        "xsi:noNamespaceSchemaLocation='protocolconfig.xsd'><Configure name='ProtocolConfig'>" +
                        std::string(Modbus) + "</Configure></Configure>"),
         ModbusRecord},
        // TinyXML takes the second line for another declaration, without an encoding.
        {"a line for editors behind the declaration",
         "<?xml version='1.0' encoding='gb2312'?>\n<?xml-model href='protocolconfig.xsd'?>\n<Configure name='any'>"
         "<Configure name='ProtocolConfig'><ConfigItem ProtocolName='\xD0\xAD' ProtocolId='a' ProtocolType='1' "
         "ProtocolEnable='true'/></Configure></Configure>",
         "\xE5\x8D\x8F,a,1,on\n"},
        {"eight characters", Entry("IEC-10.4", "a", "1", "true"), "IEC-10.4,a,1,on\n"},
        {"names that differ in letter case",
         Section(Modbus + std::string("<ConfigItem ProtocolName='MODBUS' ProtocolId='M' ProtocolType='1' "
                                      "ProtocolEnable='true'/>")),
         "Modbus,m,1,on\nMODBUS,M,1,on\n"},
        {"letters of many scripts", Entry("\xC3\xA9\xD0\xB6\xE7\xBD\x91\xEF\xA4\x80", "\xE7\xBD\x91 2", "1", "true"),
         "\xC3\xA9\xD0\xB6\xE7\xBD\x91\xEF\xA4\x80,\xE7\xBD\x91 2,1,on\n"},
        {"the least number", Entry("A", "a", "-2147483648", "true"), "A,a,-2147483648,on\n"},
        {"the greatest number", Entry("A", "a", "2147483647", "true"), "A,a,2147483647,on\n"},
        {"zero", Entry("A", "a", "0", "true"), "A,a,0,on\n"},
    };

    const TemporaryDirectory dir;
    for (const ValidCase& each : cases) {
        SCOPED_TRACE(each.what);
        const std::string path = dir.write("protocolconfig.xml", each.text);

        const ChildResult result = Validate(path);
        EXPECT_TRUE(result.exitedWith(Valid)) << result.output;
        EXPECT_EQ(RecordsOf(path), each.records);
    }
}

struct RefusedCase {
    const char* what;
    std::string text;
    int status;          ///< of xmllint
    const char* finding; ///< in what it prints
    std::string records; ///< that the launcher reads all the same
};

std::vector<RefusedCase> OddStructures() {
    const std::string section = "<Configure name='ProtocolConfig'>" + std::string(Modbus) + "</Configure>";
    return {
        {"another root element", Declaration + ("<Config name='any'>" + section + "</Config>"), Invalid,
         "Element 'Config': No matching global declaration", Unread},
        {"a root without a name", Declaration + ("<Configure>" + section + "</Configure>"), Invalid,
         "The attribute 'name' is required but missing", Unread},
        {"another attribute of the root", Declaration + ("<Configure name='a' id='1'>" + section + "</Configure>"),
         Invalid, "The attribute 'id' is not allowed", ModbusRecord},
        {"no section", Root(""), Invalid, "Element 'Configure': Missing child element(s)", Unread},
        {"a section of a misspelled name",
         Root("<Configure name='Protocolconfig'>" + std::string(Modbus) + "</Configure>"), Invalid,
         "[facet 'enumeration'] The value 'Protocolconfig'", Unread},
        {"another attribute of the section",
         Root("<Configure name='ProtocolConfig' id='1'>" + std::string(Modbus) + "</Configure>"), Invalid,
         "The attribute 'id' is not allowed", ModbusRecord},
        {"an element without a name before the section", Root("<Configure/>" + section), Invalid,
         "The attribute 'name' is required but missing", Unread},
        {"a section beside the protocols'", Root(section + "<Configure name='Other'/>"), Invalid,
         "Element 'Configure': This element is not expected", ModbusRecord},
        {"two protocol sections", Root(section + section), Invalid, "Element 'Configure': This element is not expected",
         ModbusRecord},
        {"a section without entries", Section(""), Invalid, "Element 'Configure': Missing child element(s)", Unread},
        {"a misspelled entry in front",
         Section("<Configitem ProtocolName='A' ProtocolId='a' ProtocolType='1' "
                 "ProtocolEnable='true'/>" +
                 std::string(Modbus)),
         Invalid, "Element 'Configitem': This element is not expected", ModbusRecord},
        {"another element behind an entry", Section(Modbus + std::string("<Item/>")), Invalid,
         "Element 'Item': This element is not expected", ModbusRecord + std::string(",,0,off\n")},
        {"text between entries", Section(Modbus + std::string("text")), Invalid,
         "Character content other than whitespace is not allowed", ModbusRecord},
        {"an element inside an entry",
         Section(
             "<ConfigItem ProtocolName='A' ProtocolId='a' ProtocolType='1' ProtocolEnable='true'><A/></ConfigItem>"),
         Invalid, "Element 'ConfigItem': Element content is not allowed", "A,a,1,on\n"},
        {"text inside an entry",
         Section("<ConfigItem ProtocolName='A' ProtocolId='a' ProtocolType='1' ProtocolEnable='true'>A</ConfigItem>"),
         Invalid, "Element 'ConfigItem': Character content is not allowed", "A,a,1,on\n"},
        {"the same name twice",
         Section(Modbus + std::string("<ConfigItem ProtocolName='Modbus' ProtocolId='n' ProtocolType='1' "
                                      "ProtocolEnable='true'/>")),
         Invalid, "Duplicate key-sequence ['Modbus'] in unique identity-constraint 'ProtocolNames'",
         ModbusRecord + std::string("Modbus,n,1,on\n")},
        {"the same id twice",
         Section(Modbus + std::string("<ConfigItem ProtocolName='A' ProtocolId='m' ProtocolType='1' "
                                      "ProtocolEnable='true'/>")),
         Invalid, "Duplicate key-sequence ['m'] in unique identity-constraint 'ProtocolIds'",
         ModbusRecord + std::string("A,m,1,on\n")},
    };
}

std::vector<RefusedCase> OddAttributes() {
    std::vector<RefusedCase> cases = {
        {"no ProtocolName", Section("<ConfigItem ProtocolId='a' ProtocolType='1' ProtocolEnable='true'/>"), Invalid,
         "The attribute 'ProtocolName' is required but missing", ",a,1,on\n"},
        {"no ProtocolId", Section("<ConfigItem ProtocolName='A' ProtocolType='1' ProtocolEnable='true'/>"), Invalid,
         "The attribute 'ProtocolId' is required but missing", "A,,1,on\n"},
        {"no ProtocolType", Section("<ConfigItem ProtocolName='A' ProtocolId='a' ProtocolEnable='true'/>"), Invalid,
         "The attribute 'ProtocolType' is required but missing", "A,a,0,on\n"},
        {"no ProtocolEnable", Section("<ConfigItem ProtocolName='A' ProtocolId='a' ProtocolType='1'/>"), Invalid,
         "The attribute 'ProtocolEnable' is required but missing", "A,a,1,off\n"},
        {"a misspelled attribute",
         Section("<ConfigItem Protocolname='A' ProtocolId='a' ProtocolType='1' ProtocolEnable='true'/>"), Invalid,
         "The attribute 'Protocolname' is not allowed", ",a,1,on\n"},
    };
    for (const char* name : {"", " A", "A B", "A_B", "A;B", "$A", "-A", ".A", "ModbusTCP",
                             "A\xE3\x80\x80"
                             "B"}) {
        cases.push_back({"a name to avoid", Entry(name, "a", "1", "true"), Invalid,
                         "attribute 'ProtocolName': [facet 'pattern']", name + std::string(",a,1,on\n")});
    }
    for (const char* id : {"", " a", "a "}) {
        cases.push_back({"an odd id", Entry("A", id, "1", "true"), Invalid, "attribute 'ProtocolId': [facet 'pattern']",
                         "A," + std::string(id) + ",1,on\n"});
    }
    const struct {
        const char* text;
        const char* readAs;
    } numbers[] = {{"", "0"},   {"abc", "0"}, {"12abc", "12"}, {"1.5", "1"}, {"+1", "1"},   {"007", "7"},
                   {"-0", "0"}, {" 1", "1"},  {"1 ", "1"},     {"- 1", "0"}, {"&#9;1", "1"}};
    for (const auto& number : numbers) {
        cases.push_back(
            {"an odd number", Entry("A", "a", number.text, "true"), Invalid,
             "Element 'ConfigItem', attribute 'ProtocolType': ", "A,a," + std::string(number.readAs) + ",on\n"});
    }
    for (const char* enable : {"", "1", "yes", " true", "False", "TRUE"}) {
        cases.push_back({"an odd switch", Entry("A", "a", "1", enable), Invalid,
                         "attribute 'ProtocolEnable': [facet 'enumeration']",
                         enable == std::string("TRUE") ? "A,a,1,on\n" : "A,a,1,off\n"});
    }
    return cases;
}

std::vector<RefusedCase> OddTexts() {
    const std::string gb2312 =
        "<Configure name='any'><Configure name='ProtocolConfig'><ConfigItem ProtocolName='A' "
        "ProtocolId='\xD0\xAD\xD2\xE9' ProtocolType='1' ProtocolEnable='true'/></Configure></Configure>";
    return {
        {"a value without quotes",
         Section("<ConfigItem ProtocolName=A ProtocolId='a' ProtocolType='1' ProtocolEnable='true'/>"), NotWellFormed,
         "AttValue: \" or ' expected", "A,a,1,on\n"},
        {"text behind the root element", Section(Modbus) + "text", NotWellFormed,
         "Extra content at the end of the document", ModbusRecord},
        {"bytes outside UTF-8 declared as UTF-8", Declaration + gb2312, NotWellFormed, "Input is not proper UTF-8",
         "A,\xD0\xAD\xD2\xE9,1,on\n"},
        {"GB2312 without a declaration", gb2312, NotWellFormed, "Input is not proper UTF-8",
         "A,\xE5\x8D\x8F\xE8\xAE\xAE,1,on\n"},
    };
}

TEST(ProtocolConfigSchemaTest, ItIsStricterThanTheLauncher) {
    const TemporaryDirectory dir;
    for (const std::vector<RefusedCase>& group : {OddStructures(), OddAttributes(), OddTexts()}) {
        for (const RefusedCase& each : group) {
            SCOPED_TRACE(std::string(each.what) + ": " + each.text);
            const std::string path = dir.write("protocolconfig.xml", each.text);

            const ChildResult result = Validate(path);
            EXPECT_TRUE(result.exitedWith(each.status)) << result.output;
            EXPECT_NE(result.output.find(each.finding), std::string::npos) << result.output;
            EXPECT_EQ(RecordsOf(path), each.records);
        }
    }
}

// atoi promises nothing for one that does not fit, so what the launcher makes of it is not asked.
TEST(ProtocolConfigSchemaTest, ItTakesTheNumbersOf32BitsAndNoOthers) {
    // The places where a digit's range depends on those before it.
    const std::string taken[] = {"9",          "999999999",  "1000000000", "1999999999", "2099999999",
                                 "2139999999", "2146999999", "2147399999", "2147479999", "2147482999",
                                 "2147483599", "2147483639", "2147483640", "2147483647"};
    const std::string refused[] = {"3000000000", "2200000000", "2150000000", "2148000000",  "2147500000", "2147490000",
                                   "2147484000", "2147483700", "2147483650", "10000000000", "-2147483649"};
    const TemporaryDirectory dir;
    const auto check = [&dir](const std::string& number, int status) {
        const ChildResult result = Validate(dir.write("protocolconfig.xml", Entry("A", "a", number, "true")));
        EXPECT_TRUE(result.exitedWith(status)) << number << ": " << result.output;
        if (status == Invalid) {
            EXPECT_NE(result.output.find("The value '" + number + "' is not accepted"), std::string::npos)
                << result.output;
        }
    };

    for (const std::string& number : taken) {
        check(number, Valid);
        check("-" + number, Valid);
    }
    check("-2147483648", Valid);
    check("2147483648", Invalid);
    for (const std::string& number : refused) {
        check(number, Invalid);
    }
}

TEST(ProtocolConfigSchemaTest, ItTakesAsManyEntriesAsTheLauncher) {
    constexpr int Most = 20095;
    const TemporaryDirectory dir;
    const std::string most = dir.write("most.xml", Entries(Most));
    const std::string more = dir.write("more.xml", Entries(Most + 1));

    ProtocolConfig config;
    EXPECT_TRUE(Validate(most).exitedWith(Valid));
    EXPECT_TRUE(config.parse(most));
    EXPECT_EQ(config.getProtocolList().size(), static_cast<size_t>(Most));

    const ChildResult result = Validate(more);
    EXPECT_TRUE(result.exitedWith(Invalid)) << result.output;
    EXPECT_NE(result.output.find("Element 'ConfigItem': This element is not expected"), std::string::npos);
    EXPECT_THROW(static_cast<void>(config.parse(more)), WyRuntimeError);
}

TEST(ExampleConfigurationsTest, TheyHaveTheAdvisedForm) {
    for (const char* name : {"examples/protocolconfig.utf-8.xml", "examples/protocolconfig.gb2312.xml",
                             "examples/device/mnt/mtd/code/config_file/protocolconfig.xml",
                             "examples/device/mnt/mtd/code/factory_setting/protocolconfig.xml"}) {
        const ChildResult result = Validate(InProject(name));
        EXPECT_TRUE(result.exitedWith(Valid)) << result.output;
    }
}

TEST(ExampleConfigurationsTest, BothEncodingsAreReadToTheSameRecords) {
    const char* expected = "Modbus,modbus-tcp,1,on\n"
                           "\xE7\xBD\x91\xE5\x85\xB3,\xE7\xBD\x91\xE5\x85\xB3\xE5\x8D\x8F\xE8\xAE\xAE,2,on\n"
                           "\xE7\x94\xB5\xE8\xA1\xA8,\xE7\x94\xB5\xE8\xA1\xA8\xE9\x87\x87\xE9\x9B\x86,3,off\n";

    EXPECT_EQ(RecordsOf(InProject("examples/protocolconfig.utf-8.xml")), expected);
    EXPECT_EQ(RecordsOf(InProject("examples/protocolconfig.gb2312.xml")), expected);
}

TEST(ExampleConfigurationsTest, TheyDifferInNothingButTheEncoding) {
    const std::string gb2312 = ReadWholeFile(InProject("examples/protocolconfig.gb2312.xml"));

    std::string converted;
    CharSetConverter::Convert(gb2312, converted, CharSetGb2312, CharSetUtf8);

    const std::string declared = "gb2312";
    const size_t place = converted.find(declared);
    ASSERT_NE(place, std::string::npos);
    converted.replace(place, declared.size(), "utf-8");
    EXPECT_EQ(converted, ReadWholeFile(InProject("examples/protocolconfig.utf-8.xml")));
}

} // namespace
