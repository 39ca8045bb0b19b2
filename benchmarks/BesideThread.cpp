#include "benchmarks/Company.h"

#include <thread>
#include <unistd.h>

const char* const Company = "with a second thread";

namespace {

// It sleeps until the process ends.
[[maybe_unused]] const bool Started = [] {
    std::thread([] {
        for (;;) {
            static_cast<void>(pause());
        }
    }).detach();
    return true;
}();

} // namespace
