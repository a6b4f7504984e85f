// Key decoding, fed through a pseudo-terminal that stands in for standard
// input: what each byte or sequence decodes to, and how many of the bytes
// sent the decoder consumed.
#include <cli/console.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "pty_session.h"
#include "redirect.h"

namespace zel {
namespace cli {
namespace {

using testing::StdinPty;
using testing::Visible;
using KeyType = Console::KeyType;

// What a record holds before a key is decoded into it; paths that leave the
// character alone show it.
constexpr uint16_t kPrevious = 0xAB;

struct Row {
  std::string input;
  uint16_t character;
  KeyType type;
  int unread;  // bytes of `input` the key leaves behind
};

TEST(KeyDecoding, BytesAndSequences) {
  const Row rows[] = {
      {"a", 'a', KeyType::Character, 0},
      {" ", ' ', KeyType::Character, 0},
      {"~", '~', KeyType::Character, 0},
      {"\x02", 0x02, KeyType::Left, 0},
      {"\x06", 0x06, KeyType::Right, 0},
      {"\x08", 0x08, KeyType::Backspace, 0},
      {"\x7f", 0x7F, KeyType::Backspace, 0},
      {"\t", 0x09, KeyType::Tab, 0},
      {"\n", 0x0A, KeyType::Enter, 0},
      {"\r", 0x0D, KeyType::Enter, 0},
      {"\x0e", 0x0E, KeyType::Down, 0},
      {"\x10", 0x10, KeyType::Up, 0},
      {"\x01", 0x01, KeyType::None, 0},
      {std::string(1, '\0'), 0x00, KeyType::None, 0},
      {"\x80", 0x80, KeyType::None, 0},
      {"\xff", 0xFF, KeyType::None, 0},
      {"\x1b[A", ' ', KeyType::Up, 0},
      {"\x1b[B", ' ', KeyType::Down, 0},
      {"\x1b[C", ' ', KeyType::Right, 0},
      {"\x1b[D", ' ', KeyType::Left, 0},
      {"\x1b[H", ' ', KeyType::Home, 0},
      {"\x1b[F", ' ', KeyType::End, 0},
      {"\x1b[1~", ' ', KeyType::Home, 0},
      {"\x1b[2~", ' ', KeyType::Insert, 0},
      {"\x1b[3~", ' ', KeyType::Delete, 0},
      {"\x1b[4~", ' ', KeyType::End, 0},
      {"\x1b[5~", ' ', KeyType::PageUp, 0},
      {"\x1b[6~", ' ', KeyType::PageDown, 0},
      {"\x1b[7~", ' ', KeyType::Home, 0},
      {"\x1b[8~", ' ', KeyType::End, 0},
      {"\x1b[1;5D", ' ', KeyType::CtrlLeft, 0},
      {"\x1b[1;5C", ' ', KeyType::CtrlRight, 0},
      // Repeated ESC bytes are skipped.
      {"\x1b\x1b\x1b[A", ' ', KeyType::Up, 0},
      // ESC followed by anything but '[' types that byte, control bytes too.
      {"\x1bx", 'x', KeyType::Character, 0},
      {"\x1b\r", 0x0D, KeyType::Character, 0},
      {"\x1b\x01", 0x01, KeyType::Character, 0},
      // A match ends the sequence: the next key is left alone.
      {"\x1b[Ab", ' ', KeyType::Up, 1},
      // Four bytes that match nothing give None, keep the character, and are
      // gone; a fifth byte is not read.
      {"\x1b[1;5X", kPrevious, KeyType::None, 0},
      {"\x1b[Zabcd", kPrevious, KeyType::None, 1},
      {"\x1b[9~xy", kPrevious, KeyType::None, 0},
      {"\x1b[1~~", ' ', KeyType::Home, 1},
  };
  StdinPty input;
  Console console;
  for (const Row& row : rows) {
    SCOPED_TRACE(Visible(row.input));
    input.Send(row.input);
    Console::KeyInfo key = {kPrevious, KeyType::Home};
    console.ReadKey(&key);
    EXPECT_EQ(key.character, row.character);
    EXPECT_EQ(key.type, row.type);
    EXPECT_EQ(input.Unread(), row.unread);
    // Drain what the row left, so rows stay independent.
    for (int i = input.Unread(); i > 0; --i) console.ReadChar();
  }
}

// Outside the default locale's printable range every byte is an unknown key,
// read as its unsigned value whatever the signedness of char.
TEST(KeyDecoding, HighBytesAreUnknownKeys) {
  StdinPty input;
  Console console;
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    input.Send(std::string(1, static_cast<char>(byte)));
    Console::KeyInfo key = {kPrevious, KeyType::Home};
    console.ReadKey(&key);
    EXPECT_EQ(key.character, byte);
    EXPECT_EQ(key.type, KeyType::None);
  }
}

// An escape sequence whose bytes come one at a time is decoded the same.
TEST(KeyDecoding, SequenceSplitAcrossReads) {
  StdinPty input;
  Console console;
  Console::KeyInfo key = {kPrevious, KeyType::None};
  input.Send("\x1b");
  input.Send("[");
  input.Send("1");
  input.Send(";");
  input.Send("5");
  input.Send("C");
  console.ReadKey(&key);
  EXPECT_EQ(key.type, KeyType::CtrlRight);
  EXPECT_EQ(key.character, ' ');
}

}  // namespace
}  // namespace cli
}  // namespace zel
