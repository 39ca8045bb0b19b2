# The launcher, its libraries and headers, a CMake package and a pkg-config file to find them by, and what people read.
include(CMakePackageConfigHelpers)
include(cmake/PkgConfig.cmake)

get_property(libraries GLOBAL PROPERTY WYVERN_LIBRARIES)
install(TARGETS Wyvern RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT launcher)
if(WYVERN_BUILD_CHECK)
    install(TARGETS wyvern-check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT check)
endif()
install(TARGETS ${libraries}
    EXPORT WyvernTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wyvern COMPONENT development)
wyvern_install_dependencies()
if(WYVERN_WHOLE_PROGRAM)
    # What an archive carries for whole-program optimisation can be read by the very same compiler only, and another
    # version of it refuses to link the archive for that.
    foreach(library IN LISTS libraries)
        install(CODE "execute_process(
            COMMAND \"${CMAKE_STRIP}\" --strip-debug --wildcard --remove-section=.gnu.lto_* --remove-section=.gnu.debuglto_*
                \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/$<TARGET_FILE_NAME:${library}>\"
            COMMAND_ERROR_IS_FATAL ANY)" COMPONENT development)
    endforeach()
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Wyvern)
install(EXPORT WyvernTargets NAMESPACE Wyvern:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/WyvernConfig.cmake.in ${PROJECT_BINARY_DIR}/WyvernConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/WyvernConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/WyvernConfig.cmake ${PROJECT_BINARY_DIR}/WyvernConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
wyvern_write_pkg_config(${PROJECT_BINARY_DIR}/wyvern.pc)
install(FILES ${PROJECT_BINARY_DIR}/wyvern.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)

# For people: the manual, the schema that editors read, configurations to begin with.
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/protocolconfig.xml.5
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT documentation)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/wyvern.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT documentation)
if(WYVERN_BUILD_CHECK)
    install(FILES ${PROJECT_SOURCE_DIR}/docs/man/wyvern-check.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT documentation)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/docs/protocolconfig.xsd
    DESTINATION ${CMAKE_INSTALL_DATADIR}/wyvern COMPONENT documentation)
install(FILES
    ${PROJECT_SOURCE_DIR}/examples/protocolconfig.utf-8.xml ${PROJECT_SOURCE_DIR}/examples/protocolconfig.gb2312.xml
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT documentation)

# For the start of a device; nothing of it is switched on by being there.
install(FILES ${PROJECT_SOURCE_DIR}/startup/wyvern.service DESTINATION lib/systemd/system COMPONENT startup)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/startup/S90wyvern ${PROJECT_SOURCE_DIR}/startup/wyvern.openrc
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/startup COMPONENT startup)
install(FILES ${PROJECT_SOURCE_DIR}/startup/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/startup COMPONENT startup)
