#include "xmlconfig/XmlNestingLimit.h"

#include <strings.h>
#include <tinyxml.h>

#include <cctype>
#include <cstring>
#include <string>

namespace {

// Walks over a text as TinyXML's parser does, token by token, and counts the open elements. It need not see every error
// that stops the parser (a wrong end tag, a doubled attribute), but up to the parser's first error both are at the same
// tokens: so the parser never goes deeper than the walk. All pointers may stand up to three bytes behind the terminator,
// on the spare zero bytes; a null pointer means that the walk is over.
class NestingWalk {
public:
    NestingWalk(const char* text, TiXmlEncoding parseEncoding) : next(text), encoding(parseEncoding) {
        // The parser takes a byte-order mark as the sign of UTF-8 when it was not told an encoding.
        if (encoding == TIXML_ENCODING_UNKNOWN && std::strncmp(text, "\xEF\xBB\xBF", 3) == 0) {
            encoding = TIXML_ENCODING_UTF8;
        }
    }

    // Returns the start of the first element beyond `limit`, or null when there is none.
    const char* findBeyond(size_t limit) {
        for (next = skipWhiteSpace(next); *next != '\0'; next = skipWhiteSpace(next)) {
            steps += StepsForMemory + depth;
            if (*next != '<') {
                // Text between elements; on the top level it ends the parse.
                next = depth == 0 ? nullptr : skipText(next);
            } else if (depth > 0 && next[1] == '/') {
                --depth;
                next = skipPast(next, ">");
            } else if (isElement(next)) {
                if (depth == limit) {
                    return next;
                }
                next = skipStartTag(next);
            } else {
                next = skipOther(next);
            }
            if (next == nullptr) {
                return nullptr;
            }
        }
        return nullptr;
    }

    // What the parser did for the nodes walked over: the way up to the root for each, the attributes in front for each, and
    // their memory.
    size_t parserSteps() const { return steps; }

private:
    static bool isWhiteSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

    // Every byte from 127 on counts as a letter.
    static bool isNameStart(char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 127 || std::isalpha(byte) != 0 || c == '_';
    }

    static bool isNamePart(char c) {
        return isNameStart(c) || std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == ':';
    }

    static bool startsWith(const char* p, const char* word) { return std::strncmp(p, word, std::strlen(word)) == 0; }

    static const char* skipPast(const char* p, const char* end) {
        const char* found = std::strstr(p, end);
        return found == nullptr ? nullptr : found + std::strlen(end);
    }

    static bool isElement(const char* p) { return isNameStart(p[1]); }

    // In UTF-8 the byte-order mark and the two non-characters U+FFFE and U+FFFF count as white space.
    // Called from five places, inlined it would be half a kilobyte.
    [[gnu::noinline]] const char* skipWhiteSpace(const char* p) const {
        for (;;) {
            if (isWhiteSpace(*p)) {
                ++p;
            } else if (encoding == TIXML_ENCODING_UTF8 &&
                       (startsWith(p, "\xEF\xBB\xBF") || startsWith(p, "\xEF\xBF\xBE") ||
                        startsWith(p, "\xEF\xBF\xBF"))) {
                p += 3;
            } else {
                return p;
            }
        }
    }

    // In UTF-8 the first byte decides how many are stepped over, whatever they are, a quote or a "<" too.
    const char* skipCharacter(const char* p) const {
        const auto byte = static_cast<unsigned char>(*p);
        if (encoding != TIXML_ENCODING_UTF8 || byte < 0xC2 || byte > 0xF4) {
            return p + 1;
        }
        if (byte < 0xE0) {
            return p + 2;
        }
        return p + (byte < 0xF0 ? 3 : 4);
    }

    // A numeric reference reaches to the next ";", wherever that is. The parser checks its digits backwards from there
    // to the nearest "x" or "#" and steps over all that stands before those unseen, a quote or a "<" too. Null where
    // the parser gives up. (A named reference holds neither of the characters looked for, so it is walked over like
    // any text.)
    static const char* skipNumericReference(const char* p) {
        const bool isHex = p[2] == 'x';
        const char* end = std::strchr(p + (isHex ? 3 : 2), ';');
        if (end == nullptr) {
            return nullptr;
        }
        for (const char* q = end - 1; *q != (isHex ? 'x' : '#'); --q) {
            const auto digit = static_cast<unsigned char>(*q);
            if (!static_cast<bool>(isHex ? std::isxdigit(digit) : std::isdigit(digit))) {
                return nullptr;
            }
        }
        return end + 1;
    }

    // Stops at `end` or at the end of the text.
    [[gnu::noinline]] const char* skipUntil(const char* p, char end) const {
        while (p != nullptr && *p != '\0' && *p != end) {
            const bool isNumericReference = *p == '&' && p[1] == '#' && p[2] != '\0';
            p = isNumericReference ? skipNumericReference(p) : skipCharacter(p);
        }
        return p;
    }

