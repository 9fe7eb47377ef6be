# The search-path utilities library: one shared library built from the subsystem folders.

add_library(velmora_pathmanagement SHARED)
add_library(VelmoraPathManagement::pathmanagement ALIAS velmora_pathmanagement)

set_target_properties(velmora_pathmanagement PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${VPATH_SOVERSION})

generate_export_header(velmora_pathmanagement
    BASE_NAME VELMORA_PATHMANAGEMENT
    EXPORT_FILE_NAME ${PROJECT_BINARY_DIR}/include/velmora/pathmanagement/export.hpp)

target_include_directories(velmora_pathmanagement PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${VPATH_INSTALL_INCLUDEDIR}>)

target_link_libraries(velmora_pathmanagement
    PUBLIC vpath_platform Boost::headers Boost::thread
    PRIVATE TBB::tbb)

vpath_set_warnings(velmora_pathmanagement)

foreach(subsystem lookup path_views path_diff path_editing cache_and_notify)
    if(EXISTS ${PROJECT_SOURCE_DIR}/${subsystem}/CMakeLists.txt)
        add_subdirectory(${subsystem})
    endif()
endforeach()
