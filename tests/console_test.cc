// The console on its own, in this process, with standard input replaced: the
// wake-up from another thread and its descriptor, inputs that end, and the
// decoding that the session cannot show (the keys it ignores, the character
// of a sequence, the bytes a sequence consumes).
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

using KeyType = Console::KeyType;

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

// Whether thread `tid` waits in poll() or ppoll() now.
bool InPoll(pid_t tid) {
  std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/syscall");
  long number = -1;
  file >> number;
#ifdef ZELCLI_TEST_KERNEL_POLL_CALLS
  for (long call : {ZELCLI_TEST_KERNEL_POLL_CALLS}) {
    if (number == call) return true;
  }
#endif
#ifdef SYS_poll
  if (number == SYS_poll) return true;
#endif
  return number == SYS_ppoll;
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
  while (tid == 0 || !InPoll(tid)) std::this_thread::yield();
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

struct Key {
  std::string input;
  uint16_t character;
  KeyType type;
  int unread;  // bytes of `input` the key leaves behind
};

TEST(KeyDecoding, EscapeSequences) {
  // What the record holds before a key is decoded into it.
  constexpr uint16_t kBefore = 0xAB;
  // Each sequence gives the blank as its character; the types of those the
  // session ignores show only here.
  const Key keys[] = {
      {"\x1b[A", ' ', KeyType::Up, 0},
      {"\x1b[2~", ' ', KeyType::Insert, 0},
      {"\x1b[3~", ' ', KeyType::Delete, 0},
      {"\x1b[1;5D", ' ', KeyType::CtrlLeft, 0},
      {"\x1b[1;5C", ' ', KeyType::CtrlRight, 0},
      // Repeated ESC bytes are skipped; ESC and any byte but '[' type that
      // byte, a control byte too.
      {"\x1b\x1b\x1b[A", ' ', KeyType::Up, 0},
      {"\x1b\r", '\r', KeyType::Character, 0},
      // A match ends the sequence, and a prefix is no match.
      {"\x1b[Ab", ' ', KeyType::Up, 1},
      {"\x1b[1~~", ' ', KeyType::Home, 1},
      // Four bytes that match nothing give None, keep the character, and are
      // gone: an unknown sequence swallows the keys after it.
      {"\x1b[1;5X", kBefore, KeyType::None, 0},
      {"\x1b[Zabcd", kBefore, KeyType::None, 1},
  };
  StdinPipe input;
  Console console;
  for (const Key& key : keys) {
    SCOPED_TRACE(key.input.substr(1));
    input.Send(key.input);
    Console::KeyInfo info = {kBefore, KeyType::Home};
    console.ReadKey(&info);
    EXPECT_EQ(info.character, key.character);
    EXPECT_EQ(info.type, key.type);
    int unread = -1;
    ioctl(STDIN_FILENO, FIONREAD, &unread);
    EXPECT_EQ(unread, key.unread);
    for (; unread > 0; --unread) console.ReadChar();
  }
}

}  // namespace
}  // namespace cli
}  // namespace zel
