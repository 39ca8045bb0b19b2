/* No variants of ideographs, which are for transliteration, too: stands for GNU libiconv's file of the same name. What
   follows is what the function that would look for them needs to compile. */

/* The variants of the two characters that are looked for apart, U+3006 and U+30F6, less U+3000; the highest bit ends a
   list. Each is its own only variant, which is known to be missing. */
static const unsigned short cjk_variants[2] = {0x8006, 0x80f6};

/* Where the list of each ideograph begins, -1 for none: `cjk_variants_indx[wc]` becomes minus the size of a char,
   without a table of 42 KB that says so 20,992 times. */
static const char cjk_variant_none[1] = {0};
#define cjk_variants_indx -(int)sizeof cjk_variant_none
