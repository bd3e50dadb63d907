// What a plug-in says of itself and of its streams, any of it, as vorn-inspect and graphs read it. The input is a
// table, what the plug-in answers when streams are planned, and a graph file in which the plug-in is called `any`.
#include <deque>

#include <nlohmann/json.hpp>

#include "FakePlugIns.h"
#include "GraphCheck.h"
#include "PluginTable.h"
#include "PluginText.h"

namespace {

using vorn::BlockInfo;
using vorn::graph::PlugIn;
using Json = nlohmann::json;

constexpr std::uint8_t MOST = 8;  // of a kind

/** A table, and all that it points to. */
struct Table {
  explicit Table(fuzz::Input& input) {
    for (auto left = input.Take<std::uint8_t>() % MOST; left > 0; --left) {
      endpoints.push_back({Text(input), Text(input), input.Take<std::uint32_t>(), input.Take<std::uint32_t>(),
                           input.Take<std::uint32_t>()});
    }
    for (auto left = input.Take<std::uint8_t>() % MOST; left > 0; --left) {
      vorn::ParameterInfo one{};
      one.id = input.Take<std::uint8_t>();
      one.type = static_cast<vorn::ParameterType>(input.Take<std::uint8_t>());
      one.flags = input.Take<std::uint8_t>();
      one.position = input.Take<std::int8_t>();
      one.minimum = input.Take<double>();
      one.maximum = input.Take<double>();
      for (const char** text : {&one.name, &one.unit, &one.words, &one.defaultValue, &one.help}) *text = Text(input);
      parameters.push_back(one);
    }
    info.kitVersion = vorn::KIT_VERSION;
    info.flags = input.Take<std::uint8_t>();
    for (auto* count : {&info.minInputs, &info.maxInputs, &info.minOutputs, &info.maxOutputs}) {
      *count = input.Take<std::uint8_t>();
    }
    for (const char** text : {&info.name, &info.summary, &info.example, &info.perFrame}) *text = Text(input);
    info.inputs = info.outputs = endpoints.data();
    info.inputCount = info.outputCount = static_cast<std::uint32_t>(endpoints.size());
    info.parameters = parameters.data();
    info.parameterCount = static_cast<std::uint32_t>(parameters.size());
    info.planStreams = (info.flags & 0x80) != 0 ? nullptr : &PlanStreams;
  }

  BlockInfo info{};

 private:
  /** Null for a line that begins with a 0. */
  const char* Text(fuzz::Input& input) {
    texts.push_back(input.Line());
    return texts.back().c_str()[0] == '\0' && !texts.back().empty() ? nullptr : texts.back().c_str();
  }

  static int PlanStreams(const char* const*, std::size_t, const vorn::Stream*, std::size_t, vorn::Stream* out,
                         std::size_t outCount, vorn::PlanRefusal* refusal);

  std::deque<std::string> texts;
  std::vector<vorn::EndpointInfo> endpoints;
  std::vector<vorn::ParameterInfo> parameters;
};

struct Answer {
  int result = 0;
  vorn::PlanRefusal refusal{};
  vorn::Stream stream;
} answer;

int Table::PlanStreams(const char* const*, std::size_t, const vorn::Stream*, std::size_t, vorn::Stream* out,
                       std::size_t outCount, vorn::PlanRefusal* refusal) {
  for (std::size_t i = 0; i < outCount; ++i) {
    const auto linked = out[i].linked;
    out[i] = answer.stream;
    out[i].linked = linked;
  }
  if (answer.result < 0) *refusal = answer.refusal;
  return answer.result;
}

void TakeAnswer(fuzz::Input& input) {
  answer = {};
  answer.result = input.Take<std::int8_t>();
  answer.refusal.kind = static_cast<vorn::About>(input.Take<std::uint8_t>());
  answer.refusal.index = input.Take<std::uint8_t>();
  input.Line().copy(answer.refusal.name, sizeof answer.refusal.name - 1);
  input.Line().copy(answer.refusal.text, sizeof answer.refusal.text - 1);
  answer.stream = input.Take<vorn::Stream>();
}

class OnePlugIn final : public vorn::graph::PlugIns {
 public:
  explicit OnePlugIn(const BlockInfo& itsInfo) : info(itsInfo) {}
  vorn::graph::Result<PlugIn> Find(const vorn::graph::Word& name) override {
    return name.text == "any" ? PlugIn{"libany.so", &info} : others.Find(name);
  }

 private:
  const BlockInfo& info;
  vorn::graph::FakePlugIns others{true};
};

void Inspect(const BlockInfo& info, const std::string& ownLine) {
  Json table = vorn_inspect::TableOf(info);
  table["file"] = "libany.so";
  table["kit"] = true;
  vorn_inspect::AddValues(table["parameters"], {ownLine});
  table = Json::parse(table.dump(-1, ' ', false, Json::error_handler_t::replace));  // on its way between processes
  fuzz::Require(!vorn_inspect::LineOf("any", table).empty(), "No line");
  fuzz::Require(!vorn_inspect::PageOf("any", table).empty(), "No page");
  fuzz::Require(!vorn_inspect::MarkdownRowOf(table).empty(), "No row");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const Table table(input);
  if (!vorn::FaultOf(table.info).empty()) return 0;  // whom nobody reads on
  Inspect(table.info, input.Line());
  TakeAnswer(input);
  OnePlugIn plugIns(table.info);
  fuzz::DotOf(vorn::graph::ReadGraphFile(input.Rest(), "graph", {}), plugIns);
  return 0;
}
