/* The minimum of a program that reads lines with Readline: the baseline for start, memory and keys. */

#include <stdio.h>
#include <stdlib.h>

#include <readline/readline.h>

int main(void) {
    char* line;
    fputs("Please, login as an Administrator\n\n", stdout);
    fflush(stdout);
    free(readline("Username: "));
    while ((line = readline("tessel:> ")) != NULL) {
        free(line);
    }
    return 0;
}
