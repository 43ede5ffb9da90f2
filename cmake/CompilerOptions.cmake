# Warnings, sanitizers and the compiler cache, for every target of the project.

set(CORVID_SANITIZE "" CACHE STRING
  "Sanitizer build: empty, 'address' (with undefined), 'thread', 'integer' or 'cfi'")
set_property(CACHE CORVID_SANITIZE PROPERTY STRINGS "" address thread integer cfi)
option(CORVID_LIBCXX "Build with libc++, the platform's C++ library (clang)" OFF)
option(CORVID_FUZZ "Build the libFuzzer targets too (clang)" OFF)
set(CORVID_DEVICE_OPTIONS "" CACHE STRING "Further options for the device's sources")
set(CORVID_SEPARATE "" CACHE STRING
  "With CMAKE_UNITY_BUILD: sources that do not go together with others of their library")
option(CORVID_WERROR "Treat warnings as errors" ON)

# Whether this is the build that has everything, also what does not depend on how it is compiled.
set(CORVID_PLAIN ON)
if(CORVID_SANITIZE OR CORVID_LIBCXX OR CORVID_DEVICE_OPTIONS OR CMAKE_CROSSCOMPILING)
  set(CORVID_PLAIN OFF)
endif()

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
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # glibc's readdir() and stat() fail otherwise where an inode or a position has more than 32 bits;
  # bionic's have 64 bits always.
  add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()
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
elseif(CORVID_SANITIZE STREQUAL "integer")
  # As Soong does for integer_overflow: of the device's sources (device_target), not of headers of
  # the C++ library. What wraps around ends the process.
  set(integer_sanitizer -fsanitize=signed-integer-overflow,unsigned-integer-overflow)
  set(CORVID_DEVICE_OPTIONS ${integer_sanitizer} -fno-sanitize-recover=all
    -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/integer-ignored.txt)
  add_link_options(${integer_sanitizer})
elseif(CORVID_SANITIZE STREQUAL "cfi")
  # A call through a pointer goes where a function or a class of its type is. The linker looks at the
  # whole program, so everything is compiled for it, host and tests too.
  add_compile_options(-fsanitize=cfi -fno-sanitize-trap=cfi -fno-sanitize-recover=cfi -flto=thin
    -fvisibility=hidden -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/cfi-ignored.txt)
  add_link_options(-fsanitize=cfi -fno-sanitize-trap=cfi -flto=thin -fuse-ld=lld
    -Wl,--thinlto-cache-dir=${CMAKE_BINARY_DIR}/thinlto)
elseif(CORVID_SANITIZE)
  message(FATAL_ERROR
    "CORVID_SANITIZE is '${CORVID_SANITIZE}': use address, thread, integer or cfi")
else()
  # Line numbers are what a backtrace needs, and all that is worth a quarter of the time to compile.
  # For a debugger: -DCMAKE_BUILD_TYPE=Debug.
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-O2;-g1>" -ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
endif()
if(CORVID_LIBCXX)
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-stdlib=libc++>)
  # Before the unwinder that Debian's libc++ brings along: glibc's pthread_exit unwinds with libgcc's,
  # and the two know nothing of each other's frames. In one program there is to be one.
  add_link_options(-stdlib=libc++ -Wl,--no-as-needed -lgcc_s)
endif()
if(CORVID_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # what libFuzzer sees of the code it runs
endif()
# A library that nothing needs a symbol of costs start-up time and memory.
add_link_options(-Wl,--as-needed)

# compile_separately(): as CORVID_SEPARATE says. Behind the folders' CMakeLists.txt.
function(compile_separately)
  foreach(source ${CORVID_SEPARATE})
    get_filename_component(folder ${CMAKE_SOURCE_DIR}/${source} DIRECTORY)
    while(NOT EXISTS ${folder}/CMakeLists.txt)
      get_filename_component(folder ${folder} DIRECTORY)
    endwhile()
    set_source_files_properties(${CMAKE_SOURCE_DIR}/${source} DIRECTORY ${folder}
      PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endforeach()
endfunction()
