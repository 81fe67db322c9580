// Replaces the C++ library's handler for uncaught exceptions, which prints the type's name and so
// links a demangler of 47 KB, two fifths of the program.

#include <cstdlib>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp)
// NOLINTBEGIN(readability-identifier-naming,misc-use-internal-linkage)
namespace __gnu_cxx {

[[noreturn]] void __verbose_terminate_handler();

void __verbose_terminate_handler() {
    std::abort();
}

}  // namespace __gnu_cxx
// NOLINTEND(readability-identifier-naming,misc-use-internal-linkage)
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl58-cpp)
