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
add_custom_command(OUTPUT ${documents}/properties.json
  COMMAND corvid-properties > ${documents}/properties.json
  DEPENDS corvid-properties VERBATIM)

# described(PROGRAM SECTION DESCRIPTION [PROPERTIES]): the page of a program that has no words of its
# own. The daemon's lists its properties, as the daemon has them.
function(described program section description)
  add_custom_command(OUTPUT ${documents}/${program}.json
    COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_SOURCE_DIR}/cmake/documents.py complete
      ${description} ${documents}/${program}.json ${PROJECT_VERSION} ${ARGN}
    DEPENDS ${description} ${ARGN} ${CMAKE_SOURCE_DIR}/cmake/documents.py VERBATIM)
  document(man ${documents}/${program}.json ${program}.${section})
  install(FILES ${documents}/${program}.${section} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  set(made ${made} PARENT_SCOPE)
endfunction()
described(${daemon} 8 ${CMAKE_SOURCE_DIR}/service/manual.json ${documents}/properties.json)
described(corvid-statsd 1 ${CMAKE_SOURCE_DIR}/host/stats/manual.json)
add_custom_target(documents ALL DEPENDS ${made})

# The unit allows the system calls that the daemon's seccomp policies do. These are in force from its
# main on; so the start of a dynamic program comes beside, and what other processors have in the place
# of access, mkdir and readlink.
set(system_calls arch_prctl execve faccessat mkdirat readlink readlinkat)
foreach(policy device/${daemon}.policy lab/guest/host.policy)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${policy})
  file(STRINGS ${policy} calls REGEX "^[a-z0-9_]+: 1$")
  list(TRANSFORM calls REPLACE ": 1$" "")
  list(APPEND system_calls ${calls})
endforeach()
list(SORT system_calls)
list(JOIN system_calls " " system_calls)
configure_file(service/corvid-wifi.service.in ${CMAKE_BINARY_DIR}/corvid-wifi.service @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/corvid-wifi.service DESTINATION lib/systemd/system)

# A Debian package: cpack -G DEB, in the build folder.
set(CPACK_PACKAGE_NAME corvid-wifi)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Whoever builds a package for others says who they are: cpack -D CPACK_PACKAGE_CONTACT=...
set(CPACK_PACKAGE_CONTACT "the maintainers of corvid-wifi <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Wi-Fi tuning daemon of a headset, with its simulator")
set(CPACK_PACKAGE_DESCRIPTION "The daemon tunes a headset's Wi-Fi radio: it follows the
supplicant's control sockets and answers what happens on the link with
commands to the driver. On a host it runs as a service, with a folder of
its own for the device's root.

With it come corvid-wifi, which asks the daemon and tells it what to do,
and corvid-sim, which plays a headset around it from scenario files.")
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
# What Debian wants of a package's files.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/debian/Prepare.cmake)
include(CPack)
