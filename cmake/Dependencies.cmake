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

set(WYVERN_LIBICONV_ENCODINGS "all" CACHE STRING
    "What GNU libiconv knows: all, device (only gb2312, gbk, utf-8 and utf-16; built here whatever is installed)")
set_property(CACHE WYVERN_LIBICONV_ENCODINGS PROPERTY STRINGS all device)

get_filename_component(wyvern_deps_dir "${CMAKE_CURRENT_LIST_DIR}/../build/deps" ABSOLUTE)
set(WYVERN_TINYXML_SOURCE_DIR "${wyvern_deps_dir}/tinyxml" CACHE PATH "TinyXML's sources, for WYVERN_TINYXML=source*")
set(WYVERN_LIBICONV_SOURCE_DIR "${wyvern_deps_dir}/libiconv" CACHE PATH
    "GNU libiconv's sources, used when none is installed or WYVERN_LIBICONV=source")

# Code that is not ours is compiled as it is: none of our warnings or linters.
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
    if(CMAKE_BUILD_TYPE STREQUAL "Release")
        # Most of the launcher's instructions are here: as one unit, 3 % of them go for 4 KB.
        target_compile_options(WyvernTinyXml PRIVATE -O3)
        set_target_properties(WyvernTinyXml PROPERTIES UNITY_BUILD ON)
    endif()
    set_target_properties(WyvernTinyXml PROPERTIES EXPORT_NAME tinyxml)

    # Position-independent code leaves each function to be replaced by another library's, and so builds none into its
    # callers; these are called for every character of a text. In Debug builds, those of the sanitizers, the library's
    # own assertions stay.
    set(is_release $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
    target_compile_options(WyvernTinyXml PRIVATE $<${is_release}:-fno-semantic-interposition>)
    target_compile_definitions(WyvernTinyXml PRIVATE $<${is_release}:NDEBUG>)
endfunction()

# wyvern_add_libiconv(<target> all|device)
#
# GNU libiconv as a static library. For `device`, the files in libiconv-device/ take the place of those by which the
# library lists its encodings. They are found first because a copy of its iconv.c is compiled, which stands apart: a
# quoted include looks beside the file that has it before anywhere else.
function(wyvern_add_libiconv target encodings)
    if(NOT EXISTS "${WYVERN_LIBICONV_SOURCE_DIR}/lib/iconv.c")
        message(FATAL_ERROR
            "GNU libiconv's sources are not in ${WYVERN_LIBICONV_SOURCE_DIR}: run scripts/setup, or install the "
            "library and set WYVERN_LIBICONV=auto and WYVERN_LIBICONV_ENCODINGS=all")
    endif()

    set(lib "${WYVERN_LIBICONV_SOURCE_DIR}/lib")
    set(support "${WYVERN_LIBICONV_SOURCE_DIR}/support")
    if(encodings STREQUAL "device")
        set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}/iconv.c")
        configure_file("${lib}/iconv.c" "${source}" COPYONLY)
    else()
        set(source "${lib}/iconv.c")
    endif()

    add_library(${target} STATIC "${source}" "${support}/localcharset.c")
    wyvern_leave_alone(${target})
    target_include_directories(${target} PRIVATE "${support}")
    target_compile_definitions(${target} PRIVATE ICONV_CONST=const)
    # No exception passes through C code that calls nothing of ours back: tables for that would be 10 KB.
    target_compile_options(${target} PRIVATE -fno-asynchronous-unwind-tables)
    if(encodings STREQUAL "device")
        target_include_directories(${target} BEFORE PRIVATE
            "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/libiconv-device" "${lib}")
        # LIBICONV_PLUG is the library's own word for its three standard functions without the extensions, hooks and
        # fallbacks. It goes with their standard names, which the C library has, too.
        target_compile_definitions(${target} PRIVATE
            LIBICONV_PLUG iconv_open=libiconv_open iconv=libiconv iconv_close=libiconv_close)
    else()
        target_compile_definitions(${target} PRIVATE ENABLE_EXTRA=1)
    endif()
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
if(NOT WYVERN_LIBICONV MATCHES "^(auto|source)$")
    message(FATAL_ERROR "WYVERN_LIBICONV is \"${WYVERN_LIBICONV}\": it is one of auto, source")
endif()
if(NOT WYVERN_LIBICONV_ENCODINGS MATCHES "^(all|device)$")
    message(FATAL_ERROR "WYVERN_LIBICONV_ENCODINGS is \"${WYVERN_LIBICONV_ENCODINGS}\": it is one of all, device")
endif()
if(WYVERN_LIBICONV STREQUAL "auto" AND WYVERN_LIBICONV_ENCODINGS STREQUAL "all")
    find_package(GnuLibiconv QUIET)
else()
    set(GnuLibiconv_FOUND OFF)
endif()
if(GnuLibiconv_FOUND)
    set(WYVERN_NEEDS_LIBICONV ON)
else()
    wyvern_add_libiconv(WyvernLibiconv ${WYVERN_LIBICONV_ENCODINGS})
    add_library(GnuLibiconv::GnuLibiconv ALIAS WyvernLibiconv)
    set_target_properties(WyvernLibiconv PROPERTIES EXPORT_NAME libiconv)
    set(GnuLibiconv_INCLUDE_DIR "${WYVERN_LIBICONV_SOURCE_DIR}/support")
endif()
