/** What can stand next in a line that is being typed. */
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ParameterTable.h"
#include "StatusParser.h"
#include "Words.h"

namespace vrdb {

/** What completion may ask about the process; asked only when the word to complete needs it. */
struct Live {
  std::function<Report()> report;
  std::function<std::vector<vorn::ParameterLine>(const std::string& route, const std::string& block)> parameters;
  std::function<pid_t()> process;  ///< whose files are meant
};

/**
 * The words that can take the place of the last word of `line`, which may be empty; sorted. A folder ends in '/'.
 */
Words Complete(std::string_view line, const Live& live);

/** What all of them begin with. */
std::string CommonBeginning(const Words& words);

}  // namespace vrdb
