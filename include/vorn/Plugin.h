/**
 * The block author's kit: what a plug-in repeats, so that a block's own code is its arithmetic.
 *
 * A complete plug-in, which is a shared object named after the block (libhalf.so) made of this one file:
 *
 *     #include <vorn/Plugin.h>
 *
 *     // Halves a stream, or takes it by any other factor.
 *     class Half : public vorn::PluginBlock {
 *      public:
 *       using PluginBlock::PluginBlock;
 *       enum : unsigned { FACTOR };
 *
 *       static vorn::Description Describe() {
 *         return vorn::Description("half", "multiplies every sample by a factor")
 *             .Input(vorn::Port("in"))
 *             .Output(vorn::Port("out"))
 *             .Same(vorn::SAME_STREAM)
 *             .Takes(vorn::Parameter::Number(FACTOR, "factor", "", 0, 4).Default(0.5).Positional().Live())
 *             .Example("half 0.25");
 *       }
 *
 *       int Prepare() override { return factor.Jump(Number(FACTOR)), samples.Prepare(In()), 0; }
 *       void OnSet(unsigned) override { factor.Set(Number(FACTOR)); }
 *
 *       long Process() override {
 *         float* x = samples.Read(In());
 *         const auto line = factor.Next(In().samples);
 *         for (long i = 0; i < In().samples; ++i) {
 *           for (unsigned c = 0; c < In().channels; ++c) *x++ *= static_cast<float>(line.At(i));
 *         }
 *         samples.Write(Out(), In().samples);
 *         return vorn::FRAME_DONE;
 *       }
 *
 *      private:
 *       vorn::Ramp factor;
 *       vorn::FloatFrame samples;
 *     };
 *
 *     VORN_PLUGIN(Half)
 *
 * It takes all nine sample formats, any channel count and frame size; refuses a factor of 5, a third argument, a second
 * input or an output of another rate with one line in the log that says what came and what it takes; changes its factor
 * while it runs without a click; and passes the end of a stream on.
 *
 *
 * The contract of a plug-in
 *
 * VORN_PLUGIN exports two C symbols. `CreateBlock` is what a route calls; an exception of the constructor becomes an E
 * line and a null block. `DescribeBlock` is optional in a plug-in and made by the kit: a host reads from it what the
 * block is, without creating one (see BlockInfo).
 *
 * The base class implements the hooks of vorn::Block and calls these, all on the route's thread, none concurrently:
 *
 *     constructor      takes a Setup. Arguments are parsed: Number(ID) and its like work. Throw what went wrong.
 *     Prepare()        streams are linked and fit: open files and devices, allocate. A negative result refuses.
 *     Process()        one frame. No allocation, no file to open, nothing that waits but what sets the route's pace.
 *     OnSet(id)        a parameter has a new value. OnGet(id): one is about to be read.
 *     Forget()         drop what you hold.
 *     Release()        undo Prepare.
 *
 *
 * Arguments and parameters
 *
 * One table says both. An argument is given as `name=value`, or by position where the table allows it. A parameter is
 * set and read by its id, checked like an argument; while the route runs only those that are Live(), otherwise all, for
 * the next Prepare. What is refused leaves everything as it was: -20, and an E line with the parameter, what came and
 * what is taken. GetParameter of PARAMETER_TABLE answers the whole table of the running block, with values: see
 * Parameters::Line.
 *
 *
 * Streams
 *
 * The description says what each endpoint takes and which fields must agree; the base class checks when a link is made
 * and when the block starts. While it runs, the rate, format and channels of an endpoint stay what Prepare() saw, also
 * where its link is replaced; only frames may grow.
 *
 * A block that makes a stream (a file, a device) answers PARAMETER_STREAMS through OutputStreams(), so that a host can
 * link it without being told: "rate=48000 format=S16_LE channels=2 length=123456", a field only where the block has
 * something to say. A host works out the stream of a link from, in this order: what the graph says of the link; what
 * the source block says; the stream that came into the source block; the defaults of the graph.
 *
 * To know all streams before it builds anything, a host calls BlockInfo::planStreams. Give the class this function when
 * its output streams do not equal its input streams:
 *
 *     static vorn::Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
 *                                      std::vector<vorn::Stream>& out);
 *
 * `out` comes with what the graph says of each output; complete what the block decides, or return what does not fit.
 *
 * Zero bytes are silence in every format: BYTE is a signed 8-bit sample (128 of an unsigned 8-bit file becomes 0).
 *
 *
 * Frames
 *
 * A frame has 1 to samplesPerFrame samples: the last one of a file is short, and a block that buffers may send short
 * ones at any time. A block takes every frame it is given in the same call. Where a block has several inputs, the base
 * class waits for all that will come in this cycle and lines them up: in Process() all inputs have the same number of
 * samples, whatever arrived when.
 *
 *
 * The end of a stream
 *
 * A route stops at once when a block answers FRAME_END_OF_FILE, so nothing may be held on the way by then. A source
 * answers FRAME_END_OF_FILE from Process(); the base class then asks the blocks behind, and as long as one of them
 * still holds samples, or still has another input that runs, it sends empty frames with Mark::ENDED instead. Such a
 * frame means: the stream ended here, give out what you hold. A block that holds samples answers each with a frame of
 * them; one that does not passes the empty frame on, where it leads to somebody who does. Then the route ends, with
 * every sample out and not one more.
 *
 * - A block that holds nothing writes nothing for it. In an n-to-1 block an input that ended reads as silence while
 * another runs.
 * - A block that holds samples overrides HoldsSamples() and Drain().
 * - A block whose output follows some of its inputs only (the microphone, not the reference) overrides Drives().
 * - A block without the kit is never shown an empty frame and counts as holding nothing. What a kit block holds is lost
 * when one of its streams passes such a block first, or leaves a `tee` beside one: put any block of the kit (a gain,
 * say) in between.
 *
 * One block gives one frame in a cycle. One that has more (480 samples came, frames of 100 leave) says so in
 * HoldsFrame(): the base class then keeps the sources before it from sending in the next cycle (Mark::PAUSED) and calls
 * Drain instead.
 *
 *
 * FIFOs
 *
 * AttachProducer and AttachConsumer hand a block its side of a FIFO. Say ReadsFifo() or WritesFifo() in the
 * description; find it with Producer() and Consumer(). The base class enters the block as the FIFO's reader or writer,
 * which the status graph shows.
 *
 * A host may hand over sides of its own making, which know when a stream is over: Produce() then answers how many
 * samples there were when these were the last and fewer than asked for, and -20 from then on. So a reader takes a
 * positive result for a short last frame, and -20 for FRAME_END_OF_FILE; a writer may take -20 for that too.
 *
 *
 * The log
 *
 * VORN_LOG_E, _W, _I, _D and _V print a line with the names of route and block in front: VORN_LOG_W("%ld samples lost",
 * lost). For use inside a block; the format is a literal.
 */
