#pragma once

#include <cstdint>
#include <cstdio>

/// How a file is opened. Exactly one of `FileRead`, `FileWrite` and `FileUpdate`; other bits than these are ignored.
enum FileOpenFlags : uint8_t {
    FileRead = 0x01,     ///< read an existing file
    FileWrite = 0x02,    ///< write only, at the end unless `FileTruncate` is set
    FileUpdate = 0x04,   ///< read and write
    FileCreate = 0x20,   ///< with `FileUpdate`: make the file when it is missing
    FileTruncate = 0x40, ///< with `FileWrite`, or with `FileUpdate` and `FileCreate`: empty the file on open
};

/// One C stdio stream, opened in binary mode from a set of open flags, and the duty to close it.
///
/// Owns:    the stream. Not copied. A second open on an open object replaces the stream without closing the first.
/// Fails:   by result: false from the opens and Close, -1 from Read, Write and GetSize. Nothing is logged; errno stays
///          as the C library set it. Only OpenUtf8 throws.
/// Threads: one at a time per object; separate objects are independent.
class FileAccess {
public:
    FileAccess() noexcept;
    /// Closes the stream; a failure of that close is lost, so a writer calls `Close` first.
    ~FileAccess();
    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;

    /// Writes the mode text of fopen(3) that stands for a set of flags.
    ///
    /// | flags | mode |
    /// |---|---|
    /// | FileRead | "rb" |
    /// | FileWrite, with FileTruncate | "ab", "wb" |
    /// | FileUpdate, with FileCreate, with FileCreate and FileTruncate | "r+b", "a+b", "w+b" |
    ///
    /// @param mode room for 4 characters.
    /// @return false unless exactly one access flag is set; `mode` may hold the text of the first one then.
    static bool MakeOpenMode(uint8_t flags, char* mode) noexcept;
    static bool MakeOpenMode(uint8_t flags, wchar_t* mode) noexcept;

    /// Opens by a path that goes to fopen(3) unchanged.
    /// @return whether this call opened a stream. A null path or refused flags leave the stream as it was; a failed fopen leaves
    ///         none.
    bool Open(const char* path, uint8_t flags) noexcept;

    /// Opens by a wide path, converted with wcstombs(3) in the process's locale, which is the C locale unless the
    /// program sets another; the system never does.
    /// @return as `Open`. A path that does not convert, or whose converted form has 1024 bytes or more, is refused and
    ///         leaves the stream as it was: what wcstombs leaves of it would name another file.
    bool OpenWide(const wchar_t* path, uint8_t flags) noexcept;

    /// Opens by a UTF-8 path, widened with `Utf8ToWide`; one that is not UTF-8 becomes the empty path, which never
    /// opens. In the C locale only paths in ASCII open.
    /// @return as `OpenWide`.
    /// Throws std::logic_error for a null path, unlike the other opens, and std::bad_alloc.
    bool OpenUtf8(const char* path, uint8_t flags);

    /// Reads up to `count` bytes into `buf`. On a stream opened with FileUpdate the C library wants the file's end, or
    /// a close, between a Write and a Read.
    /// @return the bytes read, 0 once the end was reached, -1 for a null `buf`, a closed object or a stream in error.
    ///         The count is 32 bits and the result signed: a transfer of 2 GiB or more comes back negative.
    int32_t Read(void* buf, uint32_t count) noexcept;

    /// Writes `count` bytes of `buf`; a success says that stdio took them, and only `Close` that the kernel did.
    /// @return the bytes written, -1 as `Read`. An error of the stream stays: after one every call answers -1, but for
    ///         a Read at the end of the file, 0.
    int32_t Write(const void* buf, uint32_t count) noexcept;

    /// Closes the stream, if one is open; afterwards none is, whatever the result.
    /// @return true when nothing was open or all that was written has reached the kernel.
    bool Close() noexcept;

    /// @return the size of the file in bytes as fstat(2) gives it (bytes still in stdio's buffer do not count), -1 for
    ///         a closed object or when fstat fails. The position in the stream stays.
    int64_t GetSize() noexcept;

private:
    FILE* stream; ///< null while nothing is open
};
