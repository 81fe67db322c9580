# 32-bit ARM with hardware floating point: g++-arm-linux-gnueabihf, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR armhf)
set(triplet arm-linux-gnueabihf)
set(cross_compiler_prefix arm-linux-gnueabihf-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT})
