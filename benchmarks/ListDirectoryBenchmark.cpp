// What does a listing cost over the kernel's own reading of the directory?

#include "launcher/ListDirectory.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// A directory of the benchmark's own with so many start programs, gone when the object is.
class Directory {
public:
    explicit Directory(int files) : count(files) {
        if (mkdtemp(name.data()) != nullptr) {
            for (int i = 0; i < files; ++i) {
                std::ofstream(path() + "/Protocol" + std::to_string(i) + "_loadservice").put('\n');
            }
        }
    }

    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path(), ignored);
    }

    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    std::string path() const { return name.data(); }
    int files() const { return count; }

private:
    int count;
    std::array<char, 29> name{"/tmp/wyvern-benchmark-XXXXXX"};
};

int CountListed(const std::string& path) {
    std::vector<std::string> names;
    return ListDirectory(path, names, "*") ? static_cast<int>(names.size()) : -1;
}

// The limit, into a buffer as large as that of readdir. What the kernel gave is not looked at.
int ReadRaw(const std::string& path) {
    static std::array<char, 32768> entries;
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY);
    ssize_t bytes = -1;
    do {
        bytes = getdents64(directory, entries.data(), entries.size());
    } while (bytes > 0);
    return close(directory) == 0 && bytes == 0 ? 0 : -1;
}

// The least that the C library's own functions take, of which a listing has to be made.
int ReadByLibrary(const std::string& path) {
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) {
        return -1;
    }
    while (readdir(directory) != nullptr) {
    }
    return closedir(directory);
}

// `expected`: what `read` returns when all is well.
void Measure(benchmark::State& state, int (*read)(const std::string&), const std::shared_ptr<Directory>& directory,
             int expected) {
    const std::string path = directory->path();
    for (auto _ : state) {
        if (read(path) != expected) {
            state.SkipWithError("the directory was not read");
            break;
        }
    }
}

void Register(const std::string& size, int files) {
    const auto directory = std::make_shared<Directory>(files);
    const auto add = [&](const char* who, int (*read)(const std::string&), int expected) {
        const std::string name = "ListDirectory/" + size + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), Measure, read, directory, expected);
    };
    add("wyvern", CountListed, files);
    add("limit", ReadRaw, 0);
    add("opendir, readdir, closedir", ReadByLibrary, 0);
}

[[maybe_unused]] const bool Registered = [] {
    Register("100 files", 100);
    Register("1,000 files", 1000);
    Register("10,000 files", 10000);
    return true;
}();

} // namespace
