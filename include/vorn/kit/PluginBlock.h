/** Part of <vorn/Plugin.h>: the base class of a block, and how one is made, linked, started, set and read. */
#ifndef VORN_KIT_PLUGIN_BLOCK_H
#define VORN_KIT_PLUGIN_BLOCK_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <vorn/Block.h>
#include <vorn/FIFO.h>
#include <vorn/kit/BlockView.h>
#include <vorn/kit/Conventions.h>
#include <vorn/kit/Cycle.h>
#include <vorn/kit/Description.h>
#include <vorn/kit/Interrupt.h>
#include <vorn/kit/Label.h>
#include <vorn/kit/Log.h>
#include <vorn/kit/Parameters.h>
#include <vorn/kit/Refusal.h>
#include <vorn/kit/StreamCheck.h>
#include <vorn/kit/Streams.h>

namespace vorn {

/** What a constructor gets. Built by the kit; a block passes it on to PluginBlock. */
struct Setup {
  bool first;
  bool last;
  const std::vector<std::string>& arguments;
  Description description;
  std::string label = {};  ///< What the host calls the block; empty: nothing.
};

/** The base class of a block that is made with the kit. */
class PluginBlock : public Block, protected FlowOwner {
 public:
  /** Parses the arguments. Throws std::invalid_argument with what is wrong with them. */
  explicit PluginBlock(Setup setup);
  ~PluginBlock() override;

  /** What no parameter was found for, once the block is made. */
  Refusal UnknownArguments() const { return parameters.KeptArguments(); }

 protected:
  /** @name What a block writes */
  /**@{*/

  /** Makes ready to run. The streams fit the description. @return 0, or Refuse(why). */
  virtual int Prepare() { return 0; }

  /**
   * One frame: read In(i), write the data of Out(i) and set its `samples`. That is 0 before the call, and the time
   * stamp of every output that of the first input. Inputs count as consumed afterwards.
   *
   * @return a FrameResult. FRAME_DONE without samples in any output becomes FRAME_DONE_WITHOUT_OUTPUT. With
   * FRAME_PENDING nothing is consumed and the call comes again, so do not answer it without end. A source ends with
   * FRAME_END_OF_FILE, and is not asked again.
   */
  long Process() override = 0;

  /** True while samples that came in have not left yet. */
  bool HoldsSamples() const override { return false; }
  /** True while a whole frame could leave that did not fit into the last one. */
  bool HoldsFrame() const override { return false; }
  /**
   * As Process, with nothing new in the inputs: fill the outputs from what is held.
   *
   * @param atEnd false: whole frames only, more is to come. True: the stream is over; give all, a frame at a time.
   * Giving nothing then says that nothing is left.
   */
  long Drain(bool atEnd) override;

  /** Undoes Prepare. @return 0, or negative when something was lost by it: the route then stops with an error. */
  virtual int Release() { return 0; }
  /** Drop what you hold, as after an error frame. */
  virtual void Forget() {}

  /** A parameter was set. Runs between two frames: be quick. */
  virtual void OnSet(unsigned id);
  /** A reading is about to be read: Store() what you measured. Nothing but this reading is stored here. */
  virtual void OnGet(unsigned id);

  /**
   * The streams that this block makes of its own, one an output; leave fields alone that it has nothing to say about.
   * @return 0, or -20 (as here) when its streams follow its inputs.
   */
  virtual int OutputStreams(std::vector<Stream>& streams);

  /**
   * A further check of one endpoint, when it is linked and at the start.
   *
   * @return empty, or what is taken, as a text that may have a Field and an Advice: the base class adds the endpoint
   * and what came. A refusal that names an endpoint already stays as it is.
   */
  virtual Refusal CheckStream(bool input, std::size_t index, const FrameBuffer& stream) const;

