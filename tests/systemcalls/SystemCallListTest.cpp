#include "tests/support/ObjectSymbols.h"
#include "tests/systemcalls/SystemCalls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <string_view>

namespace {

// What the product calls besides the functions that the tests of this folder let fail, and why it is not among them.
const std::set<std::string_view> OtherFunctions = {
    // They work in memory only.
    "atoi", "bcmp", "feof", "ferror", "fileno", "fnmatch", "isalpha", "isdigit", "isspace", "isxdigit", "mbstowcs",
    "memchr", "memcmp", "memcpy", "memmove", "memset", "snprintf", "strcasecmp", "strchr", "strcmp", "strlen",
    "strncasecmp", "strncmp", "strstr", "strtol", "vsnprintf", "wcslen", "wcstombs",
    // The console: its failures are the kernel's here (full, closed), and the log's in tests/runtime.
    "fflush", "fprintf", "printf", "putchar", "puts", "setvbuf", "stderr", "stdout",
    // No call of the kernel fails in them; tests/runtime has their error results.
    "pthread_mutex_destroy", "pthread_mutex_init", "pthread_mutex_lock", "pthread_mutex_unlock"};

// Names that the compiler puts in by itself, for what it instruments and for C++: the product's own, and the standard
// library's as far as they are no door to files.
bool IsCompilersOwn(std::string_view name) {
    const std::array<std::string_view, 15> fronts = {
        "_Z",           "_Unwind_",         "__aeabi_",     "__asan_",  "__cxa_",
        "__dso_handle", "__errno_location", "__gcov_",      "__gxx_",   "__lsan_",
        "__llvm_",      "__sanitizer_",     "__stack_chk_", "__ubsan_", "_GLOBAL_OFFSET_TABLE_"};
    if (name.find("filesystem") != std::string_view::npos || name.find("filebuf") != std::string_view::npos) {
        return false;
    }
    return std::any_of(fronts.begin(), fronts.end(),
                       [name](std::string_view front) { return name.substr(0, front.size()) == front; });
}

// The hardened build calls some functions by a name of their own: __printf_chk is printf.
std::string WithoutCheck(const std::string& name) {
    const std::string front = "__";
    const std::string back = "_chk";
    const bool checked = name.size() > front.size() + back.size() && name.compare(0, front.size(), front) == 0 &&
                         name.compare(name.size() - back.size(), back.size(), back) == 0;
    return checked ? name.substr(front.size(), name.size() - front.size() - back.size()) : name;
}

std::set<std::string> FunctionsOfTheProduct() {
    std::set<std::string> functions;
    for (const std::string& symbol : UndefinedSymbols(WYVERN_PRODUCT)) {
        if (!IsCompilersOwn(symbol)) {
            functions.insert(symbol);
        }
    }
    return functions;
}

} // namespace

// A function that the product comes to call must be let fail here, or be shown to need none of it. The hardened names
// of what is watched are not led here, so they are not known either.
TEST(SystemCallListTest, EachFunctionThatTheProductCallsIsWatchedOrKnownToNeedNoWatch) {
    const std::set<std::string> functions = FunctionsOfTheProduct();
    const std::set<std::string_view> watched(WatchedFunctions().begin(), WatchedFunctions().end());

    std::set<std::string> unknown;
    for (const std::string& function : functions) {
        const bool wide =
            function == "fopen64" || function == "fstat64" || function == "__fstat64_time64" || function == "readdir64";
        if (!wide && watched.count(function) == 0 && OtherFunctions.count(WithoutCheck(function)) == 0) {
            unknown.insert(function);
        }
    }
    EXPECT_EQ(unknown, std::set<std::string>());
    for (const char* function : {"fopen", "opendir", "libiconv", "iconv", "system", "puts"}) {
        EXPECT_TRUE(functions.count(function) != 0 || functions.count(std::string(function) + "64") != 0)
            << function << " was not seen: the product's files were not read";
    }
}
