// Faults end the process through the C library's assertion failure in every
// build type, so this file must see <assert.h> as if NDEBUG were not set.
#undef NDEBUG

#include "cli/cmd_line_interface.h"

#include <syslog.h>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

namespace zel {
namespace cli {
namespace {

constexpr char kBlank = ' ';
constexpr char kLineFeed = '\n';
constexpr uint32_t kHistoryLimit = 20;

// The faults that end the process. Each has fixed texts: the line logged at
// LOG_ERR first (none for a word buffer, whose allocation failed), then the
// failed assertion, reported as this file's, with its line and function.
// Hosts' log parsers match these texts, so the numbers in them belong to the
// texts, not to this file's lines ("happend" too is spelled as they expect).
struct Fault {
  const char* log_line;
  const char* expression;
  unsigned int line;
  const char* function;
};
constexpr Fault kCursorPastLineEnd = {
    "InsertString 467 : this should not happend\n", "0", 468,
    "bool zel::cli::CmdLineInterface::InsertString(std::string&)"};
constexpr Fault kSelectionOutsideList = {
    "bool zel::cli::CmdLineInterface::CandidateScreen::Select() 726: "
    "don't do this to me :(\n",
    "0", 727, "bool zel::cli::CmdLineInterface::CandidateScreen::Select()"};
constexpr Fault kNoMemoryForWord = {
    nullptr, "argv[argc] != __null", 256,
    "bool zel::cli::CmdLineInterface::ParseLine()"};

// Logs the fault's line and ends the process through its failed assertion,
// in every build type, unlike assert(). glibc's own assertion failure is
// called where glibc declares it; other C libraries (musl, and uClibc-ng,
// which defines __GLIBC__ too) get the same message on standard error and
// abort().
[[noreturn]] void Fail(const Fault& fault) {
  constexpr char kSourceName[] = "cmd_line_interface.cc";
  if (fault.log_line != nullptr) syslog(LOG_ERR, "%s", fault.log_line);
#if defined(__GLIBC__) && !defined(__UCLIBC__)
  __assert_fail(fault.expression, kSourceName, fault.line, fault.function);
#else
  std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", kSourceName,
               fault.line, fault.function, fault.expression);
  std::abort();
#endif
}

}  // namespace

CmdLineInterface::Command::Command(std::string name, std::string explain,
                                   std::string usage,
                                   std::function<Result(int, char**)> func)
    : name(std::move(name)),
      explain(std::move(explain)),
      usage(std::move(usage)),
      func(std::move(func)) {}

Result CmdLineInterface::Command::DoFunc(int argc, char** argv) {
  if (!func) return Result::Failure;
  return func(argc, argv);
}

CmdLineInterface::CmdLineInterface()
    : prompt_("cli>"),
      history_limit_(kHistoryLimit),
      name_width_(0),
      explain_width_(0),
      history_browsing_(false),
      history_index_(0) {
  using std::placeholders::_1;
  using std::placeholders::_2;
  struct Builtin {
    const char* name;
    const char* explain;
    Result (CmdLineInterface::*func)(int, char**);
  };
  // exit and quit share one function on purpose.
  static constexpr Builtin kBuiltins[] = {
      {"help", "show commands list", &CmdLineInterface::CmdDefaultFuncHelp},
      {"exit", "exit program", &CmdLineInterface::CmdDefaultFuncExit},
      {"quit", "quit program", &CmdLineInterface::CmdDefaultFuncExit},
  };
  std::vector<Command> builtins;
  builtins.reserve(std::size(kBuiltins));
  for (const Builtin& builtin : kBuiltins) {
    builtins.emplace_back(builtin.name, builtin.explain, "{}",
                          std::bind(builtin.func, this, _1, _2));
  }
  AddCmdList(builtins);
  head_message_ = prompt_;
}

CmdLineInterface::~CmdLineInterface() { RemoveCandidateScreen(); }

// ---------------------------------------------------------------------------
// Session loop

bool CmdLineInterface::Run() {
  WriteOnConsole(greeting_message_);
  running_ = true;
  do {
    WriteOnConsole(head_message_);
    ReadLine();
    ParseLine();
  } while (running_);
  return true;
}

bool CmdLineInterface::ReadLine() {
  cursor_ = 0;
  line_.clear();
  // One record for the whole line: a decoding path that leaves a field alone
  // passes the previous key's value on.
  Console::KeyInfo key = {0, Console::KeyType::None};
  do {
    console_.ReadKey(&key);
  } while (!HandleKeyEvent(&key));
  return true;
}

bool CmdLineInterface::HandleKeyEvent(Console::KeyInfo* key) {
  // While the candidate list is open it takes every key, and none of them
  // finishes the line.
  if (candidate_screen_ != nullptr) {
    candidate_screen_->HandleKeyEvent(key);
    return false;
  }
  // The character is narrowed to its low byte, the byte that was typed.
  return HandleKey(
      static_cast<char>(static_cast<unsigned char>(key->character)), key->type);
}

bool CmdLineInterface::HandleKey(char character, Console::KeyType type) {
  using KeyType = Console::KeyType;
  switch (type) {
    case KeyType::Character: {
      std::string text(&character, 1);
      InsertString(text);
      return false;
    }
    case KeyType::Backspace:
      DeleteCharacters(1);
      return false;
    case KeyType::Enter:
      MoveCursorDown();
      return true;
    case KeyType::Left:
      MoveCursorToLeft(1);
      return false;
    case KeyType::Right:
      MoveCursorToRight(1);
      return false;
    case KeyType::Up:
      UpHistory(1);
      return false;
    case KeyType::Down:
      DownHistory(1);
      return false;
    case KeyType::Home:
      MoveCursorToLeft(cursor_);
      return false;
    case KeyType::End:
      MoveCursorToRight(static_cast<uint32_t>(line_.size()) - cursor_);
      return false;
    case KeyType::Tab:
      ShowCandidateScreen();
      return false;
    case KeyType::PageUp: {
      // Unsigned on purpose: the arithmetic wraps the way browsing expects.
      uint32_t count = static_cast<uint32_t>(history_.size());
      UpHistory(count - history_index_ - history_browsing_);
      return false;
    }
    case KeyType::PageDown:
      DownHistory(history_browsing_ + history_index_);
      return false;
    default:
      // None, Insert, Delete, Ctrl+Left, Ctrl+Right: no forward delete, no
      // overwrite mode, no word-wise moves.
      return false;
  }
}

bool CmdLineInterface::WriteOnConsole(std::string& text) {
  return console_.WriteMsg(text);
}

bool CmdLineInterface::WriteOnConsole(char c) {
  std::string text(&c, 1);
  return console_.WriteMsg(text);
}

bool CmdLineInterface::SetHeadMessage(std::string message) {
  head_message_ = std::move(message);
  return true;
}

bool CmdLineInterface::SetGreetingMessage(std::string message) {
  greeting_message_ = std::move(message);
  return true;
}

bool CmdLineInterface::SetFontColor(Console::FontColor color) {
  console_.SetFontColor(color);
  return true;
}

// ---------------------------------------------------------------------------
// Commands

void CmdLineInterface::AddCmdList(std::vector<Command>& list) {
  for (const Command& command : list) {
    commands_.push_back(command);
    name_width_ =
        std::max(name_width_, static_cast<uint32_t>(command.name.size()));
    explain_width_ =
        std::max(explain_width_, static_cast<uint32_t>(command.explain.size()));
  }
}

namespace {

constexpr int kMaxWords = 10;
constexpr char kUsageQuery = '?';
constexpr char kNotSupported[] = "cmd [%s] is not supported\n";
// A line of blanks alone has no first word; the message shows it as glibc's
// printf shows a null string, spelled out rather than left to the C library.
constexpr char kNoWord[] = "(null)";

// Owns a dispatched line's word buffers and frees them, last word first, on
// every path out of the dispatch, an exception from the command included.
// It keeps its own pointers, so a command that rewrites its argv entries
// cannot make it free the wrong thing.
class WordBuffers {
 public:
  WordBuffers() = default;
  WordBuffers(const WordBuffers&) = delete;
  WordBuffers& operator=(const WordBuffers&) = delete;
  ~WordBuffers() {
    for (int i = kMaxWords - 1; i >= 0; --i) std::free(words_[i]);
  }

