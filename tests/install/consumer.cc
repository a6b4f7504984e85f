// A host built against the installed package, as a product would build it.
#include <cli/cmd_line_interface.h>

#include <cstdio>
#include <vector>

int main() {
  zel::cli::CmdLineInterface cli;
  std::vector<zel::cli::CmdLineInterface::Command> commands = {
      {"ping", "answer pong", "{}", [](int, char**) {
         std::printf("pong\n");
         return zel::cli::Result::Success;
       }}};
  cli.AddCmdList(commands);
  cli.Run();
  return 0;
}
