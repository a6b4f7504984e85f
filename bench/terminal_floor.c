/* The benchmark's terminal floor: per byte, exactly the terminal calls a
   session that leaves the terminal as it found it between keys must make
   (read the mode, set it raw, poll standard input and a wake-up descriptor,
   read one byte, put the mode back) and an echo of the byte, nothing else. It
   leaves on the line "exit". zelcli's cost per key above this is its own. */
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

int main(void) {
  int wake_up = eventfd(0, 0);
  char line[64];
  size_t length = 0;
  for (;;) {
    struct termios saved;
    tcgetattr(STDIN_FILENO, &saved);
    struct termios raw = saved;
    raw.c_lflag &= ~(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    struct pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {wake_up, POLLIN, 0}};
    char byte = 0;
    ssize_t got = poll(fds, 2, -1) > 0 ? read(STDIN_FILENO, &byte, 1) : -1;
    tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    if (got != 1 || write(STDOUT_FILENO, &byte, 1) != 1) return 1;
    if (byte == '\r' || byte == '\n') {
      if (length == 4 && memcmp(line, "exit", 4) == 0) return 0;
      length = 0;
    } else if (length < sizeof line) {
      line[length++] = byte;
    }
  }
}
