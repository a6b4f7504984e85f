// Console: the command line's only contact with the terminal.
//
// It reads standard input one byte at a time, switching the terminal to
// non-canonical, non-echoing input only while a read waits, decodes bytes and
// ANSI escape sequences into keys, and writes strings and colour sequences to
// standard output, each in a single write. Faults go to the system log; the
// library never calls openlog(), so the host decides where those lines end up.
//
// Threads: StopRead() may be called from any thread, to wake a read that
// waits for a key. Every other member belongs to the thread that reads keys.
// The destructor closes the descriptor StopRead() writes to, so the caller
// must see to it that no StopRead() runs during or after destruction.

#ifndef ZEL_CLI_CONSOLE_H_
#define ZEL_CLI_CONSOLE_H_

#include <cstdint>
#include <string>

namespace zel {
namespace cli {

class Console {
 public:
  // The keys the decoder produces. Value 4 is reserved and never produced.
  enum class KeyType : uint32_t {
    None = 0,  // unknown control byte or unmatched escape sequence
    Character = 1,
    Backspace = 2,
    Enter = 3,
    Left = 5,
    Right = 6,
    Up = 7,
    Down = 8,
    Home = 9,
    Insert = 10,
    Delete = 11,
    End = 12,
    CtrlLeft = 13,
    CtrlRight = 14,
    Tab = 15,
    PageUp = 16,
    PageDown = 17,
  };

  // One decoded key.
  struct KeyInfo {
    // The byte value of the key (0 to 255), or 32 (a blank) for a key that
    // came as an escape sequence.
    uint16_t character;
    KeyType type;
  };

  // Foreground colours; any other value writes nothing.
  enum class FontColor {
    Red = 1,  // "\e[31m"
    Green = 2,
    Yellow = 3,
    Blue = 4,
    Magenta = 5,
    Cyan = 6,   // "\e[36m"
    Reset = 7,  // "\e[0m"
  };

  // Opens the wake-up descriptor. If that fails the console still works, but
  // StopRead() does nothing.
  Console();
  // Closes the wake-up descriptor. Writes nothing and leaves the terminal mode
  // alone: every read already restores it.
  ~Console();

  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // Waits for one byte of standard input and returns it. While it waits, the
  // terminal has ICANON and ECHO cleared; every other setting stays, and the
  // saved settings are back before it returns. Returns 0 when woken by
  // StopRead() or when standard input reports a hang-up or error, and 255
  // (as a char) when the read itself fails, end of file included. Input that
  // is pending wins over a wake-up.
  char ReadChar();

  // Wakes a ReadChar() that waits, from any thread. The wake-up is never
  // consumed: from the first call on every ReadChar() returns at once.
  // A third call blocks for ever, so call it at most twice.
  void StopRead();

  // Writes all of `text` to standard output in one write(), NUL bytes
  // included, without retrying. Returns true when every byte was written;
  // otherwise logs "write target size [..] real size [..]" at LOG_ERR and
  // returns false.
  bool WriteMsg(const std::string& text);

  // Writes the escape sequence of `color`; an unknown value makes a write of
  // zero bytes.
  void SetFontColor(FontColor color);

  // Reads one key: ReadChar() followed by GetKeyInfo().
  void ReadKey(KeyInfo* info);

  // Decodes byte `c`: a printable byte (isprint() in the process locale) is a
  // Character, ESC starts an escape sequence, anything else goes through the
  // control-byte map.
  void GetKeyInfo(char c, KeyInfo* info);

  // The control-byte map: Ctrl+B Left, Ctrl+F Right, BS and DEL Backspace,
  // Tab, LF and CR Enter, Ctrl+N Down, Ctrl+P Up. Any other byte gives None
  // and logs "unknown key [0x..] found" at LOG_WARNING. Always stores `c` in
  // info->character.
  void GetKeyInfoFromAscii(char c, KeyInfo* info);

  // Decodes what follows an ESC, reading further bytes with ReadChar().
  // Repeated ESC bytes are skipped; ESC followed by a byte other than '['
  // types that byte as a Character. After "ESC [" up to four bytes are read
  // and matched whole against the known sequences; a match gives
  // {32, type}. A sequence that matches nothing after four bytes gives None
  // and keeps the previous character: its bytes are discarded, so an unknown
  // sequence swallows the keys typed after it.
  void GetKeyInfoFromEscSeq(char c, KeyInfo* info);

 private:
  // The wake-up descriptor, or -1. Polled beside standard input, written by
  // StopRead(), never read.
  int event_fd_;
};

}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_CONSOLE_H_
