# 32-bit MIPS, big endian: g++-mips-linux-gnu, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(triplet mips-linux-gnu)
set(cross_compiler_prefix mips-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mips-static -L ${CMAKE_SYSROOT})
