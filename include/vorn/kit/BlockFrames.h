/**
 * Part of <vorn/Plugin.h>: what a kit block does when its route calls it for a frame.
 *
 * A route calls a block in the wave after any of its predecessors was done, commits it whenever it answers that it is
 * done, and a commit carries both ends of its links as the block sees them: answering "done" in the wave in which a
 * predecessor fills an input would empty that input again. So a block with several inputs answers FRAME_PENDING, which
 * commits nothing, while a frame is still on its way to one of them, and finds out by asking the blocks before it: a
 * predecessor that buffers may send nothing in this cycle, and pending for it would never end. What has arrived is
 * always taken, into a queue if need be, so that no frame stays on a link from one cycle to the next.
 */
#ifndef VORN_KIT_BLOCK_FRAMES_H
#define VORN_KIT_BLOCK_FRAMES_H

#include <algorithm>
#include <exception>
#include <limits>

#include <vorn/Plugin.h>

namespace vorn {

inline long PluginBlock::ProcessFrame() {
  long result = FRAME_FAILED;
  const bool counts = counters != nullptr;
  const long arrived = counts && !ActiveInEps().empty() ? ActiveInEps().begin()->second->FB()->samples : 0;
  try {
    result = ActiveInEps().empty() ? RunSource() : RunInputs();
  } catch (const std::exception& e) {
    VORN_LOG_E("%s", e.what());
  }
  isPending = result == FRAME_PENDING;
  if (counts && (result >= 0 || result == FRAME_DONE_WITHOUT_OUTPUT)) Count(arrived);
  return result;
}

inline void PluginBlock::Count(long arrived) {
  const long samples = ActiveOutEps().empty() ? arrived : ActiveOutEps().begin()->second->FB()->samples;
  if (samples <= 0) return;
  BlockCounters::Add(counters->frames, 1);
  BlockCounters::Add(counters->samples, static_cast<std::uint64_t>(samples));
}

inline long PluginBlock::RunSource() {
  if (IsOutputFull()) return FRAME_DONE;  // a block without the kit left its frame, and is called for it once more
  ClearOutputs();
  if (!ended && pausedOutputs != 0) return AtPause();
  if (!ended) {
    const long result = Process();
    if (result != FRAME_END_OF_FILE) return Finish(result);
    ended = true;
    ClearOutputs();
  }
  const long result = AtEnd();
  return result == FRAME_DONE_WITHOUT_OUTPUT ? FRAME_END_OF_FILE : result;
}

inline long PluginBlock::RunInputs() {
  bool arrived = false;
  bool missing = false;
  for (const auto& [index, ep] : ActiveInEps()) (HasArrived(*ep->FB()) ? arrived : missing) = true;
  if (IsOutputFull() || missing) {
    if (MustWait()) return FRAME_PENDING;
    waits = 0;
    if (IsOutputFull()) return FRAME_DONE;
  }
  waits = 0;
  if (!arrived) return FRAME_DONE_WITHOUT_OUTPUT;
  ClearOutputs();
  const long result = queues[ActiveInEps().begin()->first] && ActiveInEps().size() > 1 ? RunLinedUp() : RunDirect();
  if (result != FRAME_PENDING) ConsumeInputs();
  return result;
}

/** True while something in this cycle will change what is missing: a reader that takes an output, a frame on its way to an input. */
inline bool PluginBlock::MustWait() {
  if (++waits > MAX_PENDING) {
    WarnOnce("gave up waiting for a block beside this one");
    return false;
  }
  for (const auto& [index, ep] : ActiveOutEps()) {
    if (ep->FB()->samples == 0) continue;
    // A kit block takes the frame in this cycle. Another may: it gets one wave for it.
    if (waits == 1 || ep->Peer()->Owner()->ioctl(KIT_GET_VERSION, nullptr) >= 0) return true;
  }
  int hops = MAX_HOPS;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (!HasArrived(*ep->FB()) && IsFrameComing(*ep, hops)) return true;
  }
  return false;
}

inline bool PluginBlock::IsOutputFull() const {
  for (const auto& [index, ep] : ActiveOutEps()) {
    if (ep->FB()->samples != 0) return true;
  }
  return false;
}