    const char* skipText(const char* p) const { return skipUntil(p, '<'); }

    static const char* skipName(const char* p) {
        if (!isNameStart(*p)) {
            return nullptr;
        }
        while (isNamePart(*p)) {
            ++p;
        }
        return p;
    }

    const char* skipAttribute(const char* p) const {
        p = skipName(p);
        if (p == nullptr) {
            return nullptr;
        }
        p = skipWhiteSpace(p);
        if (*p != '=') {
            return nullptr;
        }
        p = skipWhiteSpace(p + 1);
        if (*p == '"' || *p == '\'') {
            const char* end = skipUntil(p + 1, *p);
            return end == nullptr || *end == '\0' ? nullptr : end + 1;
        }
        // A value without quotes ends at white space or at the end of the tag.
        while (*p != '\0' && !isWhiteSpace(*p) && *p != '/' && *p != '>') {
            if (*p == '"' || *p == '\'') {
                return nullptr;
            }
            ++p;
        }
        return p;
    }

    const char* skipStartTag(const char* p) {
        p = skipName(skipWhiteSpace(p + 1));
        for (size_t attributes = 0; p != nullptr; ++attributes) {
            steps += StepsForMemory + attributes;
            p = skipWhiteSpace(p);
            if (*p == '>') {
                ++depth;
                return p + 1;
            }
            if (*p == '/') {
                return p[1] == '>' ? p + 2 : nullptr;
            }
            p = skipAttribute(p);
        }
        return nullptr;
    }

    // Everything that starts with "<" and is no element.
    const char* skipOther(const char* p) {
        if (strncasecmp(p, "<?xml", 5) == 0) {
            return skipDeclaration(p);
        }
        if (startsWith(p, "<!--")) {
            return skipPast(p + 4, "-->");
        }
        if (startsWith(p, "<![CDATA[")) {
            return skipPast(p + 9, "]]>");
        }
        return skipPast(p, ">");
    }

    // The first declaration on the top level decides the encoding of a parse that was not told one, by the library's
    // own rule (a prefix, ignoring case), so the library reads it.
    const char* skipDeclaration(const char* p) {
        TiXmlDeclaration declaration;
        p = declaration.Parse(p, nullptr, encoding);
        if (depth == 0 && encoding == TIXML_ENCODING_UNKNOWN) {
            const char* name = declaration.Encoding();
            const bool isUtf8 =
                *name == '\0' || strncasecmp(name, "UTF-8", 5) == 0 || strncasecmp(name, "UTF8", 4) == 0;
            encoding = isUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
        }
        return p;
    }

    const char* next;
    TiXmlEncoding encoding;
    size_t depth = 0; // open elements
    size_t steps = 0;
};

// Whether so many elements could stand open in the text: the start tag of each ends in a ">" with no "/" before it, which
// only an empty element has. None ends in the first character.
bool MayHaveOpen(size_t count, const char* text) {
    for (const char* p = std::strchr(text + 1, '>'); p != nullptr; p = std::strchr(p + 1, '>')) {
        if (p[-1] != '/' && --count == 0) {
            return true;
        }
    }
    return false;
}

// Whether a parse of the text up to `place`, where one more element follows, arrives there inside `depth` elements.
bool ParserReaches(const char* text, const char* place, TiXmlEncoding encoding, size_t depth) {
    std::string probe(text, place);
    probe += "<x/>";
    probe.append(SpareBytes, '\0');
    TiXmlDocument document;
    document.SetTabSize(0);
    document.Parse(probe.c_str(), nullptr, encoding);

    // An element that was open at the end is the last child of the one around it, and the probe that of the innermost.
    size_t found = 0;
    for (const TiXmlNode* node = document.LastChild(); node != nullptr && node->ToElement() != nullptr;
         node = node->LastChild()) {
        ++found;
    }
    return found > depth;
}

} // namespace

bool NestsTooDeep(const char* text, int encoding) {
    // A configuration's entries are empty elements, so that even one of 20,000 entries is not walked over: the walk
    // would take a third of the parse's time.
    if (!MayHaveOpen(MaxElementDepth, text)) {
        return false;
    }
    const auto parseEncoding = static_cast<TiXmlEncoding>(encoding);
    const char* place = NestingWalk(text, parseEncoding).findBeyond(MaxElementDepth);
    return place != nullptr && ParserReaches(text, place, parseEncoding, MaxElementDepth);
}

size_t CostOfParsing(const char* text, int encoding) {
    NestingWalk walk(text, static_cast<TiXmlEncoding>(encoding));
    static_cast<void>(walk.findBeyond(MaxElementDepth));
    return walk.parserSteps();
}
