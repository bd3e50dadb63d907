// What the graph is to be: steps that change a picture of it, and nothing else but names.
#include <algorithm>
#include <string_view>

#include <vorn/kit/Conventions.h>
#include <vorn/kit/Marks.h>

#include "Block/SampleFormat.h"
#include "Route/GraphEdit.h"

namespace vorn {
namespace {

std::string TextOf(const FrameBuffer& stream) {
  return std::to_string(stream.rate) + " Hz " + FormatToString(stream.format) + ", " + std::to_string(stream.channels) +
         " channels, frames of " + std::to_string(stream.samplesPerFrame);
}

bool IsSame(const FrameBuffer& a, const FrameBuffer& b) {
  return a.rate == b.rate && a.format == b.format && a.channels == b.channels && a.samplesPerFrame == b.samplesPerFrame;
}

std::string_view FileStem(const std::string& soFileName) {
  const std::string_view file = std::string_view(soFileName).substr(soFileName.rfind('/') + 1);
  return file.substr(0, file.find(".so"));
}

}  // namespace

void GraphEdit::ReadGraph() {
  for (Block* block : route.blocks) nodes.push_back({block, false});
  for (Link* link : route.links) {
    OutputEndpoint* const source = &link->SourceEp()->Owner()->OutEp(link->SourceEp()->Index());
    InputEndpoint* const sink = &link->SinkEp()->Owner()->InEp(link->SinkEp()->Index());
    wires.push_back({link, link->Name(), source, sink, link->EmptyFrame(), source, sink});
  }
  lackBefore = Lack();
  madeBlocks.resize(job.steps.size());
  madeWires.resize(job.steps.size());
  comers.reserve(2 * job.steps.size());
}

void GraphEdit::PlanStep(std::size_t index) {
  const Step& step = job.steps[index];
  using Kind = EditImpl::Kind;
  Block* const block = step.Loads() ? &Enlist(job.made[index]) : nullptr;
  madeBlocks[index] = block;
  switch (step.kind) {
    case Kind::NEW_BLOCK: return;
    case Kind::NEW_LINK: PlanNewLink(step), madeWires[index] = &wires.back(); return;
    case Kind::DELETE: return PlanDelete(step);
    case Kind::SET_PARAMETER: BlockOf(step.what); return;
    case Kind::INSERT: return PlanInsert(LinkOf(step.what), *block);
    case Kind::REMOVE: return PlanRemove(BlockOf(step.what));
    case Kind::REPLACE: return PlanReplace(BlockOf(step.what), *block);
    case Kind::TAP: return PlanTap(LinkOf(step.what), *block);
  }
}

/** Gives a block its name. The number is taken until the edit is undone. */
Block& GraphEdit::Enlist(LoadedBlock& loaded) {
  Block& block = *loaded.block;
  if (!route.NameBlock_l(block, BaseName(loaded.soFileName))) throw Refused{"no number is free for another block"};
  route.TakeNumber_l(block.Name());
  comers.push_back({&loaded});
  nodes.push_back({&block, true});
  return block;
}

GraphEdit::Wire& GraphEdit::AddWire(const FrameBuffer& stream, OutputEndpoint* source, InputEndpoint* sink) {
  const std::size_t number = route.linkNumbers.Lowest();
  if (number > Numbers::LAST) throw Refused{"no number is free for another link"};
  wires.push_back({nullptr, "lnk_" + std::to_string(number), source, sink, stream});
  route.linkNumbers.Take(number);
  return wires.back();
}

void GraphEdit::PlanNewLink(const Step& step) {
  Block& source = *BlockOf(step.what).block;
  Block& sink = *BlockOf(step.sink).block;
  for (const std::size_t index : {step.output, step.input}) {
    if (index >= Endpoint::COUNT) throw Refused{"there is no endpoint " + std::to_string(index) + ", expected 0 to 31"};
  }
  const auto refuse = [](const Block& block, const char* kind, std::size_t index) {
    throw Refused{block.Name() + ": " + kind + " " + std::to_string(index) + " is linked already"};
  };
  if (HasLink(source.OutEp(step.output))) refuse(source, "output", step.output);
  if (HasLink(sink.InEp(step.input))) refuse(sink, "input", step.input);
  AddWire(step.stream, &source.OutEp(step.output), &sink.InEp(step.input));
}

void GraphEdit::PlanDelete(const Step& step) {
  if (Wire* const wire = FindLink(step.what)) {
    wire->isGone = true;
    return;
  }
  Node* const node = FindBlock(step.what);
  if (!node) throw Refused{Called(step.what, "block or link")};
  if (node->isNew) throw Refused{node->block->Name() + " is made by this edit, and cannot be deleted by it"};
  for (Wire* wire : Inputs(*node->block)) wire->isGone = true;
  for (Wire* wire : Outputs(*node->block)) wire->isGone = true;
  node->isGone = true;
}

void GraphEdit::PlanInsert(Wire& wire, Block& block) {
  AddWire(wire.stream, wire.source, &block.InEp(0));
  wire.source = &block.OutEp(0);  // what waits in the link is the reader's
}

void GraphEdit::PlanRemove(Node& node) {
  const Block& block = *node.block;
  if (node.isNew) throw Refused{block.Name() + " is made by this edit, and cannot be removed by it"};
  const std::vector<Wire*> in = Inputs(block);
  const std::vector<Wire*> out = Outputs(block);
  if (!in.empty() && !out.empty() && (in.size() != 1 || out.size() != 1)) {
    throw Refused{block.Name() + " has " + std::to_string(in.size()) + " inputs and " + std::to_string(out.size()) +
                  " outputs linked: expected one of each, whose ends can be joined, or only inputs or outputs"};
  }
  node.isGone = true;
  if (in.size() == 1 && out.size() == 1 && in[0] != out[0]) return Join(*in[0], *out[0]);
  for (Wire* wire : in) wire->isGone = true, neighbours.push_back(wire->source->Owner());
  for (Wire* wire : out) wire->isGone = true, neighbours.push_back(wire->sink->Owner());
}

void GraphEdit::Join(Wire& in, Wire& out) {
  if (!IsSame(in.stream, out.stream)) {
    throw Refused{in.sink->Owner()->Name() + " gives out another stream than it takes in (" + TextOf(in.stream) + "; " +
                  TextOf(out.stream) + "), so that its neighbours cannot be joined"};
  }
  out.source = in.source;
  in.isGone = true;
  in.heir = &out;
}

void GraphEdit::PlanReplace(Node& node, Block& block) {
  if (node.isNew) throw Refused{node.block->Name() + " is made by this edit, and cannot be replaced by it"};
  for (Wire* wire : Inputs(*node.block)) wire->sink = &block.InEp(wire->sink->Index());
  for (Wire* wire : Outputs(*node.block)) wire->source = &block.OutEp(wire->source->Index());
  node.isGone = true;
}

void GraphEdit::PlanTap(Wire& wire, Block& block) {
  Block* tee = wire.source->Owner();
  std::size_t output = 0;
  if (IsTee(*tee)) {
    while (output < Endpoint::COUNT && HasLink(tee->OutEp(output))) ++output;
  }
  if (!IsTee(*tee) || output == Endpoint::COUNT) {
    if (teesUsed == job.tees.size()) throw Retry{EditJob::Outcome::NEEDS_TEE};
    tee = &Enlist(job.tees[teesUsed++]);
    PlanInsert(wire, *tee);
    output = 1;
  }
  AddWire(wire.stream, &tee->OutEp(output), &block.InEp(0));
}

bool GraphEdit::IsTee(const Block& block) const {
  const std::string* file = nullptr;
  for (const NewBlock& comer : comers) {
    if (comer.loaded->block.get() == &block) file = &comer.loaded->soFileName;
  }
  if (const auto origin = route.origins.find(&block); origin != route.origins.end()) file = &origin->second.soFileName;
  if (!file || (FileStem(*file) != "libtee" && FileStem(*file) != "tee")) return false;
  return const_cast<Block&>(block).ioctl(KIT_GET_VERSION, nullptr) >= 0;
}

/** Who takes over a frame that waits in a link that goes: a new link to the same input. */
void GraphEdit::Inherit() {
  for (Wire& gone : wires) {
    if (!gone.isGone || gone.IsNew() || gone.heir) continue;
    for (const Wire& wire : wires) {
      if (!wire.isGone && wire.IsNew() && wire.sink == gone.oldSink && IsSame(wire.stream, gone.stream)) {
        gone.heir = &wire;
      }
    }
  }
  for (const Wire& gone : wires) {
    if (!gone.isGone || !gone.heir || gone.heir->IsNew() || !Goes()) continue;
    if (HasArrived(*gone.oldSink->FB()) && HasArrived(*gone.heir->oldSink->FB())) throw Retry{EditJob::Outcome::BUSY};
  }
}

/** A block has made itself ready for the stream that an endpoint had. */
void GraphEdit::CheckEndpoints() const {
  const auto check = [](const Endpoint& ep, const Wire& wire, const char* kind) {
    if (!ep.IsActive()) return;
    const FrameBuffer before = ep.AttachedLink()->EmptyFrame();  // what a block writes into its own is its affair
    if (IsSame(before, wire.stream)) return;
    throw Refused{ep.Owner()->Name() + ": " + kind + " " + std::to_string(ep.Index()) + " is linked with " +
                  TextOf(before) + ", which one edit cannot change to " + TextOf(wire.stream) +
                  "; delete its link first"};
  };
  for (const Wire& wire : wires) {
    if (!wire.IsMoved()) continue;
    check(*wire.source, wire, "output");
    check(*wire.sink, wire, "input");
  }
}

void GraphEdit::CheckWhole() const {
  for (const Block* block : neighbours) {
    const auto isIt = [&](const Node& node) { return node.block == block && !node.isGone; };
    if (std::none_of(nodes.begin(), nodes.end(), isIt)) continue;
    if (const std::string lack = LackOf(*block); !lack.empty())
      throw Refused{"what is left would be incomplete: " + lack};
  }
  const bool breaks = Goes() && lackBefore.empty() && !lackAfter.empty();
  if (breaks) throw Refused{"the graph would be incomplete: " + lackAfter};
}

std::string GraphEdit::LackOf(const Block& block) const {
  const auto any = [&](const auto& isItsEnd) {
    return std::any_of(wires.begin(), wires.end(), [&](const Wire& wire) { return !wire.isGone && isItsEnd(wire); });
  };
  if (!block.IsFirst() && !any([&](const Wire& wire) { return wire.sink->Owner() == &block; }))
    return block.Name() + " has no input linked, and is no first block";
  if (!block.IsLast() && !any([&](const Wire& wire) { return wire.source->Owner() == &block; }))
    return block.Name() + " has no output linked, and is no last block";
  return {};
}

std::string GraphEdit::Lack() const {
  std::set<const Block*> fed, heard;
  for (const Wire& wire : wires) {
    if (!wire.isGone) fed.insert(wire.sink->Owner()), heard.insert(wire.source->Owner());
  }
  bool hasFirst = false;
  for (const auto& [block, isNew, isGone] : nodes) {
    if (isGone) continue;
    const bool isWhole = (block->IsFirst() || fed.contains(block)) && (block->IsLast() || heard.contains(block));
    if (!isWhole) return LackOf(*block);
    hasFirst = hasFirst || block->IsFirst();
  }
  return hasFirst ? "" : "there is no first block";
}

// Names

GraphEdit::Node* GraphEdit::FindBlock(const Edit::Instance& which) {
  const std::size_t step = EditImpl::StepOf(which);
  const void* const pointer = step > 0 ? madeBlocks[step - 1] : EditImpl::PointerOf(which);
  for (Node& node : nodes) {
    if (node.isGone) continue;
    if (pointer || step > 0 ? node.block == pointer : node.block->Name() == EditImpl::NameOf(which)) return &node;
  }
  return nullptr;
}

GraphEdit::Wire* GraphEdit::FindLink(const Edit::Instance& which) {
  const std::size_t step = EditImpl::StepOf(which);
  const void* const pointer = EditImpl::PointerOf(which);
  for (Wire& wire : wires) {
    if (wire.isGone) continue;
    const bool isIt = step > 0  ? &wire == madeWires[step - 1]
                      : pointer ? wire.link == pointer
                                : wire.name == EditImpl::NameOf(which);
    if (isIt) return &wire;
  }
  return nullptr;
}

GraphEdit::Node& GraphEdit::BlockOf(const Edit::Instance& which) {
  if (Node* const node = FindBlock(which)) return *node;
  throw Refused{Called(which, "block")};
}

GraphEdit::Wire& GraphEdit::LinkOf(const Edit::Instance& which) {
  if (Wire* const wire = FindLink(which)) return *wire;
  throw Refused{Called(which, "link")};
}

std::string GraphEdit::Called(const Edit::Instance& which, const char* kind) const {
  const std::string& name = EditImpl::NameOf(which);
  return route.name + " has no " + kind + (name.empty() ? " of that address" : " '" + name + "'");
}

std::vector<GraphEdit::Wire*> GraphEdit::Inputs(const Block& block) {
  std::vector<Wire*> found;
  for (Wire& wire : wires) {
    if (!wire.isGone && wire.sink->Owner() == &block) found.push_back(&wire);
  }
  return found;
}

std::vector<GraphEdit::Wire*> GraphEdit::Outputs(const Block& block) {
  std::vector<Wire*> found;
  for (Wire& wire : wires) {
    if (!wire.isGone && wire.source->Owner() == &block) found.push_back(&wire);
  }
  return found;
}

bool GraphEdit::HasLink(const Endpoint& ep) const {
  return std::any_of(wires.begin(), wires.end(),
                     [&](const Wire& wire) { return !wire.isGone && (wire.source == &ep || wire.sink == &ep); });
}

}  // namespace vorn
