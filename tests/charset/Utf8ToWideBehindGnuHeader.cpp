// The wide conversion as it is compiled on a machine where GNU libiconv's header comes first in the compiler's path.
#include <iconv.h>
#ifndef _LIBICONV_VERSION
#error "this is not GNU libiconv's header: its renaming of the functions would not be tested"
#endif

#include "charset/Utf8ToWide.cpp"
