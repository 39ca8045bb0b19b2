// What does a wide text cost over the C library's own conversion of it?

#include "benchmarks/LibraryConversion.h"
#include "charset/CharSetConverter.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

// A path with Chinese names, 44 bytes.
const std::string Path = "/mnt/mtd/code/\xE9\x85\x8D\xE7\xBD\xAE/\xE7\xBD\x91\xE5\x85\xB3\xE5\x8D\x8F\xE8\xAE\xAE"
                         "/\xE4\xB8\xBB\xE5\xA4\x87.xml";

// What would be converted of a path near the longest that opens.
std::string MakeLong() {
    std::string path = Path;
    while (path.size() < 1536) {
        path += Path;
    }
    return path;
}

void Convert(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        std::wstring wide;
        if (Utf8ToWide(text, wide) != 0) {
            state.SkipWithError("the text did not convert");
            break;
        }
        benchmark::DoNotOptimize(wide.data());
    }
}

// The limit: one open, one call and one close, into a buffer that is there already.
void ConvertByLibrary(benchmark::State& state, const std::string& text) {
    std::vector<wchar_t> wide(text.size() + 1);
    for (auto _ : state) {
        if (ConvertByCLibrary("UTF8", "WCHAR_T", text, reinterpret_cast<char*>(wide.data()),
                              wide.size() * sizeof(wchar_t)) == static_cast<size_t>(-1)) {
            state.SkipWithError("the C library did not convert the text");
            break;
        }
        benchmark::DoNotOptimize(wide.data());
    }
}

[[maybe_unused]] const bool Registered = [] {
    benchmark::RegisterBenchmark("Utf8ToWide/44 B/wyvern", Convert, Path);
    benchmark::RegisterBenchmark("Utf8ToWide/44 B/limit", ConvertByLibrary, Path);
    benchmark::RegisterBenchmark("Utf8ToWide/1.5 KB/wyvern", Convert, MakeLong());
    benchmark::RegisterBenchmark("Utf8ToWide/1.5 KB/limit", ConvertByLibrary, MakeLong());
    return true;
}();

} // namespace
