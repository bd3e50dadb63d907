/** What can stand next in a line that is being typed. */
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

#include "Words.h"
#include "support/JsonMembers.h"

namespace vrdb {

using support::Json;

/** What completion may ask about the process, by its monitor; asked only when the word to complete needs it. */
struct Live {
  std::function<Json()> graph;  ///< the reply to `graph`; null: none came
  std::function<Json(const std::string& route, const std::string& block)> parameters;  ///< that to `params`
  std::function<pid_t()> process;                                                      ///< whose files are meant
};

/**
 * The words that can take the place of the last word of `line`, which may be empty; sorted. A folder ends in '/'.
 */
Words Complete(std::string_view line, const Live& live);

/** What all of them begin with. */
std::string CommonBeginning(const Words& words);

}  // namespace vrdb
