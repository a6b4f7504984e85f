// Types arbitrary bytes into a session with the built-ins and a few host
// commands, key by key as Run() does, and checks the session's invariants
// after every key: the cursor within the line, at most 20 history entries
// with no entry repeating the one before it, and an open candidate list that
// belongs to the session, holds two names or more and highlights one of them.
#include <cli/cmd_line_interface.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "fuzz_input.h"

namespace zel {
namespace cli {

class CmdLineInterfacePeer {
 public:
  explicit CmdLineInterfacePeer(size_t input_size) : input_size_(input_size) {
    std::vector<CmdLineInterface::Command> commands = {
        {"set", "set a value", "KEY VALUE", Returns(Result::Success)},
        {"show", "show values", "{}", Returns(Result::Failure)},
        {"status", "board status", "{}", Returns(Result::NotSupported)},
        {"stats", "counters", "[reset]", Returns(Result::InvalidArgs)},
        {"ret", "return N", "N",
         [](int argc, char** argv) {
           return argc == 2 ? static_cast<Result>(std::atoi(argv[1]))
                            : Result::InvalidArgs;
         }},
        {"nofunc", "no function", "{}", nullptr},
    };
    cli_.AddCmdList(commands);
    // exit and quit wake the read through a descriptor that is never
    // drained; a third wake-up would block for ever. Let the real function
    // run twice, then only end the loop as it would.
    for (CmdLineInterface::Command& command : cli_.commands_) {
      if (command.name != "exit" && command.name != "quit") continue;
      command.func = [this, real = command.func](int argc, char** argv) {
        if (wake_ups_ == 2) {
          cli_.running_ = false;
          return Result::Success;
        }
        ++wake_ups_;
        return real(argc, argv);
      };
    }
  }

  // ReadLine() and the loop of Run(), with a check after every key, until the
  // input is used up.
  void TypeInput() {
    while (fuzz::Consumed() < input_size_) {
      cli_.cursor_ = 0;
      cli_.line_.clear();
      Console::KeyInfo key = {0, Console::KeyType::None};
      bool finished = false;
      while (!finished && fuzz::Consumed() < input_size_) {
        cli_.console_.ReadKey(&key);
        finished = cli_.HandleKeyEvent(&key);
        Check(finished);
      }
      if (finished) {
        cli_.ParseLine();
        Check(false);
      }
    }
  }

 private:
  static std::function<Result(int, char**)> Returns(Result result) {
    return [result](int, char**) { return result; };
  }

  void Check(bool line_finished) const {
    if (cli_.cursor_ > cli_.line_.size()) std::abort();
    // Keys add a byte at most; Tab and history put in a name or an earlier
    // line.
    if (cli_.line_.size() > input_size_ + 8) std::abort();
    if (cli_.history_.size() > 20) std::abort();
    const std::string* previous = nullptr;
    for (const std::string& entry : cli_.history_) {
      if (previous != nullptr && entry == *previous) std::abort();
      previous = &entry;
    }
    const CmdLineInterface::CandidateScreen* screen = cli_.candidate_screen_;
    if (screen != nullptr) {
      if (line_finished || screen->owner_ != &cli_ ||
          screen->candidates_.size() < 2 ||
          screen->selected_ >= screen->candidates_.size()) {
        std::abort();
      }
    }
  }

  CmdLineInterface cli_;
  size_t input_size_;
  int wake_ups_ = 0;
};

}  // namespace cli
}  // namespace zel

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  zel::cli::fuzz::RedirectStdio();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zel::cli::fuzz::LoadInput(data, size);
  zel::cli::CmdLineInterfacePeer(size).TypeInput();
  return 0;
}
