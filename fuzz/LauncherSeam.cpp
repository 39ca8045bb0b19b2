#include "fuzz/LauncherSeam.h"

#include "fuzz/CapturedStream.h"
#include "fuzz/Check.h"
#include "fuzz/MemoryFile.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>

int WyvernMain(int argc, char** argv);

extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
int __real_closedir(DIR* directory);
int __real_system(const char* command);
}

namespace {

struct Run {
    const Device& device;
    Transcript& transcript;
    size_t nextEntry = 0;
    bool listing = false; // between opendir and closedir
    dirent entry{};

    // What opendir hands out; only its address counts.
    DIR* directory() { return reinterpret_cast<DIR*>(this); }
};

Run* active = nullptr; // null outside LaunchOn: the fuzzer's own calls go through

FILE* OpenContent(const std::optional<std::string>& content, const MemoryFile& file) {
    if (!content.has_value()) {
        errno = ENOENT;
        return nullptr;
    }
    file.write(*content);
    return __real_fopen(file.path().c_str(), "rb");
}

} // namespace

extern "C" {

FILE* __wrap_fopen(const char* path, const char* mode) {
    static const MemoryFile working;
    static const MemoryFile factory;
    if (active == nullptr) {
        return __real_fopen(path, mode);
    }
    CheckEqual(mode, "rb", "the launcher only reads");
    active->transcript.opened(path);
    if (std::strcmp(path, Device::WorkingPath) == 0) {
        return OpenContent(active->device.working, working);
    }
    CheckEqual(path, Device::FactoryPath, "the launcher opens its two configurations only");
    return OpenContent(active->device.factory, factory);
}

DIR* __wrap_opendir(const char* path) {
    if (active == nullptr) {
        return __real_opendir(path);
    }
    active->transcript.listed(path);
    CheckEqual(path, Device::ServicePath, "the launcher lists the service directory only");
    if (!active->device.hasServices) {
        errno = ENOENT;
        return nullptr;
    }
    Check(!active->listing, "a directory was left open");
    active->listing = true;
    active->nextEntry = 0;
    return active->directory();
}

dirent* __wrap_readdir(DIR* directory) {
    if (active == nullptr) {
        return __real_readdir(directory);
    }
    Check(active->listing && directory == active->directory(), "a directory is read that is not open");
    if (active->nextEntry == active->device.services.size()) {
        return nullptr;
    }
    const Device::Entry& next = active->device.services[active->nextEntry++];
    Check(!next.name.empty() && next.name.size() < sizeof active->entry.d_name &&
              next.name.find_first_of(std::string("/\0", 2)) == std::string::npos,
          "no kernel gives such a name");
    active->entry.d_type = next.type;
    std::memcpy(active->entry.d_name, next.name.c_str(), next.name.size() + 1);
    return &active->entry;
}

int __wrap_closedir(DIR* directory) {
    if (active == nullptr) {
        return __real_closedir(directory);
    }
    Check(active->listing && directory == active->directory(), "a directory is closed that is not open");
    active->listing = false;
    return 0;
}

int __wrap_system(const char* command) {
    if (active == nullptr) {
        return __real_system(command);
    }
    active->transcript.ran(command);
    return 0;
}
}

void Transcript::write(const char* stream, const std::string& what) {
    if (events.empty() || events.back().kind != stream) {
        add(stream, what);
    } else {
        events.back().what += what;
    }
}

std::string Transcript::text() const {
    std::string all;
    for (const Event& event : events) {
        all += event.kind + " " + std::to_string(event.what.size()) + ": " + event.what + "\n"; // may hold line ends
    }
    return all;
}

Transcript LaunchOn(const Device& device, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"Wyvern"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    Transcript transcript;
    Run run{device, transcript};
    int status = 0;
    {
        const CapturedStream out(stdout, [&](std::string_view text) { transcript.printed(std::string(text)); });
        const CapturedStream error(stderr, [&](std::string_view text) { transcript.reported(std::string(text)); });
        static_cast<void>(setvbuf(stderr, nullptr, _IOLBF, 0)); // in whole lines: it is unbuffered in a process
        active = &run;
        status = WyvernMain(static_cast<int>(words.size()), argv.data());
        active = nullptr;
    }
    Check(!run.listing, "a directory was left open");
    transcript.ended(status);
    return transcript;
}
