# armhf, whose words have 32 bits, in the same way as arm64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(cross_compiler arm-linux-gnueabihf)
set(cross_emulator qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/Cross.cmake)
# That gcc before 7.1 passed some arguments in another way.
add_compile_options(-Wno-psabi)
