# wyvern.pc: the libraries for whoever builds without CMake. Paths are relative to the file itself, so that a prefix can
# be moved, as the CMake package can.

# Appends what links `library`, an installed library's file, to the list `output`.
function(wyvern_link_installed output library)
    get_filename_component(directory "${library}" DIRECTORY)
    get_filename_component(name "${library}" NAME_WE)
    string(REGEX REPLACE "^lib" "" name "${name}")
    set(flags "-l${name}")
    if(NOT directory IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
        list(PREPEND flags "-L${directory}")
    endif()
    set(${output} ${${output}} ${flags} PARENT_SCOPE)
endfunction()

function(wyvern_write_pkg_config file)
    # An archive comes before those that it uses: from the top down.
    get_property(libraries GLOBAL PROPERTY WYVERN_LIBRARIES)
    list(REVERSE libraries)
    list(TRANSFORM libraries PREPEND "-l" OUTPUT_VARIABLE WYVERN_PC_LIBS)

    # Deliberate: none of it under Libs.private. There are archives only, which take all of it in every program.
    if(NOT WYVERN_NEEDS_TINYXML OR NOT WYVERN_NEEDS_LIBICONV)
        list(APPEND WYVERN_PC_LIBS "-L\${libdir}/wyvern")
    endif()
    if(WYVERN_NEEDS_TINYXML)
        wyvern_link_installed(WYVERN_PC_LIBS "${TinyXML_LIBRARY}")
    else()
        list(APPEND WYVERN_PC_LIBS -lWyvernTinyXml)
    endif()
    if(WYVERN_NEEDS_LIBICONV)
        wyvern_link_installed(WYVERN_PC_LIBS "${GnuLibiconv_LIBRARY}")
    else()
        list(APPEND WYVERN_PC_LIBS -lWyvernLibiconv)
    endif()
    list(JOIN WYVERN_PC_LIBS " " WYVERN_PC_LIBS)

    file(RELATIVE_PATH WYVERN_PC_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" WYVERN_PC_PREFIX "${WYVERN_PC_PREFIX}")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/wyvern.pc.in ${file} @ONLY)
endfunction()
