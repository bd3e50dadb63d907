// A pipeline and what is set in it, as on a command line: settings of one block up to an empty text, then settings of
// all. A NUL ends each text.
#include "FakePlugIns.h"
#include "GraphCheck.h"
#include "OneLiner.h"
#include "Settings.h"

using namespace vorn::graph;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  const auto next = [&rest] {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    std::string text(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return text;
  };
  auto read = ReadOneLiner(next(), "-e");
  auto* graph = std::get_if<GraphDescription>(&read);
  FakePlugIns plugIns(true);
  for (bool isOfOne = true; graph && !rest.empty();) {
    const std::string setting = next();
    if (setting.empty()) isOfOne = false;
    const auto error = (isOfOne ? ApplySetting : ApplyToAll)(*graph, plugIns, setting, "--set");
    fuzz::Require(!error || !error->ToString().empty(), "An error that says nothing");
  }
  fuzz::Check(read, plugIns);
  return 0;
}
