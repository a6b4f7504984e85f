// Hosts allocate the session and its records themselves, some from headers
// written after the documented member lists. These mirrors hold exactly those
// members, in that order, so a member gained, lost or retyped fails the build
// on every architecture the tests are built for.
#include <cli/cmd_line_interface.h>

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <vector>

namespace {

using zel::cli::CmdLineInterface;
using zel::cli::Console;
using zel::cli::Result;

// Members of one type that follow each other share a line.
struct DocumentedConsole {
  int event_fd;
};

struct DocumentedKeyInfo {
  uint16_t character;
  uint32_t type;
};

struct DocumentedCommand {
  std::string name, explain, usage;
  std::function<Result(int, char**)> func;
};

struct DocumentedCandidateScreen {
  uint32_t selected;
  std::list<std::string> candidates;
  std::string clear_sequence;
  CmdLineInterface* owner;
};

struct DocumentedSession {
  std::string prompt;
  uint32_t history_limit;
  bool running;
  uint32_t cursor, name_width, explain_width;
  bool history_browsing;
  uint32_t history_index;
  std::string head_message, greeting_message, line, saved_line;
  DocumentedConsole console;
  std::list<std::string> history;
  std::vector<DocumentedCommand> commands;
  DocumentedCandidateScreen* candidate_screen;
};

template <typename Actual, typename Documented>
constexpr bool SameLayout() {
  return sizeof(Actual) == sizeof(Documented) &&
         alignof(Actual) == alignof(Documented);
}

static_assert(SameLayout<Console, DocumentedConsole>());
static_assert(SameLayout<Console::KeyInfo, DocumentedKeyInfo>());
static_assert(sizeof(Console::KeyType) == 4);
static_assert(SameLayout<CmdLineInterface::Command, DocumentedCommand>());
static_assert(
    SameLayout<CmdLineInterface::CandidateScreen, DocumentedCandidateScreen>());
static_assert(SameLayout<CmdLineInterface, DocumentedSession>());

}  // namespace
