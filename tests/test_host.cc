// The host that the session tests drive through a pseudo-terminal.
//
//   test_host [--bare] [--cmd NAME EXPLAIN USAGE]... [--head TEXT]
//             [--greeting TEXT]
//
// Commands besides the built-ins, unless --bare:
//   args WORD...   prints argc and every argv entry in brackets
//   ret N          returns N; without exactly one argument, InvalidArgs
//   nofunc         registered without a function
// --cmd adds a command without a function.
//
// A thread reads descriptor 3. For the byte '?' it writes the session's state
// to stderr as one line:
//   state line=[LINE] cursor=N browsing=0|1 index=N saved=[LINE]
//         history=[NEWEST|...|OLDEST] screen=none|SELECTED
// The tests ask only while the session waits for a key, so nothing changes
// under it. The byte 's' makes it call console_.StopRead().
// The system log is opened with LOG_PERROR, so log lines reach stderr too.
#include <cli/cmd_line_interface.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
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

int main(int argc, char** argv) {
  openlog("test_host", LOG_PERROR, LOG_USER);

  CmdLineInterface cli;
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
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--head" && i + 1 < argc) {
      cli.SetHeadMessage(argv[++i]);
    } else if (option == "--greeting" && i + 1 < argc) {
      cli.SetGreetingMessage(argv[++i]);
    } else if (option == "--bare") {
      commands.clear();
    } else if (option == "--cmd" && i + 3 < argc) {
      commands.emplace_back(argv[i + 1], argv[i + 2], argv[i + 3], nullptr);
      i += 3;
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }
  cli.AddCmdList(commands);

  std::thread([&cli] {
    char byte;
    while (read(3, &byte, 1) == 1) {
      if (byte == '?') {
        std::string state = CmdLineInterfacePeer::State(cli);
        if (write(STDERR_FILENO, state.data(), state.size()) < 0) break;
      } else if (byte == 's') {
        cli.console_.StopRead();
      }
    }
  }).detach();
  cli.Run();
  std::printf("Run returned\n");
  return 0;
}
