#include "launcher/ServiceCommand.h"
#include "tests/memory/FaultSweep.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

TEST(LauncherMemoryTest, ACommandThatCouldNotBeMadeForLackOfMemoryLeavesNothingAndIsMadeTheNextTime) {
    // Its two texts, and nothing else: the command stands inside it.
    const FaultRules rules = {{"operator new", Ending::Threw, Ending::Threw}};
    const std::string prefix = "a prefix on the heap";
    const std::string fitting = prefix + "_loadservice_x";
    const std::string tooLong = std::string(50, 'x') + "_loadservice_x";
    const struct {
        const char* name;
        const std::string& file;
        int32_t mode;
        std::string text;
        ServiceCommand::State state;
    } cases[] = {
        {"a start command", fitting, 1, "/factory_setting/" + fitting, ServiceCommand::State::Ready},
        {"a stop command", fitting, 0, "killall -15 " + prefix + "_Server", ServiceCommand::State::Ready},
        {"a start command that is too long", tooLong, 1, "", ServiceCommand::State::TooLong},
        {"a stop command that is too long", tooLong, 0, "", ServiceCommand::State::TooLong},
        {"no command", fitting, 2, "", ServiceCommand::State::Nothing},
    };

    for (const auto& c : cases) {
        const std::vector<std::string> names = {"other_loadservice", c.file};
        const std::string protocol = c.file.substr(0, 10);
        const auto expectMade = [&c](const ServiceCommand& command) {
            EXPECT_EQ(command.state(), c.state);
            EXPECT_EQ(command.text(), c.text);
            EXPECT_EQ(command.file(), c.file);
            EXPECT_EQ(command.prefix(), c.file.substr(0, c.file.find('_')));
        };
        SweepFaults(c.name, [&](FaultyAttempt& attempt) {
            std::unique_ptr<const ServiceCommand> command;

            attempt.run(rules, [&] {
                command = std::make_unique<const ServiceCommand>(names, protocol, c.mode);
                return true;
            });

            if (attempt.succeeded()) {
                expectMade(*command);
            }
            expectMade(ServiceCommand(names, protocol, c.mode));
        });
    }
}
