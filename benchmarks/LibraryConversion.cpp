#include "benchmarks/LibraryConversion.h"

// Both libraries' functions by the names that they have in the objects: GNU libiconv's header would rename the C
// library's.
extern "C" {
void* libiconv_open(const char* toCode, const char* fromCode);
size_t libiconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int libiconv_close(void* descriptor);
void* iconv_open(const char* toCode, const char* fromCode);
size_t iconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int iconv_close(void* descriptor);
}

size_t ConvertByGnuLibiconv(const char* from, const char* to, const std::string& text, char* out, size_t room) {
    void* const descriptor = libiconv_open(to, from);
    if (descriptor == reinterpret_cast<void*>(-1)) {
        return static_cast<size_t>(-1);
    }
    char* in = const_cast<char*>(text.data());
    size_t inLeft = text.size();
    size_t outLeft = room;
    const size_t result = libiconv(descriptor, &in, &inLeft, &out, &outLeft);
    libiconv_close(descriptor);
    return result == static_cast<size_t>(-1) ? result : room - outLeft;
}

size_t ConvertByCLibrary(const char* from, const char* to, const std::string& text, char* out, size_t room) {
    void* const descriptor = iconv_open(to, from);
    if (descriptor == reinterpret_cast<void*>(-1)) {
        return static_cast<size_t>(-1);
    }
    char* in = const_cast<char*>(text.data());
    size_t inLeft = text.size();
    size_t outLeft = room;
    const size_t result = iconv(descriptor, &in, &inLeft, &out, &outLeft);
    iconv_close(descriptor);
    return result == static_cast<size_t>(-1) ? result : room - outLeft;
}
