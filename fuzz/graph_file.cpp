// Graph files, without and with a variable.
#include "FakePlugIns.h"
#include "GraphCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  vorn::graph::FakePlugIns plugIns(true);
  fuzz::Check(vorn::graph::ReadGraphFile(text, "graph", {}), plugIns);
  fuzz::Check(vorn::graph::ReadGraphFile(text, "graph", {{"in", "a 'b\"$\\"}}), plugIns);
  return 0;
}
