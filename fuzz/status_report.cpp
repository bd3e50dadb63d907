// Everything that vrdb reads from a console: the status report, the graph, a block's table of parameters.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "GraphPicture.h"
#include "ParameterTable.h"
#include "ReportJson.h"
#include "StatusParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const vrdb::Report report = vrdb::ParseStatus(text);
  if (vrdb::ReportToJson(report).empty()) std::abort();
  if (vrdb::ParseParameters(text).size() > size) std::abort();
  if (vrdb::QuoteNames(text).size() < size) std::abort();
  return 0;
}
