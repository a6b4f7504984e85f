// The library in this process: the console with standard input replaced (the
// wake-up from another thread and its descriptor, inputs that end), the
// broken invariants that end the process through the assertion, in every
// build type (these tests run in the optimised build with NDEBUG set as well),
// and the objects' layout.
#include <cli/cmd_line_interface.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
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
    // The wake-up, the bytes "evt_exit" read as a number in the machine's
    // byte order, is never drained: reads return at once from now on, but
    // input that waits comes first.
    std::uint64_t wake_up_text;
    std::memcpy(&wake_up_text, "evt_exit", sizeof wake_up_text);
    char counter[17];
    std::snprintf(counter, sizeof counter, "%llx",
                  static_cast<unsigned long long>(wake_up_text));
    EXPECT_EQ(WakeUpCounter(wake_up), counter);
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

// Hosts allocate the session and its records themselves, some from headers
// written after the documented member lists. These mirrors hold exactly those
// members, in that order: the size of each class and the place of each member
// must be the mirror's, on every architecture the tests are built for.
struct DocumentedKeyInfo {
  uint16_t character;
  uint32_t type;
};

struct DocumentedCommand {
  std::string name, explain, usage;
  std::function<Result(int, char**)> func;
};

struct DocumentedSession {
  std::string prompt;
  uint32_t history_limit;
  bool running;
  uint32_t cursor, name_width, explain_width;
  bool history_browsing;
  uint32_t history_index;
  std::string head_message, greeting_message, line, saved_line;
  int console;  // the wake-up descriptor, Console's only member
  std::list<std::string> history;
  std::vector<DocumentedCommand> commands;
  void* candidate_screen;  // the list itself is never a host's
};

// How far each of `members` lies from the start of `object`, then the size
// and alignment of the object.
template <typename Object, typename... Members>
std::vector<size_t> Layout(const Object& object, const Members&... members) {
  const char* start = reinterpret_cast<const char*>(&object);
  return {
      static_cast<size_t>(reinterpret_cast<const char*>(&members) - start)...,
      sizeof(Object), alignof(Object)};
}

}  // namespace

// Reaches into a session: breaks its state on purpose, its log on standard
// error, and finds where its members lie.
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
  // Destroys a session whose list is open, as when an exception leaves Run()
  // with the list on the screen.
  static void DestroyWithListOpen() {
    CmdLineInterface cli;
    cli.candidate_screen_ =
        new CmdLineInterface::CandidateScreen({"ab", "ac"}, "", &cli);
  }
  static void ExpectDocumentedLayout() {
    CmdLineInterface s;
    DocumentedSession d;
    EXPECT_EQ(
        Layout(s, s.prompt_, s.history_limit_, s.running_, s.cursor_,
               s.name_width_, s.explain_width_, s.history_browsing_,
               s.history_index_, s.head_message_, s.greeting_message_, s.line_,
               s.saved_line_, s.console_, s.history_, s.commands_,
               s.candidate_screen_),
        Layout(d, d.prompt, d.history_limit, d.running, d.cursor, d.name_width,
               d.explain_width, d.history_browsing, d.history_index,
               d.head_message, d.greeting_message, d.line, d.saved_line,
               d.console, d.history, d.commands, d.candidate_screen));
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

// Measured by glibc's count of the bytes in use; the sanitizer builds, where
// it reads 0, have the leak sanitizer instead.
TEST(Session, DestroyedWithItsListOpenDeletesTheList) {
  CmdLineInterfacePeer::DestroyWithListOpen();  // the runtimes' first uses
  size_t in_use = mallinfo2().uordblks;
  CmdLineInterfacePeer::DestroyWithListOpen();
  EXPECT_EQ(mallinfo2().uordblks, in_use);
}

TEST(DocumentedLayout, EachMemberAtItsPlace) {
  CmdLineInterfacePeer::ExpectDocumentedLayout();
  CmdLineInterface::Command c("", "", "", nullptr);
  DocumentedCommand d;
  EXPECT_EQ(Layout(c, c.name, c.explain, c.usage, c.func),
            Layout(d, d.name, d.explain, d.usage, d.func));
  Console::KeyInfo k = {};
  DocumentedKeyInfo dk = {};
  EXPECT_EQ(Layout(k, k.character, k.type), Layout(dk, dk.character, dk.type));
}

}  // namespace
}  // namespace cli
}  // namespace zel
