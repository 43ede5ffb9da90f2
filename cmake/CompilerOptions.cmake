# Warnings, sanitizers and the compiler cache, for every target of the project.

set(CORVID_SANITIZE "" CACHE STRING "Sanitizer build: empty, 'address' (with undefined) or 'thread'")
set_property(CACHE CORVID_SANITIZE PROPERTY STRINGS "" address thread)
option(CORVID_FUZZ "Build the libFuzzer targets too (clang)" OFF)
option(CORVID_WERROR "Treat warnings as errors" ON)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # What it needs to keep anything that was compiled with precompiled headers.
  set(CCACHE_COMMAND ${CMAKE_COMMAND} -E env
    CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_COMMAND})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_COMMAND})
endif()

# Warnings of our own code. Generated code (cmake/Hidl.cmake) is compiled without them.
add_library(corvid_warnings INTERFACE)
target_compile_options(corvid_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wno-sign-conversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:Clang>>:-Wthread-safety>
  # gcc does not know clang's thread-safety attributes.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-attributes>
  $<$<BOOL:${CORVID_WERROR}>:-Werror>)

add_compile_options(-fno-omit-frame-pointer)
if(CORVID_SANITIZE)
  # Quicker to compile; reports keep their line numbers.
  add_compile_options(-O1 -gline-tables-only)
endif()
if(CORVID_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(CORVID_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread)
  add_link_options(-fsanitize=thread)
elseif(CORVID_SANITIZE)
  message(FATAL_ERROR "CORVID_SANITIZE is '${CORVID_SANITIZE}': use address or thread")
else()
  # Line numbers are what a backtrace needs, and all that is worth a quarter of the time to compile.
  # For a debugger: -DCMAKE_BUILD_TYPE=Debug.
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-O2;-g1>" -ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
endif()
if(CORVID_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # what libFuzzer sees of the code it runs
endif()
# A library that nothing needs a symbol of costs start-up time and memory.
add_link_options(-Wl,--as-needed)
