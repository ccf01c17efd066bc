# What `cmake --install` puts where, by component:
#   plugin   the sensor-board plug-in
#   runtime  the platform libraries that it needs
#   sdk      headers, CMake packages and pkg-config files of the platform libraries
#   tools    camhost and virtual-head with manual pages, completion and example data

set(HEAD_PLUGIN_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/varnox)
install(TARGETS sensor_board_3u5mgxs LIBRARY DESTINATION ${HEAD_PLUGIN_DIRECTORY}
                                             COMPONENT plugin)
# A tree that is installed anywhere finds its own libraries.
set_target_properties(sensor_board_3u5mgxs PROPERTIES INSTALL_RPATH "$ORIGIN/..")

if(NOT USE_BUNDLED_PLATFORM)
  return()
endif()

include(CMakePackageConfigHelpers)
foreach(library varnox pellum)
  install(
    TARGETS ${library}
    EXPORT ${library}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT runtime
            NAMELINK_COMPONENT sdk)
  install(
    DIRECTORY ${CMAKE_SOURCE_DIR}/platform/${library}/include/${library}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT sdk)
  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/${library})
  install(
    EXPORT ${library}Targets
    NAMESPACE ${library}::
    DESTINATION ${package}
    COMPONENT sdk)
  configure_package_config_file(cmake/${library}Config.cmake.in ${library}Config.cmake
                                INSTALL_DESTINATION ${package})
  # Before 1.0 a new minor version may break what the old one promised.
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/${library}ConfigVersion.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(
    FILES ${CMAKE_BINARY_DIR}/${library}Config.cmake
          ${CMAKE_BINARY_DIR}/${library}ConfigVersion.cmake
    DESTINATION ${package}
    COMPONENT sdk)
  # Relative to where the file lies, so that the tree may lie anywhere.
  file(RELATIVE_PATH head_pc_prefix /x/${CMAKE_INSTALL_LIBDIR}/pkgconfig /x)
  configure_file(cmake/${library}.pc.in ${library}.pc @ONLY)
  install(
    FILES ${CMAKE_BINARY_DIR}/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT sdk)
endforeach()
set_target_properties(varnox pellum PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS camhost virtual-head RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# Nobody links the virtual head's library but its launcher: it lies where no other program looks.
set(HEAD_LIBRARY_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/virtual-head)
install(TARGETS virtual_head LIBRARY DESTINATION ${HEAD_LIBRARY_DIRECTORY} COMPONENT tools
                                     NAMELINK_SKIP)
set_target_properties(camhost PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
set_target_properties(virtual-head PROPERTIES INSTALL_RPATH "$ORIGIN/../${HEAD_LIBRARY_DIRECTORY}")
install(
  FILES apps/camhost/camhost.1 apps/virtual-head.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  COMPONENT tools)
foreach(program camhost/camhost virtual-head)
  get_filename_component(name ${program} NAME)
  install(
    FILES apps/${program}.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME ${name}
    COMPONENT tools)
endforeach()
# The example working directory of the virtual head, its scenarios, and the main job's commands.
install(
  DIRECTORY data/
  DESTINATION ${CMAKE_INSTALL_DATADIR}/virtual-head
  COMPONENT tools)
