# The paths between the installed parts.

# zbase_way(variable from to): the path from one installation directory to another, for a loader or a reader that starts in
# the first. Both may be absolute.
function(zbase_way variable from to)
    cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
    cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
    cmake_path(RELATIVE_PATH to BASE_DIRECTORY ${from})
    set(${variable} ${to} PARENT_SCOPE)
endfunction()

# zbase_pkg_config(name): NAME.pc from cmake/NAME.pc.in. Its paths are relative to itself, so that a tree can be moved.
function(zbase_pkg_config name)
    set(place ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    zbase_way(way_to_libraries ${place} ${CMAKE_INSTALL_LIBDIR})
    zbase_way(way_to_headers ${place} ${CMAKE_INSTALL_INCLUDEDIR})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${place} COMPONENT development)
endfunction()
