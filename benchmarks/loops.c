/* Prints a file and a prompt for each line typed: the baseline for commands that print. The file is
   read and written 255 bytes at a time, or written from memory line by line.

   usage: loops pieces|lines FILE */

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static char text[1 << 20];

static void put(const char* from, size_t length) {
    if (write(STDOUT_FILENO, from, length) != (ssize_t)length) {
        _exit(1);
    }
}

static void put_pieces(int file) {
    ssize_t length;
    lseek(file, 0, SEEK_SET);
    while ((length = read(file, text, 255)) > 0) {
        put(text, (size_t)length);
    }
}

static void put_lines(const char* end) {
    const char* line = text;
    const char* line_feed;
    while ((line_feed = memchr(line, '\n', (size_t)(end - line))) != NULL) {
        put(line, (size_t)(line_feed + 1 - line));
        line = line_feed + 1;
    }
}

int main(int count, char** arguments) {
    char typed[256];
    const int file = count == 3 ? open(arguments[2], O_RDONLY) : -1;
    const ssize_t length = read(file, text, sizeof text);
    if (length <= 0) {
        return 2;
    }
    put("loops:> ", 8);
    while (read(STDIN_FILENO, typed, sizeof typed) > 0) {
        if (strcmp(arguments[1], "pieces") == 0) {
            put_pieces(file);
        } else {
            put_lines(text + length);
        }
        put("loops:> ", 8);
    }
    return 0;
}