#ifndef VORN_PLUGIN_H
#define VORN_PLUGIN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tlogging.h>

#include <vorn/Block.h>
#include <vorn/FIFO.h>
#include <vorn/SampleCodec.h>
#include <vorn/kit/Conventions.h>
#include <vorn/kit/Description.h>
#include <vorn/kit/InputQueue.h>
#include <vorn/kit/Parameters.h>
#include <vorn/kit/Ramp.h>
#include <vorn/kit/StreamCheck.h>
#include <vorn/kit/Streams.h>

#define VORN_LOG_E(...) VORN_LOG_LINE('E', __VA_ARGS__, "")
#define VORN_LOG_W(...) VORN_LOG_LINE('W', __VA_ARGS__, "")
#define VORN_LOG_I(...) VORN_LOG_LINE('I', __VA_ARGS__, "")
#define VORN_LOG_D(...) VORN_LOG_LINE('D', __VA_ARGS__, "")
#define VORN_LOG_V(...) VORN_LOG_LINE('V', __VA_ARGS__, "")
// The empty text after the arguments lets a format stand alone, for which C++17 has no macro.
#define VORN_LOG_LINE(level, format, ...)                                                                 \
  _tlogging_print(level, __FILE__, __LINE__, __func__, "%s: %s: " format "%s", this->RouteName().c_str(), \
                  this->Name().c_str(), __VA_ARGS__)

