// The least that a C++ program with the stream library can do to ask for a line with Readline: the
// floor for start-up, memory, size and keys.

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <readline/readline.h>

int main() {
    std::fputs("Please, login as an Administrator\n\n", stdout);
    std::fflush(stdout);
    std::free(readline("Username: "));
    while (char* line = readline("tessel:> ")) {
        std::free(line);
    }
}
