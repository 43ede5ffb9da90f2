# Writes OUTPUT, a header with the commit of the sources in SOURCE, if that has changed.
execute_process(COMMAND git -C ${SOURCE} rev-parse --short=12 HEAD
  OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
if(failed OR commit STREQUAL "")
  set(commit "unknown")
endif()
set(text "#pragma once\n\n#define CORVID_WIFI_COMMIT \"${commit}\"\n")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} before)
endif()
if(NOT text STREQUAL "${before}")
  file(WRITE ${OUTPUT} "${text}")
endif()
