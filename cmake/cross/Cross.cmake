# What the toolchain files of this folder have in common.
if(NOT CORVID_SYSTEM_ROOT)
  set(CORVID_SYSTEM_ROOT "$ENV{CORVID_SYSTEM_ROOT}")
endif()
if(NOT EXISTS "${CORVID_SYSTEM_ROOT}/usr/lib")
  message(FATAL_ERROR "CORVID_SYSTEM_ROOT is '${CORVID_SYSTEM_ROOT}': no system root "
    "(./test.sh --arm64 makes one)")
endif()
set(CORVID_SYSTEM_ROOT ${CORVID_SYSTEM_ROOT} CACHE PATH "System root of the other architecture")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORVID_SYSTEM_ROOT)

set(CMAKE_C_COMPILER ${cross_compiler}-gcc)
set(CMAKE_CXX_COMPILER ${cross_compiler}-g++)
set(CMAKE_SYSROOT ${CORVID_SYSTEM_ROOT})
set(CMAKE_FIND_ROOT_PATH ${CORVID_SYSTEM_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CORVID_SYSTEM_ROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${CORVID_SYSTEM_ROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${CORVID_SYSTEM_ROOT}/usr/share/pkgconfig)
# Libraries that libraries need. The compiler's own paths know the root's multiarch folder only.
add_link_options(
  -Wl,-rpath-link,${CORVID_SYSTEM_ROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}
  -Wl,-rpath-link,${CORVID_SYSTEM_ROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

# Tests start programs by their path, so an emulated program is one that can be started.
get_property(in_try_compile GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT in_try_compile)
  set(launcher ${CMAKE_BINARY_DIR}/launch)
  execute_process(
    COMMAND cc -static -O2 -DEMULATOR="${cross_emulator}" -DSYSTEM_ROOT="${CORVID_SYSTEM_ROOT}"
      -o ${launcher} ${CMAKE_CURRENT_LIST_DIR}/launch.c
    COMMAND_ERROR_IS_FATAL ANY)
  set(CMAKE_C_LINKER_LAUNCHER ${CMAKE_CURRENT_LIST_DIR}/link.sh ${launcher})
  set(CMAKE_CXX_LINKER_LAUNCHER ${CMAKE_C_LINKER_LAUNCHER})
endif()
