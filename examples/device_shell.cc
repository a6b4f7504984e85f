// A device shell as it might run on a board's serial console: a small
// key/value configuration store, a few status commands, and one command for
// each way a command can end (done, wrong arguments, not supported, failed).
// Several names share a beginning (set, show, status, stats, selftest), so
// Tab on "s" or "st" opens the candidate list.
#include <cli/cmd_line_interface.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <vector>

namespace {

using zel::cli::CmdLineInterface;
using zel::cli::Result;

class DeviceShell {
 public:
  DeviceShell() : started_(std::chrono::steady_clock::now()) {
    config_["hostname"] = "board-01";
    config_["baudrate"] = "115200";
  }

  std::vector<CmdLineInterface::Command> Commands() {
    return {
        {"set", "store a configuration value", "KEY VALUE",
         [this](int argc, char** argv) { return Set(argc, argv); }},
        {"get", "print one configuration value", "KEY",
         [this](int argc, char** argv) { return Get(argc, argv); }},
        {"show", "list the configuration", "{}",
         [this](int, char**) { return Show(); }},
        {"status", "print the board's state", "{}",
         [this](int, char**) { return Status(); }},
        {"stats", "count the configuration entries", "{}",
         [this](int, char**) { return Stats(); }},
        {"echo", "print the words back", "[WORD]...", Echo},
        {"uptime", "time since the shell started", "{}",
         [this](int, char**) { return Uptime(); }},
        {"led", "switch the status LED", "on|off",
         [this](int argc, char** argv) { return Led(argc, argv); }},
        {"reboot", "restart the board", "[now]",
         [](int, char**) { return Result::NotSupported; }},
        {"selftest", "check the sensors (sensor 2 is unplugged)", "{}",
         SelfTest},
    };
  }

 private:
  // A word holds whatever was typed: ESC followed by any byte types that
  // byte, control bytes and escape sequences included. show prints the
  // entries to whoever looks next, so only printable ASCII is stored.
  Result Set(int argc, char** argv) {
    if (argc != 3) return Result::InvalidArgs;
    for (const char* word : {argv[1], argv[2]}) {
      for (const char* c = word; *c != '\0'; ++c) {
        if (*c < ' ' || *c > '~') {
          std::printf("set: only printable ASCII is stored\n");
          return Result::Failure;
        }
      }
    }
    config_[argv[1]] = argv[2];
    return Result::Success;
  }

  Result Get(int argc, char** argv) {
    if (argc != 2) return Result::InvalidArgs;
    auto entry = config_.find(argv[1]);
    if (entry == config_.end()) {
      std::printf("%s is not set\n", argv[1]);
      return Result::Failure;
    }
    std::printf("%s\n", entry->second.c_str());
    return Result::Success;
  }

  Result Show() {
    for (const auto& [key, value] : config_) {
      std::printf("%-12s %s\n", key.c_str(), value.c_str());
    }
    return Result::Success;
  }

  Result Status() {
    std::printf("%s, LED %s, ", config_["hostname"].c_str(),
                led_on_ ? "on" : "off");
    return Uptime();
  }

  Result Stats() {
    size_t bytes = 0;
    for (const auto& [key, value] : config_) bytes += key.size() + value.size();
    std::printf("%zu entries, %zu bytes\n", config_.size(), bytes);
    return Result::Success;
  }

  static Result Echo(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
      std::printf("%s%s", i > 1 ? " " : "", argv[i]);
    }
    std::printf("\n");
    return Result::Success;
  }

  Result Uptime() {
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
                       std::chrono::steady_clock::now() - started_)
                       .count();
    std::printf("up %lld:%02lld:%02lld\n",
                static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60),
                static_cast<long long>(seconds % 60));
    return Result::Success;
  }

  Result Led(int argc, char** argv) {
    if (argc != 2) return Result::InvalidArgs;
    if (std::strcmp(argv[1], "on") != 0 && std::strcmp(argv[1], "off") != 0) {
      return Result::InvalidArgs;
    }
    led_on_ = std::strcmp(argv[1], "on") == 0;
    std::printf("status LED %s\n", argv[1]);
    return Result::Success;
  }

  // A command may return any number; dispatch reports it as a failure code.
  static Result SelfTest(int, char**) {
    constexpr int kSensorNotResponding = 5;
    std::printf("sensor 1 ok\nsensor 2 not responding\n");
    return static_cast<Result>(kSensorNotResponding);
  }

  std::chrono::steady_clock::time_point started_;
  std::map<std::string, std::string> config_;
  bool led_on_ = false;
};

// The terminal mode at the start, put back on every way out and while the
// shell is stopped.
termios terminal_at_start = {};
// The mode for the whole session; see TurnEchoOffForTheSession().
termios session_mode = {};
// The terminal's name: after a hang-up the kernel refuses every call on the
// descriptors the shell had, and the line is reached by opening it again.
char terminal_name[64] = "";

void RestoreTerminal() {
  if (tcsetattr(STDIN_FILENO, TCSANOW, &terminal_at_start) == 0) return;
  int line = open(terminal_name, O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (line >= 0) {
    tcsetattr(line, TCSANOW, &terminal_at_start);
    close(line);
  }
}

// The session switches echo off only while it waits for a key, and puts back
// the mode it found after every byte. Between two reads the terminal itself
// echoes what arrives, so a key typed just as the prompt shows, or the rest of
// an arrow key whose bytes a serial line delivers apart, would show twice or
// as stray characters. With echo and canonical input off for the whole
// session, the mode the session puts back has them off as well.
void TurnEchoOffForTheSession() {
  session_mode = terminal_at_start;
  session_mode.c_lflag &= ~(ECHO | ICANON);
  tcsetattr(STDIN_FILENO, TCSANOW, &session_mode);
}

void SetHandler(int signal_number, void (*handler)(int), int flags = 0) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal_number, &action, nullptr);
}

