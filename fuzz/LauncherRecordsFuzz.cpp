// The launcher on configurations that are made from records, in all the ways in which a file may say the same: the
// model is given the records and parses nothing.

#include "fuzz/Check.h"
#include "fuzz/LauncherModel.h"
#include "fuzz/LauncherSeam.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <dirent.h>

namespace {

constexpr size_t MaxNameBytes = 255;

// A text in two encodings.
struct Word {
    const char* utf8;
    const char* gb2312;
};

constexpr Word Words[] = {
    {"Modbus", "Modbus"},
    {"BACnet", "BACnet"},
    {"loadservice", "loadservice"},
    {"_", "_"},
    {"ABC", "ABC"},
    {"A", "A"},
    {".", "."},
    {"\xE7\xBD\x91\xE5\x85\xB3", "\xCD\xF8\xB9\xD8"},
    {"&", "&"},
    {"<'\">", "<'\">"},
    {" ", " "},
    {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
    {"LoadService", "LoadService"},
    {"%s", "%s"},
    {"/", "/"},
};

// A name as the launcher has to see it, and as it is written in a file.
struct Name {
    std::string utf8;
    std::string written;
};

class Writer {
public:
    explicit Writer(FuzzedDataProvider& decisions) : provider(decisions), isGb2312(provider.ConsumeBool()) {}

    Name name() {
        Name made;
        for (size_t i = provider.ConsumeIntegralInRange<size_t>(0, 5); i > 0; --i) {
            if (provider.ConsumeIntegralInRange(0, 7) == 0) {
                const auto letter = static_cast<char>(provider.ConsumeIntegralInRange<int>('\x01', '\x7F'));
                made.utf8 += letter;
                made.written += letter;
            } else {
                const Word& word = provider.PickValueInArray(Words);
                made.utf8 += word.utf8;
                made.written += isGb2312 ? word.gb2312 : word.utf8;
            }
        }
        return made;
    }

    // A whole configuration of these records, and of all that is to be left out.
    std::string config(std::vector<ModelRecord>& records) {
        std::string text = declaration() + filler(false) + "<Configure name='any'>" + filler(true);
        for (size_t i = provider.ConsumeIntegralInRange<size_t>(0, 2); i > 0; --i) {
            text += "<Configure name=\"Other\"><ConfigItem ProtocolName='no'/></Configure>" + filler(true);
        }
        text += "<Configure name='ProtocolConfig'>" + filler(true);
        if (provider.ConsumeBool()) {
            text += "<Item ProtocolName='before the first' ProtocolEnable='true'/>";
        }
        for (size_t i = provider.ConsumeIntegralInRange<size_t>(1, 6); i > 0; --i) {
            const bool first = records.empty();
            text += entry(records, first || provider.ConsumeBool() ? "ConfigItem" : "Another") + filler(true);
        }
        return text + "</Configure><Configure/></Configure>" + filler(false);
    }

private:
    std::string declaration() {
        if (isGb2312) {
            static constexpr const char* Declarations[] = {"", "<?xml version='1.0' encoding='GB2312'?>",
                                                           "<?xml version='1.0' encoding='ascii'?>"};
            return provider.PickValueInArray(Declarations);
        }
        static constexpr const char* Declarations[] = {"<?xml version='1.0' encoding='utf-8'?>",
                                                       "<?xml version=\"1.0\" encoding=\"UTF8\" ?>\r\n",
                                                       "<?xml version='1.0'?>", " \n<?xml?>"};
        return provider.PickValueInArray(Declarations);
    }

    // What may stand between elements and changes nothing.
    std::string filler(bool insideRoot) {
        static constexpr const char* Outside[] = {"", "\n", "\t \r\n", "<!-- <a> -->", "<!DOCTYPE x>"};
        static constexpr const char* Inside[] = {"text", "<![CDATA[</Configure>]]>", "\r", "&amp;"};
        if (insideRoot && provider.ConsumeBool()) {
            return provider.PickValueInArray(Inside);
        }
        return provider.PickValueInArray(Outside);
    }

    std::string escaped(const std::string& text) {
        std::string all;
        for (const char c : text) {
            switch (c) {
            case '&':
                all += "&amp;";
                break;
            case '<':
                all += "&lt;";
                break;
            case '>':
                all += provider.ConsumeBool() ? ">" : "&gt;";
                break;
            case '"':
                all += "&quot;";
                break;
            case '\'':
                all += "&apos;";
                break;
            case 'A':
                all += provider.ConsumeBool() ? "A" : "&#65;";
                break;
            case 'o':
                all += provider.ConsumeBool() ? "o" : "&#x6F;";
                break;
            default:
                all += c >= '\x01' && c < ' ' ? "&#" + std::to_string(static_cast<int>(c)) + ";" : std::string(1, c);
            }
        }
        return all;
    }

    std::string attribute(const std::string& name, const std::string& value) {
        const char* quote = provider.ConsumeBool() ? "\"" : "'";
        return (provider.ConsumeBool() ? " " : "\r\n\t") + name + (provider.ConsumeBool() ? "=" : " = ") + quote +
               escaped(value) + quote;
    }

    std::string entry(std::vector<ModelRecord>& records, const std::string& element) {
        static constexpr const char* True[] = {"true", "TRUE", "tRuE"};
        static constexpr const char* NotTrue[] = {"false", "FALSE", "", "1", "yes", " true", "true ", "tru"};
        ModelRecord record{"", false};
        std::string attributes;
        if (provider.ConsumeIntegralInRange(0, 7) != 0) {
            const Name protocol = name();
            record.name = protocol.utf8;
            attributes += attribute("ProtocolName", protocol.written);
        }
        if (provider.ConsumeBool()) {
            attributes += attribute("ProtocolId", "some id") + attribute("protocolname", "another");
        }
        if (provider.ConsumeIntegralInRange(0, 3) != 0) {
            record.enabled = true;
            attributes += attribute("ProtocolEnable", provider.PickValueInArray(True));
        } else if (provider.ConsumeBool()) {
            attributes += attribute("ProtocolEnable", provider.PickValueInArray(NotTrue));
        }
        attributes += provider.ConsumeBool() ? attribute("ProtocolType", "7x") : "";
        records.push_back(record);
        return "<" + element + attributes + (provider.ConsumeBool() ? "/>" : ">" + filler(true) + "</" + element + ">");
    }

    FuzzedDataProvider& provider;
    bool isGb2312;
};

// A copy that can be used, with its records, or one that cannot.
std::optional<std::string> MakeCopy(FuzzedDataProvider& provider, ModelConfig& expected) {
    std::vector<ModelRecord> records;
    const std::string good = Writer(provider).config(records);
    switch (provider.ConsumeIntegralInRange(0, 9)) {
    case 0:
        return {};
    case 1:
        return "";
    case 2:
        return good.substr(0, good.rfind("</Configure>")); // the root stays open
    case 3:
        return '\0' + good;
    case 4:
        return "<Configure>" + good + "</Configure>"; // a root without a name
    case 5:
        return "<Configure name='x'><Configure name='protocolconfig'><ConfigItem/></Configure></Configure>";
    case 6:
        return "<Configure name='x'><Configure name='ProtocolConfig'><Item/></Configure></Configure>";
    default:
        expected = records;
        return good;
    }
}

// A file name as a kernel gives it: any bytes but "/" and zero.
std::string FileName(FuzzedDataProvider& provider) {
    Writer writer(provider);
    std::string name;
    for (size_t i = provider.ConsumeIntegralInRange<size_t>(1, 3); i > 0; --i) {
        name += provider.ConsumeIntegralInRange(0, 3) != 0 ? writer.name().utf8 : provider.ConsumeRandomLengthString(8);
        name += provider.ConsumeIntegralInRange(0, 3) != 0 ? "_loadservice" : "";
    }
    const auto isNoNameByte = [](char c) { return c == '/' || c == '\0'; };
    name.erase(std::remove_if(name.begin(), name.end(), isNoNameByte), name.end());
    return name.substr(0, MaxNameBytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static constexpr const char* Modes[] = {"1", "0", "2", "-1", "stop", " +1x", "4294967297", ""};
    static constexpr unsigned char Types[] = {DT_REG, DT_LNK, DT_UNKNOWN, DT_DIR, DT_FIFO};
    FuzzedDataProvider provider(data, size);

    Device device;
    std::vector<std::string> arguments(
        provider.ConsumeIntegralInRange(0, 15) == 0 ? provider.ConsumeIntegral<uint8_t>() % 3U : 1U,
        provider.PickValueInArray(Modes));
    device.hasServices = provider.ConsumeIntegralInRange(0, 7) != 0;
    for (size_t i = provider.ConsumeIntegralInRange<size_t>(0, 6); i > 0; --i) {
        const unsigned char type = provider.PickValueInArray(Types);
        const std::string name = FileName(provider);
        if (!name.empty()) {
            device.services.push_back({type, name});
        }
    }
    ModelConfig working;
    ModelConfig factory;
    device.working = MakeCopy(provider, working);
    device.factory = MakeCopy(provider, factory);

    const Transcript expected = ExpectedRun(device, arguments, working, factory);
    CheckEqual(LaunchOn(device, arguments).text(), expected.text(), "the launcher differs from its model");
    return 0;
}
