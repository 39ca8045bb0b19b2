#include "xmlconfig/XmlNestingLimit.h"

#include "tests/support/ParserDepth.h"
#include "tests/support/Repeated.h"
#include "tests/xmlconfig/ShallowNestingLimit.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <tinyxml.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace {

static_assert(SpareBytes >= 4, "the terminator, and the three bytes that a sequence may promise behind its first one");

constexpr std::array<TiXmlEncoding, 3> Encodings = {TIXML_ENCODING_UNKNOWN, TIXML_ENCODING_UTF8, TIXML_ENCODING_LEGACY};

std::string Nested(size_t depth) {
    return Repeated("<a>", depth) + Repeated("</a>", depth);
}

bool Refused(const std::string& text, TiXmlEncoding encoding) {
    return NestsTooDeep(WithSpareBytes(text).c_str(), encoding);
}

// The same with the small limit, where an answer of yes costs microseconds.
bool RefusedWhenShallow(const std::string& text, TiXmlEncoding encoding) {
    return NestsDeeperThanShallow(WithSpareBytes(text).c_str(), encoding);
}

std::string Printable(const std::string& text) {
    std::string all;
    for (const char c : text) {
        if (c >= ' ' && c <= '~') {
            all += c;
        } else {
            std::array<char, 8> hex{};
            static_cast<void>(std::snprintf(hex.data(), hex.size(), "\\x%02X", static_cast<unsigned char>(c)));
            all += hex.data();
        }
    }
    return all;
}

// Holds a text with its spare bytes in front of a page that cannot be read.
class AtTheEndOfMemory {
public:
    AtTheEndOfMemory()
        : pageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          pages(mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        EXPECT_NE(pages, MAP_FAILED);
        EXPECT_EQ(mprotect(static_cast<char*>(pages) + pageSize, pageSize, PROT_NONE), 0);
    }

    ~AtTheEndOfMemory() { EXPECT_EQ(munmap(pages, 2 * pageSize), 0); }

    AtTheEndOfMemory(const AtTheEndOfMemory&) = delete;
    AtTheEndOfMemory& operator=(const AtTheEndOfMemory&) = delete;

    // The text may take a page.
    const char* put(const std::string& text) {
        const std::string whole = WithSpareBytes(text);
        char* place = static_cast<char*>(pages) + pageSize - whole.size();
        std::memcpy(place, whole.data(), whole.size());
        return place;
    }

private:
    size_t pageSize;
    void* pages;
};

// @return in how many encodings the text is refused.
size_t ExpectTheParsersAnswers(const std::string& text) {
    size_t refused = 0;
    for (const TiXmlEncoding encoding : Encodings) {
        const bool answer = RefusedWhenShallow(text, encoding);

        EXPECT_EQ(answer, ParserDepth(text, encoding) > ShallowDepth) << Printable(text) << " " << encoding;
        refused += answer ? 1 : 0;
    }
    return refused;
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == '|') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

// Texts of XML that mostly nest, with fragments thrown in that open, close or break something.
class Soup {
public:
    explicit Soup(unsigned seed) : random(seed) {}

    std::string make(size_t prefix) {
        std::string text;
        const unsigned noise = pick(4) * 6; // fragments in a hundred tokens: none in every fourth text
        for (size_t i = pick(4); i > 0; --i) {
            text += pick(100) < 2 * noise ? fragment() : prolog();
        }
        std::vector<std::string> open(prefix, "a");
        text += Repeated("<a>", prefix);
        for (size_t i = pick(40); i > 0; --i) {
            const unsigned choice = pick(100);
            if (choice < noise) {
                text += fragment();
            } else if (choice < 60) {
                static const std::vector<std::string> names = {"a", "b", "_c", "d:e-f.1", "\xE5\x8D\x8F"};
                static const std::vector<std::string> attributes = {"",      " x='>'",         " x=\"<a>\" y=1", "\n",
                                                                    " x=''", " \xC3\xA4='\t'", " x=&lt;"};
                open.push_back(names[pick(names.size())]);
                text += "<" + open.back() + attributes[pick(attributes.size())] + ">";
            } else if (choice < 80 && !open.empty()) {
                text += "</" + open.back() + ">";
                open.pop_back();
            } else {
                text += prolog();
            }
        }
        return text;
    }

private:
    unsigned pick(size_t count) { return static_cast<unsigned>(random() % count); }

