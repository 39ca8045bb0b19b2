#pragma once

#include <cstdint>

/// Base of the domain records: a tag that names the kind of record, and a virtual destructor.
///
/// Owns:    nothing.
/// Copying: never copies the tag. It says what the object is, not what it holds, so each constructor sets its own and
///          an assignment leaves it alone.
/// Threads: one at a time per object.
class BaseDomain {
public:
    BaseDomain() noexcept;
    BaseDomain(const BaseDomain& other) noexcept;
    BaseDomain& operator=(const BaseDomain& other) noexcept;
    virtual ~BaseDomain();

    /// @return the kind of record: 0 for a plain `BaseDomain`, the derived class's own number otherwise.
    int32_t getDomainType() const noexcept { return domainType; }

protected:
    int32_t domainType;
};
