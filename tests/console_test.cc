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

// A pipe in place of standard input while it lives.
class StdinPipe {
 public:
  StdinPipe() : saved_(dup(STDIN_FILENO)) {
    EXPECT_EQ(pipe(ends_), 0);
    dup2(ends_[0], STDIN_FILENO);
  }
  ~StdinPipe() {
    dup2(saved_, STDIN_FILENO);
    for (int fd : {saved_, ends_[0], ends_[1]}) {
      if (fd >= 0) close(fd);
    }
  }
  void Send(const std::string& bytes) {
    EXPECT_EQ(write(ends_[1], bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
  }
  // Closes the writing end, as a writer that has gone.
  void HangUp() {
    close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  int saved_;
  int ends_[2] = {-1, -1};
};

// Whether thread `tid` sleeps; the reader below can only sleep in poll().
bool Sleeps(pid_t tid) {
  std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
  std::string pid, name, state;
  stat >> pid >> name >> state;
  return state == "S";
}

TEST(TerminalIo, StopReadWakesABlockedReadForGood) {
  StdinPipe input;
  Console console;
  std::atomic<pid_t> tid{0};
  char woken = 'x';
  std::thread reader([&] {
    tid = static_cast<pid_t>(syscall(SYS_gettid));
    woken = console.ReadChar();
  });
  while (tid == 0 || !Sleeps(tid)) std::this_thread::yield();
  console.StopRead();
  reader.join();
  EXPECT_EQ(woken, 0);
  // The wake-up is never drained: reads return at once from now on, but
  // input that waits comes first.
  EXPECT_EQ(console.ReadChar(), 0);
  input.Send("k");
  EXPECT_EQ(console.ReadChar(), 'k');
  EXPECT_EQ(console.ReadChar(), 0);
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
    int saved = dup(STDIN_FILENO);
    FILE* file = std::tmpfile();
    std::fputc('z', file);
    std::rewind(file);
    dup2(fileno(file), STDIN_FILENO);
    EXPECT_EQ(console.ReadChar(), 'z');
    EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
    dup2(saved, STDIN_FILENO);
    close(saved);
    std::fclose(file);
  }
  // A pipe whose writer has gone reports a hang-up: 0 at once, and what the
  // pipe still holds is never read.
  StdinPipe input;
  input.Send("y");
  input.HangUp();
  EXPECT_EQ(console.ReadChar(), 0);
  EXPECT_EQ(console.ReadChar(), 0);
  int unread = 0;
  ioctl(STDIN_FILENO, FIONREAD, &unread);
  EXPECT_EQ(unread, 1);
}

}  // namespace
}  // namespace cli
}  // namespace zel
