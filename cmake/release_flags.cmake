# CMake reads this before it sets its default flags. A device has little flash, so a release is optimised
# for size, unless the builder sets CMAKE_CXX_FLAGS_RELEASE or an -O in the flags for all builds.
set(optimisation -Os)
if("$ENV{CXXFLAGS} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_INIT}" MATCHES "(^| )-O")
  set(optimisation "")
endif()
string(REGEX REPLACE "-O3( -DNDEBUG)$" "${optimisation}\\1" CMAKE_CXX_FLAGS_RELEASE_INIT
       "${CMAKE_CXX_FLAGS_RELEASE_INIT}")
