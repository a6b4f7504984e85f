// Puts a fuzz input in place of standard input, as a regular file: every byte
// is readable at once and its end reads as end of file, so a read at the end
// fails instead of waiting. Standard output goes to /dev/null.

#ifndef ZEL_CLI_FUZZ_FUZZ_INPUT_H_
#define ZEL_CLI_FUZZ_FUZZ_INPUT_H_

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace zel {
namespace cli {
namespace fuzz {

inline void RedirectStdio() {
  int input = memfd_create("fuzz-input", 0);
  int sink = open("/dev/null", O_WRONLY);
  if (input < 0 || sink < 0 || dup2(input, STDIN_FILENO) < 0 ||
      dup2(sink, STDOUT_FILENO) < 0) {
    std::abort();
  }
  close(input);
  close(sink);
}

// Makes `data` the whole of standard input, read from the start.
inline void LoadInput(const uint8_t* data, size_t size) {
  if (ftruncate(STDIN_FILENO, 0) != 0 ||
      pwrite(STDIN_FILENO, data, size, 0) != static_cast<ssize_t>(size) ||
      lseek(STDIN_FILENO, 0, SEEK_SET) != 0) {
    std::abort();
  }
}

// How many bytes of standard input have been read.
inline size_t Consumed() {
  return static_cast<size_t>(lseek(STDIN_FILENO, 0, SEEK_CUR));
}

}  // namespace fuzz
}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_FUZZ_FUZZ_INPUT_H_
