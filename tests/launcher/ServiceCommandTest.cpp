#include "launcher/ServiceCommand.h"
#include "tests/support/ObjectSymbols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;
using State = ServiceCommand::State;

constexpr int32_t Stop = ServiceCommand::StopMode;
constexpr int32_t Start = ServiceCommand::StartMode;

// A name of this many bytes with the prefix "ABC".
std::string NameOfLength(size_t length) {
    const std::string front = "ABC_loadservice";
    return front + std::string(length - front.size(), 'x');
}

// A name whose prefix has this many bytes.
std::string NameWithPrefixOfLength(size_t length) {
    return "ABC" + std::string(length - 3, 'x') + "_loadservice";
}

std::set<std::string> ProcessFunctionsAmong(const std::set<std::string>& imports) {
    const std::set<std::string> others{"system", "popen",  "fork",        "vfork",        "_Fork",
                                       "clone",  "clone3", "posix_spawn", "posix_spawnp", "kill",
                                       "killpg", "raise",  "sigqueue",    "syscall",      "dlsym"};
    std::set<std::string> found;
    for (const std::string& import : imports) {
        if (others.count(import) != 0 || import.rfind("exec", 0) == 0 || import.rfind("fexec", 0) == 0) {
            found.insert(import);
        }
    }
    return found;
}

} // namespace

TEST(ServiceCommandTest, StartModeComposesTheServiceDirectoryAndTheMatchedName) {
    const ServiceCommand command({"readme", "ABC_loadservice_x"}, "ABC", Start);

    EXPECT_EQ(command.state(), State::Ready);
    EXPECT_STREQ(command.text(), "/factory_setting/ABC_loadservice_x");
    EXPECT_EQ(command.file(), "ABC_loadservice_x");
    EXPECT_EQ(command.prefix(), "ABC");
}

TEST(ServiceCommandTest, StopModeComposesKillallWithThePrefix) {
    const ServiceCommand command({"readme", "ABC_loadservice_x"}, "ABC", Stop);

    EXPECT_EQ(command.state(), State::Ready);
    EXPECT_STREQ(command.text(), "killall -15 ABC_Server");
    EXPECT_EQ(command.file(), "ABC_loadservice_x");
    EXPECT_EQ(command.prefix(), "ABC");
}

TEST(ServiceCommandTest, AnyOtherModeMatchesAndComposesNothing) {
    for (const int32_t mode : {2, -1, 10, std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min()}) {
        SCOPED_TRACE(mode);
        const ServiceCommand command({"ABC_loadservice_x"}, "ABC", mode);

        EXPECT_EQ(command.state(), State::Nothing);
        EXPECT_STREQ(command.text(), "");
        EXPECT_EQ(command.file(), "ABC_loadservice_x");
    }
}

TEST(ServiceCommandTest, ANameMatchesWhenItContainsBothTextsAnywhereAndInTheSameCase) {
    const struct {
        const char* name;
        const char* protocol;
        bool matches;
    } cases[] = {
        {"ABC_loadservice", "ABC", true},
        {"loadservice_ABC", "ABC", true},
        {"xloadserviceABCx", "ABC", true},
        {"loadservice", "service", true}, // the two may overlap
        {"ABCloadservice", "ABC", true},
        {"ABC_loadservice", "ABC_loadservice", true},
        {"ABC_loadservic", "ABC", false},
        {"ABC_Loadservice", "ABC", false},
        {"ABC_LOADSERVICE", "ABC", false},
        {"abc_loadservice", "ABC", false},
        {"AB_loadservice", "ABC", false},
        {"ABC", "ABC", false},
        {"loadservice", "ABC", false},
        {"ABC_load_service", "ABC", false},
        {"", "ABC", false},
        {"\xE7\xBD\x91\xE5\x85\xB3_loadservice", "\xE7\xBD\x91\xE5\x85\xB3", true}, // the bytes decide: UTF-8
        {"\xE7\xBD\x91\xE5\x85\xB3_loadservice", "\xCD\xF8\xB9\xD8", false},        // and the same as GB2312
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " for " + c.protocol);
        const ServiceCommand command({c.name}, c.protocol, Start);
        EXPECT_EQ(command.file(), c.matches ? c.name : "");
    }
}

TEST(ServiceCommandTest, OfSeveralMatchesTheFirstOfTheListIsTaken) {
    const ServiceCommand command({"ABC", "zABC_loadservice", "ABC_loadservice", "aABC_loadservice"}, "ABC", Start);

    EXPECT_EQ(command.file(), "zABC_loadservice");
}

