# version.txt is the version of everything that is built here. Sources have it by
# <corvid_wifi_version.h>, which the device's build makes of the same file.
set(version_headers ${CMAKE_BINARY_DIR}/generated/version)
configure_file(${CMAKE_SOURCE_DIR}/cmake/corvid_wifi_version.h.in
  ${version_headers}/corvid_wifi_version.h @ONLY)
add_library(corvid_version INTERFACE)
target_include_directories(corvid_version INTERFACE ${version_headers})
