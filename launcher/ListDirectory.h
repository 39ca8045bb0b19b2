#pragma once

#include <string>
#include <vector>

/// Appends the names of the plain entries of a directory that match a shell wildcard pattern.
///
/// A name with a leading point and an entry of type directory are left out. Every other type stays in, a symbolic link
/// whatever it points to, and an entry whose type the file system does not tell: no `stat` is made. Names come in the
/// order of readdir(3), unsorted, as the bytes that the kernel returns.
///
/// @param directory given to opendir(3) as it stands.
/// @param names     appended to, never cleared.
/// @param pattern   for fnmatch(3) with FNM_PATHNAME and FNM_PERIOD; it matches whole names. Not null.
/// @return false, with `names` as it was and nothing printed, when the directory cannot be opened; otherwise true, also
///         when nothing matched. An error of readdir ends the listing like the end of the directory.
/// Throws only std::bad_alloc, with the names found so far in `names`; the directory is closed on every path. Threads
/// may call it at once on separate lists.
bool ListDirectory(const std::string& directory, std::vector<std::string>& names, const char* pattern);
