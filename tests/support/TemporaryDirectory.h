#pragma once

#include <cstddef>
#include <string>

/// A directory of the test's own under $TMPDIR or /tmp, removed with all it holds at the end of the scope.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return root; }

    /// @return the path of a name inside.
    std::string operator/(const std::string& name) const { return root + "/" + name; }

    /// Writes a file inside (directories on its way are made) and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string root;
};

/// @return a path of exactly `length` bytes that names `directory`/`name`: slashes may be repeated.
std::string PathOfLength(size_t length, const std::string& directory, const std::string& name);

/// @return all bytes of a file; a test failure and an empty text when it cannot be read.
std::string ReadWholeFile(const std::string& path);
