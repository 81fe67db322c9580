# How every target is compiled: warnings, hardening, and 64-bit times and offsets on 32-bit devices.
add_library(tessel_compiler INTERFACE)
target_compile_options(tessel_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TESSEL_WERROR}>:-Werror>
  $<$<CONFIG:Release>:-fstack-protector-strong -ffunction-sections -fdata-sections>)
if(TESSEL_SANITIZERS)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
  target_compile_options(tessel_compiler INTERFACE ${sanitizers} -fno-omit-frame-pointer)
  target_link_options(tessel_compiler INTERFACE ${sanitizers})
endif()
target_compile_definitions(tessel_compiler INTERFACE
  _TIME_BITS=64 _FILE_OFFSET_BITS=64
  $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
# Everything that is searched by fuzzing says at once when it does something undefined.
if(TESSEL_FUZZ)
  include(CheckCXXSourceCompiles)
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
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
option(TESSEL_STATIC "Link everything into the program: for a system without the libraries" OFF)
if(TESSEL_STATIC)
  set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
  # An archive of Readline does not tell that it needs the terminal library.
  set(CMAKE_CXX_STANDARD_LIBRARIES "${CMAKE_CXX_STANDARD_LIBRARIES} -ltinfo")
else()
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
endif()

function(tessel_link_program target)
  target_link_options(${target} PRIVATE
    $<$<BOOL:${TESSEL_STATIC}>:-static>
    $<$<BOOL:${TESSEL_STATIC_CXX}>:-static-libstdc++;-static-libgcc>
    $<$<CONFIG:Release>:-Wl,-z,relro,-z,now,-z,noexecstack,--gc-sections,--as-needed>)
endfunction()
