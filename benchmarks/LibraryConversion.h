#pragma once

#include <cstddef>
#include <string>

/// One open, one call and one close of a conversion library, into a buffer that is there already: what no conversion by
/// that library can do without.

/// @return the bytes that were written, with no terminator behind them; (size_t)-1 when it was not converted whole.
size_t ConvertByGnuLibiconv(const char* from, const char* to, const std::string& text, char* out, size_t room);

/// The same with the iconv of the C library.
size_t ConvertByCLibrary(const char* from, const char* to, const std::string& text, char* out, size_t room);
