// A host driven through a pseudo-terminal, as a user at a terminal drives it:
// the exact bytes each key makes the host write, what dispatch prints, and
// what the host's terminal and log see.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

TEST(LineEditing, EachKeyWritesExactBytes) {
  PtySession session(HostArgs());
  Play(session,
       {
           {"h", "h"},
           {"e", "e"},
           {"l", "l"},
           {"o", "o"},
           {kLeft, "\b"},
           // Inserting inside the line redraws the tail and comes back over it.
           {"l", "lo\b"},
           {kHome, "\b\b\b\b"},
           {kLeft, ""},  // refused at the start
           {kDel, ""},   // nothing before the cursor
           // Moving right rewrites the whole tail, then backs up.
           {kRight, "hello\b\b\b\b"},
           {kRight, "ello\b\b\b"},
           {kEnd, "llo"},
           {kRight, ""},  // refused at the end
           {kDel, "\b \b"},
           {"\x02", "\b"},  // Ctrl+B
           {"\x02", "\b"},
           // Backspace inside the line: the tail moves left, one blank covers
           // the old last column, and the cursor comes back.
           {kDel, "\bll \b\b\b"},
           {"\x06", "ll\b"},  // Ctrl+F
           {"\b", "\bl \b\b"},
           // Keys that are decoded but do nothing.
           {"\x1b[2~", ""},
           {"\x1b[3~", ""},
           {"\x1b[1;5D", ""},
           {"\x1b[1;5C", ""},
           {"\x01", ""},
           // The other spellings of Home and End.
           {"\x1b[4~", "l"},
           {"\x1b[1~", "\b\b"},
           {"\x1b[8~", "hl"},
           {"\x1b[7~", "\b\b"},
           // Enter writes only a line feed, wherever the cursor is, and the
           // whole line is run.
           {"\r", "\ncmd [hl] is not supported\ncli>"},
       });
}

TEST(LineEditing, EmptyLine) {
  PtySession session(HostArgs());
  Play(session, {
                    {kLeft, ""},
                    {kRight, ""},
                    {kHome, ""},
                    {kEnd, ""},
                    {kDel, ""},
                    {"\t", ""},
                    {"\n", "\ncli>"},  // nothing to run
                });
}

TEST(LineEditing, EnterInsideTheLineRunsAllOfIt) {
  PtySession session(HostArgs());
  TypeText(session, "args a b");
  Play(session, {
                    {kLeft, "\b"},
                    {kLeft, "\b"},
                    {"\r", "\nargc=3 [args] [a] [b]\ncli>"},
                });
}

TEST(LineEditing, EscapePrefixesAndUnknownSequences) {
  PtySession session(HostArgs());
  Play(session, {
                    {"\x1bx", "x"},            // ESC x types x
                    {"\x1b\x1b\x1b[D", "\b"},  // repeated ESC, then Left
                    {"\x1b[Z", ""},  // unknown so far: waits for more bytes
                    {"a", ""},
                    {"b", ""},
                    {"c", ""},  // swallowed by the sequence
                    {"d", "dx\b"},
                    {"\x80", ""},
                    {"\xff", ""},  // not printable: no key
                    {"\r", "\ncmd [dx] is not supported\ncli>"},
                });
}

// Once the line's storage has grown, moving the cursor, deleting and typing
// into the room the line already has allocate nothing.
TEST(Dispatch, WordsAndTheTenWordLimit) {
  PtySession session(HostArgs());
  auto run = [&session](const std::string& line) {
    return RunLine(session, line);
  };
  EXPECT_EQ(run("  args   x\ty  "), "\nargc=3 [args] [x] [y]\ncli>");
  EXPECT_EQ(run("args 1 2 3 4 5 6 7 8 9 10 11"),
            "\nargc=10 [args] [1] [2] [3] [4] [5] [6] [7] [8] [9]\ncli>");
  EXPECT_EQ(run("args \"a b\""), "\nargc=3 [args] [\"a] [b\"]\ncli>");
  // Only blanks and tabs part words; a carriage return belongs to one.
  EXPECT_EQ(run("args a\rb"), "\nargc=2 [args] [a\rb]\ncli>");
}

TEST(Dispatch, ResultsAndQueries) {
  PtySession session(HostArgs());
  auto run = [&session](const std::string& line) {
    return RunLine(session, line);
  };
  const std::pair<std::string, std::string> cases[] = {
      {"ret 0", ""},
      {"ret 1", "Failed to do [ret] ret code [1]\n"},
      {"ret 2", "Usage : N\n"},
      {"ret", "Usage : N\n"},
      {"ret 3",
       "Failed to do [ret] ret code [3]\ncmd [ret] is not supported\n"},
      {"ret 7", "Failed to do [ret] ret code [7]\n"},
      {"ret -5", "Failed to do [ret] ret code [-5]\n"},
      {"nofunc", "Failed to do [nofunc] ret code [1]\n"},
      {"nosuch", "cmd [nosuch] is not supported\n"},
      {"hel", "cmd [hel] is not supported\n"},
      {"HELP", "cmd [HELP] is not supported\n"},
      {" \t ", "cmd [(null)] is not supported\n"},
      {"ret?", "Usage : N\n"},
      {"help? x", "Usage : {}\n"},
      {"nosuch?", "cmd [nosuch] is not supported\n"},
      {"?", "cmd [] is not supported\n"},
  };
  for (const auto& [line, printed] : cases) {
    EXPECT_EQ(Visible(run(line)), Visible("\n" + printed + "cli>")) << line;
  }
}