// The handlers below use only calls that are safe in a signal handler. They
// run on the session's thread, interrupting it, so the session cannot switch
// the mode again behind them.

// Ctrl+C, SIGTERM and a hang-up are how a user or init ends the shell.
void RestoreTerminalAndExit(int) {
  RestoreTerminal();
  _exit(0);
}

// Ctrl+\ and an output that has gone (SIGPIPE) end the shell by the same
// signal, so that Ctrl+\ still dumps a core and the parent sees the cause.
// Installed with SA_RESETHAND, so that the signal raised again takes its
// default action.
void RestoreTerminalAndDie(int signal_number) {
  RestoreTerminal();
  raise(signal_number);
}

// A job-control shell (bash in a terminal) stops the shell on Ctrl+Z and
// expects a stopped job to leave the terminal as it found it; fg continues the
// job with the terminal in bash's own, canonical and echoing, mode.
void StopLikeAJob(int) {
  int saved_errno = errno;
  RestoreTerminal();
  // The default action, raised again and let through: blocked while this
  // handler runs, it stops the process as the mask is lifted.
  SetHandler(SIGTSTP, SIG_DFL);
  raise(SIGTSTP);
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &stop, nullptr);
  // Continued; or never stopped: a shell that leads its own session (under
  // init or sshd) has no job-control shell above it, and the kernel drops the
  // stop. So the session's mode is taken again here, not only on SIGCONT.
  SetHandler(SIGTSTP, StopLikeAJob);
  tcsetattr(STDIN_FILENO, TCSANOW, &session_mode);
  errno = saved_errno;
}

// Continued after any stop (Ctrl+Z, SIGSTOP, a read from the background): the
// session's mode again. The wait for a key that the stop interrupted ends as
// a read of byte 0, logged as an unknown key, and the next one runs as before.
void TakeTheSessionModeAgain(int) {
  int saved_errno = errno;
  tcsetattr(STDIN_FILENO, TCSANOW, &session_mode);
  errno = saved_errno;
}

// Started on /dev/console, as BusyBox init's "console::" entries do, the shell
// has no controlling terminal: Ctrl+C is just a byte, and a hang-up sends no
// SIGHUP, which would leave the session spinning on a dead line. A session
// leader without one takes its terminal; otherwise the user is told.
void TakeControllingTerminal() {
  if (tcgetsid(STDIN_FILENO) != -1 || ioctl(STDIN_FILENO, TIOCSCTTY, 0) == 0) {
    return;
  }
  std::fprintf(stderr,
               "device_shell: standard input is not the controlling "
               "terminal, so Ctrl+C and hang-ups will not reach the shell.\n"
               "Start it from an inittab entry that names the tty "
               "(ttyAMA0::respawn:/usr/bin/device_shell) or through cttyhack "
               "(::respawn:/bin/cttyhack /usr/bin/device_shell).\n");
}

// Every argument from `first_word` on names one more command, which does
// nothing: a scripted session (the benchmark's, for one) can then run its own
// words and find its lines in the history.
void RunSession(int argc, char** argv, int first_word) {
  DeviceShell shell;
  CmdLineInterface cli;
  std::vector<CmdLineInterface::Command> commands = shell.Commands();
  cli.AddCmdList(commands);
  std::vector<CmdLineInterface::Command> words;
  for (int i = first_word; i < argc; ++i) {
    words.emplace_back(argv[i], "does nothing", "{}",
                       [](int, char**) { return Result::Success; });
  }
  cli.AddCmdList(words);
  cli.SetGreetingMessage(
      "zelcli device shell. Type help for the commands, exit to leave.\n");
  cli.SetHeadMessage("board> ");
  cli.Run();
}

}  // namespace

// The shell has no options; "--" ends them as usual, so getty -n -l
// /usr/bin/device_shell, which adds one, adds no command.
int main(int argc, char** argv) {
  int first_word = 1;
  if (argc > 1 && std::strcmp(argv[1], "--") == 0) {
    first_word = 2;
  } else if (argc > 1 && argv[1][0] == '-') {
    std::fprintf(stderr, "device_shell: unknown option %s\n", argv[1]);
    return 2;
  }
  // On a pipe or a file the session never ends: a pipe whose writer has gone
  // and a file at its end both make every read return at once.
  if (!isatty(STDIN_FILENO)) {
    std::fprintf(stderr, "device_shell: standard input is not a terminal\n");
    return 1;
  }
  TakeControllingTerminal();
  tcgetattr(STDIN_FILENO, &terminal_at_start);
  ttyname_r(STDIN_FILENO, terminal_name, sizeof terminal_name);
  for (int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
    SetHandler(signal_number, RestoreTerminalAndExit);
  }
  for (int signal_number : {SIGQUIT, SIGPIPE}) {
    SetHandler(signal_number, RestoreTerminalAndDie, SA_RESETHAND);
  }
  TurnEchoOffForTheSession();
  SetHandler(SIGTSTP, StopLikeAJob);
  SetHandler(SIGCONT, TakeTheSessionModeAgain);
  // An exception that leaves the session (std::bad_alloc, when a line
  // outgrows the memory there is) ends the shell with the terminal put back.
  try {
    RunSession(argc, argv, first_word);
  } catch (const std::exception& error) {
    RestoreTerminal();
    std::fprintf(stderr, "device_shell: %s\n", error.what());
    return 1;
  }
  RestoreTerminal();
  return 0;
}
