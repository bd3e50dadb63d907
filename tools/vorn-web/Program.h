// Another program as a function: text in, text out.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace vorn_web {

struct ProgramResult {
  std::string output;
  std::string problem;  ///< One line that says why there is no output to rely on; empty when all went well.
};

/**
 * Runs a program, found as a shell finds it, with `input` as its standard input. One that takes longer than `limit` is
 * killed. Its standard error goes where ours goes.
 */
ProgramResult RunProgram(std::vector<std::string> words, const std::string& input, std::chrono::milliseconds limit);

}  // namespace vorn_web