std::string HelpOf(const std::vector<std::string>& options,
                   const std::string& line = "help") {
  PtySession session(HostArgs(options));
  std::string out = RunLine(session, line);
  EXPECT_EQ(out.substr(0, 1), "\n");
  EXPECT_EQ(out.substr(out.size() - 4), "cli>");
  return out.substr(1, out.size() - 5);
}

TEST(BuiltIns, HelpListsEveryCommandInColumns) {
  EXPECT_EQ(HelpOf({"--bare"}),
            "cmd:\texplain:          \tusage:\n"
            "help\tshow commands list\t{}\n"
            "exit\texit program      \t{}\n"
            "quit\tquit program      \t{}\n");
  // Further words change nothing.
  EXPECT_EQ(HelpOf({"--bare"}, "help me now"), HelpOf({"--bare"}));
  // A six-letter name widens the name column; a 17-byte explanation fits.
  EXPECT_EQ(HelpOf({"--bare", "--cmd", "status", "show device state", "[-v]"}),
            "cmd:  \texplain:          \tusage:\n"
            "help  \tshow commands list\t{}\n"
            "exit  \texit program      \t{}\n"
            "quit  \tquit program      \t{}\n"
            "status\tshow device state \t[-v]\n");
  // A longer explanation widens that column on every line, in registration
  // order, duplicates included; a label wider than its column is not cut.
  EXPECT_EQ(HelpOf({"--bare", "--cmd", "go", "a rather long explanation", "X",
                    "--cmd", "go", "again", ""}),
            "cmd:\texplain:                 \tusage:\n"
            "help\tshow commands list       \t{}\n"
            "exit\texit program             \t{}\n"
            "quit\tquit program             \t{}\n"
            "go  \ta rather long explanation\tX\n"
            "go  \tagain                    \t\n");
  EXPECT_EQ(HelpOf({"--bare", "--cmd", "x", "", ""}),
            "cmd:\texplain:          \tusage:\n"
            "help\tshow commands list\t{}\n"
            "exit\texit program      \t{}\n"
            "quit\tquit program      \t{}\n"
            "x   \t                  \t\n");
}

TEST(BuiltIns, ExitAndQuitEndRun) {
  for (std::string line : {"exit", "quit", "exit now"}) {
    PtySession session(HostArgs());
    EXPECT_EQ(RunLine(session, line), "\nRun returned\n") << line;
    EXPECT_TRUE(session.ExitedCleanly());
  }
}

TEST(Session, GreetingAndHeadMessage) {
  EXPECT_EQ(PtySession(HostArgs()).startup_output(), "cli>");
  PtySession session(HostArgs({"--greeting", "Hello\n", "--head", "H> "}));
  EXPECT_EQ(session.startup_output(), "Hello\nH> ");
  EXPECT_EQ(session.Type("\r"), "\nH> ");
}

TEST(Session, UnknownKeyIsLogged) {
  PtySession session(HostArgs());
  session.TakeStderr();
  EXPECT_EQ(session.Type("\x01"), "");
  EXPECT_EQ(session.Type("\x9b"), "");
  EXPECT_EQ(session.Type("\x1b[Zabc"), "");  // unmatched: not logged
  EXPECT_EQ(session.TakeStderr(),
            "test_host: void zel::cli::Console::GetKeyInfoFromAscii(char, "
            "zel::cli::Console::KeyInfo*) 165: GetKeyInfoFromAscii 165 : "
            "unknown key [0x1] found\n"
            "test_host: void zel::cli::Console::GetKeyInfoFromAscii(char, "
            "zel::cli::Console::KeyInfo*) 165: GetKeyInfoFromAscii 165 : "
            "unknown key [0x9b] found\n");
}

TEST(Session, StopReadFromAnotherThread) {
  PtySession session(HostArgs());
  session.TakeStderr();
  session.Signal('s');
  // Woken, the read gives byte 0, an unknown key; the wake-up is never
  // drained, so reads keep returning at once and the log fills.
  session.WaitForStderr("unknown key [0x0] found", 3);
  // Typed keys are still read first, and exit ends the loop. The terminal
  // may echo them, as it is cooked between the spinning reads.
  session.Send("exit\n");
  std::string out = session.WaitForExit();
  EXPECT_NE(out.find("Run returned\n"), std::string::npos) << Visible(out);
  EXPECT_TRUE(session.ExitedCleanly());
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
