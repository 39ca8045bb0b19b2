#include "charset/CharSetConverter.h"

// The C library's iconv. Where a GNU libiconv is installed its header may come first in the compiler's path and rename
// the functions; then the C library's are declared here, as POSIX gives them.
#include <iconv.h>
#ifdef _LIBICONV_VERSION
#undef iconv_open
#undef iconv
#undef iconv_close
extern "C" {
iconv_t iconv_open(const char* toCode, const char* fromCode);
size_t iconv(iconv_t descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int iconv_close(iconv_t descriptor);
}
#endif

#include <cstdint>
#include <memory>
#include <new>
#include <string>

int32_t Utf8ToWideBuffer(const char* in, uint32_t inLen, wchar_t* out, uint32_t outBytes) {
    iconv_t descriptor = iconv_open("WCHAR_T", "UTF8");
    // NOLINTNEXTLINE(performance-no-int-to-ptr): POSIX defines the value by this cast.
    if (descriptor == reinterpret_cast<iconv_t>(-1)) {
        return -1; // no memory or no file descriptor; POSIX does not say what iconv does with the failed value
    }
    char* input = const_cast<char*>(in); // POSIX's prototype lacks the const; the input is only read
    size_t inLeft = inLen;
    auto* output = reinterpret_cast<char*>(out);
    size_t outLeft = outBytes;
    const auto result = static_cast<int32_t>(iconv(descriptor, &input, &inLeft, &output, &outLeft));
    static_cast<void>(iconv_close(descriptor)); // fails only for a descriptor that is not one
    return result;
}

int32_t Utf8ToWide(const std::string& in, std::wstring& out) {
    const auto inLen = static_cast<uint32_t>(in.length());
    // One byte of UTF-8 never yields more than one wide character, and one more stays zero as the terminator.
    const uint32_t elements = inLen + 1;
    // The length is any 32-bit number, and the sum wraps.
    // cppcheck-suppress knownConditionTrueFalse
    if (static_cast<int32_t>(elements) < 0) {
        throw std::bad_array_new_length();
    }
    const std::unique_ptr<wchar_t[]> wide(new wchar_t[elements]());
    const int32_t result = Utf8ToWideBuffer(in.data(), inLen, wide.get(), elements * uint32_t{sizeof(wchar_t)});
    if (result < 0) {
        out.clear();
    } else {
        out = wide.get();
    }
    return result;
}
