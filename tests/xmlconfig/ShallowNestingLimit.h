#pragma once

#include <cstddef>

/// A limit at which a parse costs microseconds; at that of the product it costs a tenth of a second.
inline constexpr size_t ShallowDepth = 12;

/// `NestsTooDeep`, compiled from the product's own source, with `ShallowDepth` for its limit.
bool NestsDeeperThanShallow(const char* text, int encoding);
