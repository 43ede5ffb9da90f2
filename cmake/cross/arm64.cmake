# arm64 by Debian's cross compiler, against a system root of arm64 packages (cmake/system-root.sh),
# whose folder is CORVID_SYSTEM_ROOT. What is built runs by qemu's user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(cross_compiler aarch64-linux-gnu)
set(cross_emulator qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/Cross.cmake)
