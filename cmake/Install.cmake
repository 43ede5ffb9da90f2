# What `cmake --install` puts where: programs, their libraries, man pages and completions made of the
# programs' own tables, and a systemd unit for a host. DESTDIR is heeded. cpack makes a Debian package
# of it.
include(GNUInstallDirs)

# The programs' own libraries lie beside each other; the platform's have a folder that the loader does
# not search by itself.
set(own_libraries lib/corvid-wifi)
set_target_properties(corvid-wifi-service corvid-wifi corvid-sim corvid-statsd PROPERTIES
  INSTALL_RPATH "$ORIGIN/../${own_libraries};${ANDROID_LIBRARY_DIR}")
install(TARGETS corvid-wifi-service RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS corvid-wifi corvid-sim corvid-statsd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS backtrace nl80211-redirect corvid-sim-speed LIBRARY DESTINATION ${own_libraries})
install(DIRECTORY sim/scenarios DESTINATION ${CMAKE_INSTALL_DATADIR}/corvid-wifi)

find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(documents ${CMAKE_BINARY_DIR}/documents)
file(MAKE_DIRECTORY ${documents})
set(made "")

# document(KIND DESCRIPTION OUT DEPENDS): one file, made when what it is made of changes.
function(document kind description out)
  add_custom_command(OUTPUT ${documents}/${out}
    COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/cmake/documents.py
      ${kind} ${description} ${documents}/${out}
    DEPENDS ${description} ${CMAKE_SOURCE_DIR}/cmake/documents.py VERBATIM)
  set(made ${made} ${documents}/${out} PARENT_SCOPE)
endfunction()

foreach(program corvid-wifi corvid-sim)
  set(words --help-json)
  if(program STREQUAL corvid-wifi)
    set(words --help --json)
  endif()
  add_custom_command(OUTPUT ${documents}/${program}.json
    COMMAND ${program} ${words} > ${documents}/${program}.json
    DEPENDS ${program} VERBATIM)
  document(man ${documents}/${program}.json ${program}.1)
  document(bash ${documents}/${program}.json ${program}.bash)
  document(zsh ${documents}/${program}.json _${program})
  install(FILES ${documents}/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${documents}/${program}.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${program})
  install(FILES ${documents}/_${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endforeach()
set(daemon vendor.corvid.hardware.wifi@1.0-service)
# The daemon's page lists the properties as the daemon has them.
add_custom_command(OUTPUT ${documents}/${daemon}.json
  COMMAND corvid-properties > ${documents}/properties.json
  COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/cmake/documents.py with-properties
    ${CMAKE_SOURCE_DIR}/service/manual.json ${documents}/${daemon}.json ${documents}/properties.json
    ${PROJECT_VERSION}
  DEPENDS corvid-properties ${CMAKE_SOURCE_DIR}/service/manual.json
    ${CMAKE_SOURCE_DIR}/cmake/documents.py VERBATIM)
document(man ${documents}/${daemon}.json ${daemon}.8)
install(FILES ${documents}/${daemon}.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
add_custom_target(documents ALL DEPENDS ${made})

configure_file(service/corvid-wifi.service.in ${CMAKE_BINARY_DIR}/corvid-wifi.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/corvid-wifi.service DESTINATION lib/systemd/system)

# A Debian package: cpack -G DEB, in the build folder.
set(CPACK_PACKAGE_NAME corvid-wifi)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "the maintainers of corvid-wifi <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Wi-Fi tuning daemon of a headset, with its simulator")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_STRIP_FILES ON)
# The libraries' packages are found by what the programs load; ours have none.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_LIBRARY_OUTPUT_DIRECTORY} ${ANDROID_LIBRARY_DIR})
# They enable and start the service.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/cmake/debian/postinst
  ${CMAKE_SOURCE_DIR}/cmake/debian/prerm ${CMAKE_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS wpasupplicant)
include(CPack)
