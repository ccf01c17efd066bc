# What a Debian package holds beside what is installed: change log and copyright note, and manual pages
# are compressed. Run by CPack on the files that the packages will be made of.

foreach(component ${CPACK_COMPONENTS_ALL})
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(tree ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  set(documents ${tree}/doc/${package})
  file(MAKE_DIRECTORY ${documents})
  configure_file(${CPACK_HEAD_SOURCE}/cmake/debian/copyright ${documents}/copyright COPYONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  execute_process(
    COMMAND ${CPACK_HEAD_SOURCE}/scripts/debian-changelog.sh ${CPACK_HEAD_SOURCE}/CHANGELOG.md
            "${CPACK_DEBIAN_PACKAGE_SOURCE}" "${CPACK_PACKAGE_CONTACT}"
    OUTPUT_FILE ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB manuals ${tree}/man/man*/*)
  execute_process(COMMAND gzip -9n ${documents}/changelog ${manuals} COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD ${documents}/changelog.gz PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  # Whatever the umask of who makes them.
  execute_process(COMMAND find ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr -type d -exec chmod 755 "{}" +
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()
