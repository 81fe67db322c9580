# How every target is compiled: warnings, hardening, and 64-bit times and offsets on 32-bit devices.
add_library(tessel_compiler INTERFACE)
target_compile_options(tessel_compiler INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${TESSEL_WERROR}>:-Werror>
  $<$<CONFIG:Release>:-fstack-protector-strong -ffunction-sections -fdata-sections>)
target_compile_definitions(tessel_compiler INTERFACE
  _TIME_BITS=64 _FILE_OFFSET_BITS=64
  $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

function(tessel_link_program target)
  target_link_options(${target} PRIVATE
    $<$<BOOL:${TESSEL_STATIC_CXX}>:-static-libstdc++;-static-libgcc>
    $<$<CONFIG:Release>:-Wl,-z,relro,-z,now,-z,noexecstack,--gc-sections,--as-needed>)
endfunction()
