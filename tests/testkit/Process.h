// A program that runs in a folder, and is ended when it hangs.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "testkit/Files.h"

namespace testkit {

/** Signals to send, some time after the program has written the first bytes of a file. */
struct Interruption {
  std::filesystem::path file;
  std::vector<int> signals;
  std::chrono::microseconds later{};
  bool mayBeEmpty = false;  ///< The file need only be there.
};

struct Ended {
  bool hung = false;  ///< It ran into the limit and was killed.
  int status = -1;    ///< Exit status, or less the signal that it died of.
  std::string out;
  std::string err;
};

/** VORN_TEST_PATIENCE in seconds, or 20: what is run takes some milliseconds. */
std::chrono::milliseconds HangLimit();

/** Output goes to files in the folder meanwhile. Any thread; the program gets its network namespace. */
Ended RunIn(const std::filesystem::path& folder, std::vector<std::string> command,
            const std::optional<Interruption>& interruption = {});

}  // namespace testkit
