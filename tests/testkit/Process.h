// A program that runs in a folder, and is ended when it hangs.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

#include "testkit/Files.h"

namespace testkit {

/** What to do to the program, some time after it has written the first bytes of a file. */
struct Interruption {
  std::filesystem::path file;
  std::function<void(pid_t)> act;
  std::chrono::microseconds later{};
  bool mayBeEmpty = false;  ///< The file need only be there.
};

/** Sends them one after the other. */
std::function<void(pid_t)> Signals(std::vector<int> signals);

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
