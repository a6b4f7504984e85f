// CmdLineInterface: an interactive command line on a text terminal.

#ifndef ZEL_CLI_CMD_LINE_INTERFACE_H_
#define ZEL_CLI_CMD_LINE_INTERFACE_H_

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "cli/console.h"

namespace zel {
/// zelcli: CmdLineInterface, the session a host runs, with the Result its
/// commands return, and Console, its contact with the terminal.
namespace cli {

/// What a command function returns. The underlying type is int so that a
/// command may return any number; values other than these four are reported
/// like Failure, with their own number.
enum Result : int {
  Success = 0,       ///< done; nothing is printed
  Failure = 1,       ///< "Failed to do [NAME] ret code [1]"
  InvalidArgs = 2,   ///< the command's usage is printed
  NotSupported = 3,  ///< "Failed to do ...", then "cmd [..] is not supported"
};

class CmdLineInterfacePeer;

/// An interactive command line on a text terminal.
///
/// A host creates one CmdLineInterface, registers its commands and calls
/// Run(). The session then writes the greeting once and, before every line,
/// the head message ("cli>" unless set otherwise), reads keys from standard
/// input, lets the user edit the line and runs the command that the line's
/// first word names:
///
/// ```
/// zel::cli::CmdLineInterface cli;
/// std::vector<zel::cli::CmdLineInterface::Command> commands = {
///     {"hello", "say hello", "{}", [](int, char**) {
///        std::printf("hello\n");
///        return zel::cli::Result::Success;
///      }}};
/// cli.AddCmdList(commands);
/// cli.Run();  // returns after "exit" or "quit"
/// ```
///
/// Keys: printable bytes are inserted at the cursor; Backspace (BS, DEL)
/// deletes before it; Left/Right (also Ctrl+B/Ctrl+F), Home and End move it;
/// Enter (CR or LF) runs the line. Insert, Delete and Ctrl+Left/Right do
/// nothing. ESC followed by any byte but ESC and '[' types that byte as it
/// is: Alt+letter types the letter, and a control byte or a byte from 0x80 to
/// 0xFF (0x9B, the one-byte CSI, among them) typed after ESC goes into the
/// line, its echo and the command's argv unchanged. Other control bytes,
/// Ctrl+C among them when the terminal passes it on, are logged as unknown
/// keys and do nothing, and so are bytes from 0x80 to 0xFF typed without ESC
/// where isprint() refuses them (in the C and UTF-8 locales). An escape
/// sequence the session does not know does nothing, and may take the key
/// typed after it along: F5 (ESC [ 1 5 ~) then the letter a leaves the line
/// as it was (see Console::GetKeyInfoFromEscSeq). One byte is one terminal
/// column, and the head message and the line are expected to fit on one row.
///
/// History: the last 20 lines that named a registered command (usage queries
/// excepted, failures included) are kept, newest first, without repeating the
/// newest. Up (Ctrl+P) and Down (Ctrl+N) step through them; Down from the
/// newest brings back the line being typed, which Up kept aside. Page Up jumps
/// to the oldest entry. Page Down while browsing brings back the line being
/// typed at once; on the line being typed it puts the newest entry in its
/// place without keeping the typed text, which is then gone. A recalled line
/// is a copy: editing it changes no entry. The history lives in memory only.
///
/// Completion: Tab takes the whole line as the beginning of a command name; on
/// an empty line it does nothing. One matching name replaces the line; several
/// open a list under the line, in registration order, with the highlighted name
/// in red. In the list Up, Down, Page Up and Page Down move the highlight
/// (wrapping around), Enter puts the highlighted name into the line without
/// running it, and Tab or Backspace close the list and leave the line as typed.
/// Other keys do nothing while the list is open.
///
/// Command lines: words are separated by runs of blanks and tabs, with no
/// quoting; at most 10 words are passed on and the rest of the line is
/// dropped. Names match exactly and case-sensitively. A first word ending in
/// '?' ("set?") prints the command's usage instead of running it. Outcomes are
/// reported on standard output:
/// - unknown command: "cmd [WORD] is not supported"; a line of blanks and tabs
///   alone has no word and prints "cmd [(null)] is not supported" (an empty
///   line prints nothing);
/// - Result::InvalidArgs: "Usage : USAGE";
/// - Result::Failure or any other number: "Failed to do [NAME] ret code [N]";
/// - Result::NotSupported: the "Failed to do" line, then "cmd [WORD] is not
///   supported".
///
/// The built-in commands "help", "exit" and "quit" are always registered
/// first, so a host command of the same name is listed but never runs.
///
/// Faults: the terminal's are logged and the session carries on (see Console).
/// A broken internal invariant, and a word of a line that memory cannot hold,
/// end the process through a failed assertion in every build type: glibc's own
/// assertion failure under glibc, and elsewhere (musl, uClibc-ng) the same
/// message on standard error and abort(). The invariants' log lines come first,
/// at LOG_ERR.
///
/// Threads: the session creates none. Everything runs on the thread that calls
/// Run(), except console_.StopRead(), which another thread may call to wake a
/// read that waits for a key (see Console).
class CmdLineInterface {
 public:
  /// One registered command; a value type, copied into the session.
  class Command {
   public:
    /// Takes all four by value. `func` may be empty: running the command then
    /// reports a failure with code 1. Any thread; writes nothing.
    Command(std::string name, std::string explain, std::string usage,
            std::function<Result(int, char**)> func);

