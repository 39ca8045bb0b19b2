// The console log with any text whose percent signs take no argument, any level and any filter.

#include "fuzz/CapturedStream.h"
#include "fuzz/Check.h"
#include "runtime/ConsoleLog.h"
#include "runtime/LogSettings.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr size_t KeptCharacters = 2046;

enum class Way : uint8_t { OnlyArgument, OnlyFormat, Trace, kMaxValue = Trace };

struct Call {
    int32_t level;
    std::string module;
    Way way;
    std::string text;
};

struct Settings {
    bool enabled;
    int32_t maxLevel;
    std::vector<std::string> modules;
};

// Each percent sign becomes `count` of them: a run of an even number takes no argument.
std::string WithPercentSigns(const std::string& text, size_t count) {
    std::string all;
    for (const char c : text) {
        all.append(c == '%' ? count : 1, c);
    }
    return all;
}

std::string Halved(const std::string& text) {
    std::string all;
    for (size_t i = 0; i < text.size(); ++i) {
        i += text[i] == '%' ? 1U : 0U;
        all += text[i];
    }
    return all;
}

// What the first formatting makes of a call.
std::string Formatted(const Call& call) {
    switch (call.way) {
    case Way::OnlyArgument:
        return WithPercentSigns(call.text, 2);
    case Way::OnlyFormat:
        return Halved(WithPercentSigns(call.text, 4));
    default:
        return WithPercentSigns(call.text, 2) + " parse 28 \n";
    }
}

int32_t Print(const Call& call) {
    const std::string argument = WithPercentSigns(call.text, 2);
    const ConsoleLog log;
    switch (call.way) {
    case Way::OnlyArgument:
        return log.print(call.level, call.module.c_str(), "%s", argument.c_str());
    case Way::OnlyFormat:
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        return log.print(call.level, call.module.c_str(), WithPercentSigns(call.text, 4).c_str());
#pragma GCC diagnostic pop
    default:
        return log.print(call.level, call.module.c_str(), "%s %s %d \n", argument.c_str(), "parse", 28);
    }
}

struct Expected {
    int32_t result;
    std::string printed;
};

Expected Model(const Settings& settings, const Call& call) {
    const std::string text = Formatted(call);
    if (!settings.enabled || call.level > settings.maxLevel) {
        return {0, ""};
    }
    const auto length = static_cast<int32_t>(text.size());
    const bool allowed = settings.modules.empty() || std::find(settings.modules.begin(), settings.modules.end(),
                                                               call.module) != settings.modules.end();
    if (!allowed || text.empty()) {
        return {length, ""};
    }
    std::string colour;
    if (call.level == 1) {
        colour = "\x1B[0;31;1m";
    } else if (call.level == 2) {
        colour = "\x1B[0;33m";
    } else if (call.level == 3) {
        colour = "\x1B[0;32m";
    }
    return {length, colour + Halved(text.substr(0, KeptCharacters))};
}

// Whether the cut separates two percent signs that belong together. What printf does with a lone one at the end is
// undefined, and the callers' business.
bool CutSplitsPercentSigns(const std::string& text) {
    size_t run = 0;
    for (size_t i = std::min(text.size(), KeptCharacters); i > 0 && text[i - 1] == '%'; --i) {
        ++run;
    }
    return run % 2 != 0;
}

std::string Text(FuzzedDataProvider& provider) {
    std::string text = provider.ConsumeRandomLengthString(300);
    text = text.c_str(); // a format has no zero byte
    if (!text.empty() && provider.ConsumeBool()) {
        // Around the length at which the text is cut.
        const auto length = provider.ConsumeIntegralInRange<size_t>(0, 2200);
        const std::string piece = text;
        while (text.size() < length) {
            text += piece;
        }
        text.resize(std::max(length, size_t{1}));
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr const char* Modules[] = {"ProtocolConfig", "CharSetConverter", "", "protocolconfig", "Protocol"};
    FuzzedDataProvider provider(data, size);

    Settings settings{provider.ConsumeIntegralInRange(0, 15) != 0, provider.ConsumeIntegralInRange<int32_t>(-1, 5), {}};
    if (provider.ConsumeIntegralInRange(0, 15) == 0) {
        settings.maxLevel = provider.ConsumeIntegral<int32_t>();
    }
    LogSettings& log = LogSettings::instance();
    log.clearModules();
    log.setEnabled(settings.enabled);
    log.setMaxLevel(settings.maxLevel);
    settings.modules.reserve(60); // the log keeps pointers to the names
    for (size_t i = provider.ConsumeIntegralInRange<size_t>(0, 52); provider.ConsumeBool() && i > 0; --i) {
        settings.modules.emplace_back(provider.PickValueInArray(Modules));
        if (!log.addModule(settings.modules.back().c_str())) {
            Check(settings.modules.size() == LogSettings::MaxModules + 1,
                  "a module is refused before the list is full");
            settings.modules.pop_back();
            break;
        }
        Check(settings.modules.size() <= LogSettings::MaxModules, "the list takes more modules than it holds");
    }

    std::string printed;
    for (size_t calls = 0; calls < 4 && provider.remaining_bytes() > 0; ++calls) {
        Call call{provider.ConsumeIntegralInRange<int32_t>(-1, 6), provider.PickValueInArray(Modules),
                  provider.ConsumeEnum<Way>(), Text(provider)};
        if (provider.ConsumeIntegralInRange(0, 15) == 0) {
            call.level = provider.ConsumeIntegral<int32_t>();
        }
        if (CutSplitsPercentSigns(Formatted(call))) {
            continue;
        }
        const Expected expected = Model(settings, call);
        printed.clear();
        int32_t result = 0;
        {
            const CapturedStream out(stdout, [&](std::string_view text) { printed += text; });
            result = Print(call);
        }
        Check(result == expected.result, "the result differs from the model's");
        CheckEqual(printed, expected.printed, "what is printed differs from the model");
    }
    log.clearModules();
    return 0;
}