  // A zero-filled buffer holding the `length` bytes at `word` and a NUL.
  // Running out of memory here is fatal.
  char* Add(int index, const char* word, size_t length) {
    words_[index] = static_cast<char*>(std::calloc(length + 1, 1));
    if (words_[index] == nullptr) Fail(kNoMemoryForWord);
    return static_cast<char*>(std::memcpy(words_[index], word, length));
  }

 private:
  char* words_[kMaxWords] = {};
};

}  // namespace

bool CmdLineInterface::ParseLine() {
  if (line_.empty()) return true;

  WordBuffers buffers;
  char* argv[kMaxWords] = {};
  int argc = 0;
  auto is_delimiter = [](char c) { return c == ' ' || c == '\t'; };
  const char* next = line_.data();
  const char* end = next + line_.size();
  // Words past the tenth are dropped, silently.
  while (argc < kMaxWords) {
    while (next != end && is_delimiter(*next)) ++next;
    if (next == end) break;
    const char* word = next;
    while (next != end && !is_delimiter(*next)) ++next;
    argv[argc] = buffers.Add(argc, word, next - word);
    ++argc;
  }
  DoCmdLine(argc, argv);
  return true;
}

Result CmdLineInterface::DoCmdLine(int argc, char** argv) {
  // Outcomes go through printf, the stream that commands print on, so that
  // they follow a command's own lines; screen updates and the help listing
  // go straight to the terminal through WriteOnConsole.
  if (argc == 0) {
    std::printf(kNotSupported, kNoWord);
    return Result::NotSupported;
  }
  std::string_view word = argv[0];  // without a trailing "?"
  bool query = !word.empty() && word.back() == kUsageQuery;
  if (query) {
    argv[0][word.size() - 1] = '\0';
    word.remove_suffix(1);
  }

  // An index, not a pointer: it stays valid whatever the command does.
  size_t index = 0;
  while (index < commands_.size() && commands_[index].name != word) ++index;
  if (index == commands_.size()) {
    std::printf(kNotSupported, argv[0]);
    return Result::NotSupported;
  }
  if (query) {
    ShowHowTo(commands_[index].usage);
    return Result::Success;
  }

  // Every line that reaches a command is remembered, whatever it returns,
  // and only after it has run.
  Result result = commands_[index].DoFunc(argc, argv);
  if (result == Result::InvalidArgs) {
    ShowHowTo(commands_[index].usage);
  } else if (result != Result::Success) {
    std::printf("Failed to do [%s] ret code [%d]\n",
                commands_[index].name.c_str(), static_cast<int>(result));
  }
  AddHistory();
  // argv[0] is read again, not the word found before the call: its buffer is
  // the command's to rewrite, and this line shows the word as the command
  // left it.
  if (result == Result::NotSupported) {
    std::printf(kNotSupported, argv[0] != nullptr ? argv[0] : kNoWord);
  }
  return result;
}

bool CmdLineInterface::ShowHowTo(std::string& usage) {
  std::printf("Usage : %s\n", usage.c_str());
  return true;
}

Result CmdLineInterface::CmdDefaultFuncHelp(int, char**) {
  // Each field is padded to its column's width before its tab, so the
  // terminal's tab stops line the columns up. One write per listing line.
  auto write_row = [this](const std::string& name, const std::string& explain,
                          const std::string& usage) {
    std::string row = name;
    FillSpaceCharacter(row, static_cast<unsigned int>(name.size()),
                       name_width_);
    row.append(1, '\t').append(explain);
    FillSpaceCharacter(row, static_cast<unsigned int>(explain.size()),
                       explain_width_);
    row.append(1, '\t').append(usage).append(1, kLineFeed);
    WriteOnConsole(row);
  };
  write_row("cmd:", "explain:", "usage:");
  for (const Command& command : commands_) {
    write_row(command.name, command.explain, command.usage);
  }
  return Result::Success;
}

Result CmdLineInterface::CmdDefaultFuncExit(int, char**) {
  running_ = false;
  // Run() sees running_ after this line is dispatched. The wake-up is never
  // drained, so any read after this one returns at once.
  console_.StopRead();
  return Result::Success;
}

void CmdLineInterface::FillSpaceCharacter(std::string& text, unsigned int from,
                                          unsigned int to) {
  if (from < to) text.append(to - from, kBlank);
}

// ---------------------------------------------------------------------------
// Line editor
//
// The terminal cursor is assumed to stand at line_[cursor_], counted from
// the end of the head message, and the line never to wrap. Each operation
// sends one update: a failed allocation while building it sends nothing and
// changes nothing.

namespace {

constexpr char kBackspace = '\b';
// Sent after blanking a whole line; terminals ignore it.
constexpr char kNul = '\0';

// The part of `line` from `cursor` on; `cursor` is never past its end.
std::string_view Tail(const std::string& line, uint32_t cursor) {
  return std::string_view(line.data() + cursor, line.size() - cursor);
}

// The bytes of one line update, added in the order they go out. Running out
// of memory while adding marks the update incomplete instead of throwing, so
// the operation can write nothing and return false.
class LineUpdate {
 public:
  LineUpdate& Back(size_t columns) { return Repeat(kBackspace, columns); }
  LineUpdate& Blank(size_t columns) { return Repeat(kBlank, columns); }
  LineUpdate& Nul() { return Repeat(kNul, 1); }
  LineUpdate& Text(std::string_view text) {
    try {
      bytes_.append(text);
    } catch (...) {  // bad_alloc, or length_error past max_size()
      complete_ = false;
    }
    return *this;
  }

