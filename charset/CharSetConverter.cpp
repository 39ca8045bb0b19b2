#include "charset/CharSetConverter.h"

#include "runtime/ConsoleLog.h"

// GNU libiconv's header, which renames iconv_open and its kin by macro. No other source file sees it: the C library's
// own functions of those names are needed beside it (Utf8ToWide.cpp).
#include <iconv.h>
#ifndef _LIBICONV_VERSION
#error "charset/CharSetConverter.cpp needs the header of GNU libiconv; the C library's own iconv has other tables"
#endif

#include <cerrno>
#include <memory>
#include <new>

namespace {

// No conversion among the four sets comes near it: the widest gives two bytes for one, and a byte-order mark of two.
constexpr uint64_t OutputBytesPerInputByte = 6;

// The library's second parameter is `const char**` or `char**`, as its ICONV_CONST was set when it was built. It never
// writes to the input.
class InputPointer {
public:
    explicit InputPointer(const char** pointer) noexcept : in(pointer) {}

    // Made for the one type that the library's header asks for.
    template <class Char>
    operator Char**() const noexcept { // NOLINT(google-explicit-constructor)
        return const_cast<Char**>(in);
    }

private:
    const char** in;
};

iconv_t FailedOpen() noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): POSIX defines the value by this cast.
    return reinterpret_cast<iconv_t>(-1);
}

std::unique_ptr<char[]> MakeOutput(size_t inLen, size_t& capacity) {
    const uint64_t wanted = static_cast<uint64_t>(inLen) * OutputBytesPerInputByte + 1;
    capacity = static_cast<size_t>(wanted);
    if (capacity != wanted) {              // LCOV_EXCL_BR_LINE: they differ only where size_t has 32 bits
        throw std::bad_array_new_length(); // LCOV_EXCL_LINE: and coverage is counted where it has 64
    }
    // Not cleared: the library's output and the terminator are all that is read of it.
    return std::unique_ptr<char[]>(new char[capacity]);
}

} // namespace

std::string GetCharSetName(CharSetType type) {
    switch (type) {
    case CharSetGb2312:
        return "gb2312";
    case CharSetUtf8:
        return "utf-8";
    case CharSetUtf16:
        return "utf-16";
    default:
        return "gbk";
    }
}

CharSetConverter::CharSetConverter(const char* fromName, const char* toName)
    : descriptor(iconv_open(toName, fromName)) {
    if (descriptor == FailedOpen()) {
        static_cast<void>(ConsoleLog().print(LogWarning, "CharSetConverter", "cd -1\n"));
    }
}

CharSetConverter::~CharSetConverter() {
    if (descriptor != FailedOpen()) {
        // It fails only for a descriptor that is not one.
        static_cast<void>(iconv_close(descriptor));
    }
}

size_t CharSetConverter::Convert(const char* inBuf, size_t inLen, char* outBuf, size_t* outLeft) {
    if (descriptor == FailedOpen()) {
        *outBuf = '\0';
        errno = EBADF;
        return static_cast<size_t>(-1);
    }
    const char* in = inBuf;
    size_t inLeft = inLen;
    char* out = outBuf;
    const size_t result = iconv(descriptor, InputPointer(&in), &inLeft, &out, outLeft);
    *out = '\0';
    return result;
}

void CharSetConverter::Convert(const std::string& in, std::string& out, CharSetType from, CharSetType to) {
    CharSetConverter converter(GetCharSetName(from).c_str(), GetCharSetName(to).c_str());
    size_t outLeft = 0;
    const std::unique_ptr<char[]> converted = MakeOutput(in.length(), outLeft);
    // Deliberate: the result is not looked at, so a text that cannot be converted whole is cut where it fails.
    static_cast<void>(converter.Convert(in.data(), in.length(), converted.get(), &outLeft));
    out = converted.get();
}
