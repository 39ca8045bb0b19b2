#include "charset/CharSetConverter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

extern "C" {
void* all_libiconv_open(const char* to, const char* from);
size_t all_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft);
int all_libiconv_close(void* descriptor);
void all_libiconvlist(int (*visit)(unsigned count, const char* const* names, void* data), void* data);

void* device_libiconv_open(const char* to, const char* from);
size_t device_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft);
int device_libiconv_close(void* descriptor);
}

namespace {

// One form of the library.
struct Library {
    void* (*open)(const char* to, const char* from);
    size_t (*convert)(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft);
    int (*close)(void* descriptor);
};

constexpr Library All = {all_libiconv_open, all_libiconv, all_libiconv_close};
constexpr Library Device = {device_libiconv_open, device_libiconv, device_libiconv_close};

// More than any text of one test needs but one, which brings its own.
constexpr size_t AmpleRoom = 64;

// All that a caller of iconv sees of one call.
struct Outcome {
    size_t result = 0;
    int error = 0;
    size_t inLeft = 0;
    std::string_view written;

    bool operator==(const Outcome& other) const {
        return result == other.result && error == other.error && inLeft == other.inLeft && written == other.written;
    }
};

// A descriptor of one form of the library, and where its output goes.
class Conversion {
public:
    Conversion(const Library& form, const std::string& from, const std::string& to, size_t room = AmpleRoom)
        : library(form), descriptor(form.open(to.c_str(), from.c_str())), out(room) {}
    ~Conversion() {
        if (isOpen()) {
            library.close(descriptor);
        }
    }
    Conversion(const Conversion&) = delete;
    Conversion& operator=(const Conversion&) = delete;

    bool isOpen() const { return descriptor != reinterpret_cast<void*>(-1); }

    void Restart() { library.convert(descriptor, nullptr, nullptr, nullptr, nullptr); }

    Outcome Convert(std::string_view text, size_t room) {
        const char* in = text.data();
        Outcome outcome;
        outcome.inLeft = text.size();
        char* end = out.data();
        size_t outLeft = room;
        errno = 0;
        outcome.result = library.convert(descriptor, &in, &outcome.inLeft, &end, &outLeft);
        outcome.error = errno;
        outcome.written = std::string_view(out.data(), static_cast<size_t>(end - out.data()));
        // What the two counts say of the pointers is part of the result.
        if (in + outcome.inLeft != text.data() + text.size() || end + outLeft != out.data() + room) {
            outcome.error = -1;
        }
        return outcome;
    }

private:
    const Library& library;
    void* descriptor;
    std::vector<char> out;
};

std::string Hex(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
        std::array<char, 4> digits = {};
        std::snprintf(digits.data(), digits.size(), "%02x ", static_cast<unsigned char>(byte));
        hex += digits.data();
    }
    return hex;
}

std::string Shown(const Outcome& outcome) {
    return std::to_string(static_cast<ptrdiff_t>(outcome.result)) + ", errno " + std::to_string(outcome.error) + ", " +
           std::to_string(outcome.inLeft) + " bytes left, written " + Hex(outcome.written);
}

// One direction in both forms. The first difference is reported, and counts for the rest.
class Comparison {
public:
    Comparison(CharSetType from, CharSetType to, size_t room = AmpleRoom)
        : all(All, GetCharSetName(from), GetCharSetName(to), room),
          device(Device, GetCharSetName(from), GetCharSetName(to), room) {}

    bool isOpen() const { return all.isOpen() && device.isOpen(); }

    // Each text starts in the initial state.
    bool SameOf(std::string_view text, size_t room = AmpleRoom) {
        all.Restart();
        device.Restart();
        return SameOfNext(text, room);
    }

    // This one goes on where the last one ended.
    bool SameOfNext(std::string_view text, size_t room) {
        last = all.Convert(text, room);
        const Outcome other = device.Convert(text, room);
        ++compared;
        if (last == other) {
            return true;
        }
        ADD_FAILURE() << "of " << Hex(text.substr(0, AmpleRoom)) << "with room for " << room << "\n"
                      << "whole library: " << Shown(last) << "\n"
                      << "device's:      " << Shown(other);
        return false;
    }

    const Outcome& outcome() const { return last; }
    uint32_t count() const { return compared; }

private:
    Conversion all;
    Conversion device;
    Outcome last;
    uint32_t compared = 0;
};

constexpr uint32_t CodePoints = 0x110000;

bool IsSurrogate(uint32_t code) {
    return code >= 0xd800 && code < 0xe000;
}