namespace vorn {

/** What a constructor gets. Built by the kit; a block passes it on to PluginBlock. */
struct Setup {
  bool first;
  bool last;
  const std::vector<std::string>& arguments;
  Description description;
};

/** The base class of a block that is made with the kit. */
class PluginBlock : public Block {
 public:
  /** Parses the arguments. Throws std::invalid_argument with what is wrong with them. */
  explicit PluginBlock(Setup setup);
  ~PluginBlock() override;

  /** What no parameter was found for, once the block is made. */
  Refusal UnknownArguments() const { return parameters.KeptArguments(); }

 protected:
  /** @name What a block writes */
  /**@{*/

  /** Makes ready to run. The streams fit the description. @return 0, or -20 after an E line of your own. */
  virtual int Prepare() { return 0; }

  /**
   * One frame: read In(i), write the data of Out(i) and set its `samples`. That is 0 before the call, and the time
   * stamp of every output that of the first input. Inputs count as consumed afterwards.
   *
   * @return a FrameResult. FRAME_DONE without samples in any output becomes FRAME_DONE_WITHOUT_OUTPUT. With
   * FRAME_PENDING nothing is consumed and the call comes again, so do not answer it without end. A source ends with
   * FRAME_END_OF_FILE, and is not asked again.
   */
  virtual long Process() = 0;

  /** True while samples that came in have not left yet. */
  virtual bool HoldsSamples() const { return false; }
  /** True while a whole frame could leave that did not fit into the last one. */
  virtual bool HoldsFrame() const { return false; }
  /**
   * As Process, with nothing new in the inputs: fill the outputs from what is held.
   *
   * @param atEnd false: whole frames only, more is to come. True: the stream is over; give all, a frame at a time.
   * Giving nothing then says that nothing is left.
   */
  virtual long Drain(bool atEnd);

  /** Undoes Prepare. @return 0, or negative when something was lost by it: the route then stops with an error. */
  virtual int Release() { return 0; }
  /** Drop what you hold, as after an error frame. */
  virtual void Forget() {}

  /** A parameter was set. Runs between two frames: be quick. */
  virtual void OnSet(unsigned id);
  /** A parameter is about to be read: Store() what you measured. */
  virtual void OnGet(unsigned id);

  /**
   * The streams that this block makes of its own, one an output; leave fields alone that it has nothing to say about.
   * @return 0, or -20 (as here) when its streams follow its inputs.
   */
  virtual int OutputStreams(std::vector<Stream>& streams);

  /** A further check of one endpoint, when it is linked and at the start. @return what is taken, or empty. */
  virtual Refusal CheckStream(bool input, std::size_t index, const FrameBuffer& stream) const;

  /** Whether the output goes on while this input has not ended. At least one linked input must say so. */
  virtual bool Drives(std::size_t input) const;
  /** False: Process() sees the inputs as they come, with 0 samples where nothing did, and takes care of their ends itself. */
  virtual bool LinesUpInputs() const { return true; }
  /**@}*/

  /** @name What a block uses */
  /**@{*/

  /** The frame at an input. During Process, of what is processed now: use it rather than the endpoint's. */
  const FrameBuffer& In(std::size_t index = 0) const { return *frames[index]; }
  FrameBuffer& Out(std::size_t index = 0) { return *OutEp(index).FB(); }
  const FrameBuffer& Out(std::size_t index = 0) const { return *OutEp(index).FB(); }
  /** True once the stream into this input is over. */
  bool HasEnded(std::size_t input) const { return (endedInputs >> input & 1U) != 0; }

  double Number(unsigned id) const { return parameters.Number(id); }
  long Integer(unsigned id) const { return parameters.Integer(id); }
  bool Flag(unsigned id) const { return parameters.Flag(id); }
  /** Place of a WORD among its words, from 0. */
  std::size_t Choice(unsigned id) const { return parameters.Choice(id); }
  const std::string& Text(unsigned id) const { return parameters.Text(id); }
  /** True once an argument or SetParameter gave the value. */
  bool IsGiven(unsigned id) const { return parameters.IsGiven(id); }
  /** Stores a measurement. In any hook, Process() among them: no allocation. */
  void Store(unsigned id, double value) { parameters.Store(id, value); }
  const Parameters& Table() const { return parameters; }

