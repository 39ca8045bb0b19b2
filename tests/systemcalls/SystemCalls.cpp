#include "tests/systemcalls/SystemCalls.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

SystemCalls* current = nullptr;

constexpr std::array<std::string_view, 2> DevicePaths = {"/mnt/mtd/code/", "/factory_setting/"};

void* const FailedDescriptor = reinterpret_cast<void*>(-1); // as both conversion libraries refuse

const Fault* Meet(std::string_view function) {
    return SystemCalls::active() != nullptr ? SystemCalls::active()->meet(function) : nullptr;
}

std::string OnHost(const char* path) {
    return SystemCalls::active() != nullptr ? SystemCalls::active()->onHost(path) : path;
}

void Count(long opened) {
    if (SystemCalls::active() != nullptr) {
        SystemCalls::active()->count(opened);
    }
}

void Run(const std::function<void()>& hook) {
    if (hook) {
        hook();
    }
}

size_t Part(How how, size_t whole) {
    switch (how) {
    case How::Fails:
    case How::Ends:
        return 0;
    case How::FailsHalfway:
    case How::EndsHalfway:
        return whole / 2;
    default:
        return whole;
    }
}

template <class Result>
Result Failed(const Fault& fault, Result result) {
    errno = fault.result;
    return result;
}

/// Puts another file behind a stream's descriptor.
class Substitute {
public:
    Substitute(FILE* stream, const char* path, int flags) : descriptor(fileno(stream)), own(dup(descriptor)) {
        const int other = open(path, flags | O_CLOEXEC);
        if (own < 0 || other < 0 || dup2(other, descriptor) < 0 || close(other) != 0) {
            ADD_FAILURE() << "no descriptor that fails: " << std::strerror(errno);
        }
    }

    ~Substitute() {
        if (!dropped) {
            EXPECT_EQ(dup2(own, descriptor), descriptor);
        }
        EXPECT_EQ(close(own), 0);
    }

    Substitute(const Substitute&) = delete;
    Substitute& operator=(const Substitute&) = delete;

    /// Leaves the stream's own file behind: the stream is closed.
    void drop() { dropped = true; }

private:
    int descriptor;
    int own;
    bool dropped = false;
};

// Every transfer on such a descriptor fails, whatever it is (open(2), O_PATH).
struct Broken : Substitute {
    explicit Broken(FILE* stream) : Substitute(stream, "/", O_PATH) {}
};

// Nothing is there to be read.
struct AtItsEnd : Substitute {
    explicit AtItsEnd(FILE* stream) : Substitute(stream, "/dev/null", O_RDONLY) {}
};

FILE* Open(const char* path, const char* mode, FILE* (*open)(const char*, const char*)) {
    if (const Fault* fault = Meet("fopen")) {
        return Failed<FILE*>(*fault, nullptr);
    }
    FILE* const stream = open(OnHost(path).c_str(), mode);
    if (stream != nullptr && SystemCalls::active() != nullptr) {
        Count(1);
        Run(SystemCalls::active()->behindOpen);
    }
    return stream;
}

template <class Status>
int Measure(int descriptor, Status* status, int (*measure)(int, Status*)) {
    if (const Fault* fault = Meet("fstat")) {
        return Failed(*fault, -1);
    }
    const int result = measure(descriptor, status);
    if (result == 0 && SystemCalls::active() != nullptr) {
        Run(SystemCalls::active()->behindFstat);
    }
    return result;
}

template <class Entry>
Entry* ReadEntry(DIR* directory, Entry* (*read)(DIR*)) {
    static Entry entry;
    if (const Fault* fault = Meet("readdir")) {
        return Failed<Entry*>(*fault, nullptr);
    }
    SystemCalls* const calls = SystemCalls::active();
    if (calls == nullptr) {
        return read(directory);
    }
    if (calls->aheadReaddir) {
        calls->aheadReaddir(calls->counts().at("readdir"));
    }
    if (calls->listing.empty()) {
        return read(directory);
    }
    const std::string* const name = calls->nextListed();
    if (name == nullptr) {
        return nullptr;
    }
    entry = Entry();
    std::memcpy(entry.d_name, name->c_str(), name->size() + 1);
    entry.d_type = DT_REG;
    return &entry;
}

