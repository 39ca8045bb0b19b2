#pragma once

#include <cstddef>

/// Makes one call of operator new, counted from now in this process, throw std::bad_alloc.
///
///     size_t n = 0;
///     for (;; ++n) {
///         FailingAllocation failing(n);
///         try { operation(); break; } catch (const std::bad_alloc&) { ... what must hold then ... }
///     }
class FailingAllocation {
public:
    /// @param after how many calls succeed first.
    explicit FailingAllocation(size_t after);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// @return whether the failure has happened.
    static bool happened();
};

/// @return whether this thread is inside operator new: the memory that the heap is asked for now is for a caller of it.
bool IsInsideOperatorNew() noexcept;
