#include "tests/support/AllocationFault.h"

#include "tests/support/FailingAllocation.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// This file is built without sanitizers: the first allocations come before their runtime is ready.

#ifdef ALLOCATION_FAULT_OVER_ASAN
// Clang's runtime lets a program have functions of these names of its own, and offers its own by these.
#define HEAP(function) __interceptor_##function
#define HEAP_ALIGNED __interceptor_memalign
#else
#define HEAP(function) __libc_##function
#define HEAP_ALIGNED __libc_memalign
#endif

extern "C" {
void* HEAP(malloc)(size_t size);
void* HEAP(calloc)(size_t count, size_t size);
void* HEAP(realloc)(void* block, size_t size);
void* HEAP_ALIGNED(size_t alignment, size_t size);

std::FILE* __real_fopen(const char* path, const char* mode);
std::FILE* __real_fopen64(const char* path, const char* mode); // the name with 64-bit sizes where long has 32
DIR* __real_opendir(const char* path);
void* __real_iconv_open(const char* toCode, const char* fromCode);
void* __real_libiconv_open(const char* toCode, const char* fromCode);
}

namespace {

// All of it is plain data that is ready before any constructor runs.

/// A library function that this project calls.
struct LibraryCall {
    const char* name;
    int calls;
};

LibraryCall fopenCall{"fopen", 0};
LibraryCall opendirCall{"opendir", 0};
LibraryCall iconvOpenCall{"iconv_open", 0};
LibraryCall libiconvOpenCall{"libiconv_open", 0};

LibraryCall* running = nullptr; // the one that the program is in
bool runningWasRefused = false;

bool environmentIsRead = false;
int64_t made = 0;         // since the last plan
int64_t untilFailure = 0; // 0: none is planned
bool untilTheEnd = false;
bool active = false; // failing, in a plan without end

bool refusedOne = false;
const char* refusedCall = "";
int refusedOrdinal = 0;
bool refusedFailed = false;

void Report(const char* text) {
    const char* path = std::getenv("ALLOCATION_FAULT_REPORT");
    if (path == nullptr) {
        return;
    }
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0 || write(file, text, std::strlen(text)) < 0 || close(file) != 0) {
        _exit(125); // the run would be taken for one in which nothing failed
    }
}

void Plan(int64_t n, bool toTheEnd) {
    made = 0;
    untilFailure = n;
    untilTheEnd = toTheEnd;
    active = false;
    refusedOne = false;
    refusedCall = "";
    refusedOrdinal = 0;
    refusedFailed = false;
    for (LibraryCall* call : {&fopenCall, &opendirCall, &iconvOpenCall, &libiconvOpenCall}) {
        call->calls = 0;
    }
}

void ReadEnvironment() {
    if (environmentIsRead || environ == nullptr) { // the loader allocates before the C library knows the environment
        return;
    }
    environmentIsRead = true;
    const char* text = std::getenv("ALLOCATION_FAULT");
    if (text == nullptr) {
        return;
    }
    const bool toTheEnd = std::strncmp(text, "rest ", 5) == 0;
    Plan(std::atol(text + (toTheEnd ? 5 : 4)), toTheEnd);
}

void NoteRefusal() {
    refusedOne = true;
    if (IsInsideOperatorNew()) {
        refusedCall = "operator new";
        refusedFailed = true;
        Report("operator new 0 failed\n");
    } else if (running != nullptr) {
        refusedCall = running->name;
        refusedOrdinal = running->calls;
        runningWasRefused = true;
    } else {
        refusedCall = "other";
        Report("other 0 went on\n");
    }
}

bool IsRefused() {
    ReadEnvironment();
    ++made;
    if (!active) {
        if (untilFailure == 0 || --untilFailure != 0) {
            return false;
        }
        active = untilTheEnd;
        NoteRefusal();
    }
    errno = ENOMEM;
    return true;
}

template <class Result, class Call>
Result Watched(LibraryCall& call, Result failure, Call makeCall) {
    ++call.calls;
    running = &call;
    runningWasRefused = false;
    const Result result = makeCall();
    running = nullptr;
    if (runningWasRefused) {
        const int error = errno;
        refusedFailed = result == failure;
        char line[64];
        static_cast<void>(std::snprintf(line, sizeof line, "%s %d %s\n", call.name, call.calls,
                                        refusedFailed ? "failed" : "went on"));
        Report(line);
        errno = error;
    }
    return result;
}

void* FailedConversion() {
    return reinterpret_cast<void*>(-1);
}

} // namespace

AllocationFault::AllocationFault(size_t n, Extent extent) {
    environmentIsRead = true;
    Plan(static_cast<int64_t>(n), extent == Extent::Rest);
}

AllocationFault::~AllocationFault() {
    stop();
}

void AllocationFault::stop() {
    untilFailure = 0;
    active = false;
}

size_t AllocationFault::made() {
    return static_cast<size_t>(::made);
}

bool AllocationFault::happened() {
    return refusedOne;
}

RefusedAllocation AllocationFault::refused() {
    return {refusedCall, refusedOrdinal, refusedFailed};
}

extern "C" {

void* malloc(size_t size) {
    return IsRefused() ? nullptr : HEAP(malloc)(size);
}

void* calloc(size_t count, size_t size) {
    return IsRefused() ? nullptr : HEAP(calloc)(count, size);
}

void* realloc(void* block, size_t size) {
    return IsRefused() ? nullptr : HEAP(realloc)(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return IsRefused() ? nullptr : HEAP_ALIGNED(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    void* memory = IsRefused() ? nullptr : HEAP_ALIGNED(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *block = memory;
    return 0;
}

std::FILE* __wrap_fopen(const char* path, const char* mode) {
    return Watched(fopenCall, static_cast<std::FILE*>(nullptr), [=] { return __real_fopen(path, mode); });
}

std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    return Watched(fopenCall, static_cast<std::FILE*>(nullptr), [=] { return __real_fopen64(path, mode); });
}

DIR* __wrap_opendir(const char* path) {
    return Watched(opendirCall, static_cast<DIR*>(nullptr), [=] { return __real_opendir(path); });
}

void* __wrap_iconv_open(const char* toCode, const char* fromCode) {
    return Watched(iconvOpenCall, FailedConversion(), [=] { return __real_iconv_open(toCode, fromCode); });
}

void* __wrap_libiconv_open(const char* toCode, const char* fromCode) {
    return Watched(libiconvOpenCall, FailedConversion(), [=] { return __real_libiconv_open(toCode, fromCode); });
}
}
