// Console: the command line's only contact with the terminal.

#ifndef ZEL_CLI_CONSOLE_H_
#define ZEL_CLI_CONSOLE_H_

#include <cstdint>
#include <string>

namespace zel {
namespace cli {

/// The command line's only contact with the terminal.
///
/// It reads standard input one byte at a time, switching the terminal to
/// non-canonical, non-echoing input only while a read waits, decodes bytes and
/// ANSI escape sequences into keys, and writes strings and colour sequences to
/// standard output, each in a single write. Faults go to the system log; the
/// library never calls openlog(), so the host decides where those lines end up.
///
/// A session owns one Console (CmdLineInterface::console_); a host calls
/// StopRead() on it and, when it drives the terminal itself, the other members.
///
/// Threads: StopRead() may be called from any thread, to wake a read that
/// waits for a key. Every other member belongs to the thread that reads keys
/// (the one that calls CmdLineInterface::Run()). The destructor closes the
/// descriptor StopRead() writes to, so the caller must see to it that no
/// StopRead() runs during or after destruction.
class Console {
 public:
  /// The keys the decoder produces. Value 4 is reserved and never produced.
  enum class KeyType : uint32_t {
    None = 0,        ///< unknown control byte or unmatched escape sequence
    Character = 1,   ///< a byte to insert; KeyInfo::character holds it
    Backspace = 2,   ///< BS (Ctrl+H) or DEL
    Enter = 3,       ///< CR or LF
    Left = 5,        ///< "ESC [ D" or Ctrl+B
    Right = 6,       ///< "ESC [ C" or Ctrl+F
    Up = 7,          ///< "ESC [ A" or Ctrl+P
    Down = 8,        ///< "ESC [ B" or Ctrl+N
    Home = 9,        ///< "ESC [ H", "ESC [ 1 ~" or "ESC [ 7 ~"
    Insert = 10,     ///< "ESC [ 2 ~"; the session ignores it
    Delete = 11,     ///< "ESC [ 3 ~"; the session ignores it
    End = 12,        ///< "ESC [ F", "ESC [ 4 ~" or "ESC [ 8 ~"
    CtrlLeft = 13,   ///< "ESC [ 1 ; 5 D"; the session ignores it
    CtrlRight = 14,  ///< "ESC [ 1 ; 5 C"; the session ignores it
    Tab = 15,        ///< HT
    PageUp = 16,     ///< "ESC [ 5 ~"
    PageDown = 17,   ///< "ESC [ 6 ~"
  };

  /// One decoded key.
  struct KeyInfo {
    /// The byte value of the key (0 to 255), or 32 (a blank) for a key that
    /// came as an escape sequence.
    uint16_t character;
    KeyType type;  ///< which key it is
  };

  /// Foreground colours, as ANSI escape sequences; any other value writes
  /// nothing.
  enum class FontColor {
    Red = 1,      ///< "ESC [ 3 1 m"
    Green = 2,    ///< "ESC [ 3 2 m"
    Yellow = 3,   ///< "ESC [ 3 3 m"
    Blue = 4,     ///< "ESC [ 3 4 m"
    Magenta = 5,  ///< "ESC [ 3 5 m"
    Cyan = 6,     ///< "ESC [ 3 6 m"
    Reset = 7,    ///< "ESC [ 0 m", the terminal's own colours
  };

  /// Opens the wake-up descriptor. If that fails the console still works, but
  /// StopRead() does nothing. Writes nothing.
  Console();
  /// Closes the wake-up descriptor. Writes nothing and leaves the terminal mode
  /// alone: every read already restores it. No StopRead() may run during or
  /// after it.
  ~Console();

  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Waits for one byte of standard input and returns it. While it waits, the
  /// terminal has ICANON and ECHO cleared; every other setting stays, and the
  /// saved settings are back before it returns. Returns 0 when woken by
  /// StopRead(), when a signal that the host handles interrupts the wait
  /// (poll() is not restarted, whatever SA_RESTART says), or when standard
  /// input reports a hang-up or error, and 255 (as a char) when the read
  /// itself fails, end of file included. Input that is pending wins over a
  /// wake-up. Writes nothing. Reading thread only.
  char ReadChar();

  /// Wakes a ReadChar() that waits, from any thread. The wake-up is never
  /// consumed: from the first call on every ReadChar() returns at once.
  /// Each call adds to the descriptor's counter, and the third call of a
  /// console's life blocks for ever. "exit" and "quit" make one call each
  /// time they run, so a host that calls it once leaves room for the user's
  /// "exit"; after a second call of the host's, "exit" blocks. Writes nothing
  /// to the terminal.
  void StopRead();

  /// Writes all of `text` to standard output in one write(), NUL bytes
  /// included, without retrying. Returns true when every byte was written;
  /// otherwise logs "write target size [..] real size [..]" at LOG_ERR and
  /// returns false. `text` is not changed. Reading thread only.
  bool WriteMsg(std::string& text);

  /// Writes the escape sequence of `color`; an unknown value makes a write of
  /// zero bytes. Reading thread only.
  void SetFontColor(FontColor color);

  /// Reads one key: ReadChar() followed by GetKeyInfo(). Writes nothing.
  /// Reading thread only.
  void ReadKey(KeyInfo* info);

  /// Decodes byte `c` into `info`: a printable byte (isprint() in the process
  /// locale) is a Character, ESC starts an escape sequence, anything else
  /// goes through the control-byte map. Writes nothing. Reading thread only.
  void GetKeyInfo(char c, KeyInfo* info);

  /// The control-byte map: Ctrl+B Left, Ctrl+F Right, BS and DEL Backspace,
  /// Tab, LF and CR Enter, Ctrl+N Down, Ctrl+P Up. Any other byte gives None
  /// and logs "unknown key [0x..] found" at LOG_WARNING. Always stores `c` in
  /// info->character. Writes nothing. Reading thread only.
  void GetKeyInfoFromAscii(char c, KeyInfo* info);

  /// Decodes what follows an ESC, reading further bytes with ReadChar().
  /// Repeated ESC bytes are skipped; ESC followed by a byte other than '['
  /// types that byte as a Character. After "ESC [" up to four bytes are read
  /// and matched whole against the known sequences; a match gives
  /// {32, type}. A sequence that matches nothing after four bytes gives None
  /// and keeps the previous character: its bytes are discarded, so an unknown
  /// sequence swallows the keys typed after it. Writes nothing. Reading
  /// thread only.
  void GetKeyInfoFromEscSeq(char c, KeyInfo* info);

 private:
  // The wake-up descriptor, or -1. Polled beside standard input, written by
  // StopRead(), never read.
  int event_fd_;
};

}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_CONSOLE_H_
