/** Part of <vorn/Plugin.h>: the calls of Flow in one cycle. Flow.h says what they are for. */
#ifndef VORN_KIT_CYCLE_H
#define VORN_KIT_CYCLE_H

#include <vorn/kit/Flow.h>

namespace vorn {

// The block in its route

inline void Flow::Share(RouteBoard* newBoard) {
  if (newBoard == nullptr) newBoard = &ownBoard;
  if (newBoard == board) return;
  const bool wasStarted = std::exchange(started, false);
  const bool wasSpoilt = spoilt;
  Tally();
  Spoil(false);
  board->foreignLinks -= foreignLinks;
  board->pacers -= pacers;
  board = newBoard;
  board->foreignLinks += foreignLinks;
  board->pacers += pacers;
  started = wasStarted;
  Spoil(wasSpoilt);
  Tally();
}

inline void Flow::Link(std::vector<Port> newInputs, std::vector<Port> newOutputs) {
  OpenQueues(newInputs);
  inputs = std::move(newInputs);
  outputs = std::move(newOutputs);
  CountLinks();
}

inline void Flow::Unlink(bool input, std::size_t index) {
  std::vector<Port>& ports = Ports(input);
  ports.erase(std::remove_if(ports.begin(), ports.end(), [=](const Port& port) { return port.index == index; }),
              ports.end());
  CountLinks();
}

// Whoever stood there may have heard that this block takes nothing any more; who stands there now has not.
inline void Flow::Meet(bool input, std::size_t index, bool isForeign) {
  for (Port& port : Ports(input)) {
    if (port.index == index) port.foreign = isForeign;
  }
  if (!input) unwanted &= ~(1U << index);
  CountLinks();
  if (input && (IsDoneWith(index) || IsUnwanted())) owner.Ask(index, Request::DONE);
}

inline void Flow::OpenQueues(const std::vector<Port>& newInputs) {
  for (const Port& in : newInputs) {
    if (!in.lined || queues[in.index]) continue;
    auto queued = std::make_unique<Queued>();
    // A second of room, or a few frames where they are longer: what paths of different delay usually are apart.
    queued->queue.Open(*in.fb, std::max<long>(in.fb->rate, 8 * in.fb->samplesPerFrame));
    queues[in.index] = std::move(queued);
  }
}

/** What follows from the ports. */
inline void Flow::CountLinks() {
  linkedOutputs = foreignOutputs = 0;
  long foreign = 0;
  isJoin = false;
  std::uint32_t linkedInputs = 0;
  for (const Port& in : inputs) {
    frames[in.index] = in.fb;
    linkedInputs |= 1U << in.index;
    foreign += in.foreign ? 1 : 0;
    // What waited for another input that is gone by now still has to leave.
    const bool isBehind = queues[in.index] && queues[in.index]->queue.Samples() != 0;
    isJoin = isJoin || (in.lined && (inputs.size() > 1 || isBehind));
  }
  for (const Port& out : outputs) {
    linkedOutputs |= 1U << out.index;
    if (!out.foreign) continue;
    foreignOutputs |= 1U << out.index;
    ++foreign;
  }
  endedInputs &= linkedInputs;
  unwanted &= linkedOutputs;
  for (std::size_t i = 0; i < queues.size(); ++i) {
    if ((linkedInputs >> i & 1U) == 0) queues[i].reset();
  }
  board->foreignLinks += foreign - foreignLinks;
  foreignLinks = foreign;
  board->pacers -= pacers;
  pacers = setsPace && !(inputs.empty() && outputs.empty()) ? 1 : 0;
  board->pacers += pacers;
  const bool isOneToOne = inputs.size() == 1 && outputs.size() == 1 && !isJoin;
  everydayIn = isOneToOne ? inputs.front().fb : nullptr;
  everydayOut = isOneToOne ? outputs.front().fb : nullptr;
  ++board->links;
  Tally();
}

inline void Flow::Start() {
  started = true;
  ended = isCut = quit = false;
  unwanted = 0;
  movesSeen = 0;
  idleCycles = 0;
  ++board->links;
  Forget();
}

inline void Flow::Stop() {
  started = false;
  Tally();
}

inline void Flow::Forget() {
  for (const Port& in : inputs) SetMark(*in.fb, Mark::NONE);
  ClearOutputs();
  for (const auto& queued : queues) {
    if (queued) queued->queue.Clear();
  }
  endedInputs = quit ? ~0U : 0U;
  heard = 0;
  waits = 0;
  drained = isOver = false;
  Tally();
}

inline Flow::Role Flow::RoleNow() const {
  if (!started || !inputs.empty()) return Role::NONE;
  if (follows) return ended ? Role::ENDED_FOLLOWER : Role::RUNNING_FOLLOWER;
  return ended ? Role::ENDED_DRIVER : Role::RUNNING_DRIVER;
}

inline void Flow::CountRole(Role counted, long by) {
  if (counted == Role::RUNNING_DRIVER || counted == Role::ENDED_DRIVER) board->drivers += by;
  if (counted == Role::RUNNING_DRIVER) board->runningDrivers += by;
  if (counted == Role::RUNNING_FOLLOWER || counted == Role::ENDED_FOLLOWER) board->followers += by;
  if (counted == Role::RUNNING_FOLLOWER) board->runningFollowers += by;
}

/** Brings the board up to date. */
inline void Flow::Tally() {
  const Role now = RoleNow();
  if (now != role) {
    CountRole(role, -1);
    CountRole(now, 1);
    role = now;
  }
  TallyHolder();
}

inline void Flow::TallyHolder() {
  const bool holds = started && IsHolding();
  if (holds != isHolder) board->holders += holds ? 1 : -1;
  isHolder = holds;
}

/** Which inputs drive: of those that the block names, the ones behind which a source drives the route; all, where none does. */
inline void Flow::Renew() {
  renewed = board->links;
  bool any = false;
  for (Port& in : inputs) {
    in.drives = owner.Drives(in.index) && SourcesLead(in.index);
    any = any || in.drives;
  }
  if (any) return;
  for (Port& in : inputs) in.drives = owner.Drives(in.index);
}

// One cycle

inline long Flow::Run() {
  if (renewed != board->links) Renew();
  const bool isEveryday = everydayIn != nullptr && everydayIn->samples != 0 && !quit && board->foreignLinks == 0;
  const long result = isEveryday ? RunEveryday() : inputs.empty() ? RunSource() : RunInputs();
  if (result == FRAME_PENDING) return result;
  isEveryday ? TallyHolder() : Tally();
  return result;
}

/** What RunInputs comes to where samples came into the one input and leave through the one output: for speed alone. */
inline long Flow::RunEveryday() {
  FrameBuffer& in = *everydayIn;
  FrameBuffer& out = *everydayOut;
  const std::uint32_t asked = std::exchange(heard, 0U);
  waits = 0;
  endedInputs = 0;
  drained = isOver = false;
  out.samples = 0;
  if (keepsFrameSize && out.samplesPerFrame < in.samples) owner.Grow(outputs.front().index, in.samples);
  out.timestamp = in.timestamp;
  const long result = owner.Process();
  if (result >= 0 && out.samples != 0 && !owner.HoldsFrame()) {
    ++board->moves;
    in.samples = 0;
    return FRAME_DONE;
  }
  return TakeInputs(Conclude(result), asked);
}

inline long Flow::RunSource() {
  // A block without the kit left its frame, and is called for it once more.
  if (board->foreignLinks != 0 && IsOutputFull()) return FRAME_DONE;
  ClearOutputs();
  const std::uint32_t asked = std::exchange(heard, 0U);
  if (!ended && MustEnd()) {
    isCut = !IsUnwanted();
    ended = true;
  }
  if (ended) return AtEnd(asked);
  const bool isSpared = (asked & (Bit(Request::SPARE) | Bit(Request::NEED))) == Bit(Request::SPARE);
  if (isSpared || (asked & Bit(Request::HOLD)) != 0) return Send(Mark::NOTHING);
  const long result = owner.Process();
  if (result == FRAME_PENDING) heard |= asked;
  if (result != FRAME_END_OF_FILE) return Finish(result);
  ClearOutputs();
  isCut = owner.IsInterrupted();
  ended = true;
  return AtEnd(0);
}

inline long Flow::RunInputs() {
  if (!AllArrived()) {
    const bool isCertain = board->foreignLinks == 0;
    if (isCertain || MayMoreArrive()) {
      if (++waits <= MOST_WAITS) return FRAME_PENDING;
      if (isCertain)
        return owner.FailFlow("waits for an input to which nothing is sent; do links lead round in a circle?");
    }
    EndMissing();
  }
  waits = 0;
  if (board->foreignLinks != 0) {
    if (IsOutputFull()) return FRAME_DONE;  // as in RunSource; the inputs stay
    if (std::none_of(inputs.begin(), inputs.end(), [](const Port& in) { return HasArrived(*in.fb); })) {
      return FRAME_DONE_WITHOUT_OUTPUT;
    }
  }
  ClearOutputs();
  const std::uint32_t asked = std::exchange(heard, 0U);
  return TakeInputs(quit ? AtEnd(0) : isJoin ? RunJoin(asked) : RunDirect(asked), asked);
}

/** Nothing is consumed by a call that comes again, neither samples nor requests. */
inline long Flow::TakeInputs(long result, std::uint32_t asked) {
  if (result != FRAME_PENDING) {
    ConsumeInputs();
  } else {
    heard |= asked;
  }
  return result;
}

inline bool Flow::AllArrived() const {
  for (const Port& in : inputs) {
    if (!HasArrived(*in.fb)) return false;
  }
  return true;
}

inline bool Flow::MayMoreArrive() const {
  for (const Port& in : inputs) {
    if (!HasArrived(*in.fb) && owner.MayArrive(in.index)) return true;
  }
  return false;
}

/** No mark passes a block without the kit: the streams behind one have ended when the sources have, and nothing moves. */
inline void Flow::EndMissing() {
  const bool isIdle = board->HasEnded() && board->moves == std::exchange(movesSeen, board->moves);
  for (const Port& in : inputs) {
    if (isIdle && !HasArrived(*in.fb)) endedInputs |= 1U << in.index;
  }
}

inline void Flow::TakeMark(const Port& in) {
  if (in.fb->samples != 0) {
    endedInputs &= ~(1U << in.index);
  } else if (MarkOf(*in.fb) == Mark::ENDED) {
    endedInputs |= 1U << in.index;
  }
}

/** One input, or several of which the block itself takes care. */
inline long Flow::RunDirect(std::uint32_t asked) {
  bool data = false;
  for (const Port& in : inputs) {
    TakeMark(in);
    data = data || in.fb->samples != 0;
  }
  if (data) return Work();
  return IsLive() ? Pause(asked) : AtEnd(asked);
}

inline long Flow::RunJoin(std::uint32_t asked) {
  const bool mustHold = (asked & Bit(Request::HOLD)) != 0;
  if (!mustHold && AllFit()) return Work();
  if (!QueueInputs()) {
    return owner.FailFlow(
        "more samples wait for the other inputs than memory may take; takes inputs that bring as many "
        "samples in the long run");
  }
  const long samples = ReadySamples();
  const bool mustPause = samples > 0 ? mustHold : IsLive() || QueuesHold();
  const long result = mustPause ? Pause(asked) : samples > 0 ? RunQueued(samples) : AtEnd(asked);
  Balance();
  return result;
}

/** The everyday case: every input brought as much, and nothing waits. */
inline bool Flow::AllFit() const {
  const long samples = inputs.front().fb->samples;
  for (const Port& in : inputs) {
    if (in.fb->samples == 0 || in.fb->samples != samples || queues[in.index]->queue.Samples() != 0) return false;
  }
  return true;
}

inline bool Flow::QueueInputs() {
  for (const Port& in : inputs) {
    TakeMark(in);
    if (in.fb->samples != 0 && !queues[in.index]->queue.Append(*in.fb)) return false;
  }
  return true;
}

/**
 * How many samples can be worked on now: what all inputs have; at the end, what is left in those that drive, and has
 * come into those that do not.
 */
inline long Flow::ReadySamples() const {
  const bool live = IsLive();
  long ready = live ? std::numeric_limits<long>::max() : 0;
  long most = ready;
  for (const Port& in : inputs) {
    const long samples = queues[in.index]->queue.Samples();
    most = in.index == inputs.front().index ? in.fb->samplesPerFrame : std::min(most, in.fb->samplesPerFrame);
    if (live && !HasEnded(in.index)) ready = std::min(ready, samples);
    if (!live && in.drives) ready = std::max(ready, samples);
  }
  for (const Port& in : inputs) {
    if (!live && !HasEnded(in.index)) ready = std::min(ready, queues[in.index]->queue.Samples());
  }
  return std::min(ready, most);
}

inline long Flow::RunQueued(long samples) {
  for (const Port& in : inputs) {
    Queued& queued = *queues[in.index];
    queued.queue.PadTo(samples);
    queued.front = queued.queue.Front(samples);
    frames[in.index] = &queued.front;
  }
  const long result = Work();
  for (const Port& in : inputs) {
    frames[in.index] = in.fb;
    if (result != FRAME_PENDING) queues[in.index]->queue.Drop(samples);
  }
  return result != FRAME_PENDING ? result : Send(Mark::NOTHING);  // the samples wait in the queues for the next cycle
}

// What a call comes to

inline long Flow::Work() {
  const FrameBuffer& lead = *frames[inputs.front().index];
  for (const Port& out : outputs) {
    // Follows a link before this block whose frames have grown since the start.
    if (keepsFrameSize && out.fb->samplesPerFrame < lead.samples) owner.Grow(out.index, lead.samples);
    out.fb->timestamp = lead.timestamp;
  }
  drained = isOver = false;
  return Conclude(owner.Process());
}

inline long Flow::Conclude(long result) { return result == FRAME_END_OF_FILE ? Quit() : Finish(result); }

/** Nothing came, and more will. */
inline long Flow::Pause(std::uint32_t asked) {
  if (!owner.HoldsFrame()) return Send(Mark::NOTHING);
  if ((asked & Bit(Request::HOLD)) == 0) return Finish(owner.Drain(false));
  HoldBack();
  return Send(Mark::NOTHING);
}

/** Nothing will come any more: gives out what is held, then says so. */
inline long Flow::AtEnd(std::uint32_t asked) {
  if (!drained && !quit && owner.HoldsSamples()) {
    if ((asked & Bit(Request::HOLD)) != 0) return Send(Mark::NOTHING);
    const long result = owner.Drain(true);
    if (result < 0 && result != FRAME_DONE_WITHOUT_OUTPUT) return result;
    ++board->moves;
    if (IsOutputFull()) return Send(Mark::NOTHING);
  }
  drained = true;
  return SendEnd();
}

/** The block takes nothing any more, though more may come. */
inline long Flow::Quit() {
  quit = true;
  endedInputs = ~0U;
  ClearOutputs();
  return AtEnd(0);
}

inline long Flow::Finish(long result) {
  if (result < 0 && result != FRAME_DONE_WITHOUT_OUTPUT) {
    if (result == FRAME_PENDING) ClearOutputs();
    return result;
  }
  ++board->moves;
  if (!inputs.empty() && owner.HoldsFrame()) HoldBack();
  return Send(Mark::NOTHING);
}

/** One thing on each output: the samples that are there, else the mark. */
inline long Flow::Send(Mark mark) {
  if (foreignOutputs != 0 && !IsOutputFull()) return FRAME_DONE_WITHOUT_OUTPUT;
  for (const Port& out : outputs) {
    if (out.fb->samples == 0 && !out.foreign) SetMark(*out.fb, mark);
  }
  return FRAME_DONE;
}

inline long Flow::SendEnd() {
  if (!isOver) {
    isOver = true;
    ++board->moves;
    for (const Port& in : inputs) {
      if (IsDoneWith(in.index)) owner.Ask(in.index, Request::DONE);
    }
    owner.OnOver();
  }
  if (inputs.empty() && IsRouteOver()) return FRAME_END_OF_FILE;
  return Send(Mark::ENDED);
}

/** A whole cycle after the last source ended, so that every block has heard of it. */
inline bool Flow::IsRouteOver() {
  Tally();
  idleCycles = board->moves == std::exchange(movesSeen, board->moves) ? idleCycles + 1 : 0;
  if (idleCycles == 0 || !board->HasEnded()) return false;
  if (board->holders == 0) return true;
  if (idleCycles < IDLE_CYCLES_BEFORE_LOSS) return false;
  owner.Warn(
      "samples are lost that blocks behind one without the kit still hold; put any block of the kit between the "
      "two paths that part before it");
  return true;
}

// Requests

inline int Flow::Hear(std::size_t output, Request request) {
  if (request == Request::LEADS) return Leads();
  if (request == Request::DONE) {
    const bool isNews = !IsUnwanted();
    unwanted |= 1U << output;
    return isNews && IsUnwanted() ? AskAll(request) : 1;
  }
  if (ended || isOver) return 1;
  if (foreignOutputs != 0) return 0;
  const bool isNew = (heard & Bit(request)) == 0;
  heard |= Bit(request);
  if (!isNew) return request == Request::HOLD ? holdsAll : 1;
  if (request == Request::HOLD) holdsAll = true;
  const int answer = inputs.empty() ? 1 : AskAll(request);
  if (request == Request::HOLD) holdsAll = answer == 1;
  return answer;
}

/** Asked anew when a link was made or deleted; a circle of links leads to nobody. */
inline int Flow::Leads() {
  if (inputs.empty()) return follows ? 0 : 1;
  if (std::exchange(leadsAsked, board->links) != board->links) {
    leads = 0;
    leads = AskAll(Request::LEADS);
  }
  return leads;
}

/** @return 1 where all inputs answer so; of LEADS, where one does. */
inline int Flow::AskAll(Request request) {
  bool all = true;
  bool any = false;
  for (const Port& in : inputs) {
    if (HasEnded(in.index) && request != Request::LEADS) continue;
    if (request == Request::NEED && isJoin && IsAhead(in)) continue;  // another input is what is missing
    const int answer = owner.Ask(in.index, request);
    all = all && answer > 0;
    any = any || answer != 0;
  }
  return (request == Request::LEADS ? any : all) ? 1 : 0;
}

inline void Flow::HoldBack() {
  if (AskAll(Request::HOLD) == 0) {
    owner.Warn("more frames leave than come, and a block without the kit keeps the source from waiting for them");
  }
}

/** Whether an input of a join has enough for the next cycle. */
inline bool Flow::IsAhead(const Port& in) const {
  long frame = in.fb->samplesPerFrame;
  for (const Port& other : inputs) frame = std::min(frame, other.fb->samplesPerFrame);
  return queues[in.index]->queue.Samples() >= frame;
}

/** Inputs that are ahead of the others let theirs come up. */
inline void Flow::Balance() {
  if (!IsLive()) return;
  bool ahead = false;
  bool behind = false;
  for (const Port& in : inputs) {
    if (!HasEnded(in.index)) (IsAhead(in) ? ahead : behind) = true;
  }
  if (!ahead) return;
  if (!behind) return HoldBack();
  for (const Port& in : inputs) {
    if (HasEnded(in.index)) continue;
    owner.Ask(in.index, IsAhead(in) ? Request::SPARE : Request::NEED);
  }
}

// Frames

inline void Flow::ClearOutputs() {
  for (const Port& out : outputs) SetMark(*out.fb, Mark::NONE);
}

inline void Flow::ConsumeInputs() {
  for (const Port& in : inputs) {
    if (MarkOf(*in.fb) != Mark::NONE) SetMark(*in.fb, Mark::NONE);
    in.fb->samples = 0;
  }
}

inline bool Flow::IsOutputFull() const {
  for (const Port& out : outputs) {
    if (out.fb->samples != 0) return true;
  }
  return false;
}

/** True while an input that the output follows has not ended. */
inline bool Flow::IsLive() const {
  for (const Port& in : inputs) {
    if (in.drives && !HasEnded(in.index)) return true;
  }
  return false;
}

inline bool Flow::IsHolding() const {
  if (quit) return false;
  return (!drained && owner.HoldsSamples()) || (isJoin && QueuesHold());
}

inline bool Flow::QueuesHold() const {
  for (const Port& in : inputs) {
    if (in.drives && queues[in.index] && queues[in.index]->queue.Samples() != 0) return true;
  }
  return false;
}

}  // namespace vorn

#endif
