// Everything that vrdb reads from a console: the status report, the graph, a block's table of parameters.
#include "GraphPicture.h"
#include "Input.h"
#include "ParameterTable.h"
#include "ReportJson.h"
#include "StatusParser.h"
#include "Top.h"

using fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  vrdb::Sample sample;
  sample.report = vrdb::ParseStatus(text);
  Require(!vrdb::ReportToJson(sample.report).empty(), "No JSON");
  Require(vrdb::ParseParameters(text).size() <= size, "More parameters than bytes");
  Require(vrdb::QuoteNames(text).size() >= size, "Names that got lost");

  vrdb::Rates rates;
  rates.Add(sample);
  sample.when += std::chrono::seconds(1);
  for (vrdb::RouteStatus& route : sample.report.routes) route.frames /= 2;  // made anew
  rates.Add(sample);
  Require(!vrdb::SampleToJson(sample, rates).empty(), "No sample");
  for (const std::string& line : vrdb::DrawSample(sample, rates, "state", 60, 40, vrdb::Style(-1))) {
    Require(line.size() <= 60, "A line that is too long");
  }
  return 0;
}
