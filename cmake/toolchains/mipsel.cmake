# 32-bit MIPS, little endian: g++-mipsel-linux-gnu, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR mipsel)
set(triplet mipsel-linux-gnu)
set(cross_compiler_prefix mipsel-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel-static -L ${CMAKE_SYSROOT})