/** One input, or several of which the block itself takes care. */
inline long PluginBlock::RunDirect() {
  bool data = false;
  for (const auto& [index, ep] : ActiveInEps()) {
    const std::uint32_t bit = 1U << index;
    if (ep->FB()->samples != 0) {
      endedInputs &= ~bit;
      data = true;
    } else if (MarkOf(*ep->FB()) == Mark::ENDED) {
      endedInputs |= bit;
    }
  }
  if (data) return Run();
  return IsLive() ? AtPause() : AtEnd();
}

inline long PluginBlock::RunLinedUp() {
  if (AllInputsFit()) return Run();
  if (QueueInputs() < 0) return FRAME_FAILED;
  const long samples = ReadySamples();
  if (samples > 0) return RunQueued(samples);
  return IsLive() ? AtPause() : AtEnd();
}

/** The everyday case: every input brought as much, and nothing waits. */
inline bool PluginBlock::AllInputsFit() const {
  const long samples = ActiveInEps().begin()->second->FB()->samples;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (ep->FB()->samples == 0 || ep->FB()->samples != samples || queues[index]->queue.Samples() != 0) return false;
  }
  return true;
}

inline long PluginBlock::QueueInputs() {
  for (const auto& [index, ep] : ActiveInEps()) {
    const std::uint32_t bit = 1U << index;
    const FrameBuffer& fb = *ep->FB();
    if (MarkOf(fb) == Mark::ENDED) endedInputs |= bit;
    if (fb.samples == 0) continue;
    endedInputs &= ~bit;
    if (queues[index]->queue.Append(fb)) continue;
    return Refuse(Misfit::Label(true, index) +
                  ": runs ahead of the other inputs by more than a second; takes inputs that "
                  "bring as many samples in the long run");
  }
  return 0;
}

/** How many samples can be processed now: what all inputs have, or at the end what is left in those that drive the output. */
inline long PluginBlock::ReadySamples() const {
  const bool live = IsLive();
  long ready = live ? std::numeric_limits<long>::max() : 0;
  long most = std::numeric_limits<long>::max();
  for (const auto& [index, ep] : ActiveInEps()) {
    const long samples = queues[index]->queue.Samples();
    most = std::min(most, ep->FB()->samplesPerFrame);
    if (live && !HasEnded(index)) ready = std::min(ready, samples);
    if (!live && Drives(index)) ready = std::max(ready, samples);
  }
  return std::min(ready, most);
}

inline long PluginBlock::RunQueued(long samples) {
  for (const auto& [index, ep] : ActiveInEps()) {
    Queued& queued = *queues[index];
    queued.queue.PadTo(samples);
    queued.front = queued.queue.Front(samples);
    frames[index] = &queued.front;
  }
  const long result = Run();
  for (const auto& [index, ep] : ActiveInEps()) {
    frames[index] = ep->FB();
    if (result != FRAME_PENDING) queues[index]->queue.Drop(samples);
  }
  if (result == FRAME_PENDING) return FRAME_DONE_WITHOUT_OUTPUT;  // the samples wait in the queues for the next cycle
  if (IsLive() && ReadySamples() == samples) HoldBack();
  return result;
}

inline long PluginBlock::Run() {
  const FrameBuffer& lead = *frames[ActiveInEps().begin()->first];
  FitOutputs(lead.samples);
  for (const auto& [index, ep] : ActiveOutEps()) ep->FB()->timestamp = lead.timestamp;
  drained = false;
  pausedOutputs = 0;
  return Finish(Process());
}

inline void PluginBlock::ClearOutputs() {
  for (const auto& [index, ep] : ActiveOutEps()) SetMark(*ep->FB(), Mark::NONE);
}

/** Follows a link before this block whose frames have grown since the start. */
inline void PluginBlock::FitOutputs(long samples) {
  if ((description.same & SAME_FRAME) == 0) return;
  for (const auto& [index, ep] : ActiveOutEps()) {
    if (ep->FB()->samplesPerFrame < samples) ep->Resize(samples);
  }
}

inline void PluginBlock::ConsumeInputs() {
  for (const auto& [index, ep] : ActiveInEps()) {
    FrameBuffer& fb = *ep->FB();
    if (MarkOf(fb) != Mark::NONE) SetMark(fb, Mark::NONE);
    fb.samples = 0;
  }
}

inline long PluginBlock::Finish(long result) {
  if (result < 0) {
    if (result == FRAME_PENDING) ClearOutputs();
    return result;
  }
  if (HoldsFrame()) HoldBack();
  return ActiveOutEps().empty() || IsOutputFull() ? result : static_cast<long>(FRAME_DONE_WITHOUT_OUTPUT);
}

