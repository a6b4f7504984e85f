// PtySession runs a host program in a child process on a pseudo-terminal,
// types keys into it and returns exactly the bytes it writes back.
//
// Keys are sent only while the host waits for one: Type() returns once the
// child has read as many bytes as were sent and is back in its poll() with
// the terminal in non-canonical mode, no unread input on the slave, and at
// least one sleep since the keys were sent. That makes every exchange
// deterministic without timing assumptions, even for keys sent in bulk that
// the terminal hands on in pieces.
//
// The slave starts from the kernel's defaults with output post-processing
// (OPOST, unless asked for), CR-to-LF translation, flow control, signal keys
// and extended input processing off, so the bytes on both sides are exactly the
// programs' own. The child's standard error is a separate pipe: a host that
// opens the system log with LOG_PERROR shows its log lines there.

#ifndef ZEL_CLI_TESTS_PTY_SESSION_H_
#define ZEL_CLI_TESTS_PTY_SESSION_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace zel {
namespace cli {
namespace testing {

// Shows bytes readably in failure messages: "<BS>", "<ESC>[1F", "<NUL>",
// "<0x80>".
std::string Visible(const std::string& bytes);

// Whether process or thread `task` is in poll() (or ppoll()) right now.
bool InPoll(pid_t task);

// The number after "`key`:" in /proc/`pid`/`file`, or -1.
long ProcField(pid_t pid, const char* file, const std::string& key);

// How many times `needle` occurs in `text`, not overlapping.
int Occurrences(const std::string& text, const std::string& needle);

// Starts `argv` (argv[0] is the program's path) in a child process, which
// runs `set_up` first, typically to put descriptors in place. Returns the
// child's pid.
pid_t Spawn(const std::vector<std::string>& argv,
            const std::function<void()>& set_up);

// Checks `done` every 100 microseconds until it holds, or until a patience
// generous enough for loaded machines and emulators runs out; returns whether
// it held. Reaching the limit fails a test rather than hanging it.
bool WaitFor(const std::function<bool()>& done);

class PtySession {
 public:
  enum class Output {
    kRaw,       // the host's bytes exactly as written
    kTerminal,  // as a terminal gets them by default: LF becomes CR LF
  };
  enum class Input {
    // Canonical with echo, as a terminal starts: the host switches it raw
    // only while it waits, so send one key at a time.
    kCooked,
    // Non-canonical without echo throughout, so that many keys can be sent
    // at once (up to the terminal's 4 KB input buffer) and queue unchanged.
    kRaw,
  };

  // Starts `argv` (argv[0] is the program's path) and waits until it first
  // waits for a key. The child's descriptor 3 is the read end of a control
  // pipe, written by Signal().
  explicit PtySession(const std::vector<std::string>& argv,
                      Output output = Output::kRaw,
                      Input input = Input::kCooked);
  // Kills the child if it still runs.
  ~PtySession();

  PtySession(const PtySession&) = delete;
  PtySession& operator=(const PtySession&) = delete;

  // Sends `keys` in one write and returns what the host wrote until it waits
  // again (or exits). With Input::kCooked keep `keys` to one key.
  std::string Type(const std::string& keys);

  // Sends `keys` without waiting for an answer.
  void Send(const std::string& keys);
  // Waits until the host exits and returns what it wrote since the last
  // exchange.
  std::string WaitForExit();

  // What the host wrote before it first waited for a key.
  const std::string& startup_output() const { return startup_output_; }

  // Standard error written since the last call.
  std::string TakeStderr();
  // Waits until standard error has shown `needle` `count` times since the
  // last TakeStderr(), and returns all of it.
  std::string WaitForStderr(const std::string& needle, int count);

  // Writes `byte` to the child's descriptor 3.
  void Signal(char byte);

  // Closes the terminal's master side, as a modem or SSH connection hangs
  // up. The host gets SIGHUP unless it ignores it.
  void HangUp();

  // The host's peak resident memory so far, in KiB (VmHWM).
  long PeakResidentKib() const;

  // Asks the host for its state line (Signal('?')), waits for it on stderr,
  // and returns it without the "state " prefix and the line feed. Other
  // stderr output stays for TakeStderr().
  std::string State();

  pid_t pid() const { return pid_; }

  // The terminal's local modes (c_lflag) as they are now.
  unsigned LocalModes() const;

  // Whether the child has ended; if so, its wait status.
  bool Exited(int* status = nullptr);
  // Whether the child has exited with status 0. A sanitizer's or valgrind's
  // report at exit changes the status; a failure shows the child's stderr,
  // which stays for TakeStderr().
  ::testing::AssertionResult ExitedCleanly();

 private:
  bool WaitsForKey();
  // Signals `byte` and returns the rest of the stderr line that starts with
  // `prefix`, taking the line out of the collected stderr.
  std::string Ask(char byte, const std::string& prefix);
  std::string DrainMaster();
  void CollectStderr();
  long VoluntarySwitches() const;
  long BytesRead() const;
  // Waits until the host has read `bytes_read` bytes in all, slept since
  // `switches_before` and waits for a key again.
  void WaitUntilWaitingForKey(long switches_before, long bytes_read);
  // Polls `done`, draining stderr meanwhile, until it holds or patience runs
  // out; returns whether it held.
  bool WaitUntil(const std::function<bool()>& done);

  pid_t pid_ = -1;
  int master_ = -1;
  int slave_ = -1;  // kept open to inspect the line discipline's state
  int stderr_ = -1;
  int control_ = -1;
  bool exited_ = false;
  int status_ = 0;
  std::string stderr_collected_;
  std::string output_collected_;  // drained while waiting, not yet returned
  std::string startup_output_;
};

}  // namespace testing
}  // namespace cli
}  // namespace zel

#endif  // ZEL_CLI_TESTS_PTY_SESSION_H_
