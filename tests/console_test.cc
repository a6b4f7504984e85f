// Terminal I/O: the mode a read switches to and back, the wake-up, odd
// standard inputs, and writes that fall short.
#include <cli/console.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "pty_session.h"
#include "redirect.h"

namespace zel {
namespace cli {
namespace {

using testing::FdCapture;
using testing::InPoll;
using testing::LogToStderr;
using testing::StdinPty;

// Runs ReadChar() on a thread of its own and reports it as waiting once that
// thread sits in poll().
class BackgroundRead {
 public:
  explicit BackgroundRead(Console* console)
      : thread_([this, console] {
          tid_ = static_cast<pid_t>(syscall(SYS_gettid));
          result_ = console->ReadChar();
        }) {}
  ~BackgroundRead() {
    if (thread_.joinable()) thread_.join();
  }

  void WaitUntilPolling() {
    while (tid_ == 0 || !InPoll(tid_)) std::this_thread::yield();
  }
  char Result() {
    thread_.join();
    return result_;
  }

 private:
  std::atomic<pid_t> tid_{0};
  char result_ = 0;
  std::thread thread_;
};

bool SameSettings(const termios& a, const termios& b) {
  return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag &&
         a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
         std::equal(std::begin(a.c_cc), std::end(a.c_cc), std::begin(b.c_cc));
}

TEST(TerminalIo, ReadIsRawOnlyWhileWaiting) {
  termios cooked = {};
  cooked.c_iflag = ICRNL | IXON;
  cooked.c_oflag = OPOST | ONLCR;
  cooked.c_cflag = CS8 | CREAD;
  cooked.c_lflag = ISIG | ICANON | ECHO | ECHOE | ECHOK | IEXTEN;
  cooked.c_cc[VMIN] = 1;
  cooked.c_cc[VINTR] = 3;
  cooked.c_cc[VERASE] = 0x7F;
  cfsetspeed(&cooked, B115200);
  StdinPty input(cooked);
  const termios before = input.Settings();
  Console console;

  BackgroundRead read(&console);
  read.WaitUntilPolling();
  termios waiting = input.Settings();
  EXPECT_EQ(waiting.c_lflag & (ICANON | ECHO), 0u);
  termios expected = before;
  expected.c_lflag &= ~(ICANON | ECHO);
  EXPECT_TRUE(SameSettings(waiting, expected));

  // Typed while the read waits, so the byte meets the raw mode: not echoed.
  input.Write("q");
  EXPECT_EQ(read.Result(), 'q');
  EXPECT_TRUE(SameSettings(input.Settings(), before));
}

TEST(TerminalIo, StopReadWakesABlockedReadForGood) {
  StdinPty input;
  Console console;
  {
    BackgroundRead read(&console);
    read.WaitUntilPolling();
    console.StopRead();
    EXPECT_EQ(read.Result(), 0);
  }
  // The wake-up is never consumed: reads return at once from now on...
  EXPECT_EQ(console.ReadChar(), 0);
  EXPECT_EQ(console.ReadChar(), 0);
  // ...but input that is already waiting comes first.
  input.Send("k");
  EXPECT_EQ(console.ReadChar(), 'k');
  EXPECT_EQ(console.ReadChar(), 0);
}

TEST(TerminalIo, EndOfFileAndHangUp) {
  Console console;
  int saved = dup(STDIN_FILENO);

  // A regular file at its end: the read fails, 255.
  FILE* file = std::tmpfile();
  std::fputc('z', file);
  std::fflush(file);
  std::rewind(file);
  dup2(fileno(file), STDIN_FILENO);
  EXPECT_EQ(console.ReadChar(), 'z');
  EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
  std::fclose(file);

  // A pipe whose writer has gone reports a hang-up: 0, without reading even
  // what is still in the pipe.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "y", 1), 1);
  close(ends[1]);
  dup2(ends[0], STDIN_FILENO);
  EXPECT_EQ(console.ReadChar(), 0);
  EXPECT_EQ(console.ReadChar(), 0);
  char left = 0;
  EXPECT_EQ(read(ends[0], &left, 1), 1);
  EXPECT_EQ(left, 'y');
  close(ends[0]);

  dup2(saved, STDIN_FILENO);
  close(saved);
}

TEST(TerminalIo, WritesAndColours) {
  Console console;
  FdCapture out(STDOUT_FILENO);
  std::string texts[] = {"abc", std::string("a\0b", 3), ""};
  for (std::string& text : texts) EXPECT_TRUE(console.WriteMsg(text));
  EXPECT_EQ(out.Take(), std::string("abca\0b", 6));

  const std::pair<Console::FontColor, const char*> colours[] = {
      {Console::FontColor::Red, "\x1b[31m"},
      {Console::FontColor::Green, "\x1b[32m"},
      {Console::FontColor::Yellow, "\x1b[33m"},
      {Console::FontColor::Blue, "\x1b[34m"},
      {Console::FontColor::Magenta, "\x1b[35m"},
      {Console::FontColor::Cyan, "\x1b[36m"},
      {Console::FontColor::Reset, "\x1b[0m"},
      {static_cast<Console::FontColor>(0), ""},
      {static_cast<Console::FontColor>(8), ""},
  };
  for (const auto& [colour, sequence] : colours) {
    console.SetFontColor(colour);
    EXPECT_EQ(out.Take(), sequence);
  }
}

TEST(TerminalIo, ShortWritesAreLogged) {
  FdCapture log(STDERR_FILENO);
  LogToStderr to_stderr("console_test");
  Console console;
  std::string long_text(5000, 'x');
  std::string abc = "abc";
  {
    FdCapture out(STDOUT_FILENO);
    fcntl(out.write_end(), F_SETFL, O_NONBLOCK);
    fcntl(out.write_end(), F_SETPIPE_SZ, 65536);
    // Fill all but one page of the pipe: a larger write then gets one page.
    std::string filler(65536 - 4096, 'f');
    ASSERT_EQ(write(out.write_end(), filler.data(), filler.size()),
              static_cast<ssize_t>(filler.size()));
    EXPECT_FALSE(console.WriteMsg(long_text));
    // Full now: nothing goes through.
    EXPECT_FALSE(console.WriteMsg(abc));
  }
  {
    // Standard output closed.
    int saved = dup(STDOUT_FILENO);
    close(STDOUT_FILENO);
    EXPECT_FALSE(console.WriteMsg(abc));
    dup2(saved, STDOUT_FILENO);
    close(saved);
  }
  // LOG_PERROR copies each line to standard error behind the log's name.
  EXPECT_EQ(log.Take(),
            "console_test: write target size [5000] real size [4096]\n"
            "console_test: write target size [3] real size [-1]\n"
            "console_test: write target size [3] real size [-1]\n");
}

}  // namespace
}  // namespace cli
}  // namespace zel
