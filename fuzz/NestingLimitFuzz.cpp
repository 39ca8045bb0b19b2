// The check of nesting against the depth that TinyXML really reaches, at a limit so small that the parser can be asked.
//
// The first byte chooses the encoding of the parse (two bits), how many open elements stand in front (four bits), and
// whether the rest is text as it stands or, with bit 6 set, a list of indices into words of XML: there each byte opens,
// closes or breaks something.

#include "fuzz/Check.h"
#include "tests/support/ParserDepth.h"
#include "tests/xmlconfig/ShallowNestingLimit.h"

#include <tinyxml.h>

#include <array>
#include <cstdint>
#include <string>

namespace {

constexpr std::array<TiXmlEncoding, 4> Encodings = {TIXML_ENCODING_UTF8, TIXML_ENCODING_LEGACY, TIXML_ENCODING_UNKNOWN,
                                                    TIXML_ENCODING_UTF8};

constexpr std::array<const char*, 64> Words = {"<a>",
                                               "<b>",
                                               "</a>",
                                               "</b>",
                                               "</",
                                               "<a/>",
                                               "<a",
                                               ">",
                                               "/>",
                                               "<a x=\"",
                                               "<a x='",
                                               "\"",
                                               "'",
                                               "<",
                                               " x=1",
                                               " y='<a>'",
                                               " z=",
                                               "=",
                                               "<!--",
                                               "-->",
                                               "--",
                                               "<![CDATA[",
                                               "]]>",
                                               "<?xml ",
                                               "?>",
                                               "encoding=",
                                               "'utf-8'",
                                               "'utf8",
                                               "'gb2312'",
                                               "<!",
                                               "<?",
                                               "text",
                                               "&",
                                               "&lt;",
                                               "&#65;",
                                               "&#x41;",
                                               "&#x",
                                               "&#",
                                               "x41;",
                                               "#65;",
                                               ";",
                                               "Z",
                                               " ",
                                               "\n",
                                               "\t",
                                               "\v",
                                               "\xEF\xBB\xBF",
                                               "\xEF\xBF\xBE",
                                               "\xEF\xBF\xBF",
                                               "\xC3",
                                               "\xE5",
                                               "\xF0",
                                               "\xF5",
                                               "\xC1",
                                               "\x80",
                                               "\x7F",
                                               "_",
                                               ":",
                                               "-",
                                               ".",
                                               "1",
                                               "</a >",
                                               "</c>",
                                               "<\xE5\x8D\x8F>"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const TiXmlEncoding encoding = Encodings[data[0] & 3U];
    std::string text;
    for (unsigned i = (data[0] >> 2U) & 15U; i > 0; --i) {
        text += "<a>";
    }
    for (size_t i = 1; i < size; ++i) {
        if ((data[0] & 64U) != 0) {
            text += Words[data[i] % Words.size()];
        } else {
            text += static_cast<char>(data[i]);
        }
    }
    text = text.c_str(); // where the parser stops

    const bool refused = NestsDeeperThanShallow(WithSpareBytes(text).c_str(), encoding);

    Check(refused == (ParserDepth(text, encoding) > ShallowDepth), "the check differs from the parser");
    return 0;
}
