// The library in this process: the console with standard input replaced (the
// wake-up from another thread and its descriptor, inputs that end), the
// broken invariants that end the process through the assertion, in every
// build type (these tests run in the optimised build with NDEBUG set as well),
// and the objects' layout.
#include <cli/cmd_line_interface.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <vector>

namespace zel {
namespace cli {
namespace {

// Puts `fd` in place of standard input, for the rest of the test's process.
void SetStdin(int fd) {
  dup2(fd, STDIN_FILENO);
  close(fd);
}

// The counter of eventfd `fd`; empty when `fd` is no eventfd.
std::string WakeUpCounter(int fd) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
  for (std::string word; info >> word;) {
    if (word == "eventfd-count:" && info >> word) return word;
  }
  return "";
}

TEST(TerminalIo, StopReadWakesABlockedReadForGood) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  SetStdin(ends[0]);
  // The console's wake-up descriptor is the lowest free one.
  const int wake_up = dup(ends[1]);
  close(wake_up);
  {
    Console console;
    EXPECT_EQ(WakeUpCounter(wake_up), "0");
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
    // The wake-up ("evt_exit" as a little-endian number) is never drained:
    // reads return at once from now on, but input that waits comes first.
    EXPECT_EQ(WakeUpCounter(wake_up), "746978655f747665");
    EXPECT_EQ(console.ReadChar(), 0);
    ASSERT_EQ(write(ends[1], "k", 1), 1);
    EXPECT_EQ(console.ReadChar(), 'k');
    EXPECT_EQ(console.ReadChar(), 0);
  }
  EXPECT_EQ(WakeUpCounter(wake_up), "");
  close(ends[1]);
}

TEST(TerminalIo, EndOfFileAndHangUp) {
  Console console;
  // A regular file at its end: every read fails, 255.
  FILE* file = std::tmpfile();
  std::fputc('z', file);
  std::rewind(file);
  SetStdin(dup(fileno(file)));
  std::fclose(file);
  EXPECT_EQ(console.ReadChar(), 'z');
  EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(console.ReadChar()), 0xFF);
  // A pipe whose writer has gone reports a hang-up: 0 at once, and what the
  // pipe still holds is never read.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "y", 1), 1);
  close(ends[1]);
  SetStdin(ends[0]);
  EXPECT_EQ(console.ReadChar(), 0);
  EXPECT_EQ(console.ReadChar(), 0);
  int unread = 0;
  ioctl(STDIN_FILENO, FIONREAD, &unread);
  EXPECT_EQ(unread, 1);
}

}  // namespace

// Breaks a session's state on purpose, its log on standard error.
class CmdLineInterfacePeer {
 public:
  static void InsertPastTheLine() {
    openlog("invariant_death_test", LOG_PERROR, LOG_USER);
    CmdLineInterface cli;
    std::string text = "x";
    cli.cursor_ = 1;
    cli.InsertString(text);
  }
  // Opens a list with no candidates, which Tab never does, and chooses.
  static void SelectFromEmptyList() {
    openlog("invariant_death_test", LOG_PERROR, LOG_USER);
    CmdLineInterface cli;
    cli.candidate_screen_ = new CmdLineInterface::CandidateScreen({}, "", &cli);
    cli.candidate_screen_->Select();
  }
};

namespace {

// The log line, then the assertion's message.
TEST(InvariantDeathTest, CursorPastTheLineEndsTheProcess) {
  EXPECT_DEATH(CmdLineInterfacePeer::InsertPastTheLine(),
               "InsertString 467 : this should not happend\n"
               ".*cmd_line_interface.cc:468: bool "
               "zel::cli::CmdLineInterface::InsertString\\(std::string&\\): "
               "Assertion `0' failed");
}

TEST(InvariantDeathTest, ChoosingOutsideTheListEndsTheProcess) {
  EXPECT_DEATH(
      CmdLineInterfacePeer::SelectFromEmptyList(),
      "bool zel::cli::CmdLineInterface::CandidateScreen::Select\\(\\) 726: "
      "don't do this to me :\\(\n"
      ".*cmd_line_interface.cc:727: bool "
      "zel::cli::CmdLineInterface::CandidateScreen::Select\\(\\): "
      "Assertion `0' failed");
}

// Hosts allocate the session and its records themselves, some from headers
// written after the documented member lists. These mirrors hold exactly those
// members, in that order, so a member gained, lost or retyped fails the build
// on every architecture the tests are built for.
struct DocumentedConsole {
  int event_fd;
};

struct DocumentedKeyInfo {
  uint16_t character;
  uint32_t type;
};

struct DocumentedCommand {
  std::string name, explain, usage;
  std::function<Result(int, char**)> func;
};

struct DocumentedCandidateScreen {
  uint32_t selected;
  std::list<std::string> candidates;
  std::string clear_sequence;
  CmdLineInterface* owner;
};

struct DocumentedSession {
  std::string prompt;
  uint32_t history_limit;
  bool running;
  uint32_t cursor, name_width, explain_width;
  bool history_browsing;
  uint32_t history_index;
  std::string head_message, greeting_message, line, saved_line;
  DocumentedConsole console;
  std::list<std::string> history;
  std::vector<DocumentedCommand> commands;
  DocumentedCandidateScreen* candidate_screen;
};

template <typename Actual, typename Documented>
constexpr bool SameLayout() {
  return sizeof(Actual) == sizeof(Documented) &&
         alignof(Actual) == alignof(Documented);
}

static_assert(SameLayout<Console, DocumentedConsole>());
static_assert(SameLayout<Console::KeyInfo, DocumentedKeyInfo>());
static_assert(sizeof(Console::KeyType) == 4);
static_assert(SameLayout<CmdLineInterface::Command, DocumentedCommand>());
static_assert(
    SameLayout<CmdLineInterface::CandidateScreen, DocumentedCandidateScreen>());
static_assert(SameLayout<CmdLineInterface, DocumentedSession>());

}  // namespace
}  // namespace cli
}  // namespace zel
