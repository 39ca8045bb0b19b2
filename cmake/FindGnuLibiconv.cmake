# Finds an installed GNU libiconv; the iconv of the C library is no match.
#
# Target:    GnuLibiconv::GnuLibiconv, to link. Deliberate: it carries no include directory. The header renames
#            iconv_open and its kin by macro, and another source file of a user's may want the C library's <iconv.h>.
# Variables: GnuLibiconv_FOUND, GnuLibiconv_LIBRARY;
#            GnuLibiconv_INCLUDE_DIR, for the source files that are to see the header: empty when the compiler finds it
#            unasked. Set GnuLibiconv_ROOT to look in a prefix of its own.

include(CheckCXXSourceCompiles)
include(CMakePushCheckState)
include(FindPackageHandleStandardArgs)

find_library(GnuLibiconv_LIBRARY NAMES iconv)
find_path(GnuLibiconv_HEADER_DIR NAMES iconv.h)
mark_as_advanced(GnuLibiconv_LIBRARY GnuLibiconv_HEADER_DIR)

if(GnuLibiconv_LIBRARY AND GnuLibiconv_HEADER_DIR)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_INCLUDES "${GnuLibiconv_HEADER_DIR}")
    set(CMAKE_REQUIRED_LIBRARIES "${GnuLibiconv_LIBRARY}")
    set(CMAKE_REQUIRED_QUIET "${GnuLibiconv_FIND_QUIETLY}")
    check_cxx_source_compiles("
        #include <iconv.h>
        #ifndef _LIBICONV_VERSION
        #error \"not GNU libiconv\"
        #endif
        int main() { return libiconv_open(\"utf-8\", \"gb2312\") == reinterpret_cast<iconv_t>(-1); }"
        GnuLibiconv_LINKS)
    cmake_pop_check_state()
endif()

find_package_handle_standard_args(GnuLibiconv
    REQUIRED_VARS GnuLibiconv_LIBRARY GnuLibiconv_HEADER_DIR GnuLibiconv_LINKS)

if(GnuLibiconv_FOUND)
    set(GnuLibiconv_INCLUDE_DIR "${GnuLibiconv_HEADER_DIR}")
    if(GnuLibiconv_HEADER_DIR IN_LIST CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES)
        set(GnuLibiconv_INCLUDE_DIR "")
    endif()
    if(NOT TARGET GnuLibiconv::GnuLibiconv)
        add_library(GnuLibiconv::GnuLibiconv UNKNOWN IMPORTED)
        set_target_properties(GnuLibiconv::GnuLibiconv PROPERTIES IMPORTED_LOCATION "${GnuLibiconv_LIBRARY}")
    endif()
endif()
