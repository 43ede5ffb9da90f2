# add_hidl_library(TARGET PACKAGE ROOTS... FILES... DEPS...)
#
# Generates the C++ of one HIDL package with hidl-gen at build time and compiles it into the static
# library TARGET. Nothing generated is committed.
#   PACKAGE  the package with its version, for example vendor.corvid.hardware.wifi@1.0
#   ROOTS    "package prefix:folder" pairs, as hidl-gen's -r takes them
#   FILES    the package's .hal files: types.hal and the interfaces
#   DEPS     libraries that the generated code needs
find_program(HIDL_GEN hidl-gen REQUIRED)

function(add_hidl_library target)
  cmake_parse_arguments(ARG "" "PACKAGE" "ROOTS;FILES;DEPS" ${ARGN})
  string(REGEX REPLACE "@.*" "" name ${ARG_PACKAGE})
  string(REGEX REPLACE ".*@" "" version ${ARG_PACKAGE})
  string(REPLACE "." "/" path ${name})
  set(out ${CMAKE_BINARY_DIR}/generated/${target})
  set(dir ${out}/${path}/${version})

  set(sources "")
  foreach(file ${ARG_FILES})
    get_filename_component(stem ${file} NAME_WE)
    if(stem STREQUAL "types")
      list(APPEND sources ${dir}/types.cpp)
    else()
      string(SUBSTRING ${stem} 1 -1 base)
      list(APPEND sources ${dir}/${base}All.cpp)
    endif()
  endforeach()

  set(roots "")
  foreach(root ${ARG_ROOTS})
    list(APPEND roots -r ${root})
  endforeach()
  add_custom_command(
    OUTPUT ${sources}
    COMMAND ${HIDL_GEN} -R -p ${CMAKE_SOURCE_DIR} -L c++ -o ${out} ${roots} ${ARG_PACKAGE}
    DEPENDS ${ARG_FILES}
    COMMENT "Generating C++ of ${ARG_PACKAGE}"
    VERBATIM)
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} SYSTEM PUBLIC ${out})
  target_link_libraries(${target} PUBLIC ${ARG_DEPS})
  # Each generated file has functions of the same names for itself.
  set_target_properties(${target} PROPERTIES UNITY_BUILD OFF)
  # hidl-gen's output is not ours to clean up.
  target_compile_options(${target} PRIVATE -w)
endfunction()
