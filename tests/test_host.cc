// The host that the session tests drive through a pseudo-terminal.
//
//   test_host [--bare] [--cmd NAME EXPLAIN USAGE]... [--head TEXT]
//             [--greeting TEXT] [--stdout closed|full] [--no-descriptors]
//             [--nohup]
//
// Commands besides the built-ins, unless --bare:
//   args WORD...   prints argc and every argv entry in brackets
//   ret N          returns N; without exactly one argument, InvalidArgs
//   nofunc         registered without a function
// --cmd adds a command without a function.
// --stdout makes every write to standard output fail: "closed" puts a
// descriptor open only for reading in its place (EBADF, as for a closed one),
// "full" a pipe that nobody reads, full and non-blocking (EAGAIN).
// --no-descriptors lowers the descriptor limit to what is open while the
// session is built, so its wake-up descriptor cannot be created.
// --nohup ignores SIGHUP, as a daemonised host does, so that it lives on
// once its terminal hangs up.
//
// A thread reads descriptor 3. For the byte '?' it writes the session's state
// to stderr as one line:
//   state line=[LINE] cursor=N browsing=0|1 index=N saved=[LINE]
//         history=[NEWEST|...|OLDEST] screen=none|SELECTED
// The tests ask only while the session waits for a key, so nothing changes
// under it. The byte 's' makes it call console_.StopRead().
// The system log is opened with LOG_PERROR, so log lines reach stderr too.
#include <cli/cmd_line_interface.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zel {
namespace cli {

class CmdLineInterfacePeer {
 public:
  static std::string State(const CmdLineInterface& cli) {
    std::string history;
    for (const std::string& entry : cli.history_) {
      history += (history.empty() ? "" : "|") + entry;
    }
    std::string screen = cli.candidate_screen_ == nullptr
                             ? "none"
                             : std::to_string(cli.candidate_screen_->selected_);
    return "state line=[" + cli.line_ +
           "] cursor=" + std::to_string(cli.cursor_) +
           " browsing=" + std::to_string(cli.history_browsing_) +
           " index=" + std::to_string(cli.history_index_) + " saved=[" +
           cli.saved_line_ + "] history=[" + history + "] screen=" + screen +
           "\n";
  }
};

}  // namespace cli
}  // namespace zel

using zel::cli::CmdLineInterface;
using zel::cli::CmdLineInterfacePeer;
using zel::cli::Result;

namespace {

// Replaces standard output with one that refuses every write.
bool BreakStdout(const std::string& how) {
  int fd = -1;
  if (how == "closed") {
    fd = open("/dev/null", O_RDONLY);
  } else if (how == "full") {
    int ends[2];
    if (pipe2(ends, O_NONBLOCK) != 0) return false;
    static const char kFiller[4096] = {};
    while (write(ends[1], kFiller, sizeof(kFiller)) > 0) {
    }
    fd = ends[1];  // the read end stays open, so writes fail with EAGAIN
  }
  return fd >= 0 && dup2(fd, STDOUT_FILENO) == STDOUT_FILENO;
}

// Lets no further descriptor be opened until the returned limit is set back.
bool ExhaustDescriptors(rlimit* saved) {
  int lowest_free = dup(STDIN_FILENO);
  if (lowest_free < 0 || getrlimit(RLIMIT_NOFILE, saved) != 0) return false;
  close(lowest_free);
  rlimit limit = *saved;
  limit.rlim_cur = static_cast<rlim_t>(lowest_free);
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  openlog("test_host", LOG_PERROR, LOG_USER);

  std::vector<CmdLineInterface::Command> commands = {
      {"args", "print words", "WORD...",
       [](int count, char** words) {
         std::printf("argc=%d", count);
         for (int i = 0; i < count; ++i) std::printf(" [%s]", words[i]);
         std::printf("\n");
         return Result::Success;
       }},
      {"ret", "return N", "N",
       [](int count, char** words) {
         if (count != 2) return Result::InvalidArgs;
         return static_cast<Result>(std::atoi(words[1]));
       }},
      {"nofunc", "no function", "{}", nullptr},
  };
  const char* head = nullptr;
  const char* greeting = nullptr;
  std::string broken_stdout;
  bool no_descriptors = false;
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--head" && i + 1 < argc) {
      head = argv[++i];
    } else if (option == "--greeting" && i + 1 < argc) {
      greeting = argv[++i];
    } else if (option == "--bare") {
      commands.clear();
    } else if (option == "--cmd" && i + 3 < argc) {
      commands.emplace_back(argv[i + 1], argv[i + 2], argv[i + 3], nullptr);
      i += 3;
    } else if (option == "--stdout" && i + 1 < argc) {
      broken_stdout = argv[++i];
    } else if (option == "--no-descriptors") {
      no_descriptors = true;
    } else if (option == "--nohup") {
      signal(SIGHUP, SIG_IGN);
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }

  // Held by the control thread for each request, and by main from the end of
  // Run() on, so no StopRead() can overlap or follow the session's
  // destruction.
  std::mutex control;
  std::unique_lock<std::mutex> session_over(control, std::defer_lock);
  {
    rlimit descriptors = {};
    if (no_descriptors && !ExhaustDescriptors(&descriptors)) return 3;
    CmdLineInterface cli;
    // Only the session's construction lacks descriptors; sanitizers, for
    // one, need some later on.
    if (no_descriptors) setrlimit(RLIMIT_NOFILE, &descriptors);
    if (head != nullptr) cli.SetHeadMessage(head);
    if (greeting != nullptr) cli.SetGreetingMessage(greeting);
    cli.AddCmdList(commands);

    std::thread([&cli, &control] {
      char byte;
      while (read(3, &byte, 1) == 1) {
        std::lock_guard<std::mutex> lock(control);
        if (byte == '?') {
          std::string state = CmdLineInterfacePeer::State(cli);
          if (write(STDERR_FILENO, state.data(), state.size()) < 0) break;
        } else if (byte == 's') {
          cli.console_.StopRead();
        }
      }
    }).detach();
    if (!broken_stdout.empty() && !BreakStdout(broken_stdout)) return 4;
    cli.Run();
    std::printf("Run returned\n");
    session_over.lock();
  }
  // Leaves the lock held: the control thread stays shut out until the end.
  std::exit(0);
}
