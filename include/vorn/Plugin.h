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
 *     OnSet(id)        a parameter has a new value. OnGet(id): a reading is about to be read.
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
 * ParameterLine.
 *
 *
 * Refusals
 *
 * What a block refuses, it says in one line: what came, what is taken, what mends it. The functions of the kit that
 * check something return a Refusal, which has that line and its parts; it is empty where all is well. A block refuses
 * with `return Refuse(...)`, and with `return Fail(...)` where it cannot go on with a frame; both log the line and keep
 * the refusal. It is answered to PARAMETER_REFUSAL, so that nobody has to look for it in the log, and forgotten with
 * the next link or start that is not refused.
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
 * class lines them up: in Process() all inputs have the same number of samples, whatever arrived when; an input that
 * ended is silent.
 *
 * In every cycle each block sends one thing on each output: samples, or a mark that says that nothing comes this time,
 * or that nothing will come any more. The base class sends and reads the marks; <vorn/kit/Flow.h> draws a cycle and has
 * the whole of it on one page. A block only says what it holds:
 *
 * - HoldsSamples(): samples that came in have not left yet. The route goes on until nobody says so.
 * - HoldsFrame(): more could leave than fitted into the last frame (480 samples came, frames of 100 leave). The base
 *   class keeps the blocks before this one from sending in the next cycle, and calls Drain(false) in it.
 * - Drain(atEnd): gives out a frame of what is held. `atEnd` is true once the stream into the block is over.
 * - Drives(input): false for an input that the output does not follow (the reference of an echo canceller): the stream
 *   ends with the others.
 *
 *
 * The end of a stream
 *
 * A source answers FRAME_END_OF_FILE from Process() and is not called again. Every block behind it gives out what it
 * holds, and says in turn that its stream is over. The route ends when all its sources have ended and no block holds
 * anything, whether links join them or not, with every sample out and not one more. A host ends it in the same way with
 * EndStream().
 *
 * A block with inputs that takes no more answers FRAME_END_OF_FILE too. A source whose samples nobody takes any more
 * ends.
 *
 * A block without the kit is never shown an empty frame and counts as holding nothing. What a block of the kit holds is
 * lost, with a warning, when all that comes to it passes such a block first, or leaves a `tee` beside one: put any
 * block of the kit (a gain, say) in between.
 *
 *
 * Waiting
 *
 * A block that waits sets the pace of its route, and holds up whoever stops it. So a host can interrupt a block, from
 * any thread (see InterruptBlock), and the block waits for that too, in Prepare(), Process(), Drain() and Release():
 *
 *     if (Interruption().Await(descriptor, POLLIN) != vorn::Interrupt::READY) return vorn::FRAME_END_OF_FILE;
 *
 * Take() and Put() come back by themselves, with less than was asked for. A source then gives what it has, and ends. A
 * sink gets rid of what needs no waiting; it loses the rest, says so with Lose(), and answers FRAME_END_OF_FILE, so
 * that the other sinks of the graph get their streams to the end. What a Prepare() waits for, it refuses.
 *
 *
 * FIFOs
 *
 * AttachProducer and AttachConsumer hand a block its side of a FIFO. Say ReadsFifo() or WritesFifo() in the
 * description; use it with Take() and Put(). The base class enters the block as the FIFO's reader or writer, which the
 * status graph shows, and tells the FIFO when the stream into it is over, or when the block takes no more out of it.
 *
 *
 * The log
 *
 * VORN_LOG_E, _W, _I, _D and _V print a line with the names of route and block in front: VORN_LOG_W("%ld samples lost",
 * lost). For use inside a block; the format is a literal.
 */
#ifndef VORN_PLUGIN_H
#define VORN_PLUGIN_H

#include <vorn/Block.h>
#include <vorn/FIFO.h>
#include <vorn/SampleCodec.h>
#include <vorn/kit/Conventions.h>
#include <vorn/kit/Description.h>
#include <vorn/kit/Exports.h>
#include <vorn/kit/InputQueue.h>
#include <vorn/kit/Interrupt.h>
#include <vorn/kit/Label.h>
#include <vorn/kit/Log.h>
#include <vorn/kit/Parameters.h>
#include <vorn/kit/PluginBlock.h>
#include <vorn/kit/Ramp.h>
#include <vorn/kit/Refusal.h>
#include <vorn/kit/StreamCheck.h>
#include <vorn/kit/Streams.h>

/** Makes the plug-in of a class derived from PluginBlock that has a static Describe(). Once a shared object, outside a namespace. */
#define VORN_PLUGIN(BlockClass)                                                                                    \
  extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& arguments) { \
    return vorn::CreatePluginBlock<BlockClass>(first, last, arguments);                                            \
  }                                                                                                                \
  extern "C" VORN_API const vorn::BlockInfo* DescribeBlock() { return vorn::DescribePluginBlock<BlockClass>(); }

#endif
