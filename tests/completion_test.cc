// Tab completion and the candidate list as a user meets them: the bytes each
// key writes and the session's state afterwards, through a pseudo-terminal.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

const char kRed[] = "\x1b[31m";
const char kReset[] = "\x1b[0m";
const char kLineUp[] = "\x1b[1F";

// The state line of a session with an empty history; `selected` is the
// highlighted candidate, or -1 when no list is open.
std::string State(const std::string& line, int cursor, int selected = -1) {
  return StateLine(line, cursor, false, 0, "", "", selected);
}

// The list as drawn, one write per colour switch, line feed and name.
std::string Drawn(const std::vector<std::string>& names, size_t selected) {
  std::string out;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i == selected) out += kRed;
    out += "\n" + names[i];
    if (i == selected) out += kReset;
  }
  return out;
}

TEST(Completion, CandidateListStepByStep) {
  PtySession session(
      HostArgs({"--bare", "--head", "H", "--cmd", "set", "", "", "--cmd",
                "show", "", "", "--cmd", "status", "", ""}));
  const std::vector<std::string> names = {"set", "show", "status"};
  const std::string clear = std::string(kLineUp) + kLineUp + kLineUp +
                            "\n   \n    \n      " + kLineUp + kLineUp +
                            kLineUp + "H" + "s";
  TypeText(session, "s");
  Play(session, {
                    {kTab, Drawn(names, 0), State("s", 1, 0)},
                    {kDown, clear + Drawn(names, 1), State("s", 1, 1)},
                    {kUp, clear + Drawn(names, 0), State("s", 1, 0)},
                    {kUp, clear + Drawn(names, 2), State("s", 1, 2)},  // wraps
                    {kDown, clear + Drawn(names, 0), State("s", 1, 0)},
                    {kPageDown, clear + Drawn(names, 2), State("s", 1, 2)},
                    {kPageDown, clear + Drawn(names, 2), State("s", 1, 2)},
                    {kPageUp, clear + Drawn(names, 0), State("s", 1, 0)},
                    {kPageUp, clear + Drawn(names, 0), State("s", 1, 0)},
                    {kDown, clear + Drawn(names, 1), State("s", 1, 1)},
                    // Other keys reach neither the line nor the list.
                    {"x", "", State("s", 1, 1)},
                    {kLeft, ""},
                    {kRight, ""},
                    {kHome, ""},
                    {kEnd, ""},
                    {"\x1b[2~", ""},
                    {"\x1b[3~", ""},
                    {"\x1b[1;5D", ""},
                    {"\x01", "", State("s", 1, 1)},
                    // Enter chooses and does not run the line.
                    {kEnter, clear + Blanked(1) + "show", State("show", 4)},
                    // "show" is the only name it begins: nothing to do.
                    {kTab, "", State("show", 4)},
                    {kEnter, "\nFailed to do [show] ret code [1]\nH",
                     StateLine("", 0, false, 0, "", "show")},
                });
}

TEST(Completion, TabAndBackspaceCloseTheListAndKeepTheLine) {
  // help, exit, quit, then the test host's args, ret, nofunc, and echo.
  const std::vector<std::string> args = HostArgs({"--cmd", "echo", "", ""});
  const std::string clear = std::string(kLineUp) + kLineUp + "\n    \n    " +
                            kLineUp + kLineUp + "cli>e";
  for (const char* key : {kTab, kDel, "\b"}) {
    PtySession session(args);
    TypeText(session, "e");
    Play(session, {
                      {kTab, Drawn({"exit", "echo"}, 0), State("e", 1, 0)},
                      {key, clear, State("e", 1)},
                  });
  }
  // The cursor plays no part: Tab completes on the whole line, and closing
  // the list leaves the terminal cursor after the redrawn line while the
  // session's cursor stays where it was.
  PtySession session(args);
  TypeText(session, "ex");
  Play(session, {
                    {kLeft, "\b"},
                    {kTab, Blanked(2) + "exit", State("exit", 4)},
                });
  TypeText(session, "\x7f\x7f\x7f");
  Play(session, {
                    {kLeft, "\b"},
                    {kTab, Drawn({"exit", "echo"}, 0), State("e", 0, 0)},
                    {kTab, clear, State("e", 0)},
                });
}

TEST(Completion, WhatTabFinds) {
  PtySession session(
      HostArgs({"--bare", "--cmd", "stats", "", "", "--cmd", "set", "", "",
                "--cmd", "stats", "", "", "--cmd", "setup", "", ""}));
  auto tab_after = [&session](const std::string& typed) {
    TypeText(session, typed);
    std::string out = session.Type(kTab);
    std::string state = session.State();
    // Close whatever opened and empty the line for the next case.
    if (state.find("screen=none") == std::string::npos) session.Type(kTab);
    session.Type(kEnter);
    return out;
  };
  // Registration order, duplicates kept.
  EXPECT_EQ(tab_after("s"), Drawn({"stats", "set", "stats", "setup"}, 0));
  EXPECT_EQ(tab_after("st"), Drawn({"stats", "stats"}, 0));
  // A whole name that begins a longer one still opens the list.
  EXPECT_EQ(tab_after("set"), Drawn({"set", "setup"}, 0));
  EXPECT_EQ(tab_after("setu"), Blanked(4) + "setup");
  EXPECT_EQ(tab_after("setup"), "");
  EXPECT_EQ(tab_after("set "), "");  // no name holds a blank
  EXPECT_EQ(tab_after("x"), "");
  EXPECT_EQ(tab_after("S"), "");  // case counts
  EXPECT_EQ(tab_after(""), "");
  EXPECT_EQ(tab_after("q"), Blanked(1) + "quit");
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
