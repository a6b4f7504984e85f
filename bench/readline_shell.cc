// The benchmark's GNU readline host: the device shell's prompt, commands and
// history rule (see peer_commands.h) on readline's default emacs keymap.
#include <readline/history.h>
#include <readline/readline.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "peer_commands.h"

int main(int argc, char** argv) {
  zel::bench::PeerCommands commands(argc, argv);
  stifle_history(zel::bench::kHistoryLimit);
  std::fputs(zel::bench::kGreeting, stdout);
  while (commands.running()) {
    char* line = readline(zel::bench::kPrompt);
    if (line == nullptr) break;
    if (commands.Run(line)) {
      HIST_ENTRY* newest = history_get(history_base + history_length - 1);
      if (newest == nullptr || std::strcmp(newest->line, line) != 0) {
        add_history(line);
      }
    }
    std::free(line);
  }
  return 0;
}