// The part of a conversion that is done before it fails. The text is ASCII, so half of it is no half character.
template <class Convert>
size_t ConvertOrFail(const char* function, void* descriptor, size_t* inLeft, const Convert& convert) {
    EXPECT_NE(descriptor, FailedDescriptor) << function << " was given a failed descriptor";
    if (const Fault* fault = Meet(function)) {
        const size_t part = Part(fault->how, *inLeft);
        const size_t rest = *inLeft - part;
        *inLeft = part;
        convert();
        *inLeft += rest;
        return Failed(*fault, static_cast<size_t>(-1));
    }
    return convert();
}

int CloseConversion(const char* function, void* descriptor, int (*close)(void*)) {
    EXPECT_NE(descriptor, FailedDescriptor) << function << " was given a failed descriptor";
    const Fault* const fault = Meet(function);
    Count(-1);
    const int result = close(descriptor);
    return fault != nullptr ? Failed(*fault, -1) : result;
}

void* OpenConversion(const char* function, const char* to, const char* from, void* (*open)(const char*, const char*)) {
    if (const Fault* fault = Meet(function)) {
        return Failed(*fault, FailedDescriptor);
    }
    void* const descriptor = open(to, from);
    Count(descriptor != FailedDescriptor ? 1 : 0);
    return descriptor;
}

} // namespace

SystemCalls::SystemCalls() : SystemCalls(Fault()) {}

SystemCalls::SystemCalls(const Fault& wanted) : wantedFault(wanted) {
    current = this;
}

SystemCalls::~SystemCalls() {
    current = nullptr;
}

SystemCalls* SystemCalls::active() {
    return current != nullptr && current->watching ? current : nullptr;
}

void SystemCalls::watch(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    watching = true;
    action();
    watching = false;
    printed += testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
}

const Fault* SystemCalls::meet(std::string_view function) {
    const size_t call = ++calls[function];
    if (function != wantedFault.function || (wantedFault.call != Fault::Every && wantedFault.call != call)) {
        return nullptr;
    }
    happened = true;
    return &wantedFault;
}

std::string SystemCalls::onHost(const char* path) const {
    for (const std::string_view front : DevicePaths) {
        if (!deviceRoot.empty() && std::string_view(path).substr(0, front.size()) == front) {
            return deviceRoot + path;
        }
    }
    return path;
}

const std::string* SystemCalls::nextListed() {
    return listed < listing.size() ? &listing[listed++] : nullptr;
}

const std::vector<std::string_view>& WatchedFunctions() {
    static const std::vector<std::string_view> functions{
        "fopen",      "fstat", "fread",       "fwrite",        "fclose",   "opendir",        "readdir", "closedir",
        "iconv_open", "iconv", "iconv_close", "libiconv_open", "libiconv", "libiconv_close", "system"};
    return functions;
}

// The linker sends every call of a wrapped function here: each by the name that it has with 64-bit sizes and times, too.
extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __real_fopen64(const char* path, const char* mode);
int __real_fstat(int descriptor, struct stat* status);
int __real_fstat64(int descriptor, struct stat64* status);
#ifdef _TIME_BITS
int __real___fstat64_time64(int descriptor, struct stat* status);
#endif
size_t __real_fread(void* buffer, size_t size, size_t count, FILE* stream);
size_t __real_fwrite(const void* buffer, size_t size, size_t count, FILE* stream);
int __real_fclose(FILE* stream);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
dirent64* __real_readdir64(DIR* directory);
int __real_closedir(DIR* directory);
void* __real_iconv_open(const char* to, const char* from);
size_t __real_iconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft);
int __real_iconv_close(void* descriptor);
void* __real_libiconv_open(const char* to, const char* from);
size_t __real_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft);
int __real_libiconv_close(void* descriptor);

FILE* __wrap_fopen(const char* path, const char* mode) {
    return Open(path, mode, __real_fopen);
}

FILE* __wrap_fopen64(const char* path, const char* mode) {
    return Open(path, mode, __real_fopen64);
}

int __wrap_fstat(int descriptor, struct stat* status) {
    return Measure(descriptor, status, __real_fstat);
}

int __wrap_fstat64(int descriptor, struct stat64* status) {
    return Measure(descriptor, status, __real_fstat64);
}

#ifdef _TIME_BITS
int __wrap___fstat64_time64(int descriptor, struct stat* status) {
    return Measure(descriptor, status, __real___fstat64_time64);
}
#endif