/** The stream is over: give out what is held, then let the blocks behind do so. */
inline long PluginBlock::AtEnd() {
  if (!drained && HoldsSamples()) {
    const long result = Drain(true);
    if (result < 0 || IsOutputFull()) return result;
    drained = true;
  }
  int hops = MAX_HOPS;
  const std::uint32_t holders = OutputsWithHolders(hops);
  for (const auto& [index, ep] : ActiveOutEps()) {
    if ((holders >> index & 1U) != 0) SetMark(*ep->FB(), Mark::ENDED);
  }
  return holders != 0 ? FRAME_DONE : FRAME_DONE_WITHOUT_OUTPUT;
}

/** Nothing new this time: whoever asked for it goes on with what it has, behind this block or here. */
inline long PluginBlock::AtPause() {
  const std::uint32_t paused = std::exchange(pausedOutputs, 0U);
  if (paused == 0) return HoldsFrame() ? Finish(Drain(false)) : static_cast<long>(FRAME_DONE_WITHOUT_OUTPUT);
  for (const auto& [index, ep] : ActiveOutEps()) {
    if ((paused >> index & 1U) != 0) SetMark(*ep->FB(), Mark::PAUSED);
  }
  if (HoldsFrame()) HoldBack();
  return FRAME_DONE;
}

// Questions between neighbours

/** True while an input that the output follows has not ended. */
inline bool PluginBlock::IsLive() const {
  for (const auto& [index, ep] : ActiveInEps()) {
    if (!HasEnded(index) && Drives(index)) return true;
  }
  return false;
}

inline bool PluginBlock::QueuesHold() const {
  for (const auto& [index, ep] : ActiveInEps()) {
    if (queues[index] && Drives(index) && queues[index]->queue.Samples() != 0) return true;
  }
  return false;
}

inline int PluginBlock::AnswerStreamEnded(std::size_t input, int& hops) {
  endedInputs |= 1U << input;
  if (IsLive() || QueuesHold() || (!drained && HoldsSamples())) return 1;
  return OutputsWithHolders(hops) != 0 ? 1 : 0;
}

/** The outputs behind which somebody needs more cycles; none, with a warning, where they cannot be reached. */
inline std::uint32_t PluginBlock::OutputsWithHolders(int& hops) {
  std::uint32_t holders = 0;
  bool foreign = false;
  for (const auto& [index, ep] : ActiveOutEps()) {
    const int answer = AskPeer(*ep, KIT_STREAM_ENDED, hops);
    if (answer > 0) holders |= 1U << index;
    if (answer < 0) foreign = true;
  }
  if (holders == 0 || !foreign) return holders;
  WarnOnce("samples held behind this block are lost: its other output leads to a block without the kit");
  return 0;
}

inline int PluginBlock::AnswerFrameComing(std::size_t output, int& hops) {
  if (HasArrived(Out(output))) return 1;
  if (ActiveInEps().empty()) return isPending ? 1 : 0;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (HasArrived(*ep->FB()) || IsFrameComing(*ep, hops)) return 1;
  }
  return 0;
}

inline int PluginBlock::AnswerHoldBack(std::size_t output, int& hops) {
  if (ended) return 1;
  if (IsBesideForeignBlock(hops)) return 0;
  bool all = true;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (!HasEnded(index) && AskPeer(*ep, KIT_HOLD_BACK, hops) <= 0) all = false;
  }
  if (all) pausedOutputs |= 1U << output;
  return all ? 1 : 0;
}

inline void PluginBlock::HoldBack() {
  int hops = MAX_HOPS;
  bool all = true;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (!HasEnded(index) && AskPeer(*ep, KIT_HOLD_BACK, hops) <= 0) all = false;
  }
  if (!all) WarnOnce("more frames leave than come, and a block without the kit keeps the source from waiting for them");
}

inline void PluginBlock::WarnOnce(const char* text) {
  if (!warned) VORN_LOG_W("%s", text);
  warned = true;
}

/** A pause would show a block without the kit an empty frame. */
inline bool PluginBlock::IsBesideForeignBlock(int& hops) const {
  for (const auto& [index, ep] : ActiveOutEps()) {
    if (AskPeer(*ep, KIT_GET_VERSION, hops) < 0) return true;
  }
  return false;
}

}  // namespace vorn

#endif