    const std::string& prolog() {
        static const std::vector<std::string> all = {
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>",
            "<?xml version='1.0' encoding='gb2312'?>",
            "<?xml version='1.0' encoding='UTF-8859'?>",
            "<?xml version='1.0'?>",
            "<?XML encoding=utf8?>",
            "<!-- <a><a> -->",
            "<!DOCTYPE a>",
            "<?pi <b ?>",
            "<a/>",
            "<b x='<a>'/>",
            "\n ",
        };
        return all[pick(all.size())];
    }

    const std::string& fragment() {
        static const std::vector<std::string> all =
            Split("<a>|<b>|</a>|</b>|</|<a x=\"|<a x='|\"|'|>|/>|<|<!--|-->|--|<![CDATA[|]]>|<?xml|?>|<!|"
                  "<?|=| x=1| y='<a>'|<a x=1/>|<a x=1\">|<a x=1 x=2>|<a x>|<a/ >|< a>|<-a>|text|&|&lt;|"
                  "&amp;|&#65;|&#x41;|&#xZZ;|&#x|&#|x41;|#65;|;|&#;|&#x;|\xEF\xBB\xBF|\xEF\xBF\xBE|"
                  "\xEF\xBF\xBF|<\xEF\xBB\xBF\x61>|\xC3|\xE5|\xF0|\xF5|\xC1|\x80|\x7F|\xE5\x8D\x8F|"
                  "<\xE5\x8D>|<a \xF0>|\t|</a >|</a\n>|</ab>|<a:b.c-d/>|<_>|<1>|<\x7F>|<a\xF0 x='1'>|\v|"
                  "<a x='\xE5'>|<?xml encoding='|<?xml encoding='utf-8'|<![CDATA[<a>]]>");
        return all[pick(all.size())];
    }

    std::mt19937 random;
};

struct Decoy {
    const char* name;
    std::string text;
};

// Each holds 6,000 times what looks like an element's start and is none, or none that the parser ever reaches.
std::vector<Decoy> Decoys() {
    const std::string many = Repeated("<a>", 6000);
    return {
        {"a comment before the root", "<!-- " + many + " --><r/>"},
        {"a comment inside the root", "<r><!-- " + many + " --></r>"},
        {"a comment that never ends", "<r><!-- " + many},
        {"a comment that starts like one that ends", "<r><!-->" + many + "--></r>"},
        {"a CDATA section", "<r><![CDATA[" + many + "]]></r>"},
        {"a CDATA section that never ends", "<r><![CDATA[" + many},
        {"a CDATA section on the top level", "<![CDATA[" + many + "]]><r/>"},
        {"a declaration's value", "<?xml version='" + many + "' encoding=\"" + many + "\"?><r/>"},
        {"a declaration inside the root", "<r><?xml standalone='" + many + "'?></r>"},
        {"a declaration's value that never ends", "<?xml version='" + many},
        {"an unknown node with an exclamation mark", "<!DOCTYPE " + Repeated("<a", 6000) + "><r/>"},
        {"an unknown node with a question mark", "<r><?go " + Repeated("<a", 6000) + "?></r>"},
        {"an unknown node that never ends", "<r><!" + Repeated("<a", 6000)},
        {"many unknown nodes",
         "<r>" + Repeated("<!a>", 6000) + Repeated("<?a>", 6000) + Repeated("<1>", 6000) + "</r>"},
        {"end tags on the top level", Repeated("</a>", 6000)},
        {"a value in double quotes", "<r x=\"" + many + "\"/>"},
        {"a value in single quotes", "<r x='" + many + "'/>"},
        {"a value with the other quotes in it", "<r x='\"' y=\"'" + many + "\"/>"},
        {"a value that never ends", "<r x='" + many},
        {"a value without quotes that never ends", "<r x=" + Repeated("<a", 6000)},
        {"empty siblings", "<r>" + Repeated("<a/>", 6000) + "</r>"},
        {"empty siblings with attributes", "<r>" + Repeated("<a x='>' y=1/>", 6000) + "</r>"},
        {"siblings with an end tag", "<r>" + Repeated("<a></a>", 6000) + "</r>"},
        {"siblings with text and an end tag in two lines", "<r>" + Repeated("<a>text</a\n>", 6000) + "</r>"},
        {"siblings on the top level", Repeated("<a></a>", 6000)},
        {"behind a text on the top level", "text" + many},
        {"behind a text between the roots", "<r/>text" + many},
        {"behind a wrong end tag", "<r></s>" + many},
        {"behind an end tag with more than the name", "<r></rs>" + many},
        {"behind an end tag with an attribute", "<r></r x='1'>" + many},
        {"behind a doubled attribute", "<r x='1' x='2'>" + many},
        {"behind an attribute without a value", "<r x>" + many},
        {"behind an attribute without a name", "<r ='1'>" + many},
        {"behind a value with a quote at its end", "<r x=1'>" + many},
        {"behind a slash that does not end a tag", "<r/ >" + many},
        {"behind a bad hexadecimal reference", "<r>&#xZZ;" + many},
        {"behind a bad decimal reference", "<r>&#Z;" + many},
        {"behind a reference without an end", "<r>&#65" + many},
        {"behind a hexadecimal reference without an end", "<r>&#x41" + many},
        {"behind a bad reference in a value", "<r x='&#xZZ;'>" + many},
        {"behind a declaration that stops", "<?xml version ?>" + many},
        {"behind a declaration that never ends", "<?xml " + Repeated("<a ", 6000)},
        {"inside a reference that ends far away", "<r>&#x" + many + "x41;</r>"},
        {"inside a decimal reference that ends far away", "<r>&#" + many + "#65;</r>"},
        {"inside a reference in a value", "<r x='&#x'>" + many + "x41;'/>"},
        {"inside a name", "<r" + Repeated("a:b", 6000) + "/>"},
    };
}

