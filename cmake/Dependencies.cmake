# The two libraries that this project does not carry, as targets that are the same wherever they come from:
#
#   TinyXML::TinyXML          installed, or built here as WyvernTinyXml
#   GnuLibiconv::GnuLibiconv  installed, or built here as WyvernLibiconv. Carries no include directory: see
#                             GnuLibiconv_INCLUDE_DIR below
#
# What is built here is compiled with the flags of the preset, so sanitizers, coverage and cross compilers reach it.
# Sources are fetched by scripts/setup.

set(WYVERN_TINYXML "system" CACHE STRING
    "Where TinyXML comes from: system (installed), source (built here), source-own-string (the same, own string class)")
set_property(CACHE WYVERN_TINYXML PROPERTY STRINGS system source source-own-string)

set(WYVERN_LIBICONV "auto" CACHE STRING
    "Where GNU libiconv comes from: auto (installed where there is one, else built here), source (built here)")
set_property(CACHE WYVERN_LIBICONV PROPERTY STRINGS auto source)

get_filename_component(wyvern_deps_dir "${CMAKE_CURRENT_LIST_DIR}/../build/deps" ABSOLUTE)
set(WYVERN_TINYXML_SOURCE_DIR "${wyvern_deps_dir}/tinyxml" CACHE PATH "TinyXML's sources, for WYVERN_TINYXML=source*")
set(WYVERN_LIBICONV_SOURCE_DIR "${wyvern_deps_dir}/libiconv" CACHE PATH
    "GNU libiconv's sources, used when none is installed or WYVERN_LIBICONV=source")

# Code that is not ours is compiled as it is: none of our warnings, linters or batches.
function(wyvern_leave_alone target)
    target_compile_options(${target} PRIVATE -w)
    set_target_properties(${target} PROPERTIES
        C_STANDARD 11
        C_EXTENSIONS ON
        COMPILE_WARNING_AS_ERROR OFF
        C_CLANG_TIDY ""
        CXX_CLANG_TIDY ""
        EXPORT_COMPILE_COMMANDS OFF
        POSITION_INDEPENDENT_CODE ON
        UNITY_BUILD OFF)
endfunction()

# Copies TinyXML's sources to `directory`, leaving out of the header what Debian adds to it: the choice of the standard
# string class. The .cpp files go along because a quoted include finds the header beside them before any other.
function(wyvern_copy_tinyxml_with_own_string directory)
    foreach(file IN ITEMS tinystr.h tinystr.cpp tinyxml.cpp tinyxmlerror.cpp tinyxmlparser.cpp)
        configure_file("${WYVERN_TINYXML_SOURCE_DIR}/${file}" "${directory}/${file}" COPYONLY)
    endforeach()

    set(header "${WYVERN_TINYXML_SOURCE_DIR}/tinyxml.h")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${header}")
    file(READ "${header}" text)
    set(choice "#ifndef TIXML_USE_STL[ \t\r\n]+#define TIXML_USE_STL[ \t\r\n]+#endif[^\n]*\n")
    string(REGEX REPLACE "${choice}" "" text "${text}")
    if(text MATCHES "#[ \t]*define[ \t]+TIXML_USE_STL")
        message(FATAL_ERROR "${header} chooses the standard string class in a way that source-own-string does not know")
    endif()

    set(current "")
    if(EXISTS "${directory}/tinyxml.h")
        file(READ "${directory}/tinyxml.h" current)
    endif()
    if(NOT current STREQUAL text)
        file(WRITE "${directory}/tinyxml.h" "${text}")
    endif()
endfunction()

function(wyvern_build_tinyxml)
    if(NOT EXISTS "${WYVERN_TINYXML_SOURCE_DIR}/tinyxml.cpp")
        message(FATAL_ERROR "TinyXML's sources are not in ${WYVERN_TINYXML_SOURCE_DIR}: run scripts/setup")
    endif()

    set(directory "${WYVERN_TINYXML_SOURCE_DIR}")
    if(WYVERN_TINYXML STREQUAL "source-own-string")
        set(directory "${CMAKE_CURRENT_BINARY_DIR}/tinyxml-own-string")
        wyvern_copy_tinyxml_with_own_string("${directory}")
    endif()

    add_library(WyvernTinyXml STATIC
        "${directory}/tinystr.cpp"
        "${directory}/tinyxml.cpp"
        "${directory}/tinyxmlerror.cpp"
        "${directory}/tinyxmlparser.cpp")
    add_library(TinyXML::TinyXML ALIAS WyvernTinyXml)
    wyvern_leave_alone(WyvernTinyXml)
    target_include_directories(WyvernTinyXml SYSTEM PUBLIC "$<BUILD_INTERFACE:${directory}>")
    if(WYVERN_TINYXML STREQUAL "source")
        target_compile_definitions(WyvernTinyXml PUBLIC TIXML_USE_STL)
    endif()
    set_target_properties(WyvernTinyXml PROPERTIES EXPORT_NAME tinyxml)
