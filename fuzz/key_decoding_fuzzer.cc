// Decodes arbitrary bytes on standard input key by key, as a session does,
// and checks every key record the decoder fills.
#include <cli/console.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz_input.h"

using zel::cli::Console;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  zel::cli::fuzz::RedirectStdio();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Console console;
  zel::cli::fuzz::LoadInput(data, size);
  // Reused across keys, as a session reuses it across the keys of a line.
  Console::KeyInfo key = {0, Console::KeyType::None};
  size_t consumed = 0;
  while (consumed < size) {
    console.ReadKey(&key);
    size_t now = zel::cli::fuzz::Consumed();
    // Every key takes at least one byte until the input is used up.
    if (now <= consumed && now < size) std::abort();
    consumed = now;
    auto type = static_cast<uint32_t>(key.type);
    if (key.character > 0xFF || type > 17 || type == 4) std::abort();
    // A character key carries a byte of the input, or the 255 of a failed
    // read when the input ends right after an ESC.
    if (key.type == Console::KeyType::Character && key.character != 0xFF &&
        std::memchr(data, key.character, size) == nullptr) {
      std::abort();
    }
  }
  return 0;
}