    /// Runs `func`, or returns Result::Failure when it is empty. The session
    /// calls it on the thread that runs Run(); what `func` prints on standard
    /// output comes before the line that dispatch prints for its result.
    ///
    /// argc is 1 to 10 and argv[0] is the command's name as typed. Each
    /// argv[i] is a writable, NUL-terminated buffer owned by the session and
    /// freed as soon as the call returns: copy what you keep. argv[argc] is
    /// null only when argc is below 10, so go by argc.
    Result DoFunc(int argc, char** argv);

    std::string name;     ///< the word that runs the command
    std::string explain;  ///< one line, shown by "help"
    std::string usage;    ///< argument synopsis, shown by "help" and "NAME?"
    /// What running the command does; see DoFunc() for its arguments.
    std::function<Result(int, char**)> func;
  };

  class CandidateScreen;

  /// Registers "help", "exit" and "quit"; the head message is "cli>" and the
  /// greeting empty. Writes nothing and leaves the terminal alone. Any
  /// thread, which then owns the session.
  CmdLineInterface();
  /// Writes nothing and changes no terminal setting. The owning thread, after
  /// Run() has returned and while no other thread calls console_.StopRead().
  ~CmdLineInterface();

  CmdLineInterface(const CmdLineInterface&) = delete;
  CmdLineInterface& operator=(const CmdLineInterface&) = delete;

  /// Appends copies of `list` to the commands, in order, without checking for
  /// duplicate or empty names. `list` is neither changed nor kept; the
  /// reference is non-const only because hosts link against that signature.
  /// If copying a command throws (std::bad_alloc), the exception reaches the
  /// caller and the commands appended before it stay. Writes nothing. The
  /// owning thread, before Run() or between runs, never from a command
  /// function.
  void AddCmdList(std::vector<Command>& list);

  /// Writes the greeting, then reads and runs lines until "exit" or "quit":
  /// before each line it writes the head message, then echoes and edits the
  /// line as keys arrive. Always returns true. Calling it again after "exit"
  /// is possible but the wake-up stays signalled: every wait for a key
  /// returns at once and logs an unknown key, so the loop spins. The thread
  /// that calls it is the session's only thread until it returns.
  bool Run();

  /// The text written before every line, as it stands (no line break is
  /// added). Takes effect from the next line. Writes nothing now. Always
  /// returns true. The owning thread, or a command function.
  bool SetHeadMessage(std::string message);

  /// The text written once when Run() starts. Writes nothing now. Always
  /// returns true. The owning thread, before Run().
  bool SetGreetingMessage(std::string message);

  /// Writes the colour's escape sequence now; text written afterwards, by the
  /// session or the host, takes that colour until another one is set. Always
  /// returns true. The owning thread, or a command function.
  bool SetFontColor(Console::FontColor color);

 private:
  friend class CmdLineInterfacePeer;  // tests

