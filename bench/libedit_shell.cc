// The benchmark's libedit host, on libedit's own interface: the device
// shell's prompt, commands and history rule (see peer_commands.h) in emacs
// mode.
#include <histedit.h>

#include <cstdio>
#include <string>

#include "peer_commands.h"

namespace {
const char* Prompt(EditLine*) { return zel::bench::kPrompt; }
}  // namespace

int main(int argc, char** argv) {
  zel::bench::PeerCommands commands(argc, argv);
  EditLine* editor = el_init(argv[0], stdin, stdout, stderr);
  History* entries = history_init();
  HistEvent event;
  history(entries, &event, H_SETSIZE, zel::bench::kHistoryLimit);
  history(entries, &event, H_SETUNIQUE, 1);  // not twice in a row
  el_set(editor, EL_EDITOR, "emacs");
  el_set(editor, EL_PROMPT, Prompt);
  el_set(editor, EL_HIST, history, entries);
  std::fputs(zel::bench::kGreeting, stdout);
  while (commands.running()) {
    int count = 0;
    const char* read = el_gets(editor, &count);
    if (read == nullptr) break;
    std::string line(read, count);
    if (!line.empty() && line.back() == '\n') line.pop_back();
    if (commands.Run(line)) history(entries, &event, H_ENTER, line.c_str());
  }
  history_end(entries);
  el_end(editor);
  return 0;
}
