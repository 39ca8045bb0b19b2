#include "fileio/FileAccess.h"

#include "charset/CharSetConverter.h"

#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <cwchar>
#include <stdexcept>
#include <string>

namespace {

static_assert(sizeof(off_t) == 8, "without _FILE_OFFSET_BITS=64 a large file does not open on a 32-bit machine");

constexpr size_t ModeSize = 5;
constexpr size_t PathSize = 1024;

template <class Char>
void Assign(Char* mode, const char* text) noexcept {
    while ((*mode++ = static_cast<Char>(*text++)) != 0) {
    }
}

template <class Char>
bool ComposeMode(uint8_t flags, Char* mode) noexcept {
    bool chosen = false;
    if ((flags & FileRead) != 0) {
        Assign(mode, "rb");
        chosen = true;
    }
    if ((flags & FileWrite) != 0) {
        if (chosen) {
            return false;
        }
        Assign(mode, (flags & FileTruncate) != 0 ? "wb" : "ab");
        chosen = true;
    }
    if ((flags & FileUpdate) != 0) {
        if (chosen) {
            return false;
        }
        if ((flags & FileCreate) == 0) {
            Assign(mode, "r+b");
        } else {
            Assign(mode, (flags & FileTruncate) != 0 ? "w+b" : "a+b");
        }
        chosen = true;
    }
    return chosen;
}

// wcstombs answers -1 for a character that the locale lacks, and the full size when no terminator fitted. glibc drops
// the tag characters U+E0000 to U+E007F without a word, so what came out is also counted back into characters.
template <size_t Size>
bool ToMultibyte(const wchar_t* wide, std::array<char, Size>& bytes) noexcept {
    // NOLINTBEGIN(concurrency-mt-unsafe): the C locale has no shift state, and POSIX asks for no more.
    return std::wcstombs(bytes.data(), wide, bytes.size()) < bytes.size() &&
           std::mbstowcs(nullptr, bytes.data(), 0) == std::wcslen(wide);
    // NOLINTEND(concurrency-mt-unsafe)
}

} // namespace

FileAccess::FileAccess() noexcept : stream(nullptr) {}

FileAccess::~FileAccess() {
    static_cast<void>(Close());
}

bool FileAccess::MakeOpenMode(uint8_t flags, char* mode) noexcept {
    return ComposeMode(flags, mode);
}

bool FileAccess::MakeOpenMode(uint8_t flags, wchar_t* mode) noexcept {
    return ComposeMode(flags, mode);
}

bool FileAccess::Open(const char* path, uint8_t flags) noexcept {
    std::array<char, ModeSize> mode{};
    if (path == nullptr || !MakeOpenMode(flags, mode.data())) {
        return false;
    }
    stream = std::fopen(path, mode.data());
    return stream != nullptr;
}

bool FileAccess::OpenWide(const wchar_t* path, uint8_t flags) noexcept {
    std::array<wchar_t, ModeSize> mode{};
    if (path == nullptr || !MakeOpenMode(flags, mode.data())) {
        return false;
    }
    std::array<char, PathSize> pathBytes{};
    std::array<char, PathSize> modeBytes{};
    if (!ToMultibyte(path, pathBytes)) {
        return false;
    }
    // A mode converts in every locale: it is ASCII, and fits.
    static_cast<void>(ToMultibyte(mode.data(), modeBytes));
    stream = std::fopen(pathBytes.data(), modeBytes.data());
    return stream != nullptr;
}

bool FileAccess::OpenUtf8(const char* path, uint8_t flags) {
    if (path == nullptr) {
        throw std::logic_error("FileAccess::OpenUtf8: the path is null");
    }
    const std::string narrow(path);
    std::wstring wide;
    // The result is not looked at: a path that is not UTF-8 becomes the empty one, which fopen refuses.
    static_cast<void>(Utf8ToWide(narrow, wide));
    return OpenWide(wide.c_str(), flags);
}

int32_t FileAccess::Read(void* buf, uint32_t count) noexcept {
    if (buf == nullptr || stream == nullptr) {
        return -1;
    }
    if (std::feof(stream) != 0) {
        return 0;
    }
    const size_t done = std::fread(buf, 1, count, stream);
    return std::ferror(stream) != 0 ? -1 : static_cast<int32_t>(done);
}

int32_t FileAccess::Write(const void* buf, uint32_t count) noexcept {
    if (buf == nullptr || stream == nullptr) {
        return -1;
    }
    const size_t done = std::fwrite(buf, 1, count, stream);
    return std::ferror(stream) != 0 ? -1 : static_cast<int32_t>(done);
}

bool FileAccess::Close() noexcept {
    if (stream == nullptr) {
        return true;
    }
    FILE* closing = stream;
    stream = nullptr;
    return std::fclose(closing) == 0;
}

int64_t FileAccess::GetSize() noexcept {
    if (stream == nullptr) {
        return -1;
    }

    struct stat status {};

    if (fstat(fileno(stream), &status) != 0) {
        return -1;
    }
    return status.st_size;
}
