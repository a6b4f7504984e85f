// Long input: a line of 100,000 bytes, and a session of 100,000 keys and
// 10,000 commands whose memory must stay flat once the history is full.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

// What fits the terminal's input buffer in one go, with room to spare.
constexpr size_t kBurst = 3000;

// Sends `keys` in bursts and returns everything the host wrote meanwhile.
std::string TypeInBursts(PtySession& session, const std::string& keys) {
  std::string out;
  for (size_t at = 0; at < keys.size(); at += kBurst) {
    out += session.Type(keys.substr(at, kBurst));
  }
  return out;
}

TEST(Soak, HundredThousandByteLine) {
  constexpr size_t kLength = 100000;
  PtySession session(HostArgs(), PtySession::Output::kRaw,
                     PtySession::Input::kRaw);
  const std::string x(kLength, 'x');
  EXPECT_EQ(TypeInBursts(session, x), x);
  EXPECT_EQ(session.Type(kHome), std::string(kLength, '\b'));
  // One byte in front: the whole tail is rewritten and the cursor comes back.
  EXPECT_EQ(session.Type("y"), "y" + x + std::string(kLength, '\b'));
  EXPECT_EQ(session.Type(kEnd), x);
  EXPECT_EQ(session.Type(kDel), "\b \b");
  const std::string line = "y" + std::string(kLength - 1, 'x');
  EXPECT_EQ(session.State(), StateLine(line, kLength));
  EXPECT_EQ(session.Type(kEnter),
            "\ncmd [" + line + "] is not supported\ncli>");
}

// Ten command lines of ten keys each, covering editing, history, completion
// and every outcome of dispatch; the last digit of "args aN" varies.
std::vector<std::vector<std::string>> CommandKeys(int round) {
  std::string digit(1, static_cast<char>('0' + round % 10));
  return {
      {"a", "r", "g", "s", " ", "a", digit, kLeft, kRight, kEnter},
      {"r", "e", "t", " ", "0", kHome, kEnd, kLeft, kRight, kEnter},
      {"r", "e", "t", " ", "1", "x", kDel, kLeft, kRight, kEnter},
      {"n", "o", "p", "e", kLeft, kLeft, kEnd, kHome, kRight, kEnter},
      {"a", "r", "g", "s", "?", kHome, kEnd, kLeft, kRight, kEnter},
      {kUp, kUp, kDown, kEnd, kHome, kEnd, kLeft, kRight, kDel, kEnter},
      {"a", "r", kTab, " ", "x", "y", "z", kLeft, kRight, kEnter},
      {" ", " ", kDel, kDel, kLeft, kRight, kHome, kEnd, kDel, kEnter},
      {"h", "e", "l", kTab, kDel, kDel, kDel, kDel, "x", kEnter},
      {"a", "r", "g", "s", " ", kPageUp, kPageDown, kLeft, kRight, kEnter},
  };
}

TEST(Soak, TenThousandCommands) {
  PtySession session(HostArgs(), PtySession::Output::kRaw,
                     PtySession::Input::kRaw);
  long keys = 0;
  long peak_kib_at_1000 = 0;
  std::string last_line;
  for (int round = 0; round < 1000; ++round) {
    std::string burst;
    for (const auto& command : CommandKeys(round)) {
      for (const std::string& key : command) burst += key;
      keys += static_cast<long>(command.size());
    }
    std::string out = session.Type(burst);
    ASSERT_FALSE(session.Exited()) << Visible(out);
    if (round == 99) peak_kib_at_1000 = session.PeakResidentKib();
  }
  EXPECT_EQ(keys, 100000);
  long peak_kib_at_10000 = session.PeakResidentKib();
  std::printf(
      "peak RSS of the host: %ld KiB after 1,000 commands, %ld KiB "
      "after 10,000\n",
      peak_kib_at_1000, peak_kib_at_10000);
#ifndef __SANITIZE_ADDRESS__  // its quarantine keeps freed memory a while
  // Past the first thousand commands the history is full and nothing else
  // grows: allow a few pages for the allocator.
  EXPECT_LE(peak_kib_at_10000 - peak_kib_at_1000, 64);
#endif

  // The last command line of the last round was "args " (Page Up and Down
  // came back to it); its history holds the newest twenty lines.
  std::string state = session.State();
  EXPECT_EQ(std::count(state.begin(), state.end(), '|'), 19) << state;
  EXPECT_NE(state.find("history=[args |"), std::string::npos) << state;

  EXPECT_EQ(RunLine(session, "exit"), "\nRun returned\n");
  EXPECT_TRUE(session.ExitedCleanly());
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
