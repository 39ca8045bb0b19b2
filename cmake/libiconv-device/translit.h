/* No transliteration: stands for GNU libiconv's file of the same name. aliases.h lets no descriptor ask for it; what
   follows is what the function that would do it needs to compile. */

static const unsigned int translit_data[1] = {0};
#define translit_index(wc) (-1)