  /** Whether the output goes on while this input has not ended. At least one linked input must say so. */
  bool Drives(std::size_t input) const override;
  /** False: Process() sees the inputs as they come, with 0 samples where nothing did, and takes care of their ends itself. */
  virtual bool LinesUpInputs() const { return true; }
  /**
   * What makes one kind of this block another, for its name: lv2_amp_0. The label of the host goes before it.
   * @return null or empty for nothing; else letters, digits and '_', which stay as they are.
   */
  virtual const char* Kind() const { return nullptr; }
  /**@}*/

  /** @name What a block uses */
  /**@{*/

  /** The frame at an input. During Process, of what is processed now: use it rather than the endpoint's. */
  const FrameBuffer& In(std::size_t index = 0) const { return flow.In(index); }
  FrameBuffer& Out(std::size_t index = 0) { return *OutEp(index).FB(); }
  const FrameBuffer& Out(std::size_t index = 0) const { return *OutEp(index).FB(); }
  /** True once the stream into this input is over. */
  bool HasEnded(std::size_t input) const { return flow.HasEnded(input); }

  double Number(unsigned id) const { return parameters.Number(id); }
  long Integer(unsigned id) const { return parameters.Integer(id); }
  bool Flag(unsigned id) const { return parameters.Flag(id); }
  /** Place of a WORD among its words, from 0. */
  std::size_t Choice(unsigned id) const { return parameters.Choice(id); }
  const std::string& Text(unsigned id) const { return parameters.Text(id); }
  /** True once an argument or SetParameter gave the value. */
  bool IsGiven(unsigned id) const { return parameters.IsGiven(id); }
  /** Stores a measurement, of a reading alone. In any hook, Process() among them: no allocation. */
  void Store(unsigned id, double value) {
    if (isAsked && id != askedFor) return;  // to look at a block must not change it
    parameters.Store(id, value);
  }
  const Parameters& Table() const { return parameters; }

  /** Adds parameters that are known only in the constructor (OwnParameters() in the description). Throws as the constructor. */
  void Extend(const std::vector<Parameter>& more);

  /** The FIFO side that the block reads or writes; null where its host has not handed it one. */
  DataProducer* Producer() const { return producer; }
  DataConsumer* Consumer() const { return consumer; }
  /**
   * FIFO::Take and FIFO::Put on it. Where an interrupt cuts the wait short they return what was moved by then, which
   * may be 0. A side that is no FIFO of the library has no end but its shutdown, and no interrupt.
   */
  long Take(void* to, long count, bool blocking, long* stamp);
  long Put(const void* from, long count, bool blocking, long stamp);
  /** Samples that Take gives without waiting, as far as the side tells. */
  long Waiting() const { return fifoToRead != nullptr ? fifoToRead->State().count : 0; }

  /**
   * Whether a block that is linked in this route waits for a device or a FIFO, so that what takes long in Process()
   * costs somebody a deadline. In Prepare(): blocks that come later are not asked for.
   */
  bool IsPaced() const { return flow.IsPaced(); }

  /** Brings the block back from its waits: whatever waits here waits with it. */
  Interrupt& Interruption() const { return *interrupt.load(std::memory_order_relaxed); }
  bool IsInterrupted() const final { return Interruption().IsRaised(); }

  /** Logs and keeps why this block refuses something. On the route's thread. @return -20. */
  int Refuse(const Refusal& refusal);
  /**
   * The same for what is lost while the stream goes on or comes to an orderly end: the host hears of it when the route
   * has ended. A sink that was interrupted: `return Lose("nobody reads the pipe"), FRAME_END_OF_FILE;` in Process.
   */
  void Lose(const Refusal& refusal);
  /** The same where the block cannot go on: `return Fail("the device is gone");` in Process and Drain. @return FRAME_FAILED. */
  long Fail(const Refusal& refusal);
  /** In Release and later: the route stops for an error, so that what the block has made is not to pass for a whole. */
  bool HasRouteFailed() const { return Board() != nullptr && Board()->failed.load(std::memory_order_relaxed); }
  /**@}*/

