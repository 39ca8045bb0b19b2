#include "xmlconfig/XmlWorkingText.h"

#include "xmlconfig/XmlNestingLimit.h"

#include <strings.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstring>

std::unique_ptr<char[]> MakeWorkingText(const char* text, size_t length) {
    std::unique_ptr<char[]> buffer(new char[length + SpareBytes]);
    char* out = buffer.get();
    const char* const end = text + length;
    while (const auto* lineEnd = static_cast<const char*>(std::memchr(text, '\r', static_cast<size_t>(end - text)))) {
        out = std::copy(text, lineEnd, out);
        *out++ = '\n';
        text = lineEnd + (lineEnd[1] == '\n' ? 2 : 1); // at the end of the text the terminator follows
    }
    out = std::copy(text, end, out);
    std::memset(out, 0, SpareBytes);
    return buffer;
}

// The library itself compares only the beginning of the name ("UTF-8859" would be UTF-8 to it), which is why this is not
// left to it.
int DetectEncoding(const TiXmlDocument& document, const char* text) {
    if (std::strncmp(text, "\xEF\xBB\xBF", 3) == 0) {
        return TIXML_ENCODING_UNKNOWN;
    }
    for (const TiXmlNode* node = document.FirstChild(); node != nullptr; node = node->NextSibling()) {
        if (const TiXmlDeclaration* declaration = node->ToDeclaration()) {
            const char* name = declaration->Encoding();
            const bool isUtf8 = *name == '\0' || strcasecmp(name, "UTF-8") == 0 || strcasecmp(name, "UTF8") == 0;
            return isUtf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
        }
    }
    return TIXML_ENCODING_UNKNOWN;
}
