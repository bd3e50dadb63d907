// A program that runs in a folder, and is ended when it hangs.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace randomgraphs {

/** A signal to send, some time after a file has got its first bytes. */
struct Interruption {
  int signal;
  std::filesystem::path file;
  std::chrono::microseconds later;
};

struct Ended {
  bool hung = false;  ///< It ran into the limit and was killed.
  int status = -1;    ///< Exit status, or less the signal that it died of.
  std::string out;
  std::string err;
};

/** RANDOM_GRAPHS_TIMEOUT in seconds, or 20: a graph takes some milliseconds. */
std::chrono::milliseconds HangLimit();

/** Output goes to files in the folder meanwhile. Any thread; the program gets its network namespace. */
Ended RunIn(const std::filesystem::path& folder, std::vector<std::string> command,
            const std::optional<Interruption>& interruption = {});

std::string Contents(const std::filesystem::path& path);

}  // namespace randomgraphs
