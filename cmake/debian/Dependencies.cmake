# What each package depends on, as dpkg-shlibdeps finds it: by the symbols that its programs use. Run by
# CPack, in its own scope, on the files that the packages will be made of.
#
# CPack's own call of dpkg-shlibdeps does not ask for another processor's libraries, passes over those
# that it finds in no package, and adds scripts that call ldconfig.

set(folder ${CPACK_HEAD_BUILD}/debian)
set(libraries ${CPACK_HEAD_BUILD}/lib)
# The packages that are being made.
file(MAKE_DIRECTORY ${folder}/dependencies/debian)
file(WRITE ${folder}/dependencies/debian/control "")
file(READ ${folder}/shlibs shlibs)
file(READ ${folder}/head/shlibs head_shlibs)
file(WRITE ${folder}/dependencies/debian/shlibs.local "${shlibs}${head_shlibs}")

set(folders -l${libraries})
set(environment DEB_HOST_ARCH=${CPACK_DEBIAN_PACKAGE_ARCHITECTURE} LC_ALL=C)
if(CPACK_DEBIAN_PACKAGE_ARCHITECTURE STREQUAL armhf)
  # The target's libraries, with what their packages say of them.
  set(root ${CPACK_HEAD_BUILD}/debian/root)
  execute_process(COMMAND ${CPACK_HEAD_SOURCE}/scripts/armhf-root.sh ${root} COMMAND_ERROR_IS_FATAL ANY)
  foreach(path lib usr/lib)
    list(APPEND folders -l${root}/${path}/${CPACK_HEAD_TRIPLET})
  endforeach()
endif()

foreach(component plugin runtime head tools)
  string(TOUPPER ${component} upper)
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
  file(GLOB_RECURSE files ${tree}/bin/* ${tree}/lib/*.so*)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env ${environment} dpkg-shlibdeps ${folders} -O --warnings=0 ${files}
    WORKING_DIRECTORY ${folder}/dependencies
    OUTPUT_VARIABLE output
    ERROR_VARIABLE errors
    RESULT_VARIABLE status)
  if(NOT status EQUAL 0 OR NOT output MATCHES "^shlibs:Depends=([^\n]*)\n$")
    message(FATAL_ERROR "dpkg-shlibdeps: ${status}: ${output}${errors}")
  endif()
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS ${CMAKE_MATCH_1})
endforeach()
set(CPACK_DEBIAN_SDK_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${CPACK_PACKAGE_VERSION})")
set(CPACK_DEBIAN_HEADSDK_PACKAGE_DEPENDS "${CPACK_DEBIAN_HEAD_PACKAGE_NAME} (= ${CPACK_PACKAGE_VERSION})")
