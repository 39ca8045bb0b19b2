# The launcher, its libraries and headers, and a CMake package to find them by.
include(CMakePackageConfigHelpers)

get_property(libraries GLOBAL PROPERTY WYVERN_LIBRARIES)
install(TARGETS Wyvern RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT launcher)
install(TARGETS ${libraries}
    EXPORT WyvernTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/wyvern COMPONENT development)
wyvern_install_dependencies()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Wyvern)
install(EXPORT WyvernTargets NAMESPACE Wyvern:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/WyvernConfig.cmake.in ${PROJECT_BINARY_DIR}/WyvernConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/WyvernConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/WyvernConfig.cmake ${PROJECT_BINARY_DIR}/WyvernConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
