#pragma once

#include <cstddef>
#include <string>

/// The call that was given no memory.
struct RefusedAllocation {
    /// "operator new"; the name of a library function that this project calls ("fopen", "opendir", "iconv_open",
    /// "libiconv_open"); "other" for the rest: the buffers of streams, what a library sets up when it is loaded.
    std::string call;
    int ordinal = 0;     ///< which call of that library function it was, from 1 on; 0 for the others
    bool failed = false; ///< whether the function then answered with its failure; operator new does, by its exception
};

/// Lets the n-th allocation of the process fail, counted from now, or that one and every later one. An allocation is a
/// call of malloc, calloc, realloc, posix_memalign or aligned_alloc by anybody: operator new, which comes here too, the
/// C library for itself (a stream, a directory, a conversion), TinyXML and GNU libiconv. A realloc that fails leaves the
/// block as it was.
///
/// Link the object library AllocationFault, which stands between the program and the functions above.
///
/// A whole process, from static initialisation to exit, is told by its environment instead: ALLOCATION_FAULT is "one" or
/// "rest", a blank and n; as soon as the failure has happened the file of ALLOCATION_FAULT_REPORT gets a line with the
/// name of the call, its ordinal, and, once the call has answered, "failed" or "went on".
///
/// Threads: one at a time; the count is of all threads.
class AllocationFault {
public:
    enum class Extent { One, Rest };

    explicit AllocationFault(size_t n, Extent extent = Extent::One);
    /// No further allocation fails.
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;

    /// From now on no allocation fails.
    static void stop();

    /// @return how many allocations there were since the last plan, failed ones too.
    static size_t made();

    /// @return whether an allocation failed; fewer than n were made otherwise.
    static bool happened();

    /// @return the first one that failed.
    static RefusedAllocation refused();
};
