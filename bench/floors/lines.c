/* Writes the lines of the file named by its argument, one write each: the floor for list. */

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

int main(int count, char** arguments) {
    int file = count == 2 ? open(arguments[1], O_RDONLY) : -1;
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0 || status.st_size == 0) {
        return 2;
    }
    const char* line = mmap(NULL, (size_t)status.st_size, PROT_READ, MAP_PRIVATE, file, 0);
    if (line == MAP_FAILED) {
        return 2;
    }
    const char* end = line + status.st_size;
    while (line < end) {
        const char* line_feed = memchr(line, '\n', (size_t)(end - line));
        const char* next = line_feed == NULL ? end : line_feed + 1;
        if (write(STDOUT_FILENO, line, (size_t)(next - line)) != next - line) {
            return 1;
        }
        line = next;
    }
    return 0;
}