struct EncodingDecoy {
    const char* name;
    std::string text;
    bool asUnknown;
    bool asUtf8;
    bool asLegacy;
};

} // namespace

TEST(XmlNestingLimitTest, FiveThousandElementsInsideOneAnotherAreAccepted) {
    for (const TiXmlEncoding encoding : Encodings) {
        EXPECT_FALSE(Refused(Nested(5000), encoding)) << encoding;
    }
    EXPECT_EQ(ParserDepth(Nested(5000), TIXML_ENCODING_UTF8), 5000U);
}

TEST(XmlNestingLimitTest, FiveThousandAndOneElementsInsideOneAnotherAreRefused) {
    for (const TiXmlEncoding encoding : Encodings) {
        EXPECT_TRUE(Refused(Nested(5001), encoding)) << encoding;
    }
    EXPECT_EQ(ParserDepth(Nested(5001), TIXML_ENCODING_UTF8), 5001U);
}

TEST(XmlNestingLimitTest, AnEmptyElementCountsLikeAnOpenOne) {
    EXPECT_FALSE(Refused(Repeated("<a>", 4999) + "<b/>", TIXML_ENCODING_UTF8));
    EXPECT_TRUE(Refused(Repeated("<a>", 5000) + "<b/>", TIXML_ENCODING_UTF8));
}

