# The platform's libraries as Debian packages them.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
pkg_check_modules(NL3 REQUIRED IMPORTED_TARGET libnl-3.0)
pkg_check_modules(NLGENL3 REQUIRED IMPORTED_TARGET libnl-genl-3.0)
# libnl for the daemon, which starts sooner and has 20 kB less of its own memory if it loads no shared
# library for it. Everything else takes the shared one: tests replace its functions.
find_library(NL3_ARCHIVE libnl-3.a)
find_library(NLGENL3_ARCHIVE libnl-genl-3.a)
add_library(netlink INTERFACE)
target_include_directories(netlink INTERFACE ${NL3_INCLUDE_DIRS} ${NLGENL3_INCLUDE_DIRS})
if(NL3_ARCHIVE AND NLGENL3_ARCHIVE)
  set(archived $<BOOL:$<TARGET_PROPERTY:CORVID_NETLINK_ARCHIVES>>)
  target_link_libraries(netlink INTERFACE
    "$<IF:${archived},${NLGENL3_ARCHIVE};${NL3_ARCHIVE},PkgConfig::NLGENL3;PkgConfig::NL3>")
else()
  target_link_libraries(netlink INTERFACE PkgConfig::NLGENL3 PkgConfig::NL3)
endif()
find_package(Microsoft.GSL CONFIG REQUIRED)
find_package(nlohmann_json REQUIRED)
pkg_check_modules(LIBEVENT REQUIRED IMPORTED_TARGET libevent libevent_pthreads)

# liblog, libbase, libutils, libcutils: headers in their own include folder, libraries in the
# multiarch "android" folder, which the loader does not search by itself (hence the rpath).
find_path(ANDROID_INCLUDE_DIR log/log.h PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
foreach(lib log base utils cutils)
  find_library(ANDROID_${lib}_LIBRARY ${lib}
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
  add_library(Android::${lib} SHARED IMPORTED)
  set_target_properties(Android::${lib} PROPERTIES
    IMPORTED_LOCATION ${ANDROID_${lib}_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_INCLUDE_DIR})
endforeach()
if(CORVID_LIBCXX)
  add_library(libbase_with_libcxx STATIC
    ${CMAKE_SOURCE_DIR}/tests/support/LibbaseWithLibcxx.cpp)
  target_include_directories(libbase_with_libcxx SYSTEM PRIVATE ${ANDROID_INCLUDE_DIR})
  target_link_libraries(libbase_with_libcxx PRIVATE corvid_warnings)
  set_target_properties(Android::base PROPERTIES INTERFACE_LINK_LIBRARIES libbase_with_libcxx)
endif()
get_filename_component(ANDROID_LIBRARY_DIR ${ANDROID_log_LIBRARY} DIRECTORY)
set(CMAKE_BUILD_RPATH ${ANDROID_LIBRARY_DIR})

# The supplicant's control-interface client library.
find_path(WPA_CTRL_INCLUDE_DIR wpa_ctrl.h REQUIRED)
find_library(WPA_CLIENT_LIBRARY wpa_client REQUIRED)
add_library(wpa_client STATIC IMPORTED)
set_target_properties(wpa_client PROPERTIES
  IMPORTED_LOCATION ${WPA_CLIENT_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${WPA_CTRL_INCLUDE_DIR})
