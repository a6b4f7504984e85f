// What the benchmark's readline and libedit hosts run, so that they behave
// as the device shell does for the benchmark's lines: the prompt, the
// greeting, a command for every word named on the command line (doing
// nothing), exit and quit, the "not supported" message, and the same rule
// for what enters the history: a line that ran a command, unless it equals
// the newest entry, with at most 20 entries kept.
#ifndef ZEL_CLI_BENCH_PEER_COMMANDS_H_
#define ZEL_CLI_BENCH_PEER_COMMANDS_H_

#include <cstdio>
#include <set>
#include <string>

namespace zel {
namespace bench {

inline constexpr char kPrompt[] = "board> ";
inline constexpr char kGreeting[] =
    "zelcli device shell. Type help for the commands, exit to leave.\n";
inline constexpr int kHistoryLimit = 20;

class PeerCommands {
 public:
  PeerCommands(int argc, char** argv) : words_(argv + 1, argv + argc) {}

  // Runs `line`; true when it named a command, so that it may enter the
  // history.
  bool Run(const std::string& line) {
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos) return false;
    std::string word =
        line.substr(start, line.find_first_of(" \t", start) - start);
    if (word == "exit" || word == "quit") {
      running_ = false;
      return true;
    }
    if (words_.count(word) == 0) {
      std::printf("cmd [%s] is not supported\n", word.c_str());
      return false;
    }
    return true;
  }

  bool running() const { return running_; }

 private:
  std::set<std::string> words_;
  bool running_ = true;
};

}  // namespace bench
}  // namespace zel

#endif  // ZEL_CLI_BENCH_PEER_COMMANDS_H_
