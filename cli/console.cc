// Bytes this library reads and writes on the terminal.
//
// Read, as keys:
//   printable byte     typed character (isprint() in the process locale)
//   0x02 Ctrl+B        Left             0x06 Ctrl+F      Right
//   0x08 BS, 0x7F DEL  Backspace        0x09 TAB         Tab
//   0x0A LF, 0x0D CR   Enter            0x0E Ctrl+N      Down
//   0x10 Ctrl+P        Up
//   ESC [ A/B/C/D      Up/Down/Right/Left
//   ESC [ H, 1~, 7~    Home             ESC [ F, 4~, 8~  End
//   ESC [ 2~ / 3~      Insert / Delete  ESC [ 5~ / 6~    Page Up / Page Down
//   ESC [ 1;5D / 1;5C  Ctrl+Left / Ctrl+Right
//   ESC x              the byte x, typed as a character
//
// Written:
//   BS (0x08)          cursor one column left, erasing nothing
//   SP (0x20)          blanks the column under the cursor
//   LF (0x0A)          ends a line; output post-processing is left as the
//                      terminal has it, so with OPOST off it is a bare LF
//   NUL (0x00)         ends the blanking of a whole line; terminals ignore it
//   ESC [ 1F           cursor to column 0 of the previous line
//   ESC [ 3Nm          foreground colour N (1 red ... 6 cyan)
//   ESC [ 0m           colours back to normal

#include "cli/console.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstring>

namespace zel {
namespace cli {
namespace {

constexpr unsigned char kEscape = 0x1B;
constexpr unsigned char kCsiIntroducer = '[';
// ReadChar()'s answer when read() fails or meets the end of the input.
constexpr unsigned char kReadFailed = 0xFF;
// What a recognised escape sequence stores as its character: a blank.
constexpr uint16_t kSequenceCharacter = ' ';
// The longest sequence after "ESC [".
constexpr int kMaxSequenceLength = 4;
// The text StopRead() writes; the descriptor adds its eight bytes to its
// counter as one 64-bit number.
constexpr char kWakeUpText[] = "evt_exit";

// Arrays rather than pointers keep the tables free of load-time relocations.
struct EscapeSequence {
  char sequence[kMaxSequenceLength + 1];  // the bytes after "ESC ["
  Console::KeyType type;
};

// Looked up in this order; several terminals' spellings of Home and End.
constexpr EscapeSequence kEscapeSequenceTable[] = {
    {"1~", Console::KeyType::Home},       {"2~", Console::KeyType::Insert},
    {"3~", Console::KeyType::Delete},     {"4~", Console::KeyType::End},
    {"5~", Console::KeyType::PageUp},     {"6~", Console::KeyType::PageDown},
    {"7~", Console::KeyType::Home},       {"8~", Console::KeyType::End},
    {"1;5D", Console::KeyType::CtrlLeft}, {"1;5C", Console::KeyType::CtrlRight},
    {"A", Console::KeyType::Up},          {"B", Console::KeyType::Down},
    {"C", Console::KeyType::Right},       {"D", Console::KeyType::Left},
    {"F", Console::KeyType::End},         {"H", Console::KeyType::Home},
};

struct ControlByte {
  unsigned char byte;
  Console::KeyType type;
};

constexpr ControlByte kControlBytes[] = {
    {0x02, Console::KeyType::Left},       // Ctrl+B
    {0x06, Console::KeyType::Right},      // Ctrl+F
    {0x08, Console::KeyType::Backspace},  // Ctrl+H
    {0x09, Console::KeyType::Tab},
    {0x0A, Console::KeyType::Enter},      // LF, Ctrl+J
    {0x0D, Console::KeyType::Enter},      // CR
    {0x0E, Console::KeyType::Down},       // Ctrl+N
    {0x10, Console::KeyType::Up},         // Ctrl+P
    {0x7F, Console::KeyType::Backspace},  // DEL
};

// Indexed by FontColor value - 1.
constexpr char kFontColorSequences[][6] = {
    "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[34m",
    "\x1b[35m", "\x1b[36m", "\x1b[0m",
};

// Bytes travel as char in the interface, which is signed on x86-64 and
// unsigned on ARM; all decisions are made on the unsigned value.
unsigned char Byte(char c) { return static_cast<unsigned char>(c); }

}  // namespace

Console::Console() : event_fd_(eventfd(0, 0)) {}

Console::~Console() {
  if (event_fd_ >= 0) close(event_fd_);
}

char Console::ReadChar() {
  unsigned char result = 0;

  // The terminal is raw only while this call waits, so bytes typed while the
  // host is busy are echoed by the terminal itself. The terminal calls are
  // unchecked: on a non-terminal input they fail and reading goes on.
  termios saved = {};
  tcgetattr(STDIN_FILENO, &saved);
  termios raw = saved;
  raw.c_lflag &= ~(ICANON | ECHO);
  tcsetattr(STDIN_FILENO, TCSANOW, &raw);

  pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {event_fd_, POLLIN, 0}};
  // A wake-up, a hang-up, an error or an interrupted poll all answer 0. The
  // wake-up descriptor is never read, so once signalled it stays readable.
  if (poll(fds, 2, -1) > 0 && fds[0].revents == POLLIN) {
    unsigned char byte = 0;
    result = read(STDIN_FILENO, &byte, 1) == 1 ? byte : kReadFailed;
  }

