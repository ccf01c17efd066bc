# API pages for those who build on the installed headers: target `api_pages`, part of a whole build where doxygen is
# there. A docstring that doxygen warns about fails it.

if(NOT USE_BUNDLED_PLATFORM OR HEAD_SANITIZE OR NOT HEAD_DOXYGEN)
  return()
endif()

file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/*/include/*/*.h)
foreach(header ${HEAD_PUBLIC_HEADERS})
  list(APPEND headers ${CMAKE_SOURCE_DIR}/${header})
endforeach()
set(input ${headers} ${CMAKE_SOURCE_DIR}/docs/api.md)
list(TRANSFORM input REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE HEAD_API_INPUT)
string(JOIN " " HEAD_API_INPUT ${HEAD_API_INPUT})
set(HEAD_API_FOLDER ${CMAKE_BINARY_DIR}/api)
configure_file(cmake/Doxyfile.in Doxyfile @ONLY)

# The pages of a class that is gone must go, too.
add_custom_command(
  OUTPUT ${HEAD_API_FOLDER}/done
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${HEAD_API_FOLDER}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${HEAD_API_FOLDER}
  COMMAND ${HEAD_DOXYGEN} ${CMAKE_BINARY_DIR}/Doxyfile
  COMMAND ${CMAKE_COMMAND} -E touch ${HEAD_API_FOLDER}/done
  DEPENDS ${input} ${CMAKE_BINARY_DIR}/Doxyfile
  COMMENT "API pages"
  VERBATIM)
add_custom_target(api_pages ALL DEPENDS ${HEAD_API_FOLDER}/done)
install(
  DIRECTORY ${HEAD_API_FOLDER}/html
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/camera-head-doc
  COMPONENT doc)
