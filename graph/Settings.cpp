#include "Settings.h"

#include <algorithm>
#include <cctype>

namespace vorn::graph {
namespace {

struct Parts {
  Node* node = nullptr;
  std::string parameter;
};

/** The name of a node may have dots in it itself. */
Parts Split(GraphDescription& graph, const std::string& target) {
  for (std::size_t dot = target.find('.'); dot != target.npos; dot = target.find('.', dot + 1)) {
    const auto node = std::ranges::find(graph.nodes, target.substr(0, dot), &Node::name);
    if (node != graph.nodes.end()) return {&*node, target.substr(dot + 1)};
  }
  return {};
}

std::string NamesOf(const GraphDescription& graph) {
  std::string names;
  for (const Node& node : graph.nodes) {
    if (!node.isFifo) names += (names.empty() ? "" : ", ") + node.name;
  }
  return names;
}

/** Whether a block takes the argument as name=value. */
bool IsNamed(const std::string& arg) {
  const auto isOfName = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
  };
  const std::size_t equals = arg.find('=');
  return equals != arg.npos && equals > 0 && std::all_of(arg.begin(), arg.begin() + equals, isOfName);
}

const ParameterInfo* AtPosition(const BlockInfo& info, std::int32_t position) {
  const auto* const end = info.parameters + info.parameterCount;
  const auto* const found = std::find_if(info.parameters, end, [&](const auto& p) { return p.position == position; });
  return found == end ? nullptr : found;
}

/** Gives every argument its name, so that one of them can go without moving the others. */
void NameArguments(Node& node, const BlockInfo& info) {
  std::int32_t position = 0;
  for (Word& arg : node.args) {
    if (IsNamed(arg.text)) continue;
    if (const ParameterInfo* parameter = AtPosition(info, position++))
      arg.text = std::string(parameter->name) + '=' + arg.text;
  }
}

bool HasParameter(const BlockInfo& info, const std::string& name) {
  const auto* const end = info.parameters + info.parameterCount;
  return std::any_of(info.parameters, end, [&](const auto& parameter) { return name == parameter.name; });
}

}  // namespace

std::optional<Error> ApplyToAll(GraphDescription& graph, PlugIns& plugIns, const std::string& setting,
                                const std::string& source) {
  const std::string parameter = setting.substr(0, setting.find('='));
  for (const Node& node : graph.nodes) {
    if (node.isFifo) continue;
    const auto plugIn = plugIns.Find(node.plugIn);
    if (const auto* error = std::get_if<Error>(&plugIn)) return *error;
    const BlockInfo* const info = std::get<PlugIn>(plugIn).info;
    if (info == nullptr || !HasParameter(*info, parameter)) continue;
    if (auto error = ApplySetting(graph, plugIns, node.name + '.' + setting, source)) return error;
  }
  return std::nullopt;
}

std::optional<Error> ApplySetting(GraphDescription& graph, PlugIns& plugIns, const std::string& setting,
                                  const std::string& source) {
  const Origin at{source + ' ' + setting, 0, 0};
  const std::size_t equals = setting.find('=');
  if (equals == setting.npos) return Error{at, "expected node.parameter=value"};
  const auto [node, parameter] = Split(graph, setting.substr(0, equals));
  if (!node || node->isFifo || parameter.empty()) {
    return Error{at, "expected node.parameter=value, where node is one of: " + NamesOf(graph)};
  }
  const std::string value = setting.substr(equals + 1);
  const auto plugIn = plugIns.Find(node->plugIn);
  if (const auto* error = std::get_if<Error>(&plugIn)) return *error;

  if (const BlockInfo* info = std::get<PlugIn>(plugIn).info) NameArguments(*node, *info);
  std::erase_if(node->args, [prefix = parameter + '='](const Word& arg) { return arg.text.starts_with(prefix); });
  std::erase_if(node->parameters, [&name = parameter](const Attribute& attribute) { return attribute.name == name; });
  node->parameters.push_back({parameter, value, at, at});
  return std::nullopt;
}

}  // namespace vorn::graph
