# Finds an installed TinyXML (the 2.x line of one class per XML node, not its successor TinyXML-2).
#
# Target:    TinyXML::TinyXML
# Variables: TinyXML_FOUND, TinyXML_INCLUDE_DIR, TinyXML_LIBRARY; set TinyXML_ROOT to look in a prefix of its own.

include(FindPackageHandleStandardArgs)

find_path(TinyXML_INCLUDE_DIR NAMES tinyxml.h)
find_library(TinyXML_LIBRARY NAMES tinyxml)
find_package_handle_standard_args(TinyXML REQUIRED_VARS TinyXML_LIBRARY TinyXML_INCLUDE_DIR)
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_LIBRARY)

if(TinyXML_FOUND AND NOT TARGET TinyXML::TinyXML)
    # The library's classes are laid out around either its own string class or the standard one. Its users must choose
    # alike, and not every distribution writes the choice into the header: ask for a symbol that only one kind has.
    include(CheckCXXSourceCompiles)
    include(CMakePushCheckState)
    cmake_push_check_state(RESET)
    set(CMAKE_REQUIRED_DEFINITIONS -DTIXML_USE_STL)
    set(CMAKE_REQUIRED_INCLUDES "${TinyXML_INCLUDE_DIR}")
    set(CMAKE_REQUIRED_LIBRARIES "${TinyXML_LIBRARY}")
    set(CMAKE_REQUIRED_QUIET "${TinyXML_FIND_QUIETLY}")
    check_cxx_source_compiles("
        #include <tinyxml.h>
        int main() { return TiXmlElement(std::string(\"name\")).Type(); }" TinyXML_USES_STD_STRING)
    cmake_pop_check_state()

    add_library(TinyXML::TinyXML UNKNOWN IMPORTED)
    set_target_properties(TinyXML::TinyXML PROPERTIES
        IMPORTED_LOCATION "${TinyXML_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${TinyXML_INCLUDE_DIR}"
        INTERFACE_COMPILE_DEFINITIONS "$<$<BOOL:${TinyXML_USES_STD_STRING}>:TIXML_USE_STL>")
endif()
