# 32-bit ARM without floating point: g++-arm-linux-gnueabi, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR armel)
set(triplet arm-linux-gnueabi)
set(cross_compiler_prefix arm-linux-gnueabi-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT})