  bool Complete() const { return complete_; }
  std::string& Bytes() { return bytes_; }

 private:
  LineUpdate& Repeat(char byte, size_t count) {
    try {
      bytes_.append(count, byte);
    } catch (...) {
      complete_ = false;
    }
    return *this;
  }

  std::string bytes_;
  bool complete_ = true;
};

}  // namespace

bool CmdLineInterface::InsertString(std::string& text) {
  if (cursor_ > line_.size()) Fail(kCursorPastLineEnd);
  // The text pushes the tail right, and the cursor comes back over it; at
  // the end of the line the update is the text alone.
  std::string_view tail = Tail(line_, cursor_);
  LineUpdate update;
  update.Text(text).Text(tail).Back(tail.size());
  if (!update.Complete()) return false;
  WriteOnConsole(update.Bytes());
  line_.insert(cursor_, text);
  cursor_ += static_cast<uint32_t>(text.size());
  return true;
}

bool CmdLineInterface::DeleteCharacters(uint32_t n) {
  if (n > cursor_) return false;  // never a partial deletion
  // The tail moves n columns left, n blanks cover the columns it leaves, and
  // the cursor comes back over both.
  std::string_view tail = Tail(line_, cursor_);
  LineUpdate update;
  update.Back(n).Text(tail).Blank(n).Back(n + tail.size());
  if (!update.Complete()) return false;
  WriteOnConsole(update.Bytes());
  line_.erase(cursor_ - n, n);
  cursor_ -= n;
  return true;
}

bool CmdLineInterface::MoveCursorToLeft(uint32_t n) {
  if (n > cursor_) return false;
  LineUpdate update;
  update.Back(n);
  if (!update.Complete()) return false;
  WriteOnConsole(update.Bytes());
  cursor_ -= n;
  return true;
}

bool CmdLineInterface::MoveCursorToRight(uint32_t n) {
  std::string_view tail = Tail(line_, cursor_);
  if (n > tail.size()) return false;
  // The whole tail is written again rather than stepped over with a
  // cursor-forward sequence, and the cursor comes back over what lies beyond
  // the n columns.
  LineUpdate update;
  update.Text(tail).Back(tail.size() - n);
  if (!update.Complete()) return false;
  WriteOnConsole(update.Bytes());
  cursor_ += n;
  return true;
}

bool CmdLineInterface::ClearCharacters() {
  size_t length = line_.size();
  if (length == 0) return true;
  // Steps back by the line's length, not by cursor_: callers leave the
  // cursor where it is, so from inside the line this blanks columns left of
  // the line's start. That is how the line has always been cleared.
  LineUpdate update;
  update.Back(length).Blank(length).Back(length).Nul();
  if (!update.Complete()) return false;
  WriteOnConsole(update.Bytes());
  line_.clear();
  cursor_ = 0;
  return true;
}

bool CmdLineInterface::ReplaceLine(std::string& text) {
  ClearCharacters();
  InsertString(text);
  return true;
}

bool CmdLineInterface::MoveCursorDown() {
  history_index_ = 0;
  history_browsing_ = false;
  saved_line_.clear();
  // The line feed goes wherever the cursor stands; the line stays as shown.
  return WriteOnConsole(kLineFeed);
}

// ---------------------------------------------------------------------------
// History
//
// The browsing depth is history_browsing_ + history_index_: 0 shows the typed
// line, k shows entry k - 1. The step checks below are done in 32-bit
// arithmetic, signed where a step could go below zero; their wrap-around
// cases are relied on by Page Up and Page Down.

bool CmdLineInterface::ShowHistoryEntry() {
  if (history_index_ >= history_.size()) return false;
  std::string& entry = *std::next(history_.begin(), history_index_);
  return !entry.empty() && ReplaceLine(entry);
}

bool CmdLineInterface::AddHistory() {
  if (!history_.empty() && history_.front() == line_) return true;
  if (history_.size() >= history_limit_) history_.pop_back();
  history_.push_front(line_);
  return true;
}

bool CmdLineInterface::UpHistory(uint32_t n) {
  uint32_t count = static_cast<uint32_t>(history_.size());
  uint32_t left = count - n - history_browsing_;
  // Refused unless depth + n <= count; a step past the oldest entry is not
  // shortened to reach it.
  if (static_cast<int32_t>(left) < 0 || left < history_index_) return true;
  if (!history_browsing_) {
    saved_line_ = line_;
    history_browsing_ = true;
    history_index_ = n - 1;
  } else {
    history_index_ += n;
  }
  return ShowHistoryEntry();
}

bool CmdLineInterface::DownHistory(uint32_t n) {
  if (static_cast<int32_t>(history_index_ - n + history_browsing_) < 0) {
    return true;
  }
  if (history_index_ < n) {
    // Back to the typed line, even an empty one. saved_line_ keeps it until
    // Enter.
    history_index_ = 0;
    history_browsing_ = false;
    return ReplaceLine(saved_line_);
  }
  history_index_ -= n;
  return ShowHistoryEntry();
}

// ---------------------------------------------------------------------------
// Completion

namespace {

// Moves the terminal cursor to the start of the previous line.
constexpr std::string_view kLineUp = "\x1b[1F";

}  // namespace

bool CmdLineInterface::ShowCandidateScreen() {
  if (line_.empty() || commands_.empty()) return true;

  // The whole line is the prefix, wherever the cursor stands. Registration
  // order, duplicates kept.
  std::list<std::string> candidates;
  for (const Command& command : commands_) {
    if (std::string_view(command.name).substr(0, line_.size()) == line_) {
      candidates.push_back(command.name);
    }
  }
  if (candidates.empty()) return true;
  if (candidates.size() == 1) {
    if (candidates.front() == line_) return true;
    return ReplaceLine(candidates.front());
  }

  // Written after the list is drawn, with the terminal cursor after the last
  // name: up to the input line, blank every name, up again and redraw the
  // head message and the line as they are now.
  std::string clear_sequence;
  try {
    for (size_t i = 0; i < candidates.size(); ++i) clear_sequence += kLineUp;
    for (const std::string& candidate : candidates) {
      clear_sequence.append(1, kLineFeed).append(candidate.size(), kBlank);
    }
    for (size_t i = 0; i < candidates.size(); ++i) clear_sequence += kLineUp;
    clear_sequence.append(head_message_).append(line_);
  } catch (...) {  // only for want of memory
    return false;
  }
  candidate_screen_ = new CandidateScreen(std::move(candidates),
                                          std::move(clear_sequence), this);
  return true;
}

bool CmdLineInterface::RemoveCandidateScreen() {
  delete candidate_screen_;
  candidate_screen_ = nullptr;
  return true;
}

CmdLineInterface::CandidateScreen::CandidateScreen(
    std::list<std::string> candidates, std::string clear_sequence,
    CmdLineInterface* owner)
    : selected_(0),
      candidates_(std::move(candidates)),
      clear_sequence_(std::move(clear_sequence)),
      owner_(owner) {
  Show();
}

CmdLineInterface::CandidateScreen::~CandidateScreen() = default;

bool CmdLineInterface::CandidateScreen::HandleKeyEvent(Console::KeyInfo* key) {
  using KeyType = Console::KeyType;
  uint32_t count = static_cast<uint32_t>(candidates_.size());
  switch (key->type) {
    case KeyType::Backspace:
    case KeyType::Tab:
      Clear();
      Remove();  // this object is gone now
      break;
    case KeyType::Enter:
      Select();  // deletes this object too
      break;
    case KeyType::Up:
      MoveUp(1);
      break;
    case KeyType::Down:
      MoveDown(1);
      break;
    case KeyType::PageUp:
      MoveUp(selected_);
      break;
    case KeyType::PageDown:
      MoveDown(count - 1 - selected_);
      break;
    default:
      break;  // typing does not reach the line while the list is open
  }
  return true;
}

bool CmdLineInterface::CandidateScreen::Show() {
  uint32_t index = 0;
  // Every piece is a write of its own; the colour goes on before the line
  // feed and off after the name.
  for (std::string& candidate : candidates_) {
    bool highlighted = index == selected_;
    if (highlighted) owner_->SetFontColor(Console::FontColor::Red);
    owner_->WriteOnConsole(kLineFeed);
    owner_->WriteOnConsole(candidate);
    if (highlighted) owner_->SetFontColor(Console::FontColor::Reset);
    ++index;
  }
  return true;
}

bool CmdLineInterface::CandidateScreen::Clear() {
  owner_->WriteOnConsole(clear_sequence_);
  return true;
}

// n is always below the number of candidates, so one wrap is enough.
bool CmdLineInterface::CandidateScreen::MoveDown(unsigned int n) {
  Clear();
  uint32_t count = static_cast<uint32_t>(candidates_.size());
  uint32_t target = selected_ + n;
  selected_ = target < count ? target : target - count;
  return Show();
}

bool CmdLineInterface::CandidateScreen::MoveUp(unsigned int n) {
  Clear();
  uint32_t count = static_cast<uint32_t>(candidates_.size());
  int32_t target = static_cast<int32_t>(selected_ - n);
  selected_ = static_cast<uint32_t>(target >= 0 ? target : target + count);
  return Show();
}

bool CmdLineInterface::CandidateScreen::Select() {
  if (selected_ >= candidates_.size()) Fail(kSelectionOutsideList);
  Clear();
  owner_->ClearCharacters();
  std::string& name = *std::next(candidates_.begin(), selected_);
  if (!name.empty()) owner_->InsertString(name);
  Remove();  // deletes this object
  return true;
}

bool CmdLineInterface::CandidateScreen::Remove() {
  return owner_->RemoveCandidateScreen();
}

}  // namespace cli
}  // namespace zel