  // Session loop.
  bool ReadLine();
  bool HandleKeyEvent(Console::KeyInfo* key);
  bool HandleKey(char character, Console::KeyType type);
  bool WriteOnConsole(std::string& text);
  bool WriteOnConsole(char c);

  // Commands.
  bool ParseLine();
  Result DoCmdLine(int argc, char** argv);
  bool ShowHowTo(std::string& usage);
  Result CmdDefaultFuncHelp(int argc, char** argv);
  Result CmdDefaultFuncExit(int argc, char** argv);
  void FillSpaceCharacter(std::string& text, unsigned int from,
                          unsigned int to);

  // Line editor. Each sends its whole update in one write; a refused move or
  // deletion returns false and writes nothing. None of the string arguments
  // of these members is changed.
  bool InsertString(std::string& text);
  bool DeleteCharacters(uint32_t n);
  bool MoveCursorToLeft(uint32_t n);
  bool MoveCursorToRight(uint32_t n);
  bool ClearCharacters();
  bool MoveCursorDown();

  // History. A refused step returns true and writes nothing; false means the
  // step was taken but there was no entry to show.
  bool AddHistory();
  bool UpHistory(uint32_t n);
  bool DownHistory(uint32_t n);

  // Completion. RemoveCandidateScreen() deletes the open screen, which calls
  // it as the last act of its own method.
  bool ShowCandidateScreen();
  bool RemoveCandidateScreen();

  // Helpers of the library's own, hidden so that hosts never link against
  // them: the exported interface stays the documented one.
  // Clears the line and types `text` into it. Returns true.
  __attribute__((visibility("hidden"))) bool ReplaceLine(std::string& text);
  // Shows history entry history_index_ in place of the line; false when it
  // does not exist or is empty, and then writes nothing.
  __attribute__((visibility("hidden"))) bool ShowHistoryEntry();

  std::string prompt_;
  uint32_t history_limit_;
  bool running_ = false;
  uint32_t cursor_ = 0;  // index into line_, never past its end
  uint32_t name_width_;
  uint32_t explain_width_;
  bool history_browsing_;
  uint32_t history_index_;
  std::string head_message_;
  std::string greeting_message_;
  std::string line_;
  std::string saved_line_;

 public:
  /// The session's terminal. Public so that another thread can call
  /// console_.StopRead() to wake a session that waits for a key; use nothing
  /// else of it while Run() runs. Woken so, Run() does not return: every read
  /// returns at once from then on, and the loop spins until "exit" or "quit".
  Console console_;

 private:
  std::list<std::string> history_;               // newest first
  std::vector<Command> commands_;                // in registration order
  CandidateScreen* candidate_screen_ = nullptr;  // owned; null when closed
};

/// The library's own: the candidate list that Tab opens when several command
/// names begin with the line. A session creates, owns and deletes it on its
/// own thread; a host never handles one.
///
/// It draws one name per line under the input line, the highlighted one in
/// red, and leaves the terminal cursor after the last name. To erase itself it
/// writes the sequence it was given, which moves up over the list, blanks each
/// name, moves up again and rewrites the head message and the line as they
/// were when the list opened.
class CmdLineInterface::CandidateScreen {
 private:
  friend class CmdLineInterface;
  friend class CmdLineInterfacePeer;  // tests

  // Draws the list at once, with the first name highlighted.
  CandidateScreen(std::list<std::string> candidates, std::string clear_sequence,
                  CmdLineInterface* owner);
  // Writes nothing.
  ~CandidateScreen();

  CandidateScreen(const CandidateScreen&) = delete;
  CandidateScreen& operator=(const CandidateScreen&) = delete;

  // Handles one key while the list is open. Backspace, Tab and Enter delete
  // this object before they return. Always returns true.
  bool HandleKeyEvent(Console::KeyInfo* key);

  bool Show();
  bool Clear();
  bool MoveDown(unsigned int n);
  bool MoveUp(unsigned int n);
  bool Select();
  bool Remove();

  uint32_t selected_;  // index of the highlighted name
  std::list<std::string> candidates_;
  std::string clear_sequence_;
  CmdLineInterface* owner_;
};

}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_CMD_LINE_INTERFACE_H_
