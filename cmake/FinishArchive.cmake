# Run by cpack on the archive that it made: packs it anew with files that belong to root, whoever built it (on a device,
# root unpacks them, and runs the launcher), and, if there is a SOURCE_DATE_EPOCH, of that time.

function(wyvern_run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(time "")
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    set(time "--mtime=@$ENV{SOURCE_DATE_EPOCH}")
endif()
foreach(archive IN LISTS CPACK_PACKAGE_FILES)
    set(tree "${archive}.tree")
    file(REMOVE_RECURSE "${tree}")
    file(MAKE_DIRECTORY "${tree}")
    wyvern_run(tar -xzf "${archive}" -C "${tree}")
    wyvern_run(tar --sort=name --owner=root:0 --group=root:0 --mode=u=rwX,go=rX ${time}
        "--use-compress-program=gzip -9 -n" -cf "${archive}" -C "${tree}" "${CPACK_PACKAGE_FILE_NAME}")
    file(REMOVE_RECURSE "${tree}")
endforeach()
