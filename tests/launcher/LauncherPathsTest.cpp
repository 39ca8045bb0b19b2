#include "launcher/LauncherPaths.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace recorded {

// Stands in for ::std where the constants are compiled a second time below: a text that tells when it is built.
namespace std {

struct Construction {
    const void* object; // the constant
    const void* from;   // the constant it starts with, null for a literal
    const char* literal;
};

::std::vector<Construction>& Constructions() {
    static ::std::vector<Construction> constructions; // made by the first constant, wherever that is
    return constructions;
}

struct Concatenation {
    const void* from;
    const char* literal;
};

class string {
public:
    string(const char* literal) { Constructions().push_back({this, nullptr, literal}); }

    string(const Concatenation& text) { Constructions().push_back({this, text.from, text.literal}); }

    string(const string&) = delete;
    string& operator=(const string&) = delete;
};

Concatenation operator+(const string& from, const char* literal) {
    return {&from, literal};
}

} // namespace std

#include "launcher/LauncherPaths.cpp"

} // namespace recorded

TEST(LauncherPathsTest, ThePathsAreThoseOfTheDevice) {
    EXPECT_EQ(CodeRootDir, "/mnt/mtd/code/");
    EXPECT_EQ(FactorySettingDir, "/mnt/mtd/code/factory_setting/");
    EXPECT_EQ(ConfigFileDir, "/mnt/mtd/code/config_file/");
    EXPECT_EQ(ProtocolConfigFileName, "protocolconfig.xml");
    EXPECT_EQ(LoadServiceKeyword, "loadservice");
}

TEST(LauncherPathsTest, ThePathsAreBuiltOnceBeforeMainInTheOrderOfTheirDeclarationEachDirectoryFromTheCodeRoot) {
    const struct {
        const recorded::std::string* object;
        const recorded::std::string* from;
        const char* literal;
    } expected[] = {
        {&recorded::CodeRootDir, nullptr, "/mnt/mtd/code/"},
        {&recorded::FactorySettingDir, &recorded::CodeRootDir, "factory_setting/"},
        {&recorded::ConfigFileDir, &recorded::CodeRootDir, "config_file/"},
        {&recorded::ProtocolConfigFileName, nullptr, "protocolconfig.xml"},
        {&recorded::LoadServiceKeyword, nullptr, "loadservice"},
    };

    const auto& constructions = recorded::std::Constructions();

    ASSERT_EQ(constructions.size(), std::size(expected));
    for (size_t i = 0; i < constructions.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(constructions[i].object, expected[i].object);
        EXPECT_EQ(constructions[i].from, expected[i].from);
        EXPECT_STREQ(constructions[i].literal, expected[i].literal);
    }
}
