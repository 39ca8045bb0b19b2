#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What the product asks of a conversion library while one of these lives; the linker's --wrap leads its calls to the
/// test.
/// One at a time for each `Library`, which is only a name.
template <class Library>
struct ConversionWatch {
    struct Open {
        std::string to;
        std::string from;
        void* descriptor;
    };

    struct Conversion {
        void* descriptor;
        bool hasInput;
        size_t inLeft;
        size_t outLeft;
        size_t outLeftAfter;
        size_t result;
        size_t outBlock = 0; ///< size of the block of memory that the output starts, where the test looks
    };

    enum Opens { Succeed, Fail };

    explicit ConversionWatch(Opens wanted = Succeed) : refuses(wanted == Fail) {
        // Room from the start: a recorded call then allocates nothing.
        opens.reserve(64);
        conversions.reserve(64);
        closes.reserve(64);
        active = this;
    }

    ~ConversionWatch() { active = nullptr; }

    ConversionWatch(const ConversionWatch&) = delete;
    ConversionWatch& operator=(const ConversionWatch&) = delete;

    static inline ConversionWatch* active = nullptr;

    const bool refuses;
    std::vector<Open> opens;
    std::vector<Conversion> conversions;
    std::vector<void*> closes;
};
