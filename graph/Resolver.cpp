#include "Resolver.h"

#include <algorithm>

#include "Connections.h"
#include "FifoPlanning.h"
#include "FileUse.h"
#include "StreamOrder.h"
#include "StreamText.h"

namespace vorn::graph {
namespace {

/** By port, as far as there are links. */
using Streams = std::vector<Stream>;

Stream& At(Streams& streams, std::size_t port) {
  if (streams.size() <= port) streams.resize(port + 1);
  return streams[port];
}

/** The arguments of a block: those of its own, then its parameters by name. */
std::vector<std::string> ArgumentsOf(const Node& node) {
  std::vector<std::string> args;
  for (const Word& arg : node.args) args.push_back(arg.text);
  for (const Attribute& parameter : node.parameters) args.push_back(parameter.name + '=' + parameter.value);
  return args;
}

class Resolver {
 public:
  Resolver(GraphPlan& newPlan, PlugIns& newPlugIns, const AskForStreams& askForStreams)
      : plan(newPlan), graph(plan.graph), plugIns(newPlugIns), ask(askForStreams) {}

  std::optional<Error> Resolve() {
    if (auto error = FindPlugIns()) return error;
    if (auto error = CheckFiles(plan)) return error;
    if (auto error = Connect(plan)) return error;
    if (auto error = CheckEnds(plan)) return error;
    const auto order = OrderOfStreams(plan);
    if (const auto* error = std::get_if<Error>(&order)) return *error;
    for (const std::size_t node : std::get<0>(order)) {
      if (auto error = PlanStreams(node)) return error;
    }
    return PlanFifos(plan, std::get<0>(order));
  }

 private:
  const Node& NodeOf(std::size_t index) const { return graph.nodes[index]; }

  std::optional<Error> FindPlugIns() {
    plan.blocks.resize(graph.nodes.size());
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
      const Node& node = NodeOf(i);
      if (node.isFifo) continue;
      auto found = plugIns.Find(node.plugIn);
      if (const auto* error = std::get_if<Error>(&found)) return *error;
      plan.blocks[i].plugIn = std::get<PlugIn>(found);
      plan.blocks[i].args = ArgumentsOf(node);
      if (auto error = CheckNames(node, plan.blocks[i].plugIn.info)) return error;
    }
    return std::nullopt;
  }

  /** Names only: values are for the plug-in to judge. */
  static std::optional<Error> CheckNames(const Node& node, const BlockInfo* info) {
    const std::string who = "block " + Quoted(node.name);
    if (!info) {
      if (node.parameters.empty()) return std::nullopt;
      return Error{node.parameters.front().at,
                   who + ": its plug-in does not say what parameters it has; give it args=\"...\""};
    }
    if (info->flags & BLOCK_OWN_PARAMETERS) return std::nullopt;
    std::string names;
    for (std::uint32_t i = 0; i < info->parameterCount; ++i) {
      if (!(info->parameters[i].flags & PARAMETER_READING)) names += std::string(" ") + info->parameters[i].name;
    }
    for (const Attribute& parameter : node.parameters) {
      if ((names + ' ').find(' ' + parameter.name + ' ') != names.npos) continue;
      return Error{parameter.at, who + " has no parameter " + Quoted(parameter.name) + "; " + info->name +
                                     (names.empty() ? " has none" : " has" + names)};
    }
    return std::nullopt;
  }

  std::optional<Error> PlanStreams(std::size_t node) {
    Streams in;
    Streams out;
    const BlockPlan& block = plan.blocks[node];
    for (const std::size_t link : block.ins) At(in, plan.links[link].in) = plan.links[link].stream;
    for (const std::size_t link : block.outs) At(out, plan.links[link].out) = plan.links[link].stream;
    if (auto error = AskPlugIn(node, in, out)) return error;

    const Stream incoming = IncomingTo(node, in);
    for (const std::size_t index : block.outs) {
      LinkPlan& link = plan.links[index];
      if (!CanBe(out[link.out])) return NoStream(node, link.out, out[link.out]);
      if (auto error = SettleLink(link, out[link.out], incoming)) return error;
    }
    return std::nullopt;
  }

