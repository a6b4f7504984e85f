// Browsing the history as a user does: the bytes each key writes and the
// session's state afterwards, through a pseudo-terminal.
#include <gtest/gtest.h>

#include <string>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

TEST(History, UpDownAndPageKeysStepThroughEntries) {
  PtySession session(HostArgs({"--cmd", "show", "", ""}));
  RunLine(session, "show 1");
  RunLine(session, "show 2");
  TypeText(session, "sta");
  auto state = [](const std::string& line, int cursor, bool browsing,
                  unsigned index, const std::string& saved) {
    return StateLine(line, cursor, browsing, index, saved, "show 2|show 1");
  };
  Play(session,
       {
           {kUp, Blanked(3) + "show 2", state("show 2", 6, true, 0, "sta")},
           {kUp, Blanked(6) + "show 1", state("show 1", 6, true, 1, "sta")},
           {kUp, "", state("show 1", 6, true, 1, "sta")},  // the oldest
           {kDown, Blanked(6) + "show 2", state("show 2", 6, true, 0, "sta")},
           {kDown, Blanked(6) + "sta", state("sta", 3, false, 0, "sta")},
           {kDown, "", state("sta", 3, false, 0, "sta")},
           // Not browsing, Page Down shows the newest entry without keeping
           // the typed line; the next Up keeps the entry's text instead.
           {kPageDown, Blanked(3) + "show 2",
            state("show 2", 6, false, 0, "sta")},
           {"\x10" /* Ctrl+P */, Blanked(6) + "show 2",
            state("show 2", 6, true, 0, "show 2")},
           {"\x0e" /* Ctrl+N */, Blanked(6) + "show 2",
            state("show 2", 6, false, 0, "show 2")},
           {kPageUp, Blanked(6) + "show 1",
            state("show 1", 6, true, 1, "show 2")},
           // At the oldest entry Page Up draws it again.
           {kPageUp, Blanked(6) + "show 1",
            state("show 1", 6, true, 1, "show 2")},
           {kPageDown, Blanked(6) + "show 2",
            state("show 2", 6, false, 0, "show 2")},
           {kUp, Blanked(6) + "show 2", state("show 2", 6, true, 0, "show 2")},
           // Enter forgets the browsing; the newest entry is not repeated.
           {kEnter, "\nFailed to do [show] ret code [1]\ncli>",
            state("", 0, false, 0, "")},
       });
}

TEST(History, WhatIsStored) {
  PtySession session(HostArgs());
  for (const char* line :
       {"ret 1",            // a failing command is stored
        "ret 1",            // the newest is not repeated
        "args a", "ret 1",  // equal lines that are not neighbours are kept
        "ret?", "nosuch",   // usage queries and unknown commands are not
        "nosuch?", " \t", "", "ret 1 "}) {  // one blank more is another line
    RunLine(session, line);
  }
  EXPECT_EQ(session.State(),
            StateLine("", 0, false, 0, "", "ret 1 |ret 1|args a|ret 1"));
}

TEST(History, TwentyNewestLinesAreKept) {
  PtySession session(HostArgs());
  std::string history;
  for (int i = 21; i >= 2; --i) {
    history += (history.empty() ? "args " : "|args ") + std::to_string(i);
  }
  for (int i = 1; i <= 21; ++i) RunLine(session, "args " + std::to_string(i));
  Play(session,
       {
           {kPageUp, "args 2", StateLine("args 2", 6, true, 19, "", history)},
           {kUp, "", StateLine("args 2", 6, true, 19, "", history)},
           // Back to the typed line, empty: the blanking, then nothing.
           {kPageDown, Blanked(6), StateLine("", 0, false, 0, "", history)},
           // Edits to a recalled line are lost on the next step and never
           // reach the entry.
           {kUp, "args 21", StateLine("args 21", 7, true, 0, "", history)},
           {"x", "x", StateLine("args 21x", 8, true, 0, "", history)},
           {kLeft, "\b"},
           {"\x7f", "\bx \b\b", StateLine("args 2x", 6, true, 0, "", history)},
           {kUp, Blanked(7) + "args 20",
            StateLine("args 20", 7, true, 1, "", history)},
           {kDown, Blanked(7) + "args 21",
            StateLine("args 21", 7, true, 0, "", history)},
       });
}

TEST(History, PageUpOnAnEmptyHistory) {
  PtySession session(HostArgs());
  TypeText(session, "ab");
  // The index wraps below zero and nothing can be shown; every key but Enter
  // is then refused or finds nothing.
  std::string stuck = StateLine("ab", 2, true, 4294967295u, "ab", "");
  Play(session, {
                    {kPageUp, "", stuck},
                    {kUp, "", stuck},
                    {kDown, "", stuck},
                    {kPageDown, "", stuck},
                    {kPageUp, "", stuck},
                    {kEnter, "\ncmd [ab] is not supported\ncli>",
                     StateLine("", 0, false, 0, "", "")},
                    {kUp, "", StateLine("", 0, false, 0, "", "")},
                    {kPageDown, "", StateLine("", 0, false, 0, "", "")},
                });
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
