# Packages by cpack, out of the installed components:
#
#   cpack -G DEB   wyvern: the launcher and whatever else there is for running it; wyvern-dev: the component
#                  "development". For a build with the preset "package".
#   cpack -G TGZ   the component "device" under one folder of its own, nothing that would fall into place on a device by
#                  being unpacked: a device has one kind of init, and the archive the files for three. For a build
#                  that has its libraries inside, all but the C library at least, as LICENSES and README say.

install(PROGRAMS startup/S90wyvern startup/wyvern.openrc DESTINATION startup COMPONENT device EXCLUDE_FROM_ALL)
install(FILES startup/README.md startup/wyvern.service DESTINATION startup COMPONENT device EXCLUDE_FROM_ALL)
install(FILES LICENSE cmake/device/README cmake/device/LICENSES DESTINATION . COMPONENT device EXCLUDE_FROM_ALL)
install(TARGETS Wyvern RUNTIME DESTINATION bin COMPONENT device EXCLUDE_FROM_ALL)
# What the LGPL wants to go along with its libraries, from Debian's base-files; cpack stops where they are not.
install(FILES /usr/share/common-licenses/LGPL-2 /usr/share/common-licenses/LGPL-2.1
    DESTINATION licenses COMPONENT device EXCLUDE_FROM_ALL)

set(CPACK_PACKAGE_NAME wyvern)
set(CPACK_PACKAGE_VENDOR "Wyvern maintainers")
set(CPACK_PACKAGE_CONTACT "Wyvern maintainers <maintainers@wyvern.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/cmake/PackageByGenerator.cmake")

# --- DEB --------------------------------------------------------------------------------------------------------------

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # cpack would put it before the first line of each description
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME wyvern)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# killall, by which the launcher stops.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS psmisc)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"one-shot launcher of an embedded device's protocol services
Reads which protocols are enabled from one XML file, finds the start program of
each and runs it, or ends that protocol's server process. It is no daemon:
nothing of it is there between start and stop.
.
The unit for systemd is installed and not enabled.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/cmake/debian/prerm")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME wyvern-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
if(WYVERN_NEEDS_TINYXML)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libtinyxml-dev)
endif()
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"framework behind the launcher wyvern, for development
Static libraries and headers: an XML configuration tree, safe pointers with
pooled records, singletons, checked mutexes, a character-set converter and a
file layer. Found by CMake and by pkg-config.")

# What PackageByGenerator.cmake, FinishDebian.cmake and FinishArchive.cmake need to know.
set(CPACK_WYVERN_SOURCE_DIR "${PROJECT_SOURCE_DIR}")
set(CPACK_WYVERN_STRIP "${CMAKE_STRIP}")
set(CPACK_WYVERN_LIBICONV_INSIDE ON)
if(WYVERN_NEEDS_LIBICONV)
    set(CPACK_WYVERN_LIBICONV_INSIDE OFF)
endif()
get_cmake_property(CPACK_WYVERN_COMPONENTS COMPONENTS)
list(REMOVE_ITEM CPACK_WYVERN_COMPONENTS device Unspecified)

# --- TGZ --------------------------------------------------------------------------------------------------------------

set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_WYVERN_LIBRARIES_INSIDE OFF)
if(NOT WYVERN_NEEDS_TINYXML AND NOT WYVERN_NEEDS_LIBICONV AND CMAKE_EXE_LINKER_FLAGS MATCHES "-static( |$|-libstdc)")
    set(CPACK_WYVERN_LIBRARIES_INSIDE ON)
endif()
set(CPACK_WYVERN_MACHINE "${CMAKE_LIBRARY_ARCHITECTURE}")
if(NOT CPACK_WYVERN_MACHINE)
    set(CPACK_WYVERN_MACHINE "${CMAKE_SYSTEM_PROCESSOR}")
endif()
if(CMAKE_EXE_LINKER_FLAGS MATCHES "-static( |$)")
    string(APPEND CPACK_WYVERN_MACHINE "-static")
endif()

include(CPack)
foreach(component IN LISTS CPACK_WYVERN_COMPONENTS)
    if(component STREQUAL "development")
        cpack_add_component(${component} GROUP development)
    else()
        cpack_add_component(${component} GROUP runtime)
    endif()
endforeach()
