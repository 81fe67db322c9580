# 64-bit RISC-V: g++-riscv64-linux-gnu, tests by qemu-user-static.
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(triplet riscv64-linux-gnu)
set(cross_compiler_prefix riscv64-linux-gnu-)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-riscv64-static -L ${CMAKE_SYSROOT})
