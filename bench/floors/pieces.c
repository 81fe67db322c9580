/* Reads the file named by its argument in pieces of 255 bytes and writes each: the floor for get. */

#include <fcntl.h>
#include <unistd.h>

int main(int count, char** arguments) {
    char piece[255];
    int file = count == 2 ? open(arguments[1], O_RDONLY) : -1;
    ssize_t length;
    if (file < 0) {
        return 2;
    }
    while ((length = read(file, piece, sizeof piece)) > 0) {
        if (write(STDOUT_FILENO, piece, (size_t)length) != length) {
            return 1;
        }
    }
    return 0;
}