// A parse of such a text would overflow the stack, or take hours.
TEST(XmlNestingLimitTest, AMillionElementsInsideOneAnotherAreRefusedAtOnce) {
    const std::string text = WithSpareBytes(Nested(1000000));
    const std::clock_t start = std::clock();

    for (const TiXmlEncoding encoding : Encodings) {
        EXPECT_TRUE(NestsTooDeep(text.c_str(), encoding)) << encoding;
    }

    EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

TEST(XmlNestingLimitTest, AnEmptyTextIsAccepted) {
    for (const TiXmlEncoding encoding : Encodings) {
        for (const char* text : {"", " ", "\n\t", "<", "\xEF\xBB\xBF", "\xF0"}) {
            EXPECT_FALSE(Refused(text, encoding)) << Printable(text);
        }
    }
}

TEST(XmlNestingLimitTest, WhatOnlyLooksLikeElementsIsAccepted) {
    for (const Decoy& decoy : Decoys()) {
        for (const TiXmlEncoding encoding : Encodings) {
            EXPECT_FALSE(Refused(decoy.text, encoding)) << decoy.name << ", encoding " << encoding;
            EXPECT_LE(ParserDepth(decoy.text, encoding), MaxElementDepth) << decoy.name << " is no decoy";
        }
    }
}

TEST(XmlNestingLimitTest, DepthIsSeenBehindWhatOnlyLooksLikeAnEndOfIt) {
    const std::string deep = Repeated("<a>", ShallowDepth + 1);
    const std::vector<Decoy> cases = {
        {"a comment", "<!-- -- > --><r><!--></r>-->" + deep},
        {"an empty comment", "<r><!---->" + deep},
        {"a comment that starts like its end", "<r><!---><s>-->" + Repeated("<a>", ShallowDepth)},
        {"an empty CDATA section", "<r><![CDATA[]]>" + deep},
        {"a CDATA section", "<r><![CDATA[</r><!--]]>" + deep},
        {"a declaration", "<?xml version='<!--'?><r><?xml version=\"'\"?>" + deep},
        {"an instruction whose name is the beginning of the declaration's", "<?xm version='1'?><r><?xm?>" + deep},
        {"unknown nodes", "<!DOCTYPE '><?go \"><r></r ><r>" + deep},
        {"values", "<r x='/>' y=\"</r>\" z=a&amp;b>" + deep},
        {"values without quotes in front of others", "<r v=1 w='2' x=3\ty=\"4\" z=5\n>" + deep},
        {"white space around an equals sign", "<r x = '1' y\n=\t\"2\" z\r=3 >" + deep},
        {"text with references", "<r>&lt;/r&gt; &#65; &#x41; & &unknown;" + deep},
        {"closed siblings", "<r>" + Repeated("<b></b>", 6000) + deep},
        {"a closed root", "<r></r>" + deep},
        {"white space", " \n\t<r> \r\n" + deep},
    };
    for (const Decoy& c : cases) {
        for (const TiXmlEncoding encoding : Encodings) {
            EXPECT_TRUE(RefusedWhenShallow(c.text, encoding)) << c.name << ", encoding " << encoding;
        }
    }
}

// The parser looks for the ";" of a numeric reference as far as the text goes, and reads its digits back from there to
// the nearest "x" or "#": quotes, tags and comments between are part of the reference.
TEST(XmlNestingLimitTest, DepthIsSeenBehindAReferenceThatSwallowsMarkup) {
    const std::string deep = Repeated("<a>", MaxElementDepth + 1);
    const std::vector<Decoy> cases = {
        {"a quote, hexadecimal", "<r x=\"&#x\" 'x41;\">" + deep},
        {"a quote, decimal", "<r x=\"&#\" '#65;\">" + deep},
        {"the start of a comment", "<r>&#x<!-- x41;" + deep},
        {"a wrong end tag", "<r>&#x</s>x41;" + deep},
        {"as many elements as the limit", "<r>&#x" + deep + "x41;" + deep},
    };
    for (const Decoy& c : cases) {
        EXPECT_TRUE(Refused(c.text, TIXML_ENCODING_UTF8)) << c.name;
    }
}

TEST(XmlNestingLimitTest, TheEncodingDecidesWhatAByteSwallows) {
    const std::string deep = Repeated("<a>", 2 * ShallowDepth);
    const std::string quoted = "<r x=\"\xE5\">" + deep + "\"/>";
    const std::string tag = "<r>\xF0<!--" + deep;
    const std::vector<EncodingDecoy> cases = {
        {"a quote", quoted, true, false, true},
        {"a quote behind two bytes", "<r x=\"\xC3\">" + deep + "\"/>", true, false, true},
        {"the start of a comment", tag, false, true, false},
        {"a quote, declared UTF-8", "<?xml encoding='utf-8'?>" + quoted, false, false, true},
        {"a quote, declared UTF8", "<?xml encoding='UTF8'?>" + quoted, false, false, true},
        {"a quote, declared without an encoding", "<?xml version='1.0'?>" + quoted, false, false, true},
        {"a quote, declared GB2312", "<?xml encoding='gb2312'?>" + quoted, true, false, true},
        {"a quote, declared with the beginning of UTF-8", "<?xml encoding='UTF-8859'?>" + quoted, false, false, true},
        {"a quote, declared UTF-16", "<?xml encoding='UTF-16'?>" + quoted, true, false, true},
        {"a quote, declared UTF16", "<?xml encoding='UTF16'?>" + quoted, true, false, true},
        {"a quote, declared with a name outside ASCII", "<?xml encoding='\xC3\xBC'?>" + quoted, true, false, true},
        {"a quote, declared twice", "<?xml encoding='gb2312'?><?xml encoding='utf-8'?>" + quoted, true, false, true},
        {"a quote, declared inside an element", "<s><?xml encoding='utf-8'?></s>" + quoted, true, false, true},
        {"a quote, declared behind an element", "<s/><?xml encoding='utf-8'?>" + quoted, false, false, true},
        {"a quote, with a byte-order mark", "\xEF\xBB\xBF" + quoted, false, false, false},
        {"the start of a comment, with a byte-order mark", "\xEF\xBB\xBF" + tag, true, true, false},
        {"a byte-order mark for white space", "<r>\xEF\xBB\xBF\xEF\xBF\xBE\xEF\xBF\xBF" + deep, true, true, true},
        {"a name of byte 127, which counts as a letter", Repeated("<\x7F>", 2 * ShallowDepth), true, true, true},
        {"a byte-order mark in front of a name", Repeated("<\xEF\xBB\xBF\x61>", 2 * ShallowDepth), true, true, true},
    };
    for (const EncodingDecoy& c : cases) {
        EXPECT_EQ(RefusedWhenShallow(c.text, TIXML_ENCODING_UNKNOWN), c.asUnknown) << c.name << ", unknown";
        EXPECT_EQ(RefusedWhenShallow(c.text, TIXML_ENCODING_UTF8), c.asUtf8) << c.name << ", UTF-8";
        EXPECT_EQ(RefusedWhenShallow(c.text, TIXML_ENCODING_LEGACY), c.asLegacy) << c.name << ", legacy";
    }
}

// A text may end anywhere, inside a sequence of UTF-8 too.
TEST(XmlNestingLimitTest, NothingBehindTheSpareBytesIsRead) {
    AtTheEndOfMemory memory;
    // Walked over, as so many tags of elements that are not empty may pass the limit.
    const std::string enough = "<r>" + Repeated("<a></a>", ShallowDepth);
    const std::string last = "<?xml version='1.0' encoding='utf-8'?>text &#65; &#x4a;<b c='&#65;' d=\"\xE5\x8D\x8F\" "
                             "e=1 /><!--x--><!x><![CDATA[x]]>"
                             "</b >\xEF\xBB\xBF <\xEF\xBF\xBE";
    for (const TiXmlEncoding encoding : Encodings) {
        for (size_t length = 0; length <= last.size(); ++length) {
            for (const char* end : {"", "\xC3", "\xE5", "\xF0", "&#", "&#x"}) {
                const std::string text = enough + last.substr(0, length) + end;
                EXPECT_FALSE(NestsDeeperThanShallow(memory.put(text), encoding)) << Printable(text);
            }
        }
    }
}

TEST(XmlNestingLimitTest, DepthIsSeenBehindATagThatStartsWithAnyByte) {
    size_t refused = 0;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string tag = std::string("<") + static_cast<char>(byte) + ">";
        refused += ExpectTheParsersAnswers(tag + Repeated("<a>", ShallowDepth + 1));
    }
    EXPECT_GT(refused, 0U);
}

