# The libraries of the program: Readline, and what a static Readline or an older C library also needs.
include(CheckCXXSourceCompiles)
# The checks below use the flags of the build.
set(CMAKE_TRY_COMPILE_CONFIGURATION ${CMAKE_BUILD_TYPE})
if(TESSEL_STATIC)
  set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
  set(tessel_static -static)
endif()

find_path(READLINE_INCLUDE_DIR readline/readline.h)
find_library(READLINE_LIBRARY readline)
if(NOT READLINE_INCLUDE_DIR OR NOT READLINE_LIBRARY)
  message(FATAL_ERROR "GNU Readline is missing: install libreadline-dev")
endif()
set(tessel_libraries ${READLINE_LIBRARY})

# tessel_check(RESULT SOURCE): sets RESULT to whether a program with Readline and SOURCE can be linked.
# Checked again when the flags have changed.
function(tessel_check result source)
  set(CMAKE_REQUIRED_INCLUDES ${READLINE_INCLUDE_DIR})
  set(CMAKE_REQUIRED_LIBRARIES ${tessel_libraries})
  set(CMAKE_REQUIRED_LINK_OPTIONS ${tessel_static})
  string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags_of_type)
  set(asked "${CMAKE_CXX_FLAGS};${${flags_of_type}};${CMAKE_EXE_LINKER_FLAGS};${tessel_libraries}")
  if(NOT asked STREQUAL "${${result}_ASKED}")
    unset(${result} CACHE)
    set(${result}_ASKED "${asked}" CACHE INTERNAL "")
  endif()
  check_cxx_source_compiles("${source}
#include <cstdio>
#include <readline/readline.h>
int main() { char line[256]; return readline(fgets(line, sizeof line, stdin)) != nullptr; }" ${result})
endfunction()

# A static Readline, and some shared ones, do not record which terminal library they need. A library that
# is found may be useless: OpenWrt has an empty libtinfo.a next to its ncurses.
tessel_check(TESSEL_READLINE_IS_ENOUGH "")
if(NOT TESSEL_READLINE_IS_ENOUGH)
  foreach(name tinfo tinfow ncursesw ncurses termcap)
    find_library(TERMINAL_LIBRARY ${name})
    if(TERMINAL_LIBRARY)
      set(tessel_libraries ${READLINE_LIBRARY} ${TERMINAL_LIBRARY})
      tessel_check(TESSEL_READLINE_LINKS "")
      if(TESSEL_READLINE_LINKS)
        break()
      endif()
    endif()
    unset(TERMINAL_LIBRARY CACHE)
  endforeach()
  if(NOT TESSEL_READLINE_LINKS)
    message(FATAL_ERROR "No program can be linked with ${tessel_libraries}: see "
                        "CMakeFiles/CMakeError.log in the build folder")
  endif()
endif()

# glibc before 2.34 has timers in librt.
set(timer "#include <ctime>
#include <csignal>
int timer() { return timer_create(CLOCK_MONOTONIC, nullptr, nullptr); }")
tessel_check(TESSEL_HAS_TIMERS "${timer}")
if(NOT TESSEL_HAS_TIMERS)
  list(APPEND tessel_libraries rt)
  tessel_check(TESSEL_TIMERS_ARE_ALONE "${timer}")
  if(NOT TESSEL_TIMERS_ARE_ALONE)
    list(APPEND tessel_libraries pthread)
  endif()
endif()
