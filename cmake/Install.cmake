# What `cmake --install` puts where, by component:
#   plugin   the sensor-board plug-in, and its tables of failures, registers and settings
#   runtime  the platform libraries that it needs
#   sdk      headers, CMake packages and pkg-config files of the platform libraries
#   tools    camhost and virtual-head with manual pages, completion and example data

# Where a target looks for its libraries: first where they lie in the build folder, then where they are installed,
# the same bytes in both. CMake would exchange one path for the other and fill the shorter one up with ":"; but an
# empty element is the working directory, where a host keeps its settings.
function(head_run_path target)
  set_target_properties(${target} PROPERTIES BUILD_WITH_INSTALL_RPATH ON INSTALL_RPATH "${ARGN}")
endfunction()

set(HEAD_PLUGIN_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/varnox)
install(TARGETS sensor_board_3u5mgxs LIBRARY DESTINATION ${HEAD_PLUGIN_DIRECTORY}
                                             COMPONENT plugin)
install(FILES ${CMAKE_SOURCE_DIR}/plugin/sensor_board_3u5mgxs.failures.json
              ${CMAKE_SOURCE_DIR}/plugin/sensor_board_3u5mgxs.registers.json
              ${CMAKE_SOURCE_DIR}/plugin/sensor_board_3u5mgxs.settings.json
        DESTINATION ${HEAD_PLUGIN_DIRECTORY} COMPONENT plugin)
# A tree that is installed anywhere finds its own libraries.
head_run_path(sensor_board_3u5mgxs "$ORIGIN" "$ORIGIN/..")

if(NOT USE_BUNDLED_PLATFORM)
  # The stack's libraries stay where they are.
  set_target_properties(sensor_board_3u5mgxs PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
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
head_run_path(varnox "$ORIGIN")
head_run_path(pellum "$ORIGIN")

install(TARGETS camhost virtual-head RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# Nobody links the virtual head's library but its launcher: it lies where no other program looks.
set(HEAD_LIBRARY_DIRECTORY ${CMAKE_INSTALL_LIBDIR}/virtual-head)
install(TARGETS virtual_head LIBRARY DESTINATION ${HEAD_LIBRARY_DIRECTORY} COMPONENT tools
                                     NAMELINK_SKIP)
head_run_path(camhost "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
head_run_path(virtual_head) # it finds its own where every program does
head_run_path(virtual-head "$ORIGIN/../lib" "$ORIGIN/../${HEAD_LIBRARY_DIRECTORY}")
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
