# cpack calls it with the package's files in a folder: compresses the man pages, and adds what Debian
# wants beside the files: a changelog, and why lintian's complaints do not hold.
set(usr ${CPACK_TEMPORARY_DIRECTORY}/usr)
file(GLOB_RECURSE pages ${usr}/share/man/*.[18])

execute_process(COMMAND git -C ${CMAKE_CURRENT_LIST_DIR} log -1 --format=%h%n%aD
  OUTPUT_VARIABLE commit ERROR_QUIET)
string(REGEX MATCH "([^\n]+)\n([^\n]+)" commit "${commit}")
if(commit)
  set(changelog ${usr}/share/doc/${CPACK_PACKAGE_NAME}/changelog)
  file(WRITE ${changelog} "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Built from commit ${CMAKE_MATCH_1}.

 -- ${CPACK_PACKAGE_CONTACT}  ${CMAKE_MATCH_2}
")
endif()
execute_process(COMMAND gzip -9 -n -f ${pages} ${changelog} COMMAND_ERROR_IS_FATAL ANY)

configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides
  ${usr}/share/lintian/overrides/${CPACK_PACKAGE_NAME} COPYONLY)