// By the pattern of UTF-8, which surrogates have, too, although it is not allowed for them.
std::string Utf8(uint32_t code) {
    const auto tail = [code](unsigned shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3f)); };
    if (code < 0x80) {
        return {static_cast<char>(code)};
    }
    if (code < 0x800) {
        return {static_cast<char>(0xc0 | (code >> 6)), tail(0)};
    }
    if (code < 0x10000) {
        return {static_cast<char>(0xe0 | (code >> 12)), tail(6), tail(0)};
    }
    return {static_cast<char>(0xf0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

enum class ByteOrder { Big, Little };

void AppendUnit(uint32_t unit, ByteOrder order, std::string& text) {
    const auto high = static_cast<char>(unit >> 8);
    const auto low = static_cast<char>(unit);
    text += order == ByteOrder::Big ? high : low;
    text += order == ByteOrder::Big ? low : high;
}

void AppendUtf16(uint32_t code, ByteOrder order, std::string& text) {
    if (code < 0x10000) {
        AppendUnit(code, order, text);
    } else {
        AppendUnit(0xd800 + ((code - 0x10000) >> 10), order, text);
        AppendUnit(0xdc00 + ((code - 0x10000) & 0x3ff), order, text);
    }
}

// One code point as the texts that UTF-8 or UTF-16 have for it, alone and with a character behind, which shows what
// becomes of half a pair; in UTF-16 without a mark of the byte order and with each of the two.
std::vector<std::string> TextsOf(uint32_t code, CharSetType set) {
    if (set == CharSetUtf8) {
        return {Utf8(code), Utf8(code) + "A"};
    }
    std::vector<std::string> texts;
    for (const std::string& mark : {std::string(), std::string("\xfe\xff"), std::string("\xff\xfe")}) {
        const ByteOrder order = mark == "\xff\xfe" ? ByteOrder::Little : ByteOrder::Big;
        std::string text = mark;
        AppendUtf16(code, order, text);
        texts.push_back(text);
        AppendUnit('A', order, text);
        texts.push_back(text);
    }
    return texts;
}

using Direction = std::tuple<CharSetType, CharSetType>;

std::string DirectionName(const testing::TestParamInfo<Direction>& info) {
    std::string name = GetCharSetName(std::get<0>(info.param)) + "_to_" + GetCharSetName(std::get<1>(info.param));
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end()); // GoogleTest takes none in a name
    return name;
}

class DeviceEncodingsTest : public testing::TestWithParam<Direction> {
protected:
    CharSetType from() const { return std::get<0>(GetParam()); }
    CharSetType to() const { return std::get<1>(GetParam()); }
};

// The sets of Unicode as sources: they alone have a text for every code point.
class DeviceUnicodeTest : public DeviceEncodingsTest {};

} // namespace

TEST_P(DeviceEncodingsTest, EveryInputOfOneTwoOrThreeBytesGivesTheSameAsWithTheWholeLibrary) {
    Comparison comparison(from(), to());
    ASSERT_TRUE(comparison.isOpen());

    for (size_t length = 1; length <= 3; ++length) {
        for (uint32_t number = 0; number < (1U << (8 * length)); ++number) {
            const std::array<char, 3> bytes = {static_cast<char>(number), static_cast<char>(number >> 8),
                                               static_cast<char>(number >> 16)};
            ASSERT_TRUE(comparison.SameOf(std::string_view(bytes.data(), length)));
        }
    }

    EXPECT_EQ(comparison.count(), 0x100U + 0x10000U + 0x1000000U);
}

TEST_P(DeviceUnicodeTest, EveryCodePointGivesTheSameAsWithTheWholeLibrary) {
    Comparison comparison(from(), to());
    ASSERT_TRUE(comparison.isOpen());

    for (uint32_t code = 0; code < CodePoints; ++code) {
        for (const std::string& text : TextsOf(code, from())) {
            ASSERT_TRUE(comparison.SameOf(text));
        }
    }

    EXPECT_EQ(comparison.count(), CodePoints * (from() == CharSetUtf8 ? 2U : 6U));
}

TEST_P(DeviceUnicodeTest, EveryCodePointGivesTheSameInTooLittleRoom) {
    Comparison comparison(from(), to());
    ASSERT_TRUE(comparison.isOpen());

    for (uint32_t code = 0; code < CodePoints; ++code) {
        const std::string text = TextsOf(code, from()).front();
        for (size_t room = 0; room < 6; ++room) { // the mark of UTF-16 and a pair take six bytes
            ASSERT_TRUE(comparison.SameOf(text, room));
        }
    }
}