  /** Adds parameters that are known only in the constructor (OwnParameters() in the description). Throws as the constructor. */
  void Extend(const std::vector<Parameter>& more);

  DataProducer* Producer() const { return producer; }
  DataConsumer* Consumer() const { return consumer; }

  /** Logs what does not fit an endpoint. @return -20. */
  int Refuse(const Refusal& refusal) const;
  /**@}*/

 public:
  /** @name vorn::Block, for the route */
  /**@{*/
  int ioctl(unsigned int cmd, void* arg) override;
  int OnInEpLinked(unsigned long index) final;
  void OnInEpUnlinked(unsigned long index) final;
  int OnOutEpLinked(unsigned long index) final;
  int Start() final;
  long ProcessFrame() final;
  int Stop() final;
  int SetParameter(unsigned int paramId, const std::vector<std::string>& params) override;
  int GetParameter(unsigned int paramId, std::vector<std::string>& params) override;
  void Reset() final;
  /**@}*/

 private:
  static constexpr int MAX_HOPS = 100000;
  static constexpr int MAX_PENDING = 4096;

  Refusal CheckLink(bool input, std::size_t index);
  Refusal CheckAllStreams();
  Refusal CheckRelinked(bool input, std::size_t index);
  void RememberStreams();
  void PrepareQueue(std::size_t input);
  bool IsUnlinked() const;
  void ClearStreamState();

  void Count(long arrived);
  long RunSource();
  long RunInputs();
  bool MustWait();
  bool IsOutputFull() const;
  long RunDirect();
  long RunLinedUp();
  bool AllInputsFit() const;
  long QueueInputs();
  long ReadySamples() const;
  long RunQueued(long samples);
  long Run();
  void ClearOutputs();
  void FitOutputs(long samples);
  void ConsumeInputs();
  long Finish(long result);
  long AtEnd();
  long AtPause();

  bool IsLive() const;
  bool QueuesHold() const;
  int AnswerStreamEnded(std::size_t input, int& hops);
  int AnswerFrameComing(std::size_t output, int& hops);
  int AnswerHoldBack(std::size_t output, int& hops);
  std::uint32_t OutputsWithHolders(int& hops);
  void HoldBack();
  bool IsBesideForeignBlock(int& hops) const;
  void WarnOnce(const char* text);

  Description description;
  Parameters parameters;
  DataProducer* producer = nullptr;
  DataConsumer* consumer = nullptr;
  BlockCounters* counters = nullptr;
  bool running = false;
  std::array<Stream, Endpoint::COUNT> preparedIn;  // the streams that Prepare saw
  std::array<Stream, Endpoint::COUNT> preparedOut;

  // One bit an endpoint.
  std::uint32_t endedInputs = 0;    // their streams are over
  std::uint32_t pausedOutputs = 0;  // somebody behind has enough for the next cycle
  bool ended = false;               // a source: Process said so
  bool drained = false;             // Drain had nothing more
  bool isPending = false;           // the last answer
  bool warned = false;              // said once that samples are lost beside a block without the kit
  int waits = 0;                    // pending answers in a row

  std::array<const FrameBuffer*, Endpoint::COUNT> frames;  // what In() shows: the endpoint's, or that of a queue
  struct Queued {
    InputQueue queue;
    FrameBuffer front;
  };
  std::array<std::unique_ptr<Queued>, Endpoint::COUNT> queues;  // of the inputs of a block with several
};

}  // namespace vorn

#include <vorn/kit/BlockFrames.h>
#include <vorn/kit/Exports.h>
#include <vorn/kit/PluginBlock.h>

/** Makes the plug-in of a class derived from PluginBlock that has a static Describe(). Once a shared object, outside a namespace. */
#define VORN_PLUGIN(BlockClass)                                                                                    \
  extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& arguments) { \
    return vorn::CreatePluginBlock<BlockClass>(first, last, arguments);                                            \
  }                                                                                                                \
  extern "C" VORN_API const vorn::BlockInfo* DescribeBlock() { return vorn::DescribePluginBlock<BlockClass>(); }

#endif
