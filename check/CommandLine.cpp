#include "check/CommandLine.h"

#include "check/Finding.h"
#include "check/Rules.h"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <initializer_list>
#include <map>
#include <stdexcept>

namespace {

constexpr const char* Description =
    "Checks, without running anything, what the launcher Wyvern would do on a device: the\n"
    "configuration, the choice of the start programs, whether they and their servers will run,\n"
    "and whether killall will find the servers.";

constexpr const char* Footer = "CONFIG is checked in place of the image's working copy; without --root, it is checked\n"
                               "alone. Without both, this machine is checked as the device (--root /).\n\n"
                               "Exit status: 0 nothing found beyond notes, 1 warnings, 2 errors, 64 wrong usage.";

std::string Explanation(const Rule& rule) {
    return std::string(rule.id) + " (" + SeverityName(rule.severity) + ")\n  " + rule.explanation + "\n";
}

// @return an empty text for an unknown rule.
std::string Explain(const std::string& id) {
    if (id != "all") {
        const Rule* rule = FindRule(id);
        return rule == nullptr ? std::string() : Explanation(*rule);
    }
    size_t count = 0;
    const Rule* rules = AllRules(count);
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += Explanation(rules[i]);
    }
    return text;
}

CommandLine Answer(CommandLine::Action action, const std::string& text) {
    CommandLine line;
    line.action = action;
    line.text = text;
    return line;
}

} // namespace

CommandLine ReadCommandLine(int argc, const char* const* argv) {
    CommandLine line;
    std::string rule;
    CLI::App app(Description, "wyvern-check");
    app.footer(Footer);
    app.add_option("--root", line.request.root, "The directory that is the device's root")->type_name("DIR");
    app.add_option("--plan", line.request.planMode, "Print what would be run, protocol by protocol")
        ->type_name("start|stop")
        ->check(CLI::IsMember({"start", "stop"}).description(""));
    const std::map<std::string, CommandLine::Format> formats = {
        {"text", CommandLine::Format::Text}, {"tsv", CommandLine::Format::Table}, {"json", CommandLine::Format::Json}};
    std::string format = "text";
    app.add_option("--format", format, "How to print")
        ->type_name("text|tsv|json")
        ->check(CLI::IsMember({"text", "tsv", "json"}).description(""));
    app.add_flag("--strict", line.request.strict, "Count warnings as errors");
    app.add_flag("--quiet", line.quiet, "Print only errors and warnings, and the plan that was asked for");
    app.add_option("--explain", rule, "Explain a rule, or \"all\"")->type_name("RULE");
    app.add_option("CONFIG", line.request.configuration, "A configuration file of this machine")->type_name("");
    app.set_version_flag("--version", "wyvern-check " WYVERN_VERSION);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return Answer(CommandLine::Action::Print, app.help());
    } catch (const CLI::CallForVersion& version) {
        return Answer(CommandLine::Action::Print, std::string(version.what()) + "\n");
    } catch (const CLI::ParseError& error) {
        return Answer(CommandLine::Action::Refuse, std::string("wyvern-check: ") + error.what() + "\n");
    }
    // A script's variable that is not set must not have this machine checked.
    for (const char* name : {"--root", "--explain", "CONFIG"}) {
        const CLI::Option& option = *app.get_option(name);
        if (option.count() != 0 && option.as<std::string>().empty()) {
            return Answer(CommandLine::Action::Refuse, std::string("wyvern-check: ") + name + " is empty\n");
        }
    }
    line.format = formats.at(format);
    if (!rule.empty()) {
        const std::string text = Explain(rule);
        return text.empty() ? Answer(CommandLine::Action::Refuse, "wyvern-check: there is no rule \"" + rule + "\"\n")
                            : Answer(CommandLine::Action::Print, text);
    }
    if (line.request.root.empty() && line.request.configuration.empty()) {
        line.request.root = "/";
    }
    if (line.request.root.empty() && !line.request.planMode.empty()) {
        return Answer(CommandLine::Action::Refuse, "wyvern-check: --plan needs --root, which has the start programs\n");
    }
    return line;
}
