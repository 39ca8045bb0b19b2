#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// The character sets that the system knows. Any other value counts as GBK.
enum CharSetType : uint32_t { CharSetGb2312 = 0, CharSetUtf8 = 1, CharSetGbk = 2, CharSetUtf16 = 3 };

/// @return the name by which GNU libiconv knows a character set: "gb2312", "utf-8", "utf-16", or "gbk" for any other
///         value. Lower case, without a suffix, so nothing is transliterated or left out.
std::string GetCharSetName(CharSetType type);

/// One conversion descriptor of GNU libiconv, and the duty to close it.
///
/// Owns:    the descriptor. Not copied. Nothing is kept between objects: each starts in the initial conversion state.
/// Fails:   by result; the open only by a warning on the console log and by `Convert` answering -1 from then on. A
///          failed descriptor is never handed to the library.
/// Threads: one at a time per object; separate objects are independent.
class CharSetConverter {
public:
    /// Opens the conversion from one library name to another.
    CharSetConverter(const char* fromName, const char* toName);
    ~CharSetConverter();
    CharSetConverter(const CharSetConverter&) = delete;
    CharSetConverter& operator=(const CharSetConverter&) = delete;

    /// Makes exactly one call of the library and puts a zero byte where its output ended.
    ///
    /// The call stops at the first invalid or incomplete sequence, at the first character that the target set lacks,
    /// and when the output is full (GNU libiconv's iconv(3)). The library itself drops the tag characters U+E0000 to
    /// U+E007F that a target set lacks, and goes on; in UTF-16 it writes U+FFFD for U+FFFE.
    /// @param inBuf   `inLen` bytes.
    /// @param outBuf  room for `*outLeft` bytes, and for the zero byte behind them when the library fills them all.
    /// @param outLeft bytes left of the output: updated as the library does, the zero byte not counted.
    /// @return the library's result unchanged: the number of irreversible conversions, or (size_t)-1 with errno set.
    ///         After a failed open (size_t)-1 with errno EBADF, an empty text in `outBuf` and `*outLeft` as it was.
    size_t Convert(const char* inBuf, size_t inLen, char* outBuf, size_t* outLeft);

    /// Converts a whole text, in one call of the library into one array of six times its length and one byte.
    ///
    /// `out` receives what was converted up to the first zero byte of the result. Deliberate: a text that cannot be
    /// converted whole is cut there without a word, and a failed open leaves `out` empty. Throws std::bad_alloc, or
    /// std::bad_array_new_length on a machine whose memory such an array exceeds, with `out` as it was.
    static void Convert(const std::string& in, std::string& out, CharSetType from, CharSetType to);

private:
    void* descriptor; ///< the library's iconv_t; (iconv_t)-1 after a failed open
};

/// Converts UTF-8 into the C library's wide characters, with the C library's own iconv(3), in one call.
///
/// @param inLen    bytes of `in`.
/// @param outBytes bytes of room at `out`; what is not written stays as it was, and no terminator is added.
/// @return 0 when all was converted; -1 for invalid or incomplete input, a full output, or a conversion that could not
///         be opened.
int32_t Utf8ToWideBuffer(const char* in, uint32_t inLen, wchar_t* out, uint32_t outBytes);

/// Converts a whole UTF-8 text.
///
/// `out` receives the text up to its first zero character, or becomes empty when the conversion fails: unlike
/// `CharSetConverter::Convert` no partial result is kept, since a cut path would name another file. The length is taken
/// modulo 2^32. Throws std::bad_array_new_length when that length plus one is negative as a signed 32-bit number, and
/// std::bad_alloc; `out` is unchanged then.
/// @return as `Utf8ToWideBuffer`.
int32_t Utf8ToWide(const std::string& in, std::wstring& out);
