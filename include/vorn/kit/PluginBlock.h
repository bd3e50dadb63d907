/** Part of <vorn/Plugin.h>: how a kit block is made, linked, started, set and read. Its frames are in BlockFrames.h. */
#ifndef VORN_KIT_PLUGIN_BLOCK_H
#define VORN_KIT_PLUGIN_BLOCK_H

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include <vorn/Plugin.h>

namespace vorn {

inline PluginBlock::PluginBlock(Setup setup)
    : Block(setup.first, setup.last), description(std::move(setup.description)), parameters(description) {
  for (std::size_t i = 0; i < Endpoint::COUNT; ++i) frames[i] = InEp(i).FB();
  const Refusal refusal = parameters.Parse(setup.arguments);
  if (!refusal.empty()) throw std::invalid_argument(refusal);
}

inline PluginBlock::~PluginBlock() {
  AttachProducer(this, nullptr);
  AttachConsumer(this, nullptr);
}

inline void PluginBlock::Extend(const std::vector<Parameter>& more) {
  const Refusal refusal = parameters.Extend(more);
  if (!refusal.empty()) throw std::invalid_argument(refusal);
}

inline long PluginBlock::Drain(bool) { return FRAME_DONE; }
inline void PluginBlock::OnSet(unsigned) {}
inline void PluginBlock::OnGet(unsigned) {}
inline int PluginBlock::OutputStreams(std::vector<Stream>&) { return -20; }
inline Refusal PluginBlock::CheckStream(bool, std::size_t, const FrameBuffer&) const { return {}; }
inline bool PluginBlock::Drives(std::size_t) const { return true; }

inline int PluginBlock::Refuse(const Refusal& refusal) const {
  VORN_LOG_E("%s", refusal.c_str());
  return -20;
}

// Links

inline Refusal PluginBlock::CheckLink(bool input, std::size_t index) {
  const Description::Ports& ports = input ? description.inputs : description.outputs;
  Refusal refusal = CheckEndpoint(ports, input, index, Stream());
  if (!refusal.empty()) return refusal;
  const FrameBuffer& fb = input ? *InEp(index).FB() : Out(index);
  const std::string came = Misfit::Label(input, index) + ": got " + StreamText(StreamOf(fb)) + ", takes ";
  if (fb.rate == 0 || fb.channels == 0 || fb.samplesPerFrame <= 0)
    return came + "at least 1 Hz, 1 channel and 1 sample";
  refusal = CheckEndpoint(ports, input, index, StreamOf(fb));
  if (!refusal.empty()) return refusal;
  refusal = CheckStream(input, index, fb);
  return refusal.empty() ? Refusal() : came + refusal;
}

inline Refusal PluginBlock::CheckAllStreams() {
  std::vector<Stream> in;
  std::vector<Stream> out;
  for (const auto& [index, ep] : ActiveInEps()) {
    if (Refusal refusal = CheckLink(true, index); !refusal.empty()) return refusal;
    in.resize(index + 1);
    in[index] = StreamOf(*ep->FB());
  }
  for (const auto& [index, ep] : ActiveOutEps()) {
    if (Refusal refusal = CheckLink(false, index); !refusal.empty()) return refusal;
    out.resize(index + 1);
    out[index] = StreamOf(*ep->FB());
  }
  return CheckStreams(description, in, out);
}

/** What Prepare allocated for an endpoint fits the stream that it had. */
inline Refusal PluginBlock::CheckRelinked(bool input, std::size_t index) {
  const Stream now = StreamOf(input ? *InEp(index).FB() : Out(index));
  const Stream& before = (input ? preparedIn : preparedOut)[index];
  const Refusal refusal = CheckSame(SAME_RATE | SAME_FORMAT | SAME_CHANNELS, input, index, now, before, "at the start");
  return refusal.empty() ? CheckAllStreams() : refusal;
}

inline void PluginBlock::RememberStreams() {
  preparedIn.fill(Stream());
  preparedOut.fill(Stream());
  for (const auto& [index, ep] : ActiveInEps()) preparedIn[index] = StreamOf(*ep->FB());
  for (const auto& [index, ep] : ActiveOutEps()) preparedOut[index] = StreamOf(*ep->FB());
}

inline int PluginBlock::OnInEpLinked(unsigned long index) {
  const Refusal refusal = running ? CheckRelinked(true, index) : CheckLink(true, index);
  if (!refusal.empty()) return Refuse(refusal);
  endedInputs &= ~(1U << index);
  PrepareQueue(index);
  return 0;
}

inline int PluginBlock::OnOutEpLinked(unsigned long index) {
  const Refusal refusal = running ? CheckRelinked(false, index) : CheckLink(false, index);
  return refusal.empty() ? 0 : Refuse(refusal);
}

inline void PluginBlock::OnInEpUnlinked(unsigned long index) {
  queues[index].reset();
  frames[index] = InEp(index).FB();
}

// A second of room, or a few frames where they are longer: what paths of different delay may be apart.
inline void PluginBlock::PrepareQueue(std::size_t input) {
  if (description.inputs.most < 2 || !LinesUpInputs()) return;
  const FrameBuffer& stream = *InEp(input).FB();
  queues[input] = std::make_unique<Queued>();
  queues[input]->queue.Open(stream, std::max<long>(stream.rate, 8 * stream.samplesPerFrame));
}

// Start and stop

/** Without the links it needs, there is nothing to prepare: the route's own check says so, and starts the block again later. */
inline bool PluginBlock::IsUnlinked() const {
  return (description.inputs.least > 0 && ActiveInEps().empty()) ||
         (description.outputs.least > 0 && ActiveOutEps().empty());
}

inline int PluginBlock::Start() {
  try {
    ClearStreamState();
    if (IsUnlinked()) return 0;
    const Refusal refusal = CheckAllStreams();
    if (!refusal.empty()) return Refuse(refusal);
    RememberStreams();
    const int ret = Prepare();
    running = ret == 0;
    return ret;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

inline int PluginBlock::Stop() {
  if (!running) return 0;
  try {
    const int ret = Release();
    running = ret != 0;
    return ret;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

inline void PluginBlock::Reset() {
  if (counters != nullptr) BlockCounters::Add(counters->resets, 1);
  ClearStreamState();
  try {
    Forget();
  } catch (const std::exception& e) {
    VORN_LOG_E("%s", e.what());
  }
}

inline void PluginBlock::ClearStreamState() {
  for (const auto& [index, ep] : ActiveInEps()) SetMark(*ep->FB(), Mark::NONE);
  for (const auto& [index, ep] : ActiveOutEps()) SetMark(*ep->FB(), Mark::NONE);
  for (const auto& queued : queues) {
    if (queued) queued->queue.Clear();
  }
  endedInputs = pausedOutputs = 0;
  drained = isPending = false;
  waits = 0;
  if (!running) ended = warned = false;
}

// Parameters

inline int PluginBlock::SetParameter(unsigned int paramId, const std::vector<std::string>& params) {
  std::string text;
  for (const std::string& word : params) text += (&word == params.data() ? "" : " ") + word;
  try {
    const Parameter* parameter = parameters.Find(paramId);
    if (parameter == nullptr) return Refuse("parameter " + std::to_string(paramId) + ": unknown, or can only be read");
    if (running && !parameter->IsLive() && !parameter->IsReading()) {
      return Refuse("parameter '" + parameter->name + "': cannot be set while the route runs");
    }
    const Parameters::Value before = parameters.ValueOf(paramId);
    const Refusal refusal = parameters.Set(paramId, text);
    if (!refusal.empty()) return Refuse(refusal);
    try {
      OnSet(paramId);
    } catch (...) {
      parameters.Restore(paramId, before);
      throw;
    }
    return 0;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

inline int PluginBlock::GetParameter(unsigned int paramId, std::vector<std::string>& params) {
  try {
    params.clear();
    if (paramId == PARAMETER_STREAMS) {
      std::vector<Stream> streams;
      const int ret = OutputStreams(streams);
      for (const Stream& stream : streams) params.push_back(StreamText(stream));
      return ret;
    }
    const std::vector<Parameter>& table = parameters.Table();
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (paramId != PARAMETER_TABLE && paramId != table[i].id) continue;
      OnGet(table[i].id);
      params.push_back(paramId == PARAMETER_TABLE ? parameters.Line(i) : parameters.TextOf(i));
    }
    if (params.empty() && paramId != PARAMETER_TABLE) {
      return Refuse("parameter " + std::to_string(paramId) + ": unknown");
    }
    return 0;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

// Commands

inline int PluginBlock::ioctl(unsigned int cmd, void* arg) {
  Block* const self = this;
  auto* query = static_cast<KitQuery*>(arg);
  switch (cmd) {
    case KIT_GET_VERSION: return static_cast<int>(KIT_VERSION);
    case KIT_STREAM_ENDED: return AnswerStreamEnded(query->index, query->hops);
    case KIT_FRAME_COMING: return AnswerFrameComing(query->index, query->hops);
    case KIT_HOLD_BACK: return AnswerHoldBack(query->index, query->hops);
    case KIT_ATTACH_PRODUCER:
      if ((description.flags & BLOCK_READS_FIFO) == 0) return -20;
      // The console reads these two fields from its own thread.
      if (producer != nullptr) __atomic_store_n(&producer->reader, nullptr, __ATOMIC_RELAXED);
      producer = static_cast<DataProducer*>(arg);
      if (producer != nullptr) __atomic_store_n(&producer->reader, self, __ATOMIC_RELAXED);
      return 0;
    case KIT_ATTACH_CONSUMER:
      if ((description.flags & BLOCK_WRITES_FIFO) == 0) return -20;
      if (consumer != nullptr) __atomic_store_n(&consumer->writer, nullptr, __ATOMIC_RELAXED);
      consumer = static_cast<DataConsumer*>(arg);
      if (consumer != nullptr) __atomic_store_n(&consumer->writer, self, __ATOMIC_RELAXED);
      return 0;
    case KIT_ATTACH_COUNTERS: return counters = static_cast<BlockCounters*>(arg), 0;
    default: return -20;
  }
}

}  // namespace vorn

#endif
