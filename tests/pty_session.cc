#include "pty_session.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

#include "redirect.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

// Generous, for loaded machines and emulated targets; reaching it fails the
// test rather than hanging it.
constexpr std::chrono::seconds kPatience(60);

void SetNonBlocking(int fd) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

}  // namespace

long ProcField(pid_t pid, const char* file, const std::string& key) {
  std::ifstream lines("/proc/" + std::to_string(pid) + "/" + file);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.rfind(key + ":", 0) == 0) {
      return std::stol(line.substr(key.size() + 1));
    }
  }
  return -1;
}

int Occurrences(const std::string& text, const std::string& needle) {
  int count = 0;
  for (size_t at = text.find(needle); at != std::string::npos;
       at = text.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

pid_t Spawn(const std::vector<std::string>& argv,
            const std::function<void()>& set_up) {
  std::vector<char*> args;
  for (const std::string& arg : argv) {
    args.push_back(const_cast<char*>(arg.c_str()));
  }
  args.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    set_up();
    execv(args[0], args.data());
    _exit(127);
  }
  return pid;
}

bool WaitFor(const std::function<bool()>& done) {
  auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < deadline) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return false;
}

std::string Visible(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) {
    const char* name = c == 0x00   ? "<NUL>"
                       : c == 0x08 ? "<BS>"
                       : c == 0x09 ? "<TAB>"
                       : c == 0x0A ? "<LF>"
                       : c == 0x0D ? "<CR>"
                       : c == 0x1B ? "<ESC>"
                                   : nullptr;
    char hex[8];
    if (name == nullptr && (c < 0x20 || c >= 0x7F)) {
      std::snprintf(hex, sizeof(hex), "<0x%02X>", c);
      name = hex;
    }
    if (name != nullptr) {
      out += name;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

PtySession::PtySession(const std::vector<std::string>& argv, Output output,
                       Input input) {
  termios settings = {};
  winsize size = {};
  size.ws_row = 24;
  size.ws_col = 80;
  if (openpty(&master_, &slave_, nullptr, nullptr, &size) != 0) {
    ADD_FAILURE() << "openpty failed: " << std::strerror(errno);
    return;
  }
  tcgetattr(slave_, &settings);
  if (output == Output::kRaw) settings.c_oflag &= ~OPOST;
  settings.c_iflag &= ~(ICRNL | INLCR | IGNCR | IXON | IXOFF);
  settings.c_lflag &= ~(ISIG | IEXTEN);
  if (input == Input::kRaw) settings.c_lflag &= ~(ICANON | ECHO);
  tcsetattr(slave_, TCSANOW, &settings);

  int error_pipe[2];
  int control_pipe[2];
  if (pipe(error_pipe) != 0 || pipe(control_pipe) != 0) {
    ADD_FAILURE() << "pipe failed";
    return;
  }

  pid_ = Spawn(argv, [&] {
    setsid();
    ioctl(slave_, TIOCSCTTY, 0);
    dup2(slave_, STDIN_FILENO);
    dup2(slave_, STDOUT_FILENO);
    dup2(error_pipe[1], STDERR_FILENO);
    dup2(control_pipe[0], 3);
    for (int fd : {master_, slave_, error_pipe[0], error_pipe[1],
                   control_pipe[0], control_pipe[1]}) {
      if (fd > 3) close(fd);
    }
  });
  close(error_pipe[1]);
  close(control_pipe[0]);
  stderr_ = error_pipe[0];
  control_ = control_pipe[1];
  SetNonBlocking(master_);
  SetNonBlocking(stderr_);

  WaitUntilWaitingForKey(-1, 0);
  startup_output_ = DrainMaster();
}

PtySession::~PtySession() {
  if (pid_ > 0 && !Exited()) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (int fd : {master_, slave_, stderr_, control_}) {
    if (fd >= 0) close(fd);
  }
}

std::string PtySession::Type(const std::string& keys) {
  long switches = VoluntarySwitches();
  long bytes_read = BytesRead();
  Send(keys);
  WaitUntilWaitingForKey(switches, bytes_read + static_cast<long>(keys.size()));
  return DrainMaster();
}

void PtySession::Send(const std::string& keys) {
  if (write(master_, keys.data(), keys.size()) !=
      static_cast<ssize_t>(keys.size())) {
    ADD_FAILURE() << "could not send " << Visible(keys.substr(0, 64));
  }
}

void PtySession::HangUp() {
  close(master_);
  master_ = -1;
}

long PtySession::PeakResidentKib() const {
  return ProcField(pid_, "status", "VmHWM");
}

std::string PtySession::WaitForExit() {
  std::string out;
  // Drained while waiting: a host that writes a lot must not block.
  bool exited = WaitUntil([&] {
    out += DrainMaster();
    return Exited();
  });
  if (!exited) ADD_FAILURE() << "the host did not exit";
  return out + DrainMaster();
}

std::string PtySession::TakeStderr() {
  CollectStderr();
  return std::move(stderr_collected_);
}

std::string PtySession::WaitForStderr(const std::string& needle, int count) {
  bool shown = WaitUntil(
      [&] { return Occurrences(stderr_collected_, needle) >= count; });
  if (!shown) {
    ADD_FAILURE() << "stderr never showed \"" << needle << "\" " << count
                  << " times";
  }
  return TakeStderr();
}

// Kept drained while waiting, so a host that logs a lot never blocks on a
// full pipe.
void PtySession::CollectStderr() {
  stderr_collected_ += ReadAvailable(stderr_);
}

void PtySession::Signal(char byte) {
  if (write(control_, &byte, 1) != 1)
    ADD_FAILURE() << "control pipe write failed";
}

std::string PtySession::Ask(char byte, const std::string& prefix) {
  Signal(byte);
  std::string answer;
  bool answered = WaitUntil([&] {
    size_t start = stderr_collected_.find(prefix);
    if (start == std::string::npos) return false;
    size_t end = stderr_collected_.find('\n', start);
    if (end == std::string::npos) return false;
    answer = stderr_collected_.substr(start + prefix.size(),
                                      end - start - prefix.size());
    stderr_collected_.erase(start, end + 1 - start);
    return true;
  });
  if (!answered) ADD_FAILURE() << "the host did not answer '" << byte << "'";
  return answer;
}

std::string PtySession::State() { return "line=" + Ask('?', "state line="); }

bool PtySession::WaitsForKey() {
  if (Exited()) return false;
  int unread = 0;
  ioctl(slave_, FIONREAD, &unread);
  return unread == 0 && (LocalModes() & ICANON) == 0 && InPoll(pid_);
}

unsigned PtySession::LocalModes() const {
  termios settings = {};
  tcgetattr(slave_, &settings);
  return settings.c_lflag;
}

::testing::AssertionResult PtySession::ExitedCleanly() {
  if (Exited() && WIFEXITED(status_) && WEXITSTATUS(status_) == 0) {
    return ::testing::AssertionSuccess();
  }
  CollectStderr();
  return ::testing::AssertionFailure()
         << "the host has not exited with status 0; its stderr:\n"
         << stderr_collected_;
}

bool PtySession::Exited(int* status) {
  if (!exited_ && pid_ > 0 && waitpid(pid_, &status_, WNOHANG) == pid_)
    exited_ = true;
  if (exited_ && status != nullptr) *status = status_;
  return exited_;
}

std::string PtySession::DrainMaster() {
  std::string out = std::move(output_collected_) + ReadAvailable(master_);
  output_collected_.clear();
  return out;
}

long PtySession::VoluntarySwitches() const {
  return ProcField(pid_, "status", "voluntary_ctxt_switches");
}

bool InPoll(pid_t task) {
  // /proc/TID works for any thread, not only for a process's main one.
  std::ifstream syscall_file("/proc/" + std::to_string(task) + "/syscall");
  long number = -1;
  if (!(syscall_file >> number)) return false;  // "running", or gone
#ifdef SYS_poll
  if (number == SYS_poll) return true;
#endif
#ifdef ZELCLI_TEST_KERNEL_POLL_CALLS
  // Under user-mode emulation the numbers are the build machine's.
  for (long call : {ZELCLI_TEST_KERNEL_POLL_CALLS}) {
    if (number == call) return true;
  }
#endif
  return number == SYS_ppoll;
}

// Bytes the host has read through read() and the like, all descriptors
// together (rchar): the keys, and a byte per control request.
long PtySession::BytesRead() const { return ProcField(pid_, "io", "rchar"); }

void PtySession::WaitUntilWaitingForKey(long switches_before, long bytes_read) {
  // The sleep count proves the child has slept since the keys were sent,
  // so a poll() that has not yet seen them does not count as waiting.
  bool waiting = WaitUntil([&] {
    // Read as it comes, so that a host writing more than the terminal
    // buffers is never stuck in write().
    output_collected_ += ReadAvailable(master_);
    return Exited() || (BytesRead() >= bytes_read &&
                        VoluntarySwitches() > switches_before && WaitsForKey());
  });
  if (!waiting) ADD_FAILURE() << "the host did not come back to wait for a key";
}

bool PtySession::WaitUntil(const std::function<bool()>& done) {
  return WaitFor([&] {
    CollectStderr();
    return done();
  });
}

}  // namespace testing
}  // namespace cli
}  // namespace zel
