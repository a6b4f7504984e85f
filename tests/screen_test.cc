// What the user sees: the host's output fed into a terminal emulator
// (libvterm) of 80x24, as a terminal on the other side of a pty with its
// default output processing receives it.
#include <gtest/gtest.h>
#include <vterm.h>

#include <string>
#include <vector>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

constexpr int kRows = 24;
constexpr int kColumns = 80;

class Screen {
 public:
  Screen() : terminal_(vterm_new(kRows, kColumns)) {
    vterm_set_utf8(terminal_, 0);
    screen_ = vterm_obtain_screen(terminal_);
    vterm_screen_reset(screen_, 1);
  }
  ~Screen() { vterm_free(terminal_); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  void Feed(const std::string& bytes) {
    vterm_input_write(terminal_, bytes.data(), bytes.size());
  }

  // The rows down to the last one that is not blank, each without trailing
  // blanks, joined by line feeds.
  std::string Text() const { return Rows(false); }
  // The same, with every cell that is not shown in red as a blank.
  std::string RedText() const { return Rows(true); }

  // Row and column of the cursor.
  std::pair<int, int> Cursor() const {
    VTermPos position;
    vterm_state_get_cursorpos(vterm_obtain_state(terminal_), &position);
    return {position.row, position.col};
  }

 private:
  std::string Rows(bool red_only) const {
    std::vector<std::string> rows;
    for (int row = 0; row < kRows; ++row) {
      std::string line;
      for (int column = 0; column < kColumns; ++column) {
        VTermScreenCell cell;
        vterm_screen_get_cell(screen_, {row, column}, &cell);
        bool red = VTERM_COLOR_IS_INDEXED(&cell.fg) && cell.fg.indexed.idx == 1;
        bool shown = cell.chars[0] != 0 && (!red_only || red);
        line += shown ? static_cast<char>(cell.chars[0]) : ' ';
      }
      rows.push_back(line.erase(line.find_last_not_of(' ') + 1));
    }
    while (!rows.empty() && rows.back().empty()) rows.pop_back();
    std::string text;
    for (const std::string& row : rows) {
      text += (&row == &rows.front() ? "" : "\n") + row;
    }
    return text;
  }

  VTerm* terminal_;
  VTermScreen* screen_;
};

// A host on a pty whose every output goes to a Screen.
class ScreenSession {
 public:
  explicit ScreenSession(const std::vector<std::string>& options)
      : session_(HostArgs(options), PtySession::Output::kTerminal) {
    screen_.Feed(session_.startup_output());
  }
  void Type(const std::string& keys) { screen_.Feed(session_.Type(keys)); }
  void TypeText(const std::string& text) {
    for (char c : text) Type(std::string(1, c));
  }
  const Screen& screen() const { return screen_; }

 private:
  PtySession session_;
  Screen screen_;
};

TEST(Screen, CandidateListOpensMovesChoosesAndCloses) {
  ScreenSession session({"--bare", "--head", "H", "--cmd", "set", "", "",
                         "--cmd", "show", "", "", "--cmd", "status", "", ""});
  const Screen& screen = session.screen();
  session.TypeText("s");
  session.Type(kTab);
  EXPECT_EQ(screen.Text(), "Hs\nset\nshow\nstatus");
  EXPECT_EQ(screen.RedText(), "\nset");
  EXPECT_EQ(screen.Cursor(), std::make_pair(3, 6));

  session.Type(kDown);
  EXPECT_EQ(screen.Text(), "Hs\nset\nshow\nstatus");
  EXPECT_EQ(screen.RedText(), "\n\nshow");
  session.Type(kUp);
  session.Type(kUp);
  EXPECT_EQ(screen.RedText(), "\n\n\nstatus");
  EXPECT_EQ(screen.Cursor(), std::make_pair(3, 6));

  // Choosing leaves only the line, holding the name, and nothing red.
  session.Type(kUp);
  session.Type(kEnter);
  EXPECT_EQ(screen.Text(), "Hshow");
  EXPECT_EQ(screen.RedText(), "");
  EXPECT_EQ(screen.Cursor(), std::make_pair(0, 5));

  session.TypeText("\x7f\x7f\x7f");
  session.Type(kTab);
  EXPECT_EQ(screen.Text(), "Hs\nset\nshow\nstatus");
  session.Type(kDel);
  EXPECT_EQ(screen.Text(), "Hs");
  EXPECT_EQ(screen.RedText(), "");
  EXPECT_EQ(screen.Cursor(), std::make_pair(0, 2));
}

TEST(Screen, ClosingTheListLeavesTheCursorAfterTheLine) {
  ScreenSession session({"--head", "> ", "--cmd", "echo", "", ""});
  const Screen& screen = session.screen();
  session.TypeText("e");
  session.Type(kLeft);
  session.Type(kTab);
  EXPECT_EQ(screen.Text(), "> e\nexit\necho");
  session.Type(kTab);
  EXPECT_EQ(screen.Text(), "> e");
  EXPECT_EQ(screen.Cursor(), std::make_pair(0, 3));
}

TEST(Screen, ListOnTheLastRowScrollsAndIsStillErased) {
  ScreenSession session({"--cmd", "echo", "", ""});
  const Screen& screen = session.screen();
  for (int i = 0; i < 3; ++i) session.TypeText("help\r");
  ASSERT_EQ(screen.Cursor(), std::make_pair(kRows - 1, 4));
  session.TypeText("e");
  session.Type(kTab);
  EXPECT_EQ(screen.Cursor(), std::make_pair(kRows - 1, 4));
  session.Type(kTab);
  std::string text = screen.Text();
  EXPECT_EQ(text.substr(text.rfind('\n')), "\ncli>e");
  EXPECT_EQ(screen.Cursor(), std::make_pair(kRows - 3, 5));
}

TEST(Screen, RecallingWithTheCursorInsideTheLine) {
  ScreenSession session({});
  const Screen& screen = session.screen();
  session.TypeText("ret 1\r");
  EXPECT_EQ(screen.Text(), "cli>ret 1\nFailed to do [ret] ret code [1]\ncli>");
  session.TypeText("abcd");
  session.Type(kLeft);
  session.Type(kLeft);
  // The blanking steps back by the line's length from the cursor, not from
  // the line's end: it eats into the head message and misses the last byte.
  session.Type(kUp);
  EXPECT_EQ(screen.Text(),
            "cli>ret 1\nFailed to do [ret] ret code [1]\nclret 1d");
  EXPECT_EQ(screen.Cursor(), std::make_pair(2, 7));
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