  tcsetattr(STDIN_FILENO, TCSANOW, &saved);
  return static_cast<char>(result);
}

void Console::StopRead() {
  if (event_fd_ < 0) return;
  // Nothing useful can be done if this fails; the read simply stays blocked.
  [[maybe_unused]] ssize_t written =
      write(event_fd_, kWakeUpText, sizeof(kWakeUpText) - 1);
}

bool Console::WriteMsg(std::string& text) {
  // One write per screen update keeps the terminal from showing half of one.
  // A short write is not retried: it is logged and the caller carries on.
  ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
  if (written >= 0 && static_cast<size_t>(written) == text.size()) return true;
  syslog(LOG_ERR, "write target size [%zu] real size [%zd]\n", text.size(),
         written);
  return false;
}

void Console::SetFontColor(FontColor color) {
  std::string sequence;
  int value = static_cast<int>(color);
  if (value >= static_cast<int>(FontColor::Red) &&
      value <= static_cast<int>(FontColor::Reset)) {
    sequence = kFontColorSequences[value - 1];
  }
  WriteMsg(sequence);
}

void Console::ReadKey(KeyInfo* info) { GetKeyInfo(ReadChar(), info); }

void Console::GetKeyInfo(char c, KeyInfo* info) {
  if (std::isprint(Byte(c))) {
    info->character = Byte(c);
    info->type = KeyType::Character;
  } else if (Byte(c) == kEscape) {
    GetKeyInfoFromEscSeq(c, info);
  } else {
    GetKeyInfoFromAscii(c, info);
  }
}

void Console::GetKeyInfoFromAscii(char c, KeyInfo* info) {
  info->character = Byte(c);
  for (const ControlByte& control : kControlBytes) {
    if (control.byte == Byte(c)) {
      info->type = control.type;
      return;
    }
  }
  info->type = KeyType::None;
  // A fixed text that hosts' log parsers match: 165 belongs to the text, not
  // to this file's lines.
  syslog(LOG_WARNING,
         "void zel::cli::Console::GetKeyInfoFromAscii(char, "
         "zel::cli::Console::KeyInfo*) 165: GetKeyInfoFromAscii 165 : "
         "unknown key [0x%x] found",
         static_cast<unsigned>(Byte(c)));
}

void Console::GetKeyInfoFromEscSeq(char c, KeyInfo* info) {
  if (Byte(c) != kEscape) {
    info->type = KeyType::None;
    return;
  }

  unsigned char next;
  do {
    next = Byte(ReadChar());
  } while (next == kEscape);
  if (next != kCsiIntroducer) {
    info->character = next;
    info->type = KeyType::Character;
    return;
  }

  // The spare zero terminates a sequence that fills all four places, so the
  // comparison covers exactly the bytes read. Bytes of a sequence that
  // matches nothing are dropped, not replayed.
  char sequence[kMaxSequenceLength + 1] = {};
  for (int length = 0; length < kMaxSequenceLength; ++length) {
    sequence[length] = ReadChar();
    for (const EscapeSequence& row : kEscapeSequenceTable) {
      if (std::strcmp(sequence, row.sequence) == 0) {
        info->character = kSequenceCharacter;
        info->type = row.type;
        return;
      }
    }
  }
  info->type = KeyType::None;
}

}  // namespace cli
}  // namespace zel
