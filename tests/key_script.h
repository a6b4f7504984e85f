// Typing into the test host key by key and checking what it answers.

#ifndef ZEL_CLI_TESTS_KEY_SCRIPT_H_
#define ZEL_CLI_TESTS_KEY_SCRIPT_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {

// The keys as a terminal sends them.
inline const char kUp[] = "\x1b[A";
inline const char kDown[] = "\x1b[B";
inline const char kRight[] = "\x1b[C";
inline const char kLeft[] = "\x1b[D";
inline const char kHome[] = "\x1b[H";
inline const char kEnd[] = "\x1b[F";
inline const char kPageUp[] = "\x1b[5~";
inline const char kPageDown[] = "\x1b[6~";
inline const char kDel[] = "\x7f";
inline const char kTab[] = "\t";
inline const char kEnter[] = "\r";

// The test host's command line with `options` (behind the emulator, when the
// tests are built for another machine).
inline std::vector<std::string> HostArgs(
    std::vector<std::string> options = {}) {
  options.insert(options.begin(), {ZELCLI_TEST_HOST});
  return options;
}

// The test host's state line (PtySession::State()): `history` is newest
// first, joined by '|'; `screen` the highlighted candidate, or -1 when no
// list is open.
inline std::string StateLine(const std::string& line, int cursor,
                             bool browsing = false, unsigned index = 0,
                             const std::string& saved = "",
                             const std::string& history = "", int screen = -1) {
  return "line=[" + line + "] cursor=" + std::to_string(cursor) +
         " browsing=" + std::to_string(browsing) +
         " index=" + std::to_string(index) + " saved=[" + saved +
         "] history=[" + history +
         "] screen=" + (screen < 0 ? "none" : std::to_string(screen));
}

struct Step {
  std::string keys;
  std::string bytes;       // what the host writes in answer
  std::string state = "";  // PtySession::State() afterwards, if not empty
};

inline void Play(PtySession& session, const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    EXPECT_EQ(Visible(session.Type(step.keys)), Visible(step.bytes))
        << "after keys " << Visible(step.keys);
    if (!step.state.empty()) {
      EXPECT_EQ(session.State(), step.state)
          << "after keys " << Visible(step.keys);
    }
  }
}

// What the host writes to blank a line of `length` bytes before it draws
// another in its place: back, blanks, back again, and a NUL.
inline std::string Blanked(size_t length) {
  return std::string(length, '\b') + std::string(length, ' ') +
         std::string(length, '\b') + std::string(1, '\0');
}

// Types `text` key by key. Tab and CR are keys of their own, so they go into
// the line behind an ESC, as any control byte does.
inline void TypeText(PtySession& session, const std::string& text) {
  for (char c : text) {
    bool control = c == '\t' || c == '\r';
    session.Type(control ? std::string("\x1b") + c : std::string(1, c));
  }
}

// Types `line`, presses Enter and returns what the host wrote for the Enter.
inline std::string RunLine(PtySession& session, const std::string& line) {
  TypeText(session, line);
  return session.Type(kEnter);
}

}  // namespace testing
}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_TESTS_KEY_SCRIPT_H_
