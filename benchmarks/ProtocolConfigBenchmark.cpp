// What does reading a protocol configuration into records cost over the two parses of its text, in a process that has
// done it before and in a fresh one?

#include "benchmarks/LibraryConversion.h"
#include "protocol/ProtocolConfig.h"

#include <benchmark/benchmark.h>
#include <pugixml.hpp>
#include <tinyxml.h>
#include <tinyxml2.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// `mark` stands behind each name.
std::string MakeText(int entries, const std::string& encoding, const std::string& mark) {
    std::string text = "<?xml version=\"1.0\" encoding=\"" + encoding +
                       "\" standalone=\"no\" ?>\n<Configure name=\"HardwareConfig\">\n"
                       "\t<Configure name=\"ProtocolConfig\">\n";
    for (int i = 0; i < entries; ++i) {
        const std::string number = std::to_string(i);
        text += "\t\t<ConfigItem ProtocolName=\"Protocol" + number + mark + "\" ProtocolId=\"" + number +
                "\" ProtocolType=\"" + number + "\" ProtocolEnable=\"true\" />\n";
    }
    return text + "\t</Configure>\n</Configure>\n";
}

std::string MakeUtf8(int entries) {
    return MakeText(entries, "utf-8", "");
}

// A part of the names is Chinese: there is no other reason for that encoding.
std::string MakeGb2312(int entries) {
    return MakeText(entries, "gb2312", "\xCD\xF8\xB9\xD8");
}

struct Input {
    std::string path;
    std::string text; // what the file holds
};

// A file of the benchmark's own, gone when the object is.
class InputFile : public Input {
public:
    explicit InputFile(const std::string& content) : Input{"/tmp/wyvern-benchmark-XXXXXX", content} {
        const int descriptor = mkstemp(path.data());
        if (descriptor >= 0) {
            close(descriptor);
        }
        std::ofstream(path) << text;
    }

    ~InputFile() { unlink(path.c_str()); }

    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
};

bool ReadRecords(const std::string& path) {
    ProtocolConfig config;
    return config.parse(path) && !config.getProtocolList().empty();
}

bool Parse(const char* text, TiXmlEncoding encoding) {
    TiXmlDocument document;
    document.Parse(text, nullptr, encoding);
    return !document.Error();
}

// The limit: the text is parsed once to learn its encoding, and once in it, each time by a new document that is as
// TinyXML makes it.
bool ParseTwice(const std::string& text) {
    return Parse(text.c_str(), TIXML_ENCODING_UNKNOWN) && Parse(text.c_str(), TIXML_ENCODING_UTF8);
}

// The limit of a text in GB2312: between the parses stands one conversion, which makes at most three bytes of two.
bool ParseConvertParse(const std::string& text) {
    if (!Parse(text.c_str(), TIXML_ENCODING_UNKNOWN)) {
        return false;
    }
    const size_t size = text.size() * 2;
    const std::unique_ptr<char[]> converted(new char[size + 1]);
    const size_t written = ConvertByGnuLibiconv("gb2312", "utf-8", text, converted.get(), size);
    if (written == static_cast<size_t>(-1)) {
        return false;
    }
    converted[written] = '\0';
    return Parse(converted.get(), TIXML_ENCODING_UTF8);
}

// The others read the text once: they need not be told its encoding.
bool ParseByTinyXml2(const std::string& text) {
    tinyxml2::XMLDocument document;
    return document.Parse(text.c_str()) == tinyxml2::XML_SUCCESS;
}

bool ParseByPugiXml(const std::string& text) {
    pugi::xml_document document;
    return static_cast<bool>(document.load_buffer(text.data(), text.size()));
}

struct Side {
    const char* who;
    bool (*run)(const Input&);
};

const Side Utf8Sides[] = {
    {"wyvern", [](const Input& input) { return ReadRecords(input.path); }},
    {"limit", [](const Input& input) { return ParseTwice(input.text); }},
    {"tinyxml2, one parse", [](const Input& input) { return ParseByTinyXml2(input.text); }},
    {"pugixml, one parse", [](const Input& input) { return ParseByPugiXml(input.text); }},
};

