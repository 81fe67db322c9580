# 64-bit ARM: g++-aarch64-linux-gnu, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(triplet aarch64-linux-gnu)
set(cross_compiler_prefix aarch64-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${CMAKE_SYSROOT})
