// Makes the kernel treat a serial line as if its carrier were lost: processes that have it open are
// cut off, and the session on it gets a hang-up. The emulated serial port has no modem signals.
//
// usage: hang_up DEVICE
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    const int line = argc == 2 ? open(argv[1], O_RDWR | O_NOCTTY | O_NONBLOCK) : -1;
    if (line < 0 || ioctl(line, TIOCVHANGUP) != 0) {
        std::perror("hang_up");
        return 1;
    }
    close(line);
    return 0;
}
