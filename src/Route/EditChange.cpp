// The change itself: all of it, or none.
#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>

#include <vorn/kit/Conventions.h>
#include <vorn/kit/Marks.h>
#include <vorn/kit/ParameterLine.h>

#include "Block/Topology.h"
#include "Block/Whereabouts.h"
#include "Log.h"
#include "Route/GraphEdit.h"

namespace vorn {
namespace {

bool IsOfKit(const Block& block) { return RouteImpl::ViewOf(&block) != nullptr; }

bool IsInput(const Endpoint& ep) { return &ep.Owner()->InEp(ep.Index()) == &ep; }

/** Why a block of the kit refused something; else what it answered. */
std::string ReasonOf(Block& block, int answer) {
  std::vector<std::string> texts;
  const bool tells = IsOfKit(block) && block.GetParameter(PARAMETER_REFUSAL, texts) == 0;
  if (tells && texts.size() > REFUSAL_TEXT && !texts[REFUSAL_TEXT].empty()) return texts[REFUSAL_TEXT];
  return "it answered " + std::to_string(answer);
}

std::size_t BytesOf(const FrameBuffer& stream, long samples) {
  const long count = std::clamp(samples, 0L, std::max(stream.samplesPerFrame, 0L));
  return static_cast<std::size_t>(count) * stream.channels * BytesPerSample(stream.format);
}

void ShowFrame(FrameBuffer& fb, const FrameBuffer& frame) {
  fb.samples = frame.samples;
  fb.timestamp = frame.timestamp;
}

}  // namespace

void GraphEdit::Run() {
  try {
    ReadGraph();
    for (std::size_t i = 0; i < job.steps.size(); ++i) PlanStep(i);
    lackAfter = Lack();
    Inherit();
    CheckEndpoints();
    CheckWhole();
    Prepare();
    Rewire();
    AskHooks();
    SetNewBlocks();
    if (!route.RefreshPlan()) throw std::bad_alloc();
    Start();
    PutFramesBack();
    SetOthers();
    return Commit();
  } catch (const Retry& retry) {
    job.outcome = retry.why;
  } catch (Refused& refused) {
    job.outcome = EditJob::Outcome::REFUSED;
    job.result.reason = std::move(refused.why);
  } catch (const std::bad_alloc&) {
    job.outcome = EditJob::Outcome::REFUSED;
    job.result.reason = "out of memory";  // short enough to need none
  } catch (...) {
    job.outcome = EditJob::Outcome::REFUSED;
    job.result.reason = "a block threw";
  }
  Undo();
}

bool GraphEdit::Goes() const {
  return route.CurrentStatus() == RouteImpl::RUNNING || route.CurrentStatus() == RouteImpl::BROKEN_RUNNING;
}

bool GraphEdit::IsNew(const Block* block) const {
  return std::any_of(comers.begin(), comers.end(),
                     [=](const auto& comer) { return comer.loaded->block.get() == block; });
}

// Room for everything

void GraphEdit::Prepare() {
  if (!route.RefreshPlan()) throw std::bad_alloc();  // what goes is not to be looked at any more
  for (NewBlock& comer : comers) {
    route.EnterBlock_l(*comer.loaded->block, {comer.loaded->soFileName, comer.loaded->args});
    comer.isEntered = true;
  }
  MakeLinks();
  SaveEnds();
  SaveFrames();
  Report();
  route.soHandles.reserve(route.soHandles.size() + comers.size());
  job.leaving.reserve(nodes.size());
  started.reserve(nodes.size());
  hooked.reserve(2 * wires.size());
  settings.reserve(job.steps.size());
}

void GraphEdit::MakeLinks() {
  newLinks.reserve(wires.size());
  for (Wire& wire : wires) {
    if (!wire.IsNew() || wire.isGone) continue;
    const FrameBuffer& stream = wire.stream;
    auto link = std::make_unique<Link>(route.name, wire.name, stream.rate, stream.format, stream.channels,
                                       stream.samplesPerFrame);
    try {
      link->MakeRoom();
    } catch (const std::length_error&) {
      throw Refused{"no memory holds frames of " + std::to_string(stream.samplesPerFrame) + " samples"};
    }
    wire.link = link.get();
    comingLinks.insert(link.get());
    newLinks.push_back(std::move(link));
  }
}

void GraphEdit::SaveEnds() {
  const auto save = [this](Endpoint* ep) {
    if (ep) ends.push_back({ep, ep->AttachedLink(), *ep->FB()});
  };
  for (const Wire& wire : wires) {
    if (!wire.IsMoved()) continue;
    for (Endpoint* ep : {static_cast<Endpoint*>(wire.source), static_cast<Endpoint*>(wire.sink),
                         static_cast<Endpoint*>(wire.oldSource), static_cast<Endpoint*>(wire.oldSink)}) {
      save(ep);
    }
  }
}

/** Of links that get another end, and of those whose heir has none waiting. A new block clears what it finds when it starts. */
void GraphEdit::SaveFrames() {
  const auto save = [this](const Wire& to, const Wire& from) {
    Waiting waiting{const_cast<Wire*>(&to), *from.oldSink->FB(), {}};
    const FrameBuffer held = from.link->EmptyFrame();
    waiting.bytes.assign(held.data, held.data + BytesOf(held, waiting.frame.samples));
    frames.push_back(std::move(waiting));
  };
  for (const Wire& wire : wires) {
    if (wire.IsMoved() && !wire.IsNew()) save(wire, wire);
  }
  for (const Wire& wire : wires) {
    const Wire* const heir = wire.heir;
    if (!wire.isGone || !heir || !HasArrived(*wire.oldSink->FB())) continue;
    if (heir->IsNew() || !HasArrived(*heir->oldSink->FB())) save(*heir, wire);
  }
}

void GraphEdit::Report() {
  for (const NewBlock& comer : comers) {
    job.result.made.push_back({comer.loaded->block->Name(), comer.loaded->block.get(), nullptr});
  }
  for (const Wire& wire : wires) {
    if (wire.IsNew() && !wire.isGone) job.result.made.push_back({wire.name, nullptr, wire.link});
  }
  for (const Node& node : nodes) {
    if (node.isGone) job.result.deleted.push_back({node.block->Name(), node.block, nullptr});
  }
  for (const Wire& wire : wires) {
    if (!wire.IsNew() && wire.isGone) job.result.deleted.push_back({wire.name, nullptr, wire.link});
  }
}

// Links change their ends. What goes keeps pointing at what it was linked to: its blocks are still to be unlinked.

void GraphEdit::Rewire() {
  const Topology::Lock lock;
  isRewired = true;
  for (const Node& node : nodes) {
    if (!node.isGone) continue;
    goingBlocks.insert(route.blocks.extract(node.block));
    goingOrigins.insert(route.origins.extract(node.block));
  }
  for (const Wire& wire : wires) {
    if (wire.isGone && !wire.IsNew()) goingLinks.insert(route.links.extract(wire.link));
  }
  route.links.merge(comingLinks);
  for (const Wire& wire : wires) {
    if (!wire.IsMoved() || wire.IsNew()) continue;
    Link::Hang(*wire.oldSource, nullptr);
    Link::Hang(*wire.oldSink, nullptr);
  }
  for (const Wire& wire : wires) {
    if (!wire.IsMoved()) continue;
    const long stamp = wire.source->FB()->timestamp;
    wire.link->Place(wire.source, wire.sink);
    if (wire.source != wire.oldSource) *wire.source->FB() = wire.link->EmptyFrame();
    if (wire.sink != wire.oldSink) *wire.sink->FB() = wire.link->EmptyFrame();
    // An output keeps the stamp of its last frame until it is set, unless that is a mark.
    if (wire.IsNew()) wire.source->FB()->timestamp = std::max(stamp, -1L);
  }
  for (const SavedEnd& end : ends) {
    if (!goingBlocks.contains(end.ep->Owner())) route.plan.Touch(*end.ep->Owner());
  }
}

// Blocks are asked

void GraphEdit::AskHooks() {
  for (const Wire& wire : wires) {
    if (!wire.IsMoved()) continue;
    AskHook(*wire.source->Owner(), &Block::BaseOnOutEpLinked, *wire.source, wire);
    AskHook(*wire.sink->Owner(), &Block::BaseOnInEpLinked, *wire.sink, wire);
  }
}

void GraphEdit::AskHook(Block& block, int (Block::*hook)(unsigned long), const Endpoint& ep, const Wire& wire) {
  const auto saved = std::find_if(ends.begin(), ends.end(), [&](const SavedEnd& end) { return end.ep == &ep; });
  if (saved->link) return;  // has been linked all along
  const int ret = (block.*hook)(ep.Index());
  if (ret < 0) {
    LOG_E("%s: %s: Failed to link to %s's %c%02zu", route.name.c_str(), wire.name.c_str(), block.Name().c_str(),
          IsInput(ep) ? 'I' : 'O', ep.Index());
    throw Refused{block.Name() + " refuses " + (IsInput(ep) ? "input " : "output ") + std::to_string(ep.Index()) +
                  " (" + wire.name + "): " + ReasonOf(block, ret)};
  }
  if (!IsNew(&block)) hooked.push_back(saved->ep);
}

GraphEdit::Setting GraphEdit::SettingOf(const Step& step) {
  Setting setting{FindBlock(step.what) ? FindBlock(step.what)->block : nullptr, 0, &step.texts};
  if (!setting.block) throw Refused{Called(step.what, "block") + " any more"};
  if (!step.text.empty() && step.text.find_first_not_of("0123456789") == step.text.npos && step.text.size() < 10) {
    setting.id = static_cast<unsigned>(std::stoul(step.text));
    return setting;
  }
  std::vector<std::string> lines;
  std::string names;
  if (IsOfKit(*setting.block)) route.GetParam_l(setting.block, PARAMETER_TABLE, lines);
  for (const std::string& text : lines) {
    const auto line = ParameterLine::Parse(text);
    if (!line) continue;
    if (line->name == step.text) return setting.id = line->id, setting;
    names += (names.empty() ? "" : ", ") + line->name;
  }
  throw Refused{setting.block->Name() + " has no parameter '" + step.text + "', expected " +
                (names.empty() ? "a number" : names)};
}

void GraphEdit::Set(Setting& setting) {
  const int ret = route.SetParam_l(setting.block, setting.id, *setting.values);
  if (ret != 0) throw Refused{setting.block->Name() + ": " + ReasonOf(*setting.block, ret)};
}

void GraphEdit::SetNewBlocks() {
  for (const Step& step : job.steps) {
    if (step.kind != EditImpl::Kind::SET_PARAMETER) continue;
    Setting setting = SettingOf(step);
    if (IsNew(setting.block)) Set(setting);
  }
}

/** The last that may fail. */
void GraphEdit::SetOthers() {
  for (const Step& step : job.steps) {
    if (step.kind != EditImpl::Kind::SET_PARAMETER) continue;
    Setting setting = SettingOf(step);
    if (IsNew(setting.block)) continue;
    if (route.GetParam_l(setting.block, setting.id, setting.before) != 0) setting.before.clear();
    Set(setting);
    settings.push_back(std::move(setting));
  }
}

void GraphEdit::Start() {
  if (!Goes() || !lackAfter.empty()) return;
  if (route.CurrentStatus() == RouteImpl::BROKEN_RUNNING) {
    wasFailed = route.board.failed.exchange(false);
    for (Block* block : route.blocks) StartOne(*block);
  } else {
    for (const NewBlock& comer : comers) StartOne(*comer.loaded->block);
  }
}

void GraphEdit::StartOne(Block& block) {
  if (RouteImpl::IsStarted(block)) return;
  const int ret = route.StartBlock(block);
  if (ret < 0) {
    LOG_E("%s: Failed to start %s (ret=%d)", route.name.c_str(), block.Name().c_str(), ret);
    throw Refused{block.Name() + " does not start: " + ReasonOf(block, ret)};
  }
  if (ret > 0) throw Refused{block.Name() + " has not started yet (" + std::to_string(ret) + ")"};
  started.push_back(&block);
}

void GraphEdit::PutFramesBack() {
  for (const Waiting& waiting : frames) {
    const Wire& wire = *waiting.wire;
    const FrameBuffer link = wire.link->EmptyFrame();
    if (BytesOf(link, link.samplesPerFrame) < waiting.bytes.size()) {
      throw Refused{wire.source->Owner()->Name() + " makes the frames of " + wire.name +
                    " smaller than what waits there"};
    }
    std::copy(waiting.bytes.begin(), waiting.bytes.end(), link.data);
    ShowFrame(*wire.source->FB(), waiting.frame);
    ShowFrame(*wire.sink->FB(), waiting.frame);
  }
}

// It is done

void GraphEdit::Commit() {
  DropLinks();
  DropBlocks();
  MeetNeighbours();
  for (auto& link : newLinks) static_cast<void>(link.release());
  for (const NewBlock& comer : comers) {
    const auto& handles = route.soHandles;
    const bool isHeld = std::find(handles.begin(), handles.end(), comer.loaded->handle.get()) != handles.end();
    if (!isHeld) route.soHandles.push_back(comer.loaded->handle.release());
    route.WarnOfDump_l(*comer.loaded->block.release());
  }
  for (const Wire& wire : wires) {
    if (!wire.IsMoved()) continue;
    LOG_I("%s: %s: %s %s(O%02zu) --> (I%02zu)%s", route.name.c_str(), wire.name.c_str(),
          wire.IsNew() ? "Created" : "Moved to", wire.source->Owner()->Name().c_str(), wire.source->Index(),
          wire.sink->Index(), wire.sink->Owner()->Name().c_str());
  }
  for (const EditResult::Item& item : job.result.made) route.TellEdit(item.name, "was made");
  for (const EditResult::Item& item : job.result.deleted) route.TellEdit(item.name, "was deleted");
  job.outcome = EditJob::Outcome::DONE;
  job.result.ok = true;
}

void GraphEdit::DropLinks() {
  for (const Wire& wire : wires) {
    if (!wire.isGone) continue;
    route.linkNumbers.Release(NumberOf(wire.name));
    if (wire.IsNew()) continue;
    for (Endpoint* ep : {static_cast<Endpoint*>(wire.oldSource), static_cast<Endpoint*>(wire.oldSink)}) {
      const bool isDropped = goingBlocks.contains(ep->Owner());
      if (!isDropped) route.plan.Touch(*ep->Owner());
      const Topology::Lock lock;
      if (isDropped && ep->AttachedLink() == wire.link) Link::Hang(*ep, nullptr);
    }
    delete wire.link;  // tells those that stay
  }
}

/** They hear of it on the caller's thread. */
void GraphEdit::DropBlocks() {
  for (Block* block : goingBlocks) {
    route.RemoveBlock_l(*block);
    Disown(*block, nullptr);
    job.leaving.push_back({nullptr, std::unique_ptr<Block>(block), {}, {}});
  }
}

/** Outputs first: what an input then says goes as far upstream as it has to. */
void GraphEdit::MeetNeighbours() {
  const auto meet = [this](const Endpoint& ep) {
    Block& block = *ep.Owner();
    KitNeighbour neighbour{IsInput(ep), ep.Index()};
    if (!IsNew(&block) && IsOfKit(block)) block.ioctl(KIT_MEET, &neighbour);
  };
  for (const Wire& wire : wires) {
    if (wire.IsMoved()) meet(*wire.source);
  }
  for (const Wire& wire : wires) {
    if (wire.IsMoved()) meet(*wire.sink);
  }
}

void GraphEdit::Disown(Block& block, RouteBoard* board) {
  RouteImpl::SetBoard(block, board);
  if (IsOfKit(block)) block.ioctl(KIT_SHARE, nullptr);
}

// Nothing has been

void GraphEdit::Undo() {
  UndoSettings();
  UndoHooks();
  job.result.made.clear();
  job.result.deleted.clear();
  if (isRewired) {
    const Topology::Lock lock;
    for (const Wire& wire : wires) {
      if (!wire.IsMoved()) continue;
      Link::Hang(*wire.source, nullptr);
      Link::Hang(*wire.sink, nullptr);
    }
    for (const Wire& wire : wires) {
      if (wire.IsMoved() && !wire.IsNew()) wire.link->Place(wire.oldSource, wire.oldSink);
    }
    for (const SavedEnd& end : ends) {
      Link::Hang(*end.ep, end.link);
      *end.ep->FB() = end.fb;
      if (!IsNew(end.ep->Owner())) route.plan.Touch(*end.ep->Owner());
    }
    for (const auto& link : newLinks) route.links.erase(link.get());
    route.links.merge(goingLinks);
    route.blocks.merge(goingBlocks);
    route.origins.merge(goingOrigins);
  }
  for (const Wire& wire : wires) {
    if (wire.IsNew()) route.linkNumbers.Release(NumberOf(wire.name));
    if (isRewired && wire.IsMoved() && !wire.IsNew()) GiveBack(wire);
  }
  for (NewBlock& comer : comers) Forsake(comer);
}

/** A new block may have given the link frames of another size. */
void GraphEdit::GiveBack(const Wire& wire) {
  const long scribbled = wire.oldSink->FB()->samplesPerFrame;
  wire.link->Reallocate(wire.stream.samplesPerFrame);  // has had that much memory before
  wire.oldSink->FB()->samplesPerFrame = scribbled;
  wire.oldSource->FB()->data = wire.oldSink->FB()->data = wire.link->EmptyFrame().data;
  for (const Waiting& waiting : frames) {
    if (waiting.wire == &wire) std::copy(waiting.bytes.begin(), waiting.bytes.end(), wire.oldSink->FB()->data);
  }
}

void GraphEdit::UndoSettings() {
  for (std::size_t i = settings.size(); i-- > 0;) {  // one may be set twice
    const Setting& setting = settings[i];
    try {
      if (!setting.before.empty()) route.SetParam_l(setting.block, setting.id, setting.before);
    } catch (const std::exception& e) {
      LOG_E("%s: %s: Parameter %u keeps its new value: %s", route.name.c_str(), setting.block->Name().c_str(),
            setting.id, e.what());
    }
  }
}

/** Blocks that are not new: those that an incomplete graph had stopped, and those that got a further link. */
void GraphEdit::UndoHooks() {
  if (route.CurrentStatus() == RouteImpl::BROKEN_RUNNING && !started.empty()) {
    route.board.failed.store(true);  // what they have made so far is nothing
  }
  for (Block* block : started) {
    if (!IsNew(block)) block->BaseStop();
  }
  if (wasFailed) route.board.failed.store(true);
  for (const Endpoint* ep : hooked) {
    Block& block = *ep->Owner();
    IsInput(*ep) ? block.BaseOnInEpUnlinked(ep->Index()) : block.BaseOnOutEpUnlinked(ep->Index());
  }
}

/** The caller stops and deletes it. */
void GraphEdit::Forsake(NewBlock& comer) {
  Block& block = *comer.loaded->block;
  comer.isEntered ? route.RemoveBlock_l(block) : route.ReleaseNumber_l(block.Name());
  Disown(block, &job.failed);
}

}  // namespace vorn
