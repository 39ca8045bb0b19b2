#include "fuzz/LibraryConversion.h"

#include "fuzz/Check.h"

#include <cerrno>
#include <cstddef>

// GNU libiconv's own functions by the names they have in its objects: its header would rename the C library's.
extern "C" {
void* libiconv_open(const char* toCode, const char* fromCode);
size_t libiconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int libiconv_close(void* descriptor);
}

const char* LibraryNameOf(uint32_t charset) {
    if (charset == 0) {
        return "gb2312";
    }
    if (charset == 1) {
        return "utf-8";
    }
    return charset == 3 ? "utf-16" : "gbk";
}

std::string ConvertInSteps(const std::string& text, uint32_t from, uint32_t to) {
    void* descriptor = libiconv_open(LibraryNameOf(to), LibraryNameOf(from));
    Check(descriptor != reinterpret_cast<void*>(-1), "the library refuses one of the four sets");
    std::string input = text;
    char* in = input.data();
    size_t inLeft = input.size();
    std::string all;
    for (;;) {
        char piece[8];
        char* out = piece;
        size_t outLeft = sizeof piece;
        const size_t result = libiconv(descriptor, &in, &inLeft, &out, &outLeft);
        all.append(piece, out);
        if (result != static_cast<size_t>(-1) || errno != E2BIG) {
            break;
        }
    }
    Check(libiconv_close(descriptor) == 0, "the library does not close");
    return all;
}
