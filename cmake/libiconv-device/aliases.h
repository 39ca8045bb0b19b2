/* The search for an encoding by its name: stands for GNU libiconv's file of the same name, which gperf generated. For
   eight names a plain list does. */

/* As long as in the whole library: together with a suffix, a name that is too long for it is too long here. */
#define MAX_WORD_LENGTH 45

struct alias {
    char names[6][9]; /* five of up to eight characters; the first empty one ends them */
    unsigned int encoding_index;
};

#define NAMES_WITHOUT_PARENTHESES(...) __VA_ARGS__
#define DEFENCODING(xxx_names, xxx, ...) {{NAMES_WITHOUT_PARENTHESES xxx_names}, ei_##xxx},
static const struct alias aliases[] = {
#include "encodings.def"
};
#undef DEFENCODING
#undef NAMES_WITHOUT_PARENTHESES

static const struct alias* find_alias(const char* name) {
    unsigned int i;
    unsigned int j;
    for (i = 0; i < sizeof(aliases) / sizeof(aliases[0]); ++i) {
        for (j = 0; aliases[i].names[j][0] != '\0'; ++j) {
            if (strcmp(aliases[i].names[j], name) == 0) {
                return &aliases[i];
            }
        }
    }
    return NULL;
}

/* Called by iconv_open, whose variable `transliterate` says that the target's name had the suffix //TRANSLIT. No name
   is known then: an open that fails is better than one that leaves out in silence what was asked for. */
#define aliases_lookup(name, length) (transliterate ? NULL : find_alias(name))
