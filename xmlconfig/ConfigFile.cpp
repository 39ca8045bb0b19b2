#include "xmlconfig/ConfigFile.h"

#include "fileio/FileAccess.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace {

// What one transfer of the file layer can report: its results are signed and have 32 bits.
constexpr int64_t MaxTransfer = INT32_MAX;

} // namespace

bool ReadFileToString(const std::string& path, std::string& out) {
    FileAccess file;
    if (!file.Open(path.c_str(), FileRead)) {
        return false;
    }
    const int64_t size = file.GetSize();
    if (size <= 0 || size > MaxTransfer) {
        return false;
    }
    std::string content(static_cast<size_t>(size), '\0');
    if (file.Read(content.data(), static_cast<uint32_t>(size)) != size) {
        return false;
    }
    out = std::move(content);
    return true;
}

bool WriteStringToFile(const std::string& path, const std::string& text) {
    if (text.length() > static_cast<size_t>(MaxTransfer)) {
        return false;
    }
    FileAccess file;
    if (!file.OpenUtf8(path.c_str(), FileUpdate | FileCreate | FileTruncate)) {
        return false;
    }
    const auto length = static_cast<uint32_t>(text.length());
    const bool written = file.Write(text.data(), length) == static_cast<int32_t>(length);
    return file.Close() && written;
}
