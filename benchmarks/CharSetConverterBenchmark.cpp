// What does the conversion of a whole text cost over the library's own work?

#include "charset/CharSetConverter.h"

#include "benchmarks/LibraryConversion.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

// One protocol of a configuration, with the Chinese text in UTF-8 and in GB2312.
const std::string Utf8Line = "<ConfigItem ProtocolName=\"\xE5\x8D\x8F\xE8\xAE\xAE\xE7\xBD\x91\xE5\x85\xB3\" "
                             "ProtocolId=\"1\" ProtocolType=\"1\" ProtocolEnable=\"true\" />\n";
const std::string Gb2312Line = "<ConfigItem ProtocolName=\"\xD0\xAD\xD2\xE9\xCD\xF8\xB9\xD8\" "
                               "ProtocolId=\"1\" ProtocolType=\"1\" ProtocolEnable=\"true\" />\n";

// Whole lines, then blanks.
std::string MakeText(const std::string& line, size_t size) {
    std::string text;
    text.reserve(size);
    while (text.size() + line.size() <= size) {
        text += line;
    }
    text.resize(size, ' ');
    return text;
}

struct Direction {
    const char* name;
    CharSetType from;
    CharSetType to;
    const std::string& line;
};

// As the product asks for it: the result is a new string, which its one buffer was copied to.
void Convert(benchmark::State& state, const Direction& direction, size_t size) {
    const std::string text = MakeText(direction.line, size);
    for (auto _ : state) {
        std::string converted;
        CharSetConverter::Convert(text, converted, direction.from, direction.to);
        benchmark::DoNotOptimize(converted.data());
    }
}

// The limit: one open, one call and one close, into a buffer that is there already.
template <size_t ConvertOnce(const char*, const char*, const std::string&, char*, size_t)>
void ConvertByLibrary(benchmark::State& state, const Direction& direction, size_t size) {
    const std::string text = MakeText(direction.line, size);
    std::vector<char> out(2 * size);
    const std::string from = GetCharSetName(direction.from);
    const std::string to = GetCharSetName(direction.to);
    for (auto _ : state) {
        if (ConvertOnce(from.c_str(), to.c_str(), text, out.data(), out.size()) == static_cast<size_t>(-1)) {
            state.SkipWithError("the library did not convert the text");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
}

[[maybe_unused]] const bool Registered = [] {
    static const Direction directions[] = {
        {"GB2312 to UTF-8", CharSetGb2312, CharSetUtf8, Gb2312Line},
        {"UTF-8 to GB2312", CharSetUtf8, CharSetGb2312, Utf8Line},
    };
    static constexpr struct {
        const char* name;
        size_t bytes;
    } sizes[] = {{"1 KB", size_t{1} << 10}, {"64 KB", size_t{1} << 16}, {"8 MB", size_t{1} << 23}};
    for (const Direction& direction : directions) {
        for (const auto& size : sizes) {
            const std::string name = std::string("conversion of ") + direction.name + "/" + size.name;
            benchmark::RegisterBenchmark((name + "/wyvern").c_str(), Convert, direction, size.bytes);
            benchmark::RegisterBenchmark((name + "/limit").c_str(), ConvertByLibrary<ConvertByGnuLibiconv>, direction,
                                         size.bytes);
            benchmark::RegisterBenchmark((name + "/C library").c_str(), ConvertByLibrary<ConvertByCLibrary>, direction,
                                         size.bytes);
        }
    }
    return true;
}();

} // namespace