TEST(ServiceCommandTest, AnEmptyProtocolNameMatchesTheFirstNameWithTheKeyword) {
    const ServiceCommand command({"readme", "XYZ_loadservice", "ABC_loadservice"}, "", Start);

    EXPECT_STREQ(command.text(), "/factory_setting/XYZ_loadservice");
}

TEST(ServiceCommandTest, ThePrefixEndsBeforeTheFirstUnderscoreAndIsTheWholeNameWithoutOne) {
    const struct {
        const char* name;
        const char* prefix;
    } cases[] = {
        {"ABC_loadservice_x", "ABC"},
        {"ABC__loadservice", "ABC"},
        {"_ABC_loadservice", ""},
        {"ABCloadservice", "ABCloadservice"},
        {"ABC-loadservice.sh", "ABC-loadservice.sh"},
        {"loadserviceABC_", "loadserviceABC"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ServiceCommand command({c.name}, "ABC", Stop);
        EXPECT_EQ(command.prefix(), c.prefix);
        EXPECT_EQ(command.text(), "killall -15 " + std::string(c.prefix) + "_Server");
    }
}

// Wanted: the device's operators rely on a command for every enabled protocol.
TEST(ServiceCommandTest, WithoutAMatchThereIsACommandAllTheSame) {
    for (const Names& names : {Names(), Names{"readme", "XYZ_loadservice"}}) {
        const ServiceCommand start(names, "ABC", Start);
        EXPECT_EQ(start.state(), State::Ready);
        EXPECT_STREQ(start.text(), "/factory_setting/");
        EXPECT_EQ(start.file(), "");

        const ServiceCommand stop(names, "ABC", Stop);
        EXPECT_EQ(stop.state(), State::Ready);
        EXPECT_STREQ(stop.text(), "killall -15 _Server");
        EXPECT_EQ(stop.prefix(), "");
    }
}

TEST(ServiceCommandTest, ACommandOf63CharactersIsReadyAndOneOf64IsTooLongAndNeverOffered) {
    const struct {
        std::string name;
        int32_t mode;
        State state;
    } cases[] = {
        {NameOfLength(46), Start, State::Ready},
        {NameOfLength(47), Start, State::TooLong},
        {NameOfLength(255), Start, State::TooLong},
        {NameWithPrefixOfLength(44), Stop, State::Ready},
        {NameWithPrefixOfLength(45), Stop, State::TooLong},
        {NameWithPrefixOfLength(243), Stop, State::TooLong},
        {NameOfLength(255), Stop, State::Ready}, // only the prefix counts
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const ServiceCommand command({c.name}, "ABC", c.mode);
        const std::string whole = c.mode == Start ? "/factory_setting/" + c.name
                                                  : "killall -15 " + c.name.substr(0, c.name.find('_')) + "_Server";
        EXPECT_EQ(command.state(), c.state);
        EXPECT_EQ(command.text(), c.state == State::Ready ? whole : "");
        EXPECT_EQ(command.file(), c.name) << "a refusal names the file";
    }
    EXPECT_EQ(std::string(ServiceCommand({NameOfLength(46)}, "ABC", Start).text()).size(), 63U);
}

// As the buffer does: here eleven characters are 33 bytes.
TEST(ServiceCommandTest, TheLimitCountsBytes) {
    std::string name = "loadservice_";
    for (int i = 0; i < 11; ++i) {
        name += "\xE7\xBD\x91";
    }

    EXPECT_EQ(ServiceCommand({name + "x"}, "", Start).state(), State::Ready);
    EXPECT_EQ(ServiceCommand({name + "xx"}, "", Start).state(), State::TooLong);
}

TEST(ServiceCommandTest, APercentSignInANameIsTextAndNoFormat) {
    const ServiceCommand start({"ABC%s%n_loadservice"}, "%s", Start);
    EXPECT_STREQ(start.text(), "/factory_setting/ABC%s%n_loadservice");

    const ServiceCommand stop({"ABC%s%n_loadservice"}, "%s", Stop);
    EXPECT_STREQ(stop.text(), "killall -15 ABC%s%n_Server");
}

// Asking what would run must not be able to run it. That the service control can shows that this test sees.
TEST(ServiceCommandTest, TheTranslationUnitStartsAndSignalsNoProcess) {
    const std::set<std::string> imports = UndefinedSymbols("'" WYVERN_LAUNCHER_LIBRARY "'", "(ServiceCommand.cpp");
    ASSERT_FALSE(imports.empty());

    EXPECT_EQ(ProcessFunctionsAmong(imports), std::set<std::string>());
    EXPECT_EQ(ProcessFunctionsAmong(UndefinedSymbols("'" WYVERN_LAUNCHER_LIBRARY "'", "(ServiceControl.cpp")),
              std::set<std::string>{"system"});
}
