// What does reading a protocol configuration cost over the two parses of its text?

#include "protocol/ProtocolConfig.h"

#include <benchmark/benchmark.h>
#include <tinyxml.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

std::string MakeText(int64_t entries) {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"no\" ?>\n<Configure name=\"HardwareConfig\">\n"
        "\t<Configure name=\"ProtocolConfig\">\n";
    for (int64_t i = 0; i < entries; ++i) {
        const std::string number = std::to_string(i);
        text += "\t\t<ConfigItem ProtocolName=\"Protocol" + number + "\" ProtocolId=\"" + number +
                "\" ProtocolType=\"" + number + "\" ProtocolEnable=\"true\" />\n";
    }
    return text + "\t</Configure>\n</Configure>\n";
}

// A file of the benchmark's own, gone when the object is.
class ConfigurationFile {
public:
    explicit ConfigurationFile(const std::string& text) {
        const int descriptor = mkstemp(name);
        if (descriptor >= 0) {
            close(descriptor);
        }
        std::ofstream(name) << text;
    }

    ~ConfigurationFile() { unlink(name); }

    ConfigurationFile(const ConfigurationFile&) = delete;
    ConfigurationFile& operator=(const ConfigurationFile&) = delete;

    const char* path() const { return name; }

private:
    char name[32] = "/tmp/wyvern-benchmark-XXXXXX";
};

void FileToRecords(benchmark::State& state) {
    const ConfigurationFile file(MakeText(state.range(0)));
    for (auto _ : state) {
        ProtocolConfig config;
        if (!config.parse(file.path())) {
            state.SkipWithError("the configuration did not parse");
            break;
        }
        benchmark::DoNotOptimize(config.getProtocolList().data());
    }
}

BENCHMARK(FileToRecords)->Arg(10)->Arg(100)->Arg(1000);

// The limit: the text is parsed twice, once to learn its encoding and once in it.
void TwoParses(benchmark::State& state) {
    const std::string text = MakeText(state.range(0));
    for (auto _ : state) {
        for (const TiXmlEncoding encoding : {TIXML_ENCODING_UNKNOWN, TIXML_ENCODING_UTF8}) {
            TiXmlDocument document;
            document.Parse(text.c_str(), nullptr, encoding);
            benchmark::DoNotOptimize(document.FirstChild());
        }
    }
}

BENCHMARK(TwoParses)->Arg(10)->Arg(100)->Arg(1000);

} // namespace
