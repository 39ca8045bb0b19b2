/* Stands for GNU libiconv's file of the same name, which iconv.c includes behind the enumeration of the encodings. */

/* What an encoding has matters for transliteration only, and translit.h beside this file has none. */
enum { HAVE_ACCENTS = 1, HAVE_QUOTATION_MARKS = 2, HAVE_HANGUL_JAMO = 4 };
enum { ei_euc_cn_oflags = 0, ei_ces_gbk_oflags = 0, ei_utf8_oflags = 0, ei_utf16_oflags = 0 };

/* Encodings that the library's code knows by number and that are left out: numbers that no descriptor carries. */
enum {
    ei_ucs2 = ei_for_broken_compilers_that_dont_like_trailing_commas,
    ei_ucs2be,
    ei_ucs2le,
    ei_ucs2internal,
    ei_ucs2swapped,
    ei_ucs4,
    ei_ucs4be,
    ei_ucs4le,
    ei_ucs4internal,
    ei_ucs4swapped,
    ei_utf16be,
    ei_utf16le,
    ei_utf32,
    ei_utf32be,
    ei_utf32le,
    ei_iso8859_1,
    ei_local_char,
    ei_local_wchar_t
};
