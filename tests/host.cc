// The host that every session test drives through a pseudo-terminal.
//
//   host [--bare] [--cmd NAME EXPLAIN USAGE]... [--head TEXT] [--greeting TEXT]
//        [--stdout-closed] [--failing-copy]
//
// Commands besides the built-ins, unless --bare:
//   args WORD...  prints argc and every argv entry in brackets
//   ret N         returns N; without exactly one argument, InvalidArgs
//   nofunc        registered without a function
//   boom          throws std::runtime_error("boom")
//   colours       sets each colour value 0 to 8 in turn
//   mode          prints whether the terminal echoes and reads whole lines
//   keys N        reads N keys with a console of its own, each into a record
//                 that held character 171 and Home, and prints the type and
//                 character it holds then, as numbers
// --cmd adds a command without a function. --stdout-closed makes every write
// to standard output fail, with a descriptor open only for reading in its
// place.
// --failing-copy registers a command whose copy runs out of memory, so
// AddCmdList() throws after the commands before it.
//
// Descriptor 3, a socket, takes requests, one byte each, and answers each with
// the session's state line once done:
//   ?  nothing else
//   f  the session thread's next allocation throws std::bad_alloc
// The state line:
//   line=[LINE] cursor=N browsing=0|1 index=N saved=[LINE]
//         history=[NEWEST|...|OLDEST] screen=none|SELECTED
// Requests are sent only while the session waits for a key, so nothing
// changes under them. When the socket closes, a host whose session still runs
// exits with status 0, so that valgrind and the leak sanitizer give their
// verdict on every scenario. Log lines go to stderr too (LOG_PERROR).
#include <cli/cmd_line_interface.h>
#include <fcntl.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zel::cli {

class CmdLineInterfacePeer {
 public:
  static std::string State(const CmdLineInterface& cli) {
    std::string history;
    for (const std::string& entry : cli.history_) {
      history += (history.empty() ? "" : "|") + entry;
    }
    const CmdLineInterface::CandidateScreen* screen = cli.candidate_screen_;
    return "line=[" + cli.line_ + "] cursor=" + std::to_string(cli.cursor_) +
           " browsing=" + std::to_string(cli.history_browsing_) +
           " index=" + std::to_string(cli.history_index_) + " saved=[" +
           cli.saved_line_ + "] history=[" + history +
           "] screen=" + (screen ? std::to_string(screen->selected_) : "none") +
           "\n";
  }
};

}  // namespace zel::cli

using zel::cli::CmdLineInterface;
using zel::cli::Console;
using zel::cli::Result;

namespace {

thread_local bool session_thread = false;
std::atomic<bool> fail_next_allocation{false};

// A command function whose copy runs out of memory: moved into the host's
// list, copied by AddCmdList().
struct FailsToCopy {
  FailsToCopy() = default;
  FailsToCopy(FailsToCopy&&) = default;
  FailsToCopy(const FailsToCopy&) { throw std::bad_alloc(); }
  Result operator()(int, char**) const { return Result::Success; }
};

}  // namespace

// Fails the session thread's next allocation on request. GCC takes the free()
// of memory from operator new for a mismatch, which here it is not.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(size_t size) {
  if (session_thread && fail_next_allocation.exchange(false)) {
    throw std::bad_alloc();
  }
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { operator delete(memory); }

int main(int argc, char** argv) {
  session_thread = true;
  // Held by the control thread for each request, and by main from the end of
  // the session on, so that no request can touch a session being destroyed.
  std::mutex control;
  CmdLineInterface* session = nullptr;
  openlog("host", LOG_PERROR, LOG_USER);
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
      {"boom", "throw", "{}",
       [](int, char**) -> Result { throw std::runtime_error("boom"); }},
      {"colours", "colours", "{}",
       [&session](int, char**) {
         for (int colour = 0; colour <= 8; ++colour) {
           auto font = static_cast<Console::FontColor>(colour);
           if (!session->SetFontColor(font)) std::printf("false");
         }
         return Result::Success;
       }},
      {"mode", "terminal mode", "{}",
       [](int, char**) {
         termios mode = {};
         tcgetattr(STDIN_FILENO, &mode);
         std::printf("icanon %d echo %d\n", (mode.c_lflag & ICANON) != 0,
                     (mode.c_lflag & ECHO) != 0);
         return Result::Success;
       }},
      {"keys", "decode keys", "N",
       [](int, char** words) {
         Console console;
         for (int i = std::atoi(words[1]); i > 0; --i) {
           Console::KeyInfo key = {171, Console::KeyType::Home};
           console.ReadKey(&key);
           std::printf("%u %u\n", static_cast<unsigned>(key.type),
                       key.character);
         }
         return Result::Success;
       }},
  };
  const char* head = nullptr;
  const char* greeting = nullptr;
  bool stdout_closed = false;
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--bare") {
      commands.clear();
    } else if (option == "--cmd" && i + 3 < argc) {
      commands.emplace_back(argv[i + 1], argv[i + 2], argv[i + 3], nullptr);
      i += 3;
    } else if (option == "--head" && i + 1 < argc) {
      head = argv[++i];
    } else if (option == "--greeting" && i + 1 < argc) {
      greeting = argv[++i];
    } else if (option == "--stdout-closed") {
      stdout_closed = true;
    } else if (option == "--failing-copy") {
      commands.emplace_back("copy", "fails", "{}", FailsToCopy());
    } else {
      std::fprintf(stderr, "unknown option %s\n", argv[i]);
      return 2;
    }
  }

  std::thread([&session, &control] {
    for (char request; read(3, &request, 1) == 1;) {
      std::lock_guard<std::mutex> lock(control);
      if (request == 'f') fail_next_allocation = true;
      std::string state = zel::cli::CmdLineInterfacePeer::State(*session);
      if (write(3, state.data(), state.size()) < 0) break;
    }
    // Never while main returns: it holds the lock from the end of Run() on.
    control.lock();
    std::exit(0);
  }).detach();
  {
    CmdLineInterface cli;
    if (head != nullptr) cli.SetHeadMessage(head);
    if (greeting != nullptr) cli.SetGreetingMessage(greeting);
    try {
      cli.AddCmdList(commands);
    } catch (const std::bad_alloc&) {
      std::printf("AddCmdList threw\n");
    }
    if (stdout_closed) dup2(open("/dev/null", O_RDONLY), STDOUT_FILENO);
    control.lock();
    session = &cli;
    control.unlock();
    try {
      cli.Run();
      // exit and quit leave the console woken: this read returns at once.
      std::printf("Run returned%s\n",
                  cli.console_.ReadChar() == 0 ? ", console woken" : "");
    } catch (const std::exception& error) {
      std::printf("Run threw %s\n", error.what());
    }
    control.lock();  // and the control thread stays shut out
  }
  return 0;
}
