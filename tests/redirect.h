// In-process stand-ins for the terminal: a pseudo-terminal put in place of
// this process's standard input, and a pipe put in place of standard output
// or standard error. Both restore the original descriptor when destroyed.

#ifndef ZEL_CLI_TESTS_REDIRECT_H_
#define ZEL_CLI_TESTS_REDIRECT_H_

#include <termios.h>

#include <string>

namespace zel {
namespace cli {
namespace testing {

// Everything that can be read from non-blocking `fd` right now.
std::string ReadAvailable(int fd);

class StdinPty {
 public:
  // The slave starts raw (cfmakeraw), so bytes sent arrive unchanged, unless
  // `settings` is given.
  StdinPty();
  explicit StdinPty(const termios& settings);
  ~StdinPty();

  StdinPty(const StdinPty&) = delete;
  StdinPty& operator=(const StdinPty&) = delete;

  // Writes `bytes` to the master and returns once the slave can read them.
  void Send(const std::string& bytes);
  // Writes `bytes` to the master, for a reader that is already waiting.
  void Write(const std::string& bytes);
  // Bytes waiting on the slave.
  int Unread() const;
  termios Settings() const;
  int slave() const { return slave_; }

 private:
  int master_ = -1;
  int slave_ = -1;
  int saved_stdin_ = -1;
};

class FdCapture {
 public:
  // Replaces descriptor `fd` with the write end of a pipe.
  explicit FdCapture(int fd);
  ~FdCapture();

  FdCapture(const FdCapture&) = delete;
  FdCapture& operator=(const FdCapture&) = delete;

  // What has been written so far.
  std::string Take();
  int write_end() const { return fd_; }
  int read_end() const { return read_end_; }

 private:
  int fd_;
  int saved_ = -1;
  int read_end_ = -1;
};

// Copies the system log to standard error, behind `name`, while it lives.
class LogToStderr {
 public:
  explicit LogToStderr(const char* name);
  ~LogToStderr();
};

}  // namespace testing
}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_TESTS_REDIRECT_H_
