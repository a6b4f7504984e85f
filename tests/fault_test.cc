// Odd input and a failing environment: every byte value in every state,
// escape sequences in pieces, standard input that ends or hangs up, standard
// output that refuses writes, no wake-up descriptor. Each gets the reaction
// the session is built for, and none crashes it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "key_script.h"
#include "pty_session.h"
#include "redirect.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

std::string UnknownKeyLine(unsigned char byte) {
  char hex[8];
  std::snprintf(hex, sizeof(hex), "0x%x", byte);
  return std::string(
             "test_host: void zel::cli::Console::GetKeyInfoFromAscii(char, "
             "zel::cli::Console::KeyInfo*) 165: GetKeyInfoFromAscii 165 : "
             "unknown key [") +
         hex + "] found\n";
}

// The control bytes that are keys of their own, and ESC, which starts a
// sequence; what they do is checked key by key elsewhere.
bool IsKeyByte(unsigned char byte) {
  return std::string("\x02\x06\x08\x09\x0a\x0d\x0e\x10\x1b\x7f")
             .find(static_cast<char>(byte)) != std::string::npos;
}

// From session state `state`, types every other byte value, 0 to 255, with
// the cursor before `tail`. A printable byte is inserted there (and taken out
// again with Backspace) unless the candidate list is open, which swallows it;
// any other byte is an unknown key, logged, that writes and changes nothing.
void TypeEveryByte(PtySession& session, const std::string& state,
                   const std::string& tail, bool list_open) {
  ASSERT_EQ(session.State(), state);
  session.TakeStderr();
  const std::string back(tail.size(), '\b');
  for (int value = 0; value <= 0xFF; ++value) {
    auto byte = static_cast<unsigned char>(value);
    // Left and Right are ignored while the list is open.
    if (IsKeyByte(byte) && !(list_open && (byte == 0x02 || byte == 0x06))) {
      continue;
    }
    const std::string key(1, static_cast<char>(byte));
    SCOPED_TRACE(Visible(key));
    bool inserted = std::isprint(byte) && !list_open;
    if (inserted) {
      EXPECT_EQ(Visible(session.Type(key)), Visible(key + tail + back));
      EXPECT_EQ(Visible(session.Type(kDel)),
                Visible("\b" + tail + " " + back + "\b"));
    } else {
      EXPECT_EQ(Visible(session.Type(key)), "");
    }
    EXPECT_EQ(session.State(), state);
    bool logged = !std::isprint(byte) && !IsKeyByte(byte);
    EXPECT_EQ(session.TakeStderr(), logged ? UnknownKeyLine(byte) : "");
  }
}

TEST(BadInput, EveryByteInEachState) {
  PtySession session(HostArgs({"--cmd", "argz", "x", "y"}));
  // Editing, with the cursor inside the line.
  TypeText(session, "args xy");
  session.Type(kLeft);
  session.Type(kLeft);
  TypeEveryByte(session, StateLine("args xy", 5), "xy", false);
  // Browsing the history.
  session.Type(kEnter);
  RunLine(session, "args 1");
  session.Type(kUp);
  session.Type(kUp);
  TypeEveryByte(session, StateLine("args xy", 7, true, 1, "", "args 1|args xy"),
                "", false);
  // With the candidate list open.
  session.Type(kEnter);
  TypeText(session, "ar");
  session.Type(kTab);
  session.Type(kDown);
  TypeEveryByte(session,
                StateLine("ar", 2, false, 0, "", "args xy|args 1|args xy", 1),
                "", true);
}

TEST(BadInput, EscapeSequencesInPiecesAndLongEscapeRuns) {
  PtySession session(HostArgs(), PtySession::Output::kRaw,
                     PtySession::Input::kRaw);
  Play(session, {
                    {"ab", "ab"},
                    // The decoder waits in the middle of a sequence.
                    {"\x1b", ""},
                    {"[", ""},
                    {"D", "\b"},
                    {"\x1b[1;", ""},
                    {"5", ""},
                    {"D", ""},  // Ctrl+Left, which does nothing
                    // Any number of ESC bytes before the '[' are skipped.
                    {std::string(4000, '\x1b') + "[D", "\b"},
                    {std::string(4000, '\x1b') + "c", "cab\b\b"},
                    {"\r", "\ncmd [cab] is not supported\ncli>"},
                });
}

// The host started with standard input `input`, standard output and error
// pipes, and nothing on its control descriptor.
class HostOnInput {
 public:
  explicit HostOnInput(int input) {
    int out[2];
    int err[2];
    if (pipe2(out, O_NONBLOCK) != 0 || pipe2(err, O_NONBLOCK) != 0) {
      ADD_FAILURE() << "pipe failed";
      return;
    }
    pid_ = Spawn(HostArgs(), [&] {
      dup2(input, STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      // The host reads requests from descriptor 3: give it an empty one,
      // not whatever the test had open there.
      dup2(open("/dev/null", O_RDONLY), 3);
      fcntl(STDOUT_FILENO, F_SETFL, 0);
      fcntl(STDERR_FILENO, F_SETFL, 0);
    });
    close(out[1]);
    close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }
  ~HostOnInput() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(out_);
    close(err_);
  }

