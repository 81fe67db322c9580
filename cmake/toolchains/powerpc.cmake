# 32-bit PowerPC, big endian: g++-powerpc-linux-gnu, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR powerpc)
set(triplet powerpc-linux-gnu)
set(cross_compiler_prefix powerpc-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-ppc-static -L ${CMAKE_SYSROOT})
