# Included by the toolchain files of this folder, which first set:
#
#   CMAKE_SYSTEM_PROCESSOR  the architecture, as in the names of preset and sysroot
#   triplet                 the target, as in the names of the distribution's cross compiler and folders
#
# TESSEL_SYSROOT is a folder with the target's headers and libraries, made by scripts/make_sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(TESSEL_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot-${CMAKE_SYSTEM_PROCESSOR}
    CACHE PATH "Headers and libraries of the target")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TESSEL_SYSROOT)
if(NOT EXISTS ${TESSEL_SYSROOT})
  message(FATAL_ERROR "There is no sysroot ${TESSEL_SYSROOT}: make it with scripts/make_sysroot")
endif()

get_filename_component(CMAKE_SYSROOT ${TESSEL_SYSROOT} ABSOLUTE)
set(CMAKE_CXX_COMPILER ${cross_compiler_prefix}g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
