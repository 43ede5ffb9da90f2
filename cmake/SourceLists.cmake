# The sources of everything that the device builds too, written to build/source-lists/MODULE below
# the CMakeLists.txt they stand in, so that a test can compare them with the Android.bp files.
set_property(GLOBAL PROPERTY CORVID_DEVICE_TARGETS "")

# device_target(TARGET): an Android.bp module builds the same sources. The module has the name of
# what the target builds: its OUTPUT_NAME where it has one, else the target's own. It is compiled
# with what a sanitizer build has for the device's sources alone.
function(device_target target)
  target_compile_options(${target} PRIVATE ${CORVID_DEVICE_OPTIONS})
  if(CORVID_DEVICE_OPTIONS)  # without which the tests' headers were compiled
    set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
  endif()
  set_property(GLOBAL APPEND PROPERTY CORVID_DEVICE_TARGETS ${target})
endfunction()

# device_hal(PACKAGE FILES...): the same for a HIDL package, whose sources are the .hal files.
function(device_hal package)
  write_source_list(${package} ${CMAKE_CURRENT_SOURCE_DIR} ${ARGN})
endfunction()

# write_source_list(MODULE FOLDER FILES...): FILES are absolute or relative to FOLDER.
function(write_source_list module folder)
  set(lines "")
  foreach(source CMakeLists.txt ${ARGN})
    get_filename_component(path ${source} ABSOLUTE BASE_DIR ${folder})
    file(RELATIVE_PATH path ${CMAKE_SOURCE_DIR} ${path})
    string(APPEND lines "${path}\n")
  endforeach()
  file(WRITE ${CMAKE_BINARY_DIR}/source-lists/${module} "${lines}")
endfunction()

function(write_source_lists)
  get_property(targets GLOBAL PROPERTY CORVID_DEVICE_TARGETS)
  foreach(target ${targets})
    get_target_property(module ${target} OUTPUT_NAME)
    if(NOT module)
      set(module ${target})
    endif()
    get_target_property(sources ${target} SOURCES)
    get_target_property(dir ${target} SOURCE_DIR)
    write_source_list(${module} ${dir} ${sources})
  endforeach()
endfunction()

# What a target was called before must not stay behind.
file(REMOVE_RECURSE ${CMAKE_BINARY_DIR}/source-lists)
