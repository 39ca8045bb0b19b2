#include "check/CheckReport.h"
#include "check/CommandLine.h"
#include "check/DeviceCheck.h"
#include "check/ReportJson.h"
#include "check/ReportTable.h"
#include "check/ReportText.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace {

// sysexits.h has this number for wrong usage.
constexpr int WrongUsage = 64;
// As for errors that were found: what was not checked, or not printed, must not pass for clean.
constexpr int NotDone = 2;

// https://no-color.org: any value but an empty one.
bool WantsColour() {
    const char* noColour = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe): there is one thread
    return isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
}

std::string Print(const CheckReport& report, const CommandLine& line) {
    const ReportStyle style{line.quiet, WantsColour()};
    switch (line.format) {
    case CommandLine::Format::Table:
        return ReportAsTable(report, style);
    case CommandLine::Format::Json:
        return ReportAsJson(report, style);
    default:
        break;
    }
    return ReportAsText(report, style);
}

int PrintAndEnd(const std::string& text, int status) {
    const bool isPrinted = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    return isPrinted ? status : NotDone;
}

int Refuse(const std::string& text) {
    static_cast<void>(std::fputs(text.c_str(), stderr));
    return WrongUsage;
}

int Run(int argc, const char* const* argv) {
    const CommandLine line = ReadCommandLine(argc, argv);
    if (line.action == CommandLine::Action::Refuse) {
        return Refuse(line.text);
    }
    if (line.action == CommandLine::Action::Print) {
        return PrintAndEnd(line.text, 0);
    }
    CheckReport report;
    if (!CheckDevice(line.request, report)) {
        return Refuse("wyvern-check: " + report.problem + "\n");
    }
    return PrintAndEnd(Print(report, line), report.exitStatus());
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::bad_alloc&) {
        static_cast<void>(std::fputs("wyvern-check: there is not enough memory\n", stderr));
    }
    return NotDone;
}