size_t __wrap_fread(void* buffer, size_t size, size_t count, FILE* stream) {
    const Fault* const fault = Meet("fread");
    if (fault == nullptr) {
        return __real_fread(buffer, size, count, stream);
    }
    // Without a buffer, or the part that is not read would be in it.
    EXPECT_EQ(std::setvbuf(stream, nullptr, _IONBF, 0), 0);
    const size_t done = __real_fread(buffer, size, Part(fault->how, count), stream);
    char* const rest = static_cast<char*>(buffer) + done * size;
    if (fault->how == How::Ends || fault->how == How::EndsHalfway) {
        const AtItsEnd substitute(stream);
        return done + __real_fread(rest, size, count - done, stream);
    }
    const Broken substitute(stream);
    static_cast<void>(__real_fread(rest, size, count - done, stream));
    return Failed(*fault, done);
}

size_t __wrap_fwrite(const void* buffer, size_t size, size_t count, FILE* stream) {
    const Fault* const fault = Meet("fwrite");
    if (fault == nullptr) {
        return __real_fwrite(buffer, size, count, stream);
    }
    // Without a buffer, which would take the bytes and fail later.
    EXPECT_EQ(std::setvbuf(stream, nullptr, _IONBF, 0), 0);
    const size_t done = __real_fwrite(buffer, size, Part(fault->how, count), stream);
    const Broken substitute(stream);
    static_cast<void>(__real_fwrite(static_cast<const char*>(buffer) + done * size, size, count - done, stream));
    return Failed(*fault, done);
}

int __wrap_fclose(FILE* stream) {
    const Fault* const fault = Meet("fclose");
    Count(-1);
    if (fault == nullptr) {
        return __real_fclose(stream);
    }
    if (fault->how == How::FailsAfterwards) {
        EXPECT_EQ(__real_fclose(stream), 0);
        return Failed(*fault, EOF);
    }
    Broken substitute(stream); // what is in the buffer is lost
    static_cast<void>(__real_fclose(stream));
    substitute.drop();
    return Failed(*fault, EOF);
}

DIR* __wrap_opendir(const char* path) {
    if (const Fault* fault = Meet("opendir")) {
        return Failed<DIR*>(*fault, nullptr);
    }
    DIR* const directory = __real_opendir(OnHost(path).c_str());
    if (directory != nullptr && SystemCalls::active() != nullptr) {
        SystemCalls::active()->restartListing();
        Count(1);
    }
    return directory;
}

dirent* __wrap_readdir(DIR* directory) {
    return ReadEntry<dirent>(directory, __real_readdir);
}

dirent64* __wrap_readdir64(DIR* directory) {
    return ReadEntry<dirent64>(directory, __real_readdir64);
}

int __wrap_closedir(DIR* directory) {
    const Fault* const fault = Meet("closedir");
    Count(-1);
    const int result = __real_closedir(directory);
    return fault != nullptr ? Failed(*fault, -1) : result;
}

void* __wrap_iconv_open(const char* to, const char* from) {
    return OpenConversion("iconv_open", to, from, __real_iconv_open);
}

size_t __wrap_iconv(void* descriptor, char** in, size_t* inLeft, char** out, size_t* outLeft) {
    return ConvertOrFail("iconv", descriptor, inLeft,
                         [&] { return __real_iconv(descriptor, in, inLeft, out, outLeft); });
}

int __wrap_iconv_close(void* descriptor) {
    return CloseConversion("iconv_close", descriptor, __real_iconv_close);
}

void* __wrap_libiconv_open(const char* to, const char* from) {
    return OpenConversion("libiconv_open", to, from, __real_libiconv_open);
}

size_t __wrap_libiconv(void* descriptor, const char** in, size_t* inLeft, char** out, size_t* outLeft) {
    return ConvertOrFail("libiconv", descriptor, inLeft,
                         [&] { return __real_libiconv(descriptor, in, inLeft, out, outLeft); });
}

int __wrap_libiconv_close(void* descriptor) {
    return CloseConversion("libiconv_close", descriptor, __real_libiconv_close);
}

// Nothing is ever run. The command is written where its own output would go, past the buffer of standard output: it
// shows in the order of events only when that was flushed.
int __wrap_system(const char* command) {
    const Fault* const fault = Meet("system");
    if (SystemCalls::active() == nullptr) {
        ADD_FAILURE() << "not run: " << command;
        return -1;
    }
    SystemCalls::active()->give(command);
    if (fault == nullptr || fault->how != How::Fails) {
        const std::string line = std::string("$ ") + command + "\n";
        [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
    }
    if (fault == nullptr) {
        return 0;
    }
    return fault->how == How::Answers ? fault->result : Failed(*fault, -1);
}

} // extern "C"
