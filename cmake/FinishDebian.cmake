# Run by cpack on what it is about to pack into Debian packages: what Debian wants beside the installed files, and in
# another form. Everything gets the time SOURCE_DATE_EPOCH if there is one, so that two runs make the same packages.

set(from "${CPACK_WYVERN_SOURCE_DIR}")

function(wyvern_run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# As many lines of the licence as Debian's form wants them: indented, a dot for an empty one.
file(READ "${from}/LICENSE" license)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]+)" ignored "${license}")
set(WYVERN_COPYRIGHT "${CMAKE_MATCH_1}")
string(REGEX REPLACE "^.*Copyright \\(c\\) [^\n]+\n\n" "" WYVERN_LICENSE "${license}")
string(STRIP "${WYVERN_LICENSE}" WYVERN_LICENSE)
string(REPLACE "\n\n" "\n.\n" WYVERN_LICENSE "${WYVERN_LICENSE}")
string(REPLACE "\n" "\n " WYVERN_LICENSE " ${WYVERN_LICENSE}")
set(WYVERN_LIBICONV_COPYRIGHT "")
if(CPACK_WYVERN_LIBICONV_INSIDE)
    file(READ "${from}/cmake/debian/libiconv-copyright" WYVERN_LIBICONV_COPYRIGHT)
endif()

string(TIMESTAMP WYVERN_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # heeds SOURCE_DATE_EPOCH

foreach(group_and_package IN ITEMS runtime:wyvern development:wyvern-dev)
    string(REPLACE ":" ";" pair "${group_and_package}")
    list(GET pair 0 group)
    list(GET pair 1 package)
    set(root "${CPACK_TEMPORARY_DIRECTORY}/${group}")
    if(NOT IS_DIRECTORY "${root}/usr")
        message(FATAL_ERROR "there is no ${root}/usr")
    endif()

    # The licence stands in the file copyright.
    file(REMOVE_RECURSE "${root}/usr/share/doc/wyvern/LICENSE")
    file(GLOB left "${root}/usr/share/doc/wyvern/*")
    if(NOT left)
        file(REMOVE_RECURSE "${root}/usr/share/doc/wyvern")
    endif()

    set(WYVERN_CHECK_COPYRIGHT "")
    if(EXISTS "${root}/usr/bin/wyvern-check")
        file(READ "${from}/cmake/debian/check-copyright" WYVERN_CHECK_COPYRIGHT)
    endif()

    set(doc "${root}/usr/share/doc/${package}")
    configure_file("${from}/cmake/debian/copyright.in" "${doc}/copyright" @ONLY)
    configure_file("${from}/cmake/debian/changelog.in" "${doc}/changelog" @ONLY)
    configure_file("${from}/CHANGELOG.md" "${doc}/CHANGELOG.md" COPYONLY)
    file(GLOB pages "${root}/usr/share/man/man*/*.[1-8]")
    wyvern_run(gzip -9 -n -f "${doc}/changelog" "${doc}/CHANGELOG.md" ${pages})
    if(EXISTS "${root}/usr/share/man/man8/wyvern.8.gz")
        # By the program's name, too.
        file(CREATE_LINK wyvern.8.gz "${root}/usr/share/man/man8/Wyvern.8.gz" SYMBOLIC)
    endif()

    if(EXISTS "${root}/usr/share/doc/wyvern/examples/protocolconfig.gb2312.xml")
        configure_file("${from}/cmake/debian/lintian-overrides" "${root}/usr/share/lintian/overrides/${package}" COPYONLY)
    endif()

    file(GLOB_RECURSE archives "${root}/usr/lib/*.a")
    if(archives)
        wyvern_run("${CPACK_WYVERN_STRIP}" --strip-debug --remove-section=.comment --remove-section=.note
            --enable-deterministic-archives ${archives})
    endif()

    # Whatever the umask was; what is executable stays so.
    wyvern_run(chmod -R u=rwX,go=rX "${root}")
    if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
        wyvern_run(find "${root}" -exec touch -h -d "@$ENV{SOURCE_DATE_EPOCH}" {} +)
    endif()
endforeach()
