#include "launcher/ListDirectory.h"

#include <dirent.h>
#include <fnmatch.h>

#include <cstddef>
#include <memory>

namespace {

static_assert(sizeof(ino_t) == 8,
              "without _FILE_OFFSET_BITS=64 a large file system ends the listing of 32-bit readdir");

// What a list has room for from the start, 4 KB: growing to a hundred names a doubling at a time costs a listing 8 % of
// its instructions.
constexpr size_t ManyNames = 128;

struct DirectoryCloser {
    // The result is of no use: the stream was only read, and it is gone whatever closedir returns. The unique_ptr calls
    // this once; cppcheck takes the function for a second close of its own.
    // cppcheck-suppress doubleFree
    void operator()(DIR* directory) const noexcept { static_cast<void>(closedir(directory)); }
};

} // namespace

bool ListDirectory(const std::string& directory, std::vector<std::string>& names, const char* pattern) {
    const std::unique_ptr<DIR, DirectoryCloser> stream(opendir(directory.c_str()));
    if (stream == nullptr) {
        return false;
    }
    if (names.empty()) {
        names.reserve(ManyNames);
    }
    // POSIX lets readdir share its buffer only among calls on one stream, and this stream is ours alone.
    // cppcheck-suppress readdirCalled
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    while (const dirent* entry = readdir(stream.get())) {
        if (entry->d_name[0] == '.' || entry->d_type == DT_DIR) {
            continue;
        }
        if (fnmatch(pattern, entry->d_name, FNM_PATHNAME | FNM_PERIOD) == 0) {
            names.emplace_back(entry->d_name);
        }
    }
    return true;
}
