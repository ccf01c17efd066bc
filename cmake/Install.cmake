# What `cmake --install` puts where, by component:
#   plugin   the sensor-board plug-in, its tables of failures, registers and settings, and udev's rules for its devices
#   runtime  the platform libraries that it needs
#   sdk      headers, CMake packages and pkg-config files of the platform libraries; examples
#   head     the virtual head's library
#   headsdk  headers, CMake package and pkg-config file of the virtual head, for tests; an example
#   doc      API pages, where doxygen is there (cmake/ApiPages.cmake)
#   decoders protocol decoders for logic analysers (decoders/CMakeLists.txt)
#   python   the Python package for test benches (python/CMakeLists.txt)
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

# Who may open a head's device files. udev looks in this folder of the prefix /usr.
install(
  FILES ${CMAKE_SOURCE_DIR}/plugin/udev/60-camera-head.rules
  DESTINATION lib/udev/rules.d
  COMPONENT plugin)

include(CMakePackageConfigHelpers)
# A library for others to build on: the library itself, and what finds it.
#   head_install_library(TARGET PACKAGE PKG_CONFIG_NAME RUNTIME_COMPONENT SDK_COMPONENT)
# PACKAGE is what find_package() takes, and the namespace of the target.
function(head_install_library target package pkg_config runtime sdk)
  install(
    TARGETS ${target}
    EXPORT ${package}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT ${runtime}
            NAMELINK_COMPONENT ${sdk})
  set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  install(
    EXPORT ${package}Targets
    NAMESPACE ${package}::
    DESTINATION ${folder}
    COMPONENT ${sdk})
  configure_package_config_file(cmake/${package}Config.cmake.in ${package}Config.cmake
                                INSTALL_DESTINATION ${folder})
  # Before 1.0 a new minor version may break what the old one promised.
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/${package}ConfigVersion.cmake
                                   COMPATIBILITY SameMinorVersion)
  install(
    FILES ${CMAKE_BINARY_DIR}/${package}Config.cmake
          ${CMAKE_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${folder}
    COMPONENT ${sdk})
  # Relative to where the file lies, so that the tree may lie anywhere.
  file(RELATIVE_PATH head_pc_prefix /x/${CMAKE_INSTALL_LIBDIR}/pkgconfig /x)
  configure_file(cmake/${pkg_config}.pc.in ${pkg_config}.pc @ONLY)
  install(
    FILES ${CMAKE_BINARY_DIR}/${pkg_config}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT ${sdk})
  # Whoever includes the headers needs this much; the library itself is built with more.
  target_compile_features(${target} INTERFACE cxx_std_17)
endfunction()

foreach(library varnox pellum)
  head_install_library(${library} ${library} ${library} runtime sdk)
  install(
    DIRECTORY ${CMAKE_SOURCE_DIR}/platform/${library}/include/${library}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT sdk)
endforeach()
install(
  DIRECTORY examples/host examples/board
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvarnox-dev/examples
  COMPONENT sdk)

head_install_library(virtual_head VirtualHead virtual-head head headsdk)
foreach(header ${HEAD_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(
    FILES ${header}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/virtual-head/${folder}
    COMPONENT headsdk)
endforeach()
install(
  DIRECTORY examples/head-test
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvirtual-head-dev/examples
  COMPONENT headsdk)
head_run_path(varnox "$ORIGIN")
head_run_path(pellum "$ORIGIN")

install(TARGETS camhost virtual-head RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
head_run_path(camhost "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
head_run_path(virtual_head) # it finds its own where every program does
head_run_path(virtual-head "$ORIGIN/../lib" "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
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
