// The host that the session tests drive through a pseudo-terminal.
//
//   test_host [--bare] [--cmd NAME EXPLAIN USAGE]... [--head TEXT]
//             [--greeting TEXT] [--stopper]
//
// Commands besides the built-ins, unless --bare:
//   args WORD...   prints argc and every argv entry in brackets
//   ret N          returns N; without exactly one argument, InvalidArgs
//   nofunc         registered without a function
// --cmd adds a command without a function. --stopper starts a thread that
// calls console_.StopRead() for every byte that arrives on descriptor 3.
// The system log is opened with LOG_PERROR, so log lines reach stderr.
#include <cli/cmd_line_interface.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using zel::cli::CmdLineInterface;
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
  bool stopper = false;
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
    } else if (option == "--stopper") {
      stopper = true;
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }
  cli.AddCmdList(commands);

  if (stopper) {
    std::thread([&cli] {
      char byte;
      while (read(3, &byte, 1) == 1) cli.console_.StopRead();
    }).detach();
  }
  cli.Run();
  std::printf("Run returned\n");
  return 0;
}