 public:
  /** @name vorn::Block, for the route */
  /**@{*/
  int ioctl(unsigned int cmd, void* arg) override;
  /** What the host's label adds to the block's name, or else Kind(). */
  const char* Subname() const final { return subname.empty() ? Kind() : subname.c_str(); }
  int OnInEpLinked(unsigned long index) final;
  void OnInEpUnlinked(unsigned long index) final;
  int OnOutEpLinked(unsigned long index) final;
  void OnOutEpUnlinked(unsigned long index) final;
  int Start() final;
  long ProcessFrame() final;
  int Stop() final;
  int SetParameter(unsigned int paramId, const std::vector<std::string>& params) override;
  int GetParameter(unsigned int paramId, std::vector<std::string>& params) override;
  void Reset() final;
  /**@}*/

 private:
  // What Flow calls besides Process, Drain, HoldsSamples, HoldsFrame and Drives.
  int Ask(std::size_t input, Request request) final;
  bool MayArrive(std::size_t input) const final;
  void Grow(std::size_t output, long samples) final { OutEp(output).Resize(samples); }
  void OnOver() final;
  long FailFlow(const char* why) final { return Fail(why); }
  void Warn(const char* what) final;

  static constexpr int NOT_YET = 1;  // an answer of Start: neither started nor failed

  int Undo();
  int Accept();  // forgets the last refusal; 0
  int MeasureAll();
  void Measure(const Parameter& reading);
  std::vector<std::string> LastRefusal() const;
  Refusal CheckLink(bool input, std::size_t index);
  Refusal CheckAllStreams();
  Refusal CheckRelinked(bool input, std::size_t index);
  Refusal CheckVersion(const Endpoint& ep) const;
  void RememberStreams();
  bool IsUnlinked() const;
  static bool IsForeign(const Endpoint& ep);
  int MeetNeighbour(const KitNeighbour& neighbour);
  void LinkFlow();
  long RunFlow();
  long RunCounted();
  void Count(long arrived);
  void Attach(DataProducer* newProducer);
  void Attach(DataConsumer* newConsumer);
  void RaiseInterrupt();
  void ClearInterrupt();