  // Waits until the log has shown `line` `count` times, and returns what the
  // host had written to standard output by then.
  std::string WaitForLog(const std::string& line, int count) {
    std::string log;
    bool shown = WaitFor([&] {
      log += ReadAvailable(err_);
      return Occurrences(log, line) >= count;
    });
    EXPECT_TRUE(shown) << "the log never showed " << count << " times " << line;
    return ReadAvailable(out_);
  }

  bool Running() { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
};

TEST(BadInput, StandardInputThatEnds) {
  // A regular file: its bytes are read and typed, a sequence cut short by
  // its end reads 255 for the missing bytes, and from then on every read
  // fails and gives byte 255, an unknown key, at once.
  FILE* file = std::tmpfile();
  std::fputs("args a\r\x1b[1", file);
  std::fflush(file);
  std::rewind(file);
  {
    HostOnInput host(fileno(file));
    // What the command printed waits in the buffer of a standard output
    // that is not a terminal.
    std::string out = host.WaitForLog(UnknownKeyLine(0xFF), 3);
    EXPECT_EQ(out, "cli>args a\ncli>");
    EXPECT_TRUE(host.Running());
  }
  std::fclose(file);

  // A pipe whose writer has gone reports a hang-up: nothing is read, not
  // even what the pipe still holds, and every read gives byte 0 at once.
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "args a\r", 7), 7);
  close(ends[1]);
  {
    HostOnInput host(ends[0]);
    EXPECT_EQ(host.WaitForLog(UnknownKeyLine(0x00), 3), "cli>");
    EXPECT_TRUE(host.Running());
  }
  close(ends[0]);
}

TEST(BadInput, TerminalHangsUp) {
  PtySession session(HostArgs({"--nohup"}));
  session.Type("a");
  session.TakeStderr();
  session.HangUp();
  // Every read gives byte 0 at once: the session spins on unknown keys.
  session.WaitForStderr(UnknownKeyLine(0x00), 3);
  EXPECT_FALSE(session.Exited());
}

TEST(Faults, StandardOutputRefusesWrites) {
  for (const char* how : {"closed", "full"}) {
    SCOPED_TRACE(how);
    PtySession session(HostArgs({"--stdout", how}));
    EXPECT_EQ(session.startup_output(), "");
    const std::string refused = "test_host: write target size [";
    // Even the empty greeting's write of no bytes fails on a descriptor
    // that cannot be written; a full pipe takes it.
    EXPECT_EQ(
        session.TakeStderr(),
        (how == std::string("closed") ? refused + "0] real size [-1]\n" : "") +
            refused + "4] real size [-1]\n");
    // Each update is lost and logged; the line is kept all the same.
    EXPECT_EQ(session.Type("a"), "");
    EXPECT_EQ(session.Type("b"), "");
    EXPECT_EQ(session.Type(kLeft), "");
    EXPECT_EQ(session.TakeStderr(), refused + "1] real size [-1]\n" + refused +
                                        "1] real size [-1]\n" + refused +
                                        "1] real size [-1]\n");
    EXPECT_EQ(session.State(), StateLine("ab", 1));
    session.Type(kEnter);
    EXPECT_EQ(session.State(), StateLine("", 0));
    TypeText(session, "exit");
    session.Send(kEnter);
    session.WaitForExit();
    EXPECT_TRUE(session.ExitedCleanly());
  }
}

int EventDescriptors(pid_t pid) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(
           "/proc/" + std::to_string(pid) + "/fd")) {
    std::error_code error;
    auto target = std::filesystem::read_symlink(entry.path(), error);
    if (!error && target.string() == "anon_inode:[eventfd]") ++count;
  }
  return count;
}

TEST(Faults, NoWakeUpDescriptor) {
  EXPECT_EQ(EventDescriptors(PtySession(HostArgs()).pid()), 1);

  PtySession session(HostArgs({"--no-descriptors"}));
  EXPECT_EQ(EventDescriptors(session.pid()), 0);
  session.Signal('s');
  session.State();  // answered after the 's', so StopRead() has run
  // It did nothing: the host waits for keys as before, and nothing spins.
  EXPECT_EQ(session.Type("a"), "a");
  EXPECT_EQ(session.TakeStderr(), "");
  session.Type(kDel);
  EXPECT_EQ(RunLine(session, "exit"), "\nRun returned\n");
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
