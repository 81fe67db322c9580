# How every target is compiled: warnings, hardening, and 64-bit times and offsets on 32-bit devices.
add_library(tessel_compiler INTERFACE)
target_compile_options(tessel_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TESSEL_WERROR}>:-Werror>)
if(TESSEL_SANITIZERS)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
  target_compile_options(tessel_compiler INTERFACE ${sanitizers} -fno-omit-frame-pointer)
  target_link_options(tessel_compiler INTERFACE ${sanitizers})
endif()
target_compile_definitions(tessel_compiler INTERFACE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
# Undefined behaviour ends a fuzz target at once.
if(TESSEL_FUZZ)
  set(CMAKE_REQUIRED_FLAGS -fsanitize=fuzzer,address,undefined)
  check_cxx_source_compiles(
    "extern \"C\" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }"
    TESSEL_HAS_LIBFUZZER)
  unset(CMAKE_REQUIRED_FLAGS)
  if(NOT TESSEL_HAS_LIBFUZZER)
    message(FATAL_ERROR "Fuzzing needs clang with libFuzzer: install clang-19 and libclang-rt-19-dev, "
                        "and build with -DCMAKE_CXX_COMPILER=clang++-19")
  endif()
  set(fuzz_options -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  target_compile_options(tessel_compiler INTERFACE ${fuzz_options} -fno-omit-frame-pointer)
  target_link_options(tessel_compiler INTERFACE ${fuzz_options})
endif()

# tessel_prefer(RESULT COMPILE LINK [SOURCE]): adds flags before the builder's, so that the builder's win,
# unless no program can be built with them.
function(tessel_prefer result compile link)
  set(CMAKE_CXX_FLAGS "${compile} ${CMAKE_CXX_FLAGS}")
  set(CMAKE_EXE_LINKER_FLAGS "${link} ${CMAKE_EXE_LINKER_FLAGS}")
  tessel_check(${result} "${ARGN}")
  if(${result})
    set(CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}" PARENT_SCOPE)
    set(CMAKE_EXE_LINKER_FLAGS "${CMAKE_EXE_LINKER_FLAGS}" PARENT_SCOPE)
  endif()
endfunction()

if(NOT DEFINED CMAKE_POSITION_INDEPENDENT_CODE)
  set(is_position_independent "
#ifndef __PIC__
#error
#endif")
  if(TESSEL_STATIC)
    set(tessel_static -static-pie)
    tessel_prefer(TESSEL_STATIC_PIE -fPIE "" "${is_position_independent}")
    if(NOT TESSEL_STATIC_PIE)
      set(tessel_static -static)
    endif()
  else()
    tessel_prefer(TESSEL_PIE -fPIE -pie "${is_position_independent}")
    if(NOT TESSEL_PIE)
      tessel_prefer(TESSEL_NO_PIE "" -no-pie)
    endif()
  endif()
endif()
if(NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  tessel_prefer(TESSEL_SECTIONS "-ffunction-sections -fdata-sections" -Wl,--gc-sections,--as-needed)
  tessel_prefer(TESSEL_STACK_PROTECTOR -fstack-protector-strong "")
  tessel_prefer(TESSEL_RELRO "" -Wl,-z,relro,-z,now,-z,noexecstack)
  tessel_check(TESSEL_FORTIFY "
#if defined _FORTIFY_SOURCE || !defined __OPTIMIZE__
#error
#endif")
  if(TESSEL_FORTIFY)
    target_compile_definitions(tessel_compiler INTERFACE _FORTIFY_SOURCE=2)
  endif()
endif()

function(tessel_link_program target)
  if(TESSEL_STATIC)
    target_link_options(${target} PRIVATE ${tessel_static})
  elseif(TESSEL_STATIC_CXX)
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()
