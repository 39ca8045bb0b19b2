#include "protocol/BaseDomain.h"

BaseDomain::BaseDomain() noexcept : domainType(0) {}

BaseDomain::BaseDomain(const BaseDomain& /*other*/) noexcept : BaseDomain() {}

// The tag stays: see the class comment. With no other data there is nothing to copy, and nothing to guard against.
// cppcheck-suppress operatorEqVarError
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
BaseDomain& BaseDomain::operator=(const BaseDomain& /*other*/) noexcept {
    return *this;
}

BaseDomain::~BaseDomain() = default;
