# The sources of every target that the device builds too, written to build/source-lists/TARGET so
# that a test can compare them with the Android.bp files.
set_property(GLOBAL PROPERTY CORVID_DEVICE_TARGETS "")

# device_target(TARGET): TARGET is built by an Android.bp module of the same name too.
function(device_target target)
  set_property(GLOBAL APPEND PROPERTY CORVID_DEVICE_TARGETS ${target})
endfunction()

function(write_source_lists)
  get_property(targets GLOBAL PROPERTY CORVID_DEVICE_TARGETS)
  foreach(target ${targets})
    get_target_property(sources ${target} SOURCES)
    get_target_property(dir ${target} SOURCE_DIR)
    file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${dir})
    set(lines "")
    foreach(source ${sources})
      string(APPEND lines "${folder}/${source}\n")
    endforeach()
    file(WRITE ${CMAKE_BINARY_DIR}/source-lists/${target} "${lines}")
  endforeach()
endfunction()
