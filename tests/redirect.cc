#include "redirect.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>

namespace zel {
namespace cli {
namespace testing {
namespace {

termios RawSettings() {
  termios settings = {};
  cfmakeraw(&settings);
  settings.c_cc[VMIN] = 1;
  return settings;
}

}  // namespace

std::string ReadAvailable(int fd) {
  std::string bytes;
  char buffer[4096];
  while (true) {
    ssize_t n = read(fd, buffer, sizeof(buffer));
    if (n > 0) {
      bytes.append(buffer, static_cast<size_t>(n));
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      return bytes;  // EAGAIN, EIO once a pty's other side is gone, or EOF
    }
  }
}

StdinPty::StdinPty() : StdinPty(RawSettings()) {}

StdinPty::StdinPty(const termios& settings) {
  termios copy = settings;
  if (openpty(&master_, &slave_, nullptr, &copy, nullptr) != 0) {
    ADD_FAILURE() << "openpty failed";
    return;
  }
  saved_stdin_ = dup(STDIN_FILENO);
  dup2(slave_, STDIN_FILENO);
}

StdinPty::~StdinPty() {
  dup2(saved_stdin_, STDIN_FILENO);
  close(saved_stdin_);
  close(slave_);
  close(master_);
}

void StdinPty::Write(const std::string& bytes) {
  if (write(master_, bytes.data(), bytes.size()) !=
      static_cast<ssize_t>(bytes.size())) {
    ADD_FAILURE() << "write to the master failed";
  }
}

void StdinPty::Send(const std::string& bytes) {
  int before = Unread();
  Write(bytes);
  // The line discipline receives the bytes asynchronously; wait until all of
  // them can be read, so that a reader never sees half of them.
  while (Unread() < before + static_cast<int>(bytes.size())) {
    pollfd readable = {slave_, POLLIN, 0};
    poll(&readable, 1, 10);
  }
}

int StdinPty::Unread() const {
  int unread = 0;
  ioctl(slave_, FIONREAD, &unread);
  return unread;
}

termios StdinPty::Settings() const {
  termios settings = {};
  tcgetattr(slave_, &settings);
  return settings;
}

FdCapture::FdCapture(int fd) : fd_(fd) {
  int ends[2];
  if (pipe(ends) != 0) {
    ADD_FAILURE() << "pipe failed";
    return;
  }
  read_end_ = ends[0];
  fcntl(read_end_, F_SETFL, O_NONBLOCK);
  saved_ = dup(fd);
  dup2(ends[1], fd);
  close(ends[1]);
}

FdCapture::~FdCapture() {
  dup2(saved_, fd_);
  close(saved_);
  close(read_end_);
}

std::string FdCapture::Take() { return ReadAvailable(read_end_); }

LogToStderr::LogToStderr(const char* name) {
  openlog(name, LOG_PERROR, LOG_USER);
}

LogToStderr::~LogToStderr() {
  // closelog() alone keeps LOG_PERROR for the next line logged.
  openlog(nullptr, 0, LOG_USER);
  closelog();
}

}  // namespace testing
}  // namespace cli
}  // namespace zel
