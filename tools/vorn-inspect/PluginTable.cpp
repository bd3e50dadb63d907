#include "PluginTable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace vorn_inspect {
namespace {

using Json = nlohmann::json;

const char* TypeName(vorn::ParameterType type) {
  switch (type) {
    case vorn::ParameterType::NUMBER: return "number";
    case vorn::ParameterType::INTEGER: return "integer";
    case vorn::ParameterType::FLAG: return "flag";
    case vorn::ParameterType::WORD: return "word";
    case vorn::ParameterType::TEXT: return "text";
  }
  return "?";
}

const char* AccessName(std::uint32_t flags) {
  if (flags & vorn::PARAMETER_READING) return "read";
  return flags & vorn::PARAMETER_LIVE ? "live" : "stopped";
}

std::string RangeOf(const vorn::ParameterInfo& p) {
  switch (p.type) {
    case vorn::ParameterType::NUMBER:
    case vorn::ParameterType::INTEGER:
      if (std::isinf(p.minimum) && std::isinf(p.maximum)) return "";
      return vorn::NumberText(p.minimum) + ".." + vorn::NumberText(p.maximum);
    case vorn::ParameterType::FLAG: return "true false";
    case vorn::ParameterType::WORD: return p.words;
    case vorn::ParameterType::TEXT: break;
  }
  return "";
}

Json ParameterTable(const vorn::ParameterInfo& p) {
  Json table = {{"id", p.id},
                {"name", p.name},
                {"type", TypeName(p.type)},
                {"unit", p.unit},
                {"range", RangeOf(p)},
                {"default", p.defaultValue},
                {"help", p.help},
                {"access", AccessName(p.flags)}};
  table["required"] = (p.flags & vorn::PARAMETER_REQUIRED) != 0;
  if (p.position >= 0) table["position"] = p.position;
  return table;
}

Json Endpoints(std::uint32_t least, std::uint32_t most, const vorn::EndpointInfo* infos, std::uint32_t count) {
  Json each = Json::array();
  for (std::uint32_t i = 0; i < count; ++i) {
    const vorn::EndpointInfo& info = infos[i];
    Json endpoint = {{"name", info.name},
                     {"help", info.help},
                     {"formats", vorn::FormatNames(info.formats)},
                     {"minChannels", info.minChannels}};
    if (info.maxChannels != UINT32_MAX) endpoint["maxChannels"] = info.maxChannels;
    each.push_back(std::move(endpoint));
  }
  return {{"least", least}, {"most", most}, {"each", std::move(each)}};
}

}  // namespace

Json TableOf(const vorn::BlockInfo& info) {
  Json parameters = Json::array();
  for (std::uint32_t i = 0; i < info.parameterCount; ++i) parameters.push_back(ParameterTable(info.parameters[i]));
  return {{"name", info.name},
          {"summary", info.summary},
          {"example", info.example},
          {"perFrame", info.perFrame},
          {"readsFifo", (info.flags & vorn::BLOCK_READS_FIFO) != 0},
          {"writesFifo", (info.flags & vorn::BLOCK_WRITES_FIFO) != 0},
          {"setsPace", (info.flags & vorn::BLOCK_SETS_PACE) != 0},
          {"ownParameters", (info.flags & vorn::BLOCK_OWN_PARAMETERS) != 0},
          {"inputs", Endpoints(info.minInputs, info.maxInputs, info.inputs, info.inputCount)},
          {"outputs", Endpoints(info.minOutputs, info.maxOutputs, info.outputs, info.outputCount)},
          {"parameters", std::move(parameters)}};
}

void AddValues(Json& parameters, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    const auto own = vorn::ParameterLine::Parse(line);
    if (!own) continue;
    auto known = std::find_if(parameters.begin(), parameters.end(), [&](const Json& p) { return p["id"] == own->id; });
    if (known == parameters.end()) {
      parameters.push_back({{"id", own->id},
                            {"name", own->name},
                            {"unit", own->unit},
                            {"range", own->range},
                            {"access", own->access},
                            {"help", own->help}});
      known = parameters.end() - 1;
    }
    (*known)["value"] = own->value;
  }
}

}  // namespace vorn_inspect