const Side Gb2312Sides[] = {
    {"wyvern", [](const Input& input) { return ReadRecords(input.path); }},
    {"limit", [](const Input& input) { return ParseConvertParse(input.text); }},
};

void MeasureAgainAndAgain(benchmark::State& state, const Side& side, const std::shared_ptr<InputFile>& input) {
    for (auto _ : state) {
        if (!side.run(*input)) {
            state.SkipWithError("the configuration was not read");
            break;
        }
    }
}

// --- A fresh process for each measurement ---------------------------------------------------------------------------

constexpr int ManyEntries = 20000; // what the pool of safe pointers has room for, but for some
const std::string FreshOption = "--fresh=";

// Processor time, as the other cases count it.
double ProcessSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// What this program does when it is started with the option above and a path: one run, its seconds on standard output.
// The text comes into one piece of memory, so that the heap is still as at the start of a process.
int RunFresh(const std::string& who, const std::string& path) {
    Input input{path, std::string(std::filesystem::file_size(path), '\0')};
    std::ifstream(path).read(input.text.data(), static_cast<std::streamsize>(input.text.size()));
    for (const Side& side : Utf8Sides) {
        if (who == side.who) {
            const double start = ProcessSeconds();
            const bool done = side.run(input);
            std::printf("%.9f\n", ProcessSeconds() - start);
            return done ? EXIT_SUCCESS : EXIT_FAILURE;
        }
    }
    return EXIT_FAILURE;
}

// Returns the seconds that the run took, 0 when it failed.
double MeasureFresh(const char* who, const std::string& path) {
    std::array<char, 4096> self{};
    if (readlink("/proc/self/exe", self.data(), self.size() - 1) < 0) {
        return 0;
    }
    const std::string command = std::string("'") + self.data() + "' '" + FreshOption + who + "' " + path;
    FILE* output = popen(command.c_str(), "r");
    double seconds = 0;
    const bool read = output != nullptr && std::fscanf(output, "%lf", &seconds) == 1;
    const bool ended = output != nullptr && pclose(output) == EXIT_SUCCESS;
    return read && ended ? seconds : 0;
}

void MeasureInFreshProcesses(benchmark::State& state, const Side& side, const std::shared_ptr<InputFile>& input) {
    for (auto _ : state) {
        const double seconds = MeasureFresh(side.who, input->path);
        if (seconds <= 0) {
            state.SkipWithError("the fresh process did not read the configuration");
            break;
        }
        state.SetIterationTime(seconds);
    }
}

// --------------------------------------------------------------------------------------------------------------------

template <size_t Count>
void Register(const std::string& name, const Side (&sides)[Count], const std::string& text) {
    const auto input = std::make_shared<InputFile>(text);
    for (const Side& side : sides) {
        benchmark::RegisterBenchmark((name + "/" + side.who).c_str(), MeasureAgainAndAgain, side, input);
    }
}

void RegisterAll() {
    Register("file to records, UTF-8/10 entries", Utf8Sides, MakeUtf8(10));
    Register("file to records, UTF-8/100 entries", Utf8Sides, MakeUtf8(100));
    Register("file to records, UTF-8/1,000 entries", Utf8Sides, MakeUtf8(1000));
    Register("file to records, GB2312/1,000 entries", Gb2312Sides, MakeGb2312(1000));
    const auto many = std::make_shared<InputFile>(MakeUtf8(ManyEntries));
    for (const Side& side : Utf8Sides) {
        const std::string name = std::string("file to records, UTF-8, fresh process/20,000 entries/") + side.who;
        benchmark::RegisterBenchmark(name.c_str(), MeasureInFreshProcesses, side, many)->UseManualTime();
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string option = argc == 3 ? argv[1] : "";
    if (option.compare(0, FreshOption.size(), FreshOption) == 0) {
        return RunFresh(option.substr(FreshOption.size()), argv[2]);
    }
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