  // What the everyday frame touches comes first.
  BlockCounters* counters = nullptr;
  Flow flow{*this};
  Description description;
  Parameters parameters;
  DataProducer* producer = nullptr;
  DataConsumer* consumer = nullptr;
  FIFO* fifoToRead = nullptr;  // the producer, where it is one
  FIFO* fifoToWrite = nullptr;
  Interrupt ownInterrupt;
  std::atomic<Interrupt*> interrupt{&ownInterrupt};  // or the host's
  BlockView view;
  Refusal lastRefusal;         // since the last link or start that was not refused
  std::int64_t refusedAt = 0;  // in nanoseconds of the monotonic clock
  bool isAsked = false;        // OnGet runs
  unsigned askedFor = 0;
  const std::string subname;
  bool running = false;
  bool isSpoilt = false;                           // Release failed
  bool warned = false;                             // of samples that are lost beside a block without the kit
  std::array<Stream, Endpoint::COUNT> preparedIn;  // the streams that Prepare saw
  std::array<Stream, Endpoint::COUNT> preparedOut;
};

inline PluginBlock::PluginBlock(Setup setup)
    : Block(setup.first, setup.last),
      description(std::move(setup.description)),
      parameters(description),
      subname(SubnameOf(setup.label, description.name)) {
  for (std::size_t i = 0; i < Endpoint::COUNT; ++i) flow.ShowUnlinked(i, InEp(i).FB());
  if ((description.same & SAME_FRAME) != 0) flow.KeepFrameSize();
  if ((description.flags & (BLOCK_SETS_PACE | BLOCK_READS_FIFO | BLOCK_WRITES_FIFO)) != 0) flow.SetPace();
  const Refusal refusal = parameters.Parse(setup.arguments);
  if (!refusal.empty()) throw std::invalid_argument(refusal.Text());
  view.parameters = &parameters;
  view.interrupt = &interrupt;
  view.setsPace = (description.flags & BLOCK_SETS_PACE) != 0;
  Show(&view);
}

inline PluginBlock::~PluginBlock() {
  AttachProducer(this, nullptr);
  AttachConsumer(this, nullptr);
  if (counters != nullptr) counters->deleted.store(true, std::memory_order_relaxed);
}

inline void PluginBlock::Extend(const std::vector<Parameter>& more) {
  const Refusal refusal = parameters.Extend(more);
  if (!refusal.empty()) throw std::invalid_argument(refusal.Text());
}

inline long PluginBlock::Drain(bool) { return FRAME_DONE; }
inline void PluginBlock::OnSet(unsigned) {}
inline void PluginBlock::OnGet(unsigned) {}
inline int PluginBlock::OutputStreams(std::vector<Stream>&) { return -20; }
inline Refusal PluginBlock::CheckStream(bool, std::size_t, const FrameBuffer&) const { return {}; }
inline bool PluginBlock::Drives(std::size_t) const { return true; }

// Refusals

inline int PluginBlock::Refuse(const Refusal& refusal) {
  VORN_LOG_E("%s", refusal.Text().c_str());
  lastRefusal = refusal;
  using namespace std::chrono;
  refusedAt = duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
  return -20;
}

inline long PluginBlock::Fail(const Refusal& refusal) {
  Refuse(refusal);
  return FRAME_FAILED;
}

inline void PluginBlock::Lose(const Refusal& refusal) {
  Refuse(refusal);
  if (counters != nullptr) BlockCounters::Add(counters->losses, 1);
}

inline int PluginBlock::Accept() {
  lastRefusal = Refusal();
  return 0;
}

inline std::vector<std::string> PluginBlock::LastRefusal() const {
  const Refusal& r = lastRefusal;
  if (r.empty()) return {};
  return {std::to_string(static_cast<std::uint32_t>(r.about)),
          std::to_string(r.index),
          r.name,
          r.field,
          r.got,
          r.takes,
          r.advice,
          r.Text(),
          std::to_string(refusedAt)};
}

// Links

inline Refusal PluginBlock::CheckLink(bool input, std::size_t index) {
  const Description::Ports& ports = input ? description.inputs : description.outputs;
  Refusal refusal = CheckEndpoint(ports, input, index, Stream());
  if (!refusal.empty()) return refusal;
  const FrameBuffer& fb = input ? *InEp(index).FB() : Out(index);
  Refusal misfit = Refusal::Endpoint(input, index).Got(StreamText(StreamOf(fb)));
  if (fb.rate == 0 || fb.channels == 0 || fb.samplesPerFrame <= 0) {
    return misfit.Takes("at least 1 Hz, 1 channel and 1 sample");
  }
  refusal = CheckEndpoint(ports, input, index, StreamOf(fb));
  if (!refusal.empty()) return refusal;
  refusal = CheckStream(input, index, fb);
  if (refusal.about != About::BLOCK) return refusal;
  return misfit.Field(refusal.field).Takes(refusal.line).Advice(refusal.advice);
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

/** The words of blocks of other versions mean something else. */
inline Refusal PluginBlock::CheckVersion(const Endpoint& ep) const {
  const Endpoint* peer = ep.Peer();
  const int version = peer == nullptr ? -20 : peer->Owner()->ioctl(KIT_GET_VERSION, nullptr);
  if (version < 0 || version == static_cast<int>(KIT_VERSION)) return {};
  return "block " + peer->Owner()->Name() + " was built with version " + std::to_string(version) +
         " of the plug-in kit, this one with version " + std::to_string(KIT_VERSION) + "; build both with the same";
}

inline int PluginBlock::OnInEpLinked(unsigned long index) {
  Refusal refusal = running ? CheckRelinked(true, index) : CheckLink(true, index);
  if (refusal.empty()) refusal = CheckVersion(InEp(index));
  if (!refusal.empty()) return Refuse(refusal);
  LinkFlow();
  return Accept();
}

inline int PluginBlock::OnOutEpLinked(unsigned long index) {
  Refusal refusal = running ? CheckRelinked(false, index) : CheckLink(false, index);
  if (refusal.empty()) refusal = CheckVersion(OutEp(index));
  if (!refusal.empty()) return Refuse(refusal);
  LinkFlow();
  return Accept();
}

inline void PluginBlock::OnInEpUnlinked(unsigned long index) {
  flow.Unlink(true, index);
  flow.ShowUnlinked(index, InEp(index).FB());
}

inline void PluginBlock::OnOutEpUnlinked(unsigned long index) { flow.Unlink(false, index); }

inline bool PluginBlock::IsForeign(const Endpoint& ep) {
  return ep.Peer() != nullptr && ep.Peer()->Owner()->ioctl(KIT_GET_VERSION, nullptr) < 0;
}

/** The block at the other end of a link is another one. */
inline int PluginBlock::MeetNeighbour(const KitNeighbour& neighbour) {
  const auto [input, index] = neighbour;
  flow.Meet(input, index, input ? IsForeign(InEp(index)) : IsForeign(OutEp(index)));
  return 0;
}

/** Keeps the linked endpoints in a flat list, so that the path of a frame walks no map. */
inline void PluginBlock::LinkFlow() {
  const bool lined = description.inputs.most > 1 && LinesUpInputs();
  std::vector<Flow::Port> inputs;
  std::vector<Flow::Port> outputs;
  for (const auto& [index, ep] : ActiveInEps()) inputs.push_back({index, ep->FB(), IsForeign(*ep), lined});
  for (const auto& [index, ep] : ActiveOutEps()) outputs.push_back({index, ep->FB(), IsForeign(*ep)});
  flow.Share(Board());
  flow.Link(std::move(inputs), std::move(outputs));
}

// Start and stop

/** Without the links it needs, there is nothing to prepare: the route's own check says so, and starts the block again later. */
inline bool PluginBlock::IsUnlinked() const {
  return (description.inputs.least > 0 && ActiveInEps().empty()) ||
         (description.outputs.least > 0 && ActiveOutEps().empty());
}

inline int PluginBlock::Start() {
  try {
    flow.Share(Board());
    if (Board() != nullptr && Board()->kitVersion != KIT_VERSION) {
      return Refuse("built with version " + std::to_string(KIT_VERSION) +
                    " of the plug-in kit, the library with version " + std::to_string(Board()->kitVersion) +
                    "; build the plug-in again");
    }
    if (flow.IsRouteSpoilt()) return NOT_YET;
    Accept();
    if (IsUnlinked()) return 0;
    if (IsInterrupted()) {  // no refusal of the block's own
      VORN_LOG_E("not started: the host of this graph stops it, or is done with it");
      return -20;
    }
    const Refusal refusal = CheckAllStreams();
    if (!refusal.empty()) return Refuse(refusal);
    RememberStreams();
    const int ret = Prepare();
    running = ret == 0;
    warned = false;
    if (!running) return ret;
    if (fifoToRead != nullptr) fifoToRead->BeginReading();
    if (fifoToWrite != nullptr) fifoToWrite->BeginWriting();
    flow.Start();
    return 0;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

// A route whose block does not stop runs on. One that could not undo its Prepare has nothing to run with: it fails at
// the next frame, and then lets its route stop.
inline int PluginBlock::Stop() {
  const int ret = running ? Undo() : 0;
  if (!running && interrupt == &ownInterrupt) ClearInterrupt();
  return ret;
}

inline int PluginBlock::Undo() {
  try {
    const int ret = isSpoilt ? 0 : Release();
    isSpoilt = ret != 0;
    flow.Spoil(isSpoilt);
    running = isSpoilt;
    if (!running) flow.Stop();
    return ret;
  } catch (const std::exception& e) {
    isSpoilt = true;
    flow.Spoil(true);
    return Refuse(e.what());
  }
}

inline void PluginBlock::Reset() {
  if (counters != nullptr) BlockCounters::Add(counters->resets, 1);
  try {
    Forget();
  } catch (const std::exception& e) {
    Refuse(e.what());
  }
  flow.Forget();
}

inline long PluginBlock::ProcessFrame() {
  if (flow.IsRouteSpoilt()) return FRAME_FAILED;
  return counters == nullptr ? RunFlow() : RunCounted();
}

inline long PluginBlock::RunFlow() {
  try {
    return flow.Run();
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
}

inline long PluginBlock::RunCounted() {
  const long arrived = flow.Inputs().empty() ? 0 : flow.Inputs().front().fb->samples;
  const long result = RunFlow();
  if (result >= 0) Count(arrived);
  if (result == FRAME_FADED_OUT) counters->fadedOut.store(true, std::memory_order_relaxed);
  if (flow.TakeCut()) BlockCounters::Add(counters->cuts, 1);
  return result;
}

inline void PluginBlock::Count(long arrived) {
  const long samples = flow.Outputs().empty() ? arrived : flow.Outputs().front().fb->samples;
  if (samples <= 0) return;
  BlockCounters::Add(counters->frames, 1);
  BlockCounters::Add(counters->samples, static_cast<std::uint64_t>(samples));
}

inline int PluginBlock::Ask(std::size_t input, Request request) {
  const Endpoint* peer = InEp(input).Peer();
  if (peer == nullptr) return 0;
  KitRequest message{peer->Index(), request};
  return peer->Owner()->ioctl(KIT_REQUEST, &message);
}

inline bool PluginBlock::MayArrive(std::size_t input) const {
  int hops = MAX_HOPS;
  return vorn::MayArrive(InEp(input), hops);
}

inline void PluginBlock::Warn(const char* what) {
  if (!warned) VORN_LOG_W("%s", what);
  warned = true;
}

// Parameters

inline int PluginBlock::SetParameter(unsigned int paramId, const std::vector<std::string>& params) {
  std::string text;
  for (const std::string& word : params) text += (&word == params.data() ? "" : " ") + word;
  const Parameter* const parameter = parameters.Find(paramId);
  if (parameter == nullptr) return Refuse(Refusal::Parameter(paramId).Problem("unknown, or can only be read"));
  try {
    if (running && !parameter->IsLive() && !parameter->IsReading()) {
      return Refuse(Refusal::Parameter(parameter->name).Problem("cannot be set while the route runs"));
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
    return Refuse(Refusal::Parameter(parameter->name).Line(e.what()));
  }
}

inline int PluginBlock::GetParameter(unsigned int paramId, std::vector<std::string>& params) {
  try {
    params.clear();
    if (paramId == PARAMETER_REFUSAL) return params = LastRefusal(), 0;
    if (paramId == PARAMETER_STREAMS) {
      std::vector<Stream> streams;
      const int ret = OutputStreams(streams);
      for (const Stream& stream : streams) params.push_back(StreamText(stream));
      return ret;
    }
    const std::vector<Parameter>& table = parameters.Table();
    for (std::size_t i = 0; i < table.size(); ++i) {
      if (paramId != PARAMETER_TABLE && paramId != table[i].id) continue;
      if (table[i].IsReading()) Measure(table[i]);
      params.push_back(paramId == PARAMETER_TABLE ? parameters.Line(i) : parameters.TextOf(i));
    }
    if (params.empty() && paramId != PARAMETER_TABLE) {
      return Refuse(Refusal::Parameter(paramId).Problem("unknown"));
    }
    return 0;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

inline int PluginBlock::MeasureAll() {
  try {
    for (const Parameter& parameter : parameters.Table()) {
      if (parameter.IsReading()) Measure(parameter);
    }
    return 0;
  } catch (const std::exception& e) {
    return Refuse(e.what());
  }
}

inline void PluginBlock::Measure(const Parameter& reading) {
  struct Asked {
    explicit Asked(bool& newFlag) : flag(newFlag) { flag = true; }
    ~Asked() { flag = false; }
    bool& flag;
  };
  const Asked asked(isAsked);
  askedFor = reading.id;
  OnGet(reading.id);
}

// Commands

inline int PluginBlock::ioctl(unsigned int cmd, void* arg) {
  switch (cmd) {
    case KIT_GET_VERSION: return static_cast<int>(KIT_VERSION);
    case KIT_REQUEST: {
      const auto& message = *static_cast<const KitRequest*>(arg);
      return flow.Hear(message.output, message.request);
    }
    case KIT_END_STREAM: return IsFirst() ? (RaiseInterrupt(), 0) : -20;
    case KIT_INTERRUPT: return RaiseInterrupt(), 0;
    case KIT_RESUME: return ClearInterrupt(), 0;
    case KIT_MEASURE: return MeasureAll();
    case KIT_ATTACH_INTERRUPT: return interrupt = arg != nullptr ? static_cast<Interrupt*>(arg) : &ownInterrupt, 0;
    case KIT_MEET: return MeetNeighbour(*static_cast<const KitNeighbour*>(arg));
    case KIT_SHARE: return flow.Share(Board()), 0;
    case KIT_FOLLOW: return flow.Follow(), 0;
    case KIT_ATTACH_PRODUCER:
      if ((description.flags & BLOCK_READS_FIFO) == 0) return -20;
      return Attach(static_cast<DataProducer*>(arg)), 0;
    case KIT_ATTACH_CONSUMER:
      if ((description.flags & BLOCK_WRITES_FIFO) == 0) return -20;
      return Attach(static_cast<DataConsumer*>(arg)), 0;
    case KIT_ATTACH_COUNTERS: return counters = static_cast<BlockCounters*>(arg), 0;
    default: return -20;
  }
}

// Interrupts

// The interrupt first: a block that is back from the FIFO finds it raised.
inline void PluginBlock::RaiseInterrupt() {
  Interruption().Raise();
  if (fifoToRead != nullptr) fifoToRead->InterruptReading();
  if (fifoToWrite != nullptr) fifoToWrite->InterruptWriting();
}

inline void PluginBlock::ClearInterrupt() {
  Interruption().Clear();
  if (fifoToRead != nullptr) fifoToRead->ResumeReading();
  if (fifoToWrite != nullptr) fifoToWrite->ResumeWriting();
}

// FIFOs

inline long PluginBlock::Take(void* to, long count, bool blocking, long* stamp) {
  if (fifoToRead != nullptr) return fifoToRead->Take(to, count, blocking, stamp);
  const int result = producer->Produce(to, count, blocking, stamp);
  if (result < 0) return FRAME_END_OF_FILE;
  return result > 0 ? result : count;
}

inline long PluginBlock::Put(const void* from, long count, bool blocking, long stamp) {
  if (fifoToWrite != nullptr) return fifoToWrite->Put(from, count, blocking, stamp);
  return consumer->Consume(from, count, blocking, stamp) < 0 ? static_cast<long>(FRAME_END_OF_FILE) : count;
}

inline void PluginBlock::OnOver() {
  if (fifoToRead != nullptr) fifoToRead->EndReading();
  if (fifoToWrite != nullptr) fifoToWrite->EndWriting();
}

// The console reads who uses a FIFO from its own thread.
inline void PluginBlock::Attach(DataProducer* newProducer) {
  Block* const self = this;
  if (producer != nullptr) __atomic_store_n(&producer->reader, nullptr, __ATOMIC_RELAXED);
  if (fifoToRead != nullptr) fifoToRead->ResumeReading();
  producer = newProducer;
  fifoToRead = dynamic_cast<FIFO*>(newProducer);
  if (producer != nullptr) __atomic_store_n(&producer->reader, self, __ATOMIC_RELAXED);
}

inline void PluginBlock::Attach(DataConsumer* newConsumer) {
  Block* const self = this;
  if (consumer != nullptr) __atomic_store_n(&consumer->writer, nullptr, __ATOMIC_RELAXED);
  if (fifoToWrite != nullptr) fifoToWrite->ResumeWriting();
  consumer = newConsumer;
  fifoToWrite = dynamic_cast<FIFO*>(newConsumer);
  if (consumer != nullptr) __atomic_store_n(&consumer->writer, self, __ATOMIC_RELAXED);
}

}  // namespace vorn

#endif