// One text of all characters: what one leaves in the descriptor meets the next. At each that the target lacks the call
// ends, and the next call begins behind it.
TEST_P(DeviceUnicodeTest, AllCodePointsInOneTextGiveTheSame) {
    std::string text;
    for (uint32_t code = 0; code < CodePoints; ++code) {
        if (!IsSurrogate(code) && code != 0xfffe) { // which would turn the byte order of UTF-16
            text += TextsOf(code, from()).front();
        }
    }
    const size_t room = 2 * text.size();
    Comparison comparison(from(), to(), room);
    ASSERT_TRUE(comparison.isOpen());

    std::string_view rest = text;
    uint32_t refused = 0;
    while (!rest.empty()) {
        ASSERT_TRUE(comparison.SameOfNext(rest, room));
        rest.remove_prefix(rest.size() - comparison.outcome().inLeft);
        if (comparison.outcome().error == 0) {
            continue;
        }
        ASSERT_EQ(comparison.outcome().error, EILSEQ);
        ++refused;
        size_t length = 2;
        if (from() == CharSetUtf8) {
            const auto next =
                std::find_if(rest.begin() + 1, rest.end(), [](char byte) { return (byte & 0xc0) != 0x80; });
            length = static_cast<size_t>(next - rest.begin());
        } else if ((static_cast<unsigned char>(rest.front()) & 0xfc) == 0xd8) {
            length = 4;
        }
        rest.remove_prefix(length);
    }

    const bool targetHasAll = to() == CharSetUtf8 || to() == CharSetUtf16;
    EXPECT_EQ(refused == 0, targetHasAll) << refused;
}

namespace {

const auto EverySet = testing::Values(CharSetGb2312, CharSetUtf8, CharSetGbk, CharSetUtf16);

INSTANTIATE_TEST_SUITE_P(Direction, DeviceEncodingsTest, testing::Combine(EverySet, EverySet), DirectionName);
INSTANTIATE_TEST_SUITE_P(Direction, DeviceUnicodeTest,
                         testing::Combine(testing::Values(CharSetUtf8, CharSetUtf16), EverySet), DirectionName);

// The names of one encoding of the whole library, as iconvlist gives them.
using Names = std::vector<std::string>;

int Collect(unsigned count, const char* const* names, void* list) {
    static_cast<std::vector<Names>*>(list)->emplace_back(names, names + count);
    return 0;
}

bool Has(const Names& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// What iconv_open of the device's form leaves in errno; 0 when it opens.
int ErrorOfOpening(const std::string& from, const std::string& to) {
    errno = 0;
    const Conversion conversion(Device, from, to);
    return conversion.isOpen() ? 0 : errno;
}

} // namespace

TEST(DeviceEncodingNamesTest, OfTheWholeLibrarysNamesThoseOfTheFourSetsAreKnownAndNoOther) {
    std::vector<Names> encodings;
    all_libiconvlist(Collect, &encodings);
    size_t known = 0;

    for (const Names& names : encodings) {
        const bool wanted = Has(names, "GB2312") || Has(names, "GBK") || Has(names, "UTF-8") || Has(names, "UTF-16");
        known += wanted ? 1 : 0;
        for (const std::string& name : names) {
            EXPECT_EQ(ErrorOfOpening(name, "utf-8"), wanted ? 0 : EINVAL) << name;
            EXPECT_EQ(ErrorOfOpening("utf-8", name), wanted ? 0 : EINVAL) << name;
        }
    }

    EXPECT_EQ(known, 4U);
    EXPECT_GT(encodings.size(), 100U);
}

TEST(DeviceEncodingNamesTest, ANameIsKnownInAnyCaseAndWhole) {
    for (const char* name : {"gb2312", "Gb2312", "csgb2312", "gbk", "utf-8", "uTf-16"}) {
        EXPECT_EQ(ErrorOfOpening(name, "gbk"), 0) << name;
    }
    for (const char* name : {"gb231", "gb23122", "utf", "utf8", "csgb2312x", " gbk", "g\xe9k"}) {
        EXPECT_EQ(ErrorOfOpening(name, "gbk"), EINVAL) << name;
    }
}

// No set of the locale: neither by the library's names for it, nor by the empty one.
TEST(DeviceEncodingNamesTest, TheSetsOfTheLocaleAreNotKnown) {
    for (const char* name : {"char", "wchar_t", "", "//IGNORE"}) {
        EXPECT_EQ(ErrorOfOpening(name, "gbk"), EINVAL) << name;
        EXPECT_EQ(ErrorOfOpening("gbk", name), EINVAL) << name;
    }
}

// Of the source's name the library ignores each suffix.
TEST(DeviceEncodingNamesTest, ATargetMayLeaveOutWhatItLacksAndIsNotTransliterated) {
    EXPECT_EQ(ErrorOfOpening("utf-8", "gbk//IGNORE"), 0);
    EXPECT_EQ(ErrorOfOpening("utf-8//TRANSLIT", "gbk"), 0);
    EXPECT_EQ(ErrorOfOpening("utf-8", "gbk//TRANSLIT"), EINVAL);
    EXPECT_EQ(ErrorOfOpening("utf-8", "gbk//TRANSLIT//IGNORE"), EINVAL);
    EXPECT_EQ(ErrorOfOpening("utf-8", "gbk//IGNORE//translit"), EINVAL);
}