TEST(XmlNestingLimitTest, DepthIsSeenBehindAValueWithoutQuotesThatHoldsAnyByte) {
    const std::string deep = Repeated("<a>", ShallowDepth + 1);
    size_t refused = 0;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string any(1, static_cast<char>(byte));
        for (const std::string& value : {any, any + "1", "1" + any, any + "1" + any}) {
            refused += ExpectTheParsersAnswers("<r x=" + value + " y='2'>" + deep);
            refused += ExpectTheParsersAnswers("<r x=" + value + ">" + deep);
        }
    }
    EXPECT_GT(refused, 0U);
}

// The byte may be the first of two, three or four, and then takes a "<" behind it along: that of an element, which is one
// level less, or that of a comment without an end, which hides the depth no longer.
TEST(XmlNestingLimitTest, DepthIsSeenBehindAnyByteWhateverItTakesAlong) {
    const std::array<std::string, 2> ends = {Repeated("<a>", ShallowDepth), "<!--" + Repeated("<a>", ShallowDepth + 1)};
    for (const std::string& end : ends) {
        size_t refused = 0;
        for (int byte = 1; byte < 256; ++byte) {
            for (size_t between = 0; between < 4; ++between) {
                const std::string text = std::string("<r>") + static_cast<char>(byte) + std::string(between, '.') + end;
                refused += ExpectTheParsersAnswers(text);
            }
        }
        EXPECT_GT(refused, 0U) << end;
    }
}