endfunction()

function(wyvern_build_libiconv)
    if(NOT EXISTS "${WYVERN_LIBICONV_SOURCE_DIR}/lib/iconv.c")
        message(FATAL_ERROR
            "GNU libiconv's sources are not in ${WYVERN_LIBICONV_SOURCE_DIR}: run scripts/setup, or install the library "
            "and set WYVERN_LIBICONV=auto")
    endif()

    add_library(WyvernLibiconv STATIC
        "${WYVERN_LIBICONV_SOURCE_DIR}/lib/iconv.c"
        "${WYVERN_LIBICONV_SOURCE_DIR}/support/localcharset.c")
    add_library(GnuLibiconv::GnuLibiconv ALIAS WyvernLibiconv)
    wyvern_leave_alone(WyvernLibiconv)
    target_include_directories(WyvernLibiconv PRIVATE "${WYVERN_LIBICONV_SOURCE_DIR}/support")
    target_compile_definitions(WyvernLibiconv PRIVATE ICONV_CONST=const ENABLE_EXTRA=1)
    set_target_properties(WyvernLibiconv PROPERTIES EXPORT_NAME libiconv)
endfunction()

# Installs what this build made of the two libraries, as members of the export set WyvernTargets, and the find modules
# that the package needs for those it did not make. Headers stay behind: ours show neither library to their users.
function(wyvern_install_dependencies)
    include(GNUInstallDirs)
    if(WYVERN_NEEDS_TINYXML)
        install(FILES "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/FindTinyXML.cmake"
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wyvern COMPONENT development)
    else()
        install(TARGETS WyvernTinyXml EXPORT WyvernTargets
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/wyvern COMPONENT development)
    endif()
    if(WYVERN_NEEDS_LIBICONV)
        install(FILES "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/FindGnuLibiconv.cmake"
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Wyvern COMPONENT development)
    else()
        install(TARGETS WyvernLibiconv EXPORT WyvernTargets
            ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}/wyvern COMPONENT development)
    endif()
endfunction()

list(PREPEND CMAKE_MODULE_PATH "${CMAKE_CURRENT_LIST_DIR}")

# Whether a user of the installed package must find the library installed, too.
set(WYVERN_NEEDS_TINYXML OFF)
set(WYVERN_NEEDS_LIBICONV OFF)

if(WYVERN_TINYXML STREQUAL "system")
    find_package(TinyXML QUIET)
    if(NOT TinyXML_FOUND)
        message(FATAL_ERROR "TinyXML is not installed: run scripts/setup, or set WYVERN_TINYXML=source")
    endif()
    set(WYVERN_NEEDS_TINYXML ON)
elseif(WYVERN_TINYXML MATCHES "^source(-own-string)?$")
    wyvern_build_tinyxml()
else()
    message(FATAL_ERROR "WYVERN_TINYXML is \"${WYVERN_TINYXML}\": it is one of system, source, source-own-string")
endif()

# GnuLibiconv_INCLUDE_DIR is for the one source file that is to see GNU libiconv's header, set as a property of that
# file; empty when the compiler finds the header unasked.
if(WYVERN_LIBICONV STREQUAL "auto")
    find_package(GnuLibiconv QUIET)
elseif(WYVERN_LIBICONV STREQUAL "source")
    set(GnuLibiconv_FOUND OFF)
else()
    message(FATAL_ERROR "WYVERN_LIBICONV is \"${WYVERN_LIBICONV}\": it is one of auto, source")
endif()
if(GnuLibiconv_FOUND)
    set(WYVERN_NEEDS_LIBICONV ON)
else()
    wyvern_build_libiconv()
    set(GnuLibiconv_INCLUDE_DIR "${WYVERN_LIBICONV_SOURCE_DIR}/support")
endif()
