#pragma once

#include <string>

/// Reads a whole file.
///
/// @param path given to fopen(3) as it stands.
/// @return true with all bytes of the file, zero bytes too, in `out`; false with `out` as it was when the file cannot
///         be opened, is empty or has no size (a device), has 2 GiB or more, cannot be read (a directory), or yields
///         fewer bytes than its size.
/// Throws only std::bad_alloc and, where size_t has 32 bits, std::length_error for a file of a gigabyte or more. The file
/// is closed on every path. Threads may call it at once.
bool ReadFileToString(const std::string& path, std::string& out);

/// Replaces a file's content, or makes the file.
///
/// @param path UTF-8; only paths in ASCII open (`FileAccess::OpenUtf8`).
/// @return true when every byte was written and the close succeeded too: a full disk often shows only there. False when
///         the file cannot be opened, or when the text has 2 GiB or more, which leaves the file as it was; after a
///         failed write the file holds what was written.
/// Throws only std::bad_alloc. The file is closed on every path. Threads may call it at once.
bool WriteStringToFile(const std::string& path, const std::string& text);
