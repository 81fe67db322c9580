# 32-bit x86: g++-i686-linux-gnu. A 64-bit x86 machine runs the programs itself, and the
# dynamic ones by the sysroot's loader.
set(CMAKE_SYSTEM_PROCESSOR i386)
set(triplet i386-linux-gnu)
set(cross_compiler_prefix i686-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${CMAKE_SYSROOT}/lib/ld-linux.so.2 --library-path ${CMAKE_SYSROOT}/lib/i386-linux-gnu)
