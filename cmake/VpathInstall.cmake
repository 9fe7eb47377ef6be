# Installation and the CMake package: find_package(VelmoraPathManagement) and link
# VelmoraPathManagement::VelmoraPathManagement. The libraries name their installed include folder
# themselves (VPATH_INSTALL_INCLUDEDIR), so each consumer gets it once.

set(VPATH_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelmoraPathManagement)

install(TARGETS vpath_platform velmora_pathmanagement velmora_searchpath VelmoraPathManagement
    EXPORT VelmoraPathManagementTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(DIRECTORY
        ${PROJECT_SOURCE_DIR}/include/
        ${PROJECT_SOURCE_DIR}/platform/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/scan/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/path_cache/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/watcher/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/path_definition/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/manager/include/
        ${PROJECT_SOURCE_DIR}/platform/searchpath/service/include/
        ${PROJECT_BINARY_DIR}/include/
        ${PROJECT_BINARY_DIR}/platform/include/
        ${PROJECT_BINARY_DIR}/platform/searchpath/include/
    DESTINATION ${VPATH_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.hpp")

install(EXPORT VelmoraPathManagementTargets
    NAMESPACE VelmoraPathManagement::
    DESTINATION ${VPATH_CONFIG_DIR})

configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VelmoraPathManagementConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VelmoraPathManagementConfig.cmake
    INSTALL_DESTINATION ${VPATH_CONFIG_DIR})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/VelmoraPathManagementConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/VelmoraPathManagementConfig.cmake
    ${PROJECT_BINARY_DIR}/VelmoraPathManagementConfigVersion.cmake
    DESTINATION ${VPATH_CONFIG_DIR})

# The same for pkg-config users: pkg-config --cflags --libs velmora-pathmanagement. Its folders
# are the install prefix's; a copy unpacked elsewhere is used with
# pkg-config --define-variable=prefix=DIR.
set(VPATH_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(${PROJECT_SOURCE_DIR}/cmake/velmora-pathmanagement.pc.in
    ${PROJECT_BINARY_DIR}/velmora-pathmanagement.pc.configured @ONLY)
# The libraries' file names come from their targets.
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/velmora-pathmanagement.pc
    INPUT ${PROJECT_BINARY_DIR}/velmora-pathmanagement.pc.configured)
install(FILES ${PROJECT_BINARY_DIR}/velmora-pathmanagement.pc DESTINATION ${VPATH_PC_DIR})