  std::optional<Error> AskPlugIn(std::size_t node, const Streams& in, Streams& out) {
    const BlockPlan& block = plan.blocks[node];
    if (!block.plugIn.info) return block.first ? AskBlock(node, out) : std::nullopt;
    if (!block.plugIn.info->planStreams) return std::nullopt;
    std::vector<const char*> args;
    for (const std::string& arg : block.args) args.push_back(arg.c_str());
    PlanRefusal refusal{};
    const int result = block.plugIn.info->planStreams(args.data(), args.size(), in.data(), in.size(), out.data(),
                                                      out.size(), &refusal);
    if (result >= 0) return std::nullopt;
    if (refusal.kind != About::NOTHING) return Refused(node, refusal);
    return Error{NodeOf(node).at,
                 "block " + Quoted(NodeOf(node).name) + ": refuses its streams (" + std::to_string(result) + ")"};
  }

  std::optional<Error> AskBlock(std::size_t node, Streams& out) const {
    auto answer = ask(node, plan.blocks[node]);
    if (auto* error = std::get_if<Error>(&answer)) return *error;
    const auto& streams = std::get<0>(answer);
    for (std::size_t i = 0; i < std::min(streams.size(), out.size()); ++i) out[i].Complete(streams[i]);
    return std::nullopt;
  }

  Error NoStream(std::size_t node, std::size_t output, const Stream& made) const {
    return {NodeOf(node).at, "block " + Quoted(NodeOf(node).name) + ", output " + std::to_string(output) + ": makes " +
                                 Describe(made) + ", which no link can have"};
  }

  /** Points to where the argument or the link that is refused was written. */
  Error Refused(std::size_t node, const PlanRefusal& refusal) const {
    const std::string who = "block " + Quoted(NodeOf(node).name);
    const std::string text = refusal.text;
    for (const Attribute& parameter : NodeOf(node).parameters) {
      if (refusal.kind != About::ARGUMENT || parameter.name != refusal.name) continue;
      return {parameter.valueAt, who + ": " + text};
    }
    for (const LinkPlan& link : plan.links) {
      const bool isInput = refusal.kind == About::INPUT && link.to == node && link.in == refusal.index;
      const bool isOutput = refusal.kind == About::OUTPUT && link.from == node && link.out == refusal.index;
      if (!isInput && !isOutput) continue;
      const std::string label = LabelOf(refusal.kind, refusal.index, "");
      const std::string neighbour =
          isInput ? "from " + Quoted(NodeOf(link.from).name) : "to " + Quoted(NodeOf(link.to).name);
      const std::string reason = text.starts_with(label + ": ") ? text.substr(label.size() + 2) : text;
      return {link.at, who + ", " + label + " (" + neighbour + "): " + reason};
    }
    return {NodeOf(node).at, who + ": " + text};
  }

  /** Of a block with several inputs, the first. Of one that reads a FIFO, what is in it. */
  Stream IncomingTo(std::size_t node, const Streams& in) const {
    const auto linked = std::ranges::find_if(in, [](const Stream& stream) { return stream.linked != 0; });
    if (linked != in.end()) return *linked;
    if (plan.blocks[node].reads == BlockPlan::NO_FIFO) return {};
    const FifoPlan& fifo = plan.fifos[plan.blocks[node].reads];
    Stream stream = fifo.stream;
    if (!fifo.closesCycle) stream.Complete(StreamInto(plan, fifo));
    return stream;
  }

  std::optional<Error> SettleLink(LinkPlan& link, const Stream& made, Stream incoming) const {
    if (const auto difference = Compare(link.stream, made); difference.Any()) {
      return Error{link.at, "block " + Quoted(NodeOf(link.from).name) + ", output " + std::to_string(link.out) +
                                " (to " + Quoted(NodeOf(link.to).name) + "): got " + Describe(link.stream, difference) +
                                " from the graph, makes " + Describe(made, difference) + "; put " +
                                Menders(difference) + " after it"};
    }
    incoming.length = -1;
    link.stream.Complete(made);
    link.stream.Complete(incoming);
    link.stream.Complete(graph.routes[link.route].defaults);
    Settle(link.stream);
    return std::nullopt;
  }

  GraphPlan& plan;
  const GraphDescription& graph;
  PlugIns& plugIns;
  const AskForStreams& ask;
};

}  // namespace

Result<GraphPlan> Resolve(GraphDescription graph, PlugIns& plugIns, const AskForStreams& ask) {
  GraphPlan plan;
  plan.graph = std::move(graph);
  if (auto error = Resolver(plan, plugIns, ask).Resolve()) return *error;
  return plan;
}

}  // namespace vorn::graph
