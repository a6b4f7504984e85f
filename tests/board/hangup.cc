// hangup TTY: hangs up a terminal line as a modem losing its carrier would,
// from the board's control console.
#include <fcntl.h>
#include <sys/ioctl.h>

#include <cstdio>

int main(int argc, char** argv) {
  int fd = argc == 2 ? open(argv[1], O_RDWR | O_NOCTTY | O_NONBLOCK) : -1;
  if (fd < 0 || ioctl(fd, TIOCVHANGUP) != 0) {
    std::perror("hangup");
    return 1;
  }
  return 0;
}
