// What the C++ library calls when an exception is not caught. Its own version prints the type's
// name, for which it brings a demangler: 47 KB, two fifths of the program.

#include <cstdlib>

namespace __gnu_cxx {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

[[noreturn]] void __verbose_terminate_handler();  // NOLINT(bugprone-reserved-identifier)

void __verbose_terminate_handler() {  // NOLINT(bugprone-reserved-identifier)
    std::abort();
}

}  // namespace __gnu_cxx