// It is hexadecimal with an "x" only, and then reaches back to an "x"; else to a "#".
TEST(XmlNestingLimitTest, DepthIsSeenBehindAReferenceThatStartsWithAnyByte) {
    const std::string deep = Repeated("<a>", ShallowDepth + 1);
    for (const char* rest : {";", "65;", "aF;", "#65;", "x4a;", "<!--#65;", "<!--x4a;"}) {
        size_t refused = 0;
        for (int byte = 1; byte < 256; ++byte) {
            const std::string text = std::string("<r>&#") + static_cast<char>(byte) + rest + deep;
            refused += ExpectTheParsersAnswers(text);
        }
        EXPECT_GT(refused, 0U) << rest;
    }
}

TEST(XmlNestingLimitTest, OnlyAnAmpersandAndAHashMakeAReferenceThatCanHideDepth) {
    const std::string deep = Repeated("<a>", ShallowDepth + 1);
    size_t refused = 0;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string any(1, static_cast<char>(byte));
        refused += ExpectTheParsersAnswers("<r>" + any + "#1" + deep);
        refused += ExpectTheParsersAnswers("<r>&" + any + "1" + deep);
    }
    EXPECT_GT(refused, 0U);
}

TEST(XmlNestingLimitTest, ATextThatEndsInATagIsRefusedForNothingThatIsNoLongerThere) {
    const std::string flat = Repeated("<a></a>", ShallowDepth);
    for (const char* end : {"<a", "<a ", "<a x", "<a x=", "<a x=0", "<a x='0", "<a x='0'", "<a/"}) {
        EXPECT_FALSE(RefusedWhenShallow("<a>" + flat + end, TIXML_ENCODING_UTF8)) << end;
    }
}

// A slash right before the end makes an empty element, but not one that belongs to a value, or stands further off.
TEST(XmlNestingLimitTest, DepthIsSeenInTagsWhateverStandsBeforeTheirEnd) {
    for (const char* tag : {"<a>", "<a>/", "<a >", "<a\n>", "<a x='/'>", "<a x=\"/\">", "<a x='1' >", "<a x=0>",
                            "<a x='/>'>", "<a x='>'>", "<a-.:>"}) {
        for (const TiXmlEncoding encoding : Encodings) {
            EXPECT_FALSE(RefusedWhenShallow(Repeated(tag, ShallowDepth), encoding)) << tag << " " << encoding;
            EXPECT_TRUE(RefusedWhenShallow(Repeated(tag, ShallowDepth) + "<b/>", encoding)) << tag << " " << encoding;
        }
    }
}

// In the name such a byte stands for itself; as a character of a text it would take the next "<" along.
TEST(XmlNestingLimitTest, DepthIsSeenBehindNamesThatEndInAnyByte) {
    size_t refused = 0;
    for (int byte = 1; byte < 256; ++byte) {
        const std::string name = std::string("a") + static_cast<char>(byte);
        refused += ExpectTheParsersAnswers(Repeated("<" + name + ">", ShallowDepth + 1));
    }
    EXPECT_GT(refused, 0U);
}

