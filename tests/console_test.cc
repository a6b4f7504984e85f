// The console on its own, in this process, with standard input replaced: the
// wake-up from another thread and its descriptor, and inputs that end.
#include <cli/console.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

namespace zel {
namespace cli {
namespace {

// `fd` in place of standard input while it lives.
class Stdin {
 public:
  explicit Stdin(int fd) : saved_(dup(STDIN_FILENO)) {
    dup2(fd, STDIN_FILENO);
    close(fd);
  }
  ~Stdin() {
    dup2(saved_, STDIN_FILENO);
    close(saved_);
  }

 private:
  int saved_;
};

TEST(TerminalIo, StopReadWakesABlockedReadForGood) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Stdin input(ends[0]);
  Console console;
  std::atomic<pid_t> tid{0};
  char woken = 'x';
  std::thread reader([&] {
    tid = static_cast<pid_t>(syscall(SYS_gettid));
    woken = console.ReadChar();
  });
  // Until the reader sleeps, which it can only do in poll().
  for (std::string state; state != "S";) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string pid, name;
    stat >> pid >> name >> state;
    std::this_thread::yield();
  }
  console.StopRead();
  reader.join();
  EXPECT_EQ(woken, 0);
  // The wake-up is never drained: reads return at once from now on, but
  // input that waits comes first.
  EXPECT_EQ(console.ReadChar(), 0);
  ASSERT_EQ(write(ends[1], "k", 1), 1);
  EXPECT_EQ(console.ReadChar(), 'k');
  EXPECT_EQ(console.ReadChar(), 0);
  close(ends[1]);
}

// The counters of the wake-up descriptors this process has open.
std::vector<std::string> WakeUpCounters() {
  std::vector<std::string> counters;
  for (const auto& fd : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink(fd, error) != "anon_inode:[eventfd]") {
      continue;
    }
    std::ifstream info("/proc/self/fdinfo/" + fd.path().filename().string());
    for (std::string word; info >> word;) {
      if (word == "eventfd-count:" && info >> word) counters.push_back(word);
    }
  }
  return counters;
}

TEST(TerminalIo, WakeUpDescriptorLivesWithTheConsole) {
  {
    Console console;
    EXPECT_EQ(WakeUpCounters(), std::vector<std::string>{"0"});
    console.StopRead();  // adds "evt_exit" as a little-endian number
    EXPECT_EQ(WakeUpCounters(), std::vector<std::string>{"746978655f747665"});
  }
  EXPECT_EQ(WakeUpCounters().size(), 0u);
}

TEST(TerminalIo, EndOfFileAndHangUp) {
  Console console;
  {
    // A regular file at its end: every read fails, 255.
    FILE* file = std::tmpfile();
    std::fputc('z', file);
    std::rewind(file);
    Stdin input(dup(fileno(file)));
    std::fclose(file);
    EXPECT_EQ(console.ReadChar(), 'z');
    EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
  }
  // A pipe whose writer has gone reports a hang-up: 0 at once, and what the
  // pipe still holds is never read.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "y", 1), 1);
  close(ends[1]);
  Stdin input(ends[0]);
  EXPECT_EQ(console.ReadChar(), 0);
  EXPECT_EQ(console.ReadChar(), 0);
  int unread = 0;
  ioctl(STDIN_FILENO, FIONREAD, &unread);
  EXPECT_EQ(unread, 1);
}

}  // namespace
}  // namespace cli
}  // namespace zel
