// The smallest host: one command of its own beside help, exit and quit.
#include <cli/cmd_line_interface.h>

#include <cstdio>
#include <vector>

using zel::cli::CmdLineInterface;
using zel::cli::Result;

int main() {
  CmdLineInterface cli;
  std::vector<CmdLineInterface::Command> commands = {
      {"hello", "greet someone", "[NAME]", [](int argc, char** argv) {
         std::printf("hello, %s\n", argc > 1 ? argv[1] : "world");
         return Result::Success;
       }}};
  cli.AddCmdList(commands);
  cli.SetGreetingMessage("Type help for the commands, exit to leave.\n");
  cli.Run();
  return 0;
}