TEST(XmlNestingLimitTest, DepthIsSeenBehindACharacterOfEveryLength) {
    for (const char* character : {"a", "\xC3\xBC", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80"}) {
        const std::string text = Repeated(std::string("<a>") + character, ShallowDepth + 1);

        for (const TiXmlEncoding encoding : Encodings) {
            EXPECT_TRUE(RefusedWhenShallow(text, encoding)) << Printable(character) << " " << encoding;
        }
    }
}

// For each tag and text its memory and the way up to the root, for each attribute its memory and those of its element before
// it, and as much again for the end of the tag.
TEST(XmlNestingLimitTest, TheCostOfAParseGrowsWithDepthAndWithTheAttributesOfAnElement) {
    const auto cost = [](const std::string& text) {
        return CostOfParsing(WithSpareBytes(text).c_str(), TIXML_ENCODING_UTF8);
    };
    EXPECT_EQ(cost(""), 0U);
    EXPECT_EQ(StepsForMemory, 256U);
    EXPECT_EQ(cost("<!--c-->"), 256U);
    EXPECT_EQ(cost("<a/>"), 512U);
    EXPECT_EQ(cost("<a/><b/><!--c-->"), 512U + 512U + 256U);
    EXPECT_EQ(cost("<a></a>"), 512U + 257U);
    EXPECT_EQ(cost("<a><b/>text</a>"), 512U + 513U + 257U + 257U);
    EXPECT_EQ(cost("<a><b><c/></b></a>"), 512U + 513U + 514U + 258U + 257U);
    EXPECT_EQ(cost("<a x=''/>"), 512U + 257U);
    EXPECT_EQ(cost("<a x='' y='' z=''/>"), 512U + 257U + 258U + 259U);
    EXPECT_EQ(cost("<a></a>text<b/>"), 512U + 257U + 256U) << "what stands behind an error is not parsed";
}

TEST(XmlNestingLimitTest, TheBytesOfAByteOrderMarkAreANameInATextThatIsNotUtf8) {
    const std::string text = Repeated("<\xEF\xBB\xBF>", ShallowDepth + 1);

    EXPECT_TRUE(RefusedWhenShallow(text, TIXML_ENCODING_LEGACY));
    EXPECT_TRUE(RefusedWhenShallow(text, TIXML_ENCODING_UNKNOWN));
    EXPECT_FALSE(RefusedWhenShallow(text, TIXML_ENCODING_UTF8))
        << "there they are white space, and an element without a name";
}

// At the real limit: the first declaration switches the parse to UTF-8, where E5 takes the quote along.
TEST(XmlNestingLimitTest, WhatAByteSwallowsBehindTheFirstDeclarationIsAccepted) {
    const std::string value = "<r x=\"\xE5\">" + Repeated("<a>", 6000) + "\"/>";

    EXPECT_FALSE(Refused("<?xml encoding='utf-8'?>" + value, TIXML_ENCODING_UNKNOWN));
    EXPECT_TRUE(Refused("<?xml encoding='gb2312'?>" + value, TIXML_ENCODING_UNKNOWN));
}

// By the seed of five hundred texts, so that each of these tests is a quick one.
class XmlNestingLimitSoupTest : public testing::TestWithParam<unsigned> {};

TEST_P(XmlNestingLimitSoupTest, TheAnswerIsThatOfTheParser) {
    Soup soup(GetParam());
    size_t refused = 0;
    size_t accepted = 0;
    for (size_t i = 0; i < 500; ++i) {
        const std::string text = soup.make(i % (ShallowDepth + 3));
        for (const TiXmlEncoding encoding : Encodings) {
            const bool expected = ParserDepth(text, encoding) > ShallowDepth;

            const bool answer = RefusedWhenShallow(text, encoding);

            ASSERT_EQ(answer, expected) << "text " << i << ", encoding " << encoding << ": " << Printable(text);
            ++(answer ? refused : accepted);
        }
    }
    EXPECT_GT(refused, 250U) << "the texts are too shallow to tell anything";
    EXPECT_GT(accepted, 250U) << "the texts are too deep to tell anything";
}

INSTANTIATE_TEST_SUITE_P(Seeds, XmlNestingLimitSoupTest, testing::Range(0U, 40U));

TEST(XmlNestingLimitTest, TheAnswerIsThatOfTheParserAtTheRealLimitToo) {
    Soup soup(7);
    size_t refused = 0;
    constexpr size_t Texts = 6;
    for (size_t i = 0; i < Texts; ++i) {
        const std::string text = soup.make(MaxElementDepth - 6);
        const TiXmlEncoding encoding = Encodings[i % Encodings.size()];
        const bool expected = ParserDepth(text, encoding) > MaxElementDepth;

        const bool answer = Refused(text, encoding);

        EXPECT_EQ(answer, expected) << "text " << i << ", encoding " << encoding;
        refused += answer ? 1 : 0;
    }
    EXPECT_GT(refused, 0U);
    EXPECT_LT(refused, Texts);
}
