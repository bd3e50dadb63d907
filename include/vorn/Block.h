/**
 * Blocks, their endpoints, and the frames that pass between them.
 *
 * A block is one processing step of a route's graph. It lives in a plug-in: a shared object that
 * exports
 *
 *     extern "C" vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args);
 *
 * and returns a new object derived from vorn::Block, or nullptr. The route owns the block from then on
 * and destroys it through its virtual destructor. <vorn/Plugin.h> is a kit that spares a block author
 * most of what a plug-in repeats; this header is the bare contract.
 *
 * A complete block that halves 16-bit samples in place of its 1st input, into its 1st output:
 *
 *     class Half : public vorn::Block {
 *      public:
 *       using Block::Block;
 *       long ProcessFrame() override {
 *         const vorn::FrameBuffer* in = ActiveInEps().at(0)->FB();
 *         vorn::FrameBuffer* out = ActiveOutEps().at(0)->FB();
 *         const auto* from = reinterpret_cast<const short*>(in->data);
 *         auto* to = reinterpret_cast<short*>(out->data);
 *         for (long i = 0; i < in->samples * in->channels; ++i) to[i] = from[i] / 2;
 *         out->samples = in->samples;
 *         out->timestamp = in->timestamp;
 *         ClearActiveInEpsData();
 *         return vorn::FRAME_DONE;
 *       }
 *     };
 *
 * Samples are counted per channel everywhere: one sample is one instant across all channels.
 * Channels are interleaved. Time stamps are signed microseconds; -1 means none.
 */
#ifndef VORN_BLOCK_H
#define VORN_BLOCK_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

/** Marks what libvorn.so exports. */
#ifndef VORN_API
#define VORN_API __attribute__((visibility("default")))
#endif

namespace vorn {

class Block;
class Link;
struct BlockView;
struct RouteBoard;

/** How one sample of one channel is encoded. LE and BE are the byte orders; 24-bit samples are packed. */
enum class SampleFormat : std::uint32_t {
  BYTE = 0,      ///< 1 byte
  S16_LE = 1,    ///< 2 bytes
  S16_BE = 2,    ///< 2 bytes
  S32_LE = 3,    ///< 4 bytes
  S32_BE = 4,    ///< 4 bytes
  S24_3LE = 5,   ///< 3 bytes
  S24_3BE = 6,   ///< 3 bytes
  FLOAT_LE = 7,  ///< 4 bytes, full scale is -1 to 1
  FLOAT_BE = 8,  ///< 4 bytes, full scale is -1 to 1
};

/** Bytes of one sample of one channel. 0 for a value that is no sample format, on purpose: sizes become 0. */
constexpr std::size_t BytesPerSample(SampleFormat format) {
  switch (format) {
    case SampleFormat::BYTE: return 1;
    case SampleFormat::S16_LE:
    case SampleFormat::S16_BE: return 2;
    case SampleFormat::S24_3LE:
    case SampleFormat::S24_3BE: return 3;
    case SampleFormat::S32_LE:
    case SampleFormat::S32_BE:
    case SampleFormat::FLOAT_LE:
    case SampleFormat::FLOAT_BE: return 4;
  }
  return 0;
}

/** What ProcessFrame() answers. 0 or more is done; a negative value without a name here is a failure. */
enum FrameResult : long {
  FRAME_DONE = 0,                  ///< Outputs are filled; the blocks behind them run in the next wave.
  FRAME_PENDING = -1,              ///< Not enough input yet: call again in the next wave of this cycle.
  FRAME_DONE_WITHOUT_OUTPUT = -3,  ///< Finished for this cycle; the blocks behind are not called for it.
  FRAME_TIMEOUT = -10,             ///< Waited too long: an error frame; every block is reset, the route goes on.
  FRAME_FAILED = -20,              ///< Stops the route with STOP_ERROR, as every negative value not named here.
  FRAME_END_OF_FILE = -21,         ///< Nothing more to come: stops the route with STOP_END_OF_FILE. What the same call
                                   ///< put on an output is lost: the last frame first, the end in the next cycle.
  FRAME_FADED_OUT = -22,           ///< Faded to silence: stops the route with STOP_REQUESTED.
};

/**
 * One frame at one endpoint: a description, and a pointer to bytes that the link owns.
 *
 * Both ends of a link point at the same bytes. Copying a FrameBuffer copies the description only. A
 * commit copies the block's description of each frame to the other end of the link: from an output to the
 * input behind it when a frame was produced, and from an input to the output before it when it was consumed.
 */
struct FrameBuffer {
  std::uint8_t* data = nullptr;  ///< First byte, at a multiple of 64; not owned; null until linked.
  SampleFormat format = SampleFormat::BYTE;
  std::uint32_t channels = 0;
  long samplesPerFrame = 0;  ///< Samples that `data` has room for.
  long samples = 0;          ///< Samples held; 0: the buffer is empty.
  std::uint32_t rate = 0;    ///< Hz.
  long timestamp = -1;       ///< Microseconds of the first sample; -1: none.
};

/**
 * A numbered connection point of a block. Every block has 32 of each kind for its whole life.
 *
 * Thread: the route's own. Nothing here waits, and only OutputEndpoint::Resize allocates.
 */
class VORN_API Endpoint {
 public:
  static constexpr std::size_t COUNT = 32;  ///< Endpoints of each kind in a block.

  Endpoint() = default;
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;

  /** The endpoint's own frame buffer, writable. Never null; its `data` is null until linked. */
  FrameBuffer* FB() const { return &fb; }
  /** Position among the block's endpoints of its kind, 0 to 31. */
  std::size_t Index() const { return index; }
  /** True while a link is attached. Only active endpoints carry frames. */
  bool IsActive() const { return link != nullptr; }
  /** The link attached, or null. Opaque outside the library. */
  Link* AttachedLink() const { return link; }
  /** The block that this endpoint belongs to. */
  Block* Owner() const { return block; }
  /** The endpoint at the other end of the link, or null without a link. */
  Endpoint* Peer() const;

 private:
  friend class Block;
  friend class Link;

  std::size_t index = COUNT;  // no index until the block assigns one
  Block* block = nullptr;
  Link* link = nullptr;
  mutable FrameBuffer fb;
};

/** Where frames come into a block. */
class VORN_API InputEndpoint : public Endpoint {};

/** Where frames leave a block. */
class VORN_API OutputEndpoint : public Endpoint {
 public:
  /**
   * Changes the frame size of the attached link. `data` of both ends may move; new bytes are zero. `samples`
   * and `timestamp` stay. The endpoint must be active. May allocate: not for every frame.
   */
  void Resize(long samplesPerFrame);

  /**
   * Publishes a whole frame: makes the link's frame size `samples`, copies that many samples from `src`, which
   * must hold them all, and sets `samples` and `timestamp`. The endpoint must be active. Allocates only where
   * the frame outgrows every earlier one of this link.
   */
  void Resize(long samples, const void* src, long timestamp);
};

/**
 * The base class of every block.
 *
 * Threads: a route calls every operation of its blocks on its own thread, one at a time: construction and
 * destruction, hooks, parameters, ProcessFrame. A block needs no lock for its own data. An Edit makes a block on
 * another thread, and stops, unlinks and deletes the blocks that it takes out there: before the route knows the block,
 * and after it has forgotten it.
 *
 * No operation of a block may call an operation of its own route: that thread would wait for itself.
 * Nothing may throw out of a block. Where a caller waits for an answer (a block is made, linked, started, given a
 * parameter), an exception is logged and counts as -20; elsewhere, ProcessFrame included, it ends the process.
 *
 * The virtual operations come first and in the order of their slots, which is part of the binary interface.
 */
class VORN_API Block {
 public:
  /**
   * A private agreement between a block and whoever knows it, such as handing it a FIFO.
   *
   * @return 0 or more as agreed; -20 for a command that is not known, which is what the base class answers.
   * Thread: the caller's. The only operation that a client may call directly; do it while the route is stopped.
   */
  virtual int ioctl(unsigned int cmd, void* arg);

  /** Closes the dump files. The route has deleted the block's links before. */
  virtual ~Block();

  /** Text to fold into the block's generated name (gain_left_0 for "left"), or null or empty for none. */
  virtual const char* Subname() const;

  /**
   * A link was made at this endpoint, whose frame buffer already describes the stream. A negative result refuses
   * it, and the link is undone. The endpoint is among the active ones while this runs.
   *
   * An Edit that gives a linked endpoint another neighbour, with the same stream, calls none of these hooks.
   */
  virtual int OnInEpLinked(unsigned long index);
  /** The link at this endpoint is gone; the endpoint is no longer among the active ones. */
  virtual void OnInEpUnlinked(unsigned long index);
  virtual int OnOutEpLinked(unsigned long index);
  virtual void OnOutEpUnlinked(unsigned long index);

  /**
   * Makes ready to run: check the streams, open files and devices, allocate. Called before the first
   * ProcessFrame() after a start of the route, or once the block was added to a running one.
   *
   * @return 0: started.
   *         Negative: refused. While a client starts the route, that is the result of Route::Start(), and the blocks
   *         started before this one stay started, without a Stop(), until the route has run. Where no client waits
   *         for it, a refusal ends the route's thread: see Route::Start().
   *         More than 0: not started, but the route runs: ProcessFrame() is called nevertheless, Start() once more
   *         before each cycle until it answers something else, and Stop() not at all.
   */
  virtual int Start();

  /**
   * Produces or passes on one frame. Pure: this is what a block is for.
   *
   * Read the frame buffers of ActiveInEps(), fill those of ActiveOutEps() (in place, or with
   * OutputEndpoint::Resize), and set `samples` of each: 0 on an input that was consumed, the count on an output
   * that was filled. Outputs keep `samples` and `timestamp` of the last commit until they are set.
   *
   * @return a FrameResult.
   *
   * Waiting: may sleep, in a FIFO or a device: the blocks set the pace of their route. Whoever stops the route
   * waits until this returns.
   * Real time: allocate and open in Start(), not here.
   */
  virtual long ProcessFrame() = 0;

  /**
   * Undoes Start(). Not called for a block that did not start, nor for one that is deleted while the route runs: its
   * destructor has to do for both.
   *
   * @return 0: stopped.
   *         Negative: the block stays started and the route goes on running, as far as its blocks are not stopped by
   *         then: those start again. That is the result of Route::Stop().
   *         More than 0: the block stays started and the route stops: the next start calls Start() of all others, the
   *         next stop Stop() of this one too.
   */
  virtual int Stop();

  /**
   * Sets a parameter of the block. Ids and texts are the block's own affair.
   *
   * @return 0, or what the caller of Route::SetParameter shall get. The base class logs and answers 0.
   * Real time: runs between two frames of a running route, so be quick.
   */
  virtual int SetParameter(unsigned int paramId, const std::vector<std::string>& params);
  /** Reads a parameter of the block into `params`. As SetParameter. */
  virtual int GetParameter(unsigned int paramId, std::vector<std::string>& params);

  /** Forget what you hold: after an error frame, or when asked by Route::Reset. */
  virtual void Reset();

  /** The delay that the block adds, for hosts that ask. The library does not. */
  virtual long Delay() const;

  /** @param first the block needs no input. @param last the block needs no output. It may be both. */
  Block(bool first, bool last);
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  /** The linked endpoints by index, ascending. */
  const std::map<std::size_t, InputEndpoint*>& ActiveInEps() const { return activeInEps; }
  const std::map<std::size_t, OutputEndpoint*>& ActiveOutEps() const { return activeOutEps; }

  /** Endpoint `index`, 0 to 31, linked or not. */
  InputEndpoint& InEp(std::size_t index) { return inEps[index]; }
  OutputEndpoint& OutEp(std::size_t index) { return outEps[index]; }
  const InputEndpoint& InEp(std::size_t index) const { return inEps[index]; }
  const OutputEndpoint& OutEp(std::size_t index) const { return outEps[index]; }

  /** True when every active input holds samples, and when there is none. */
  bool ActiveInEpsDataIsReady() const;
  /** True when at least one active output is empty; false when all hold samples, and when there is none. */
  bool ActiveOutEpsDataIsEmpty() const;
  /** Marks all active inputs consumed. */
  void ClearActiveInEpsData();

  bool IsFirst() const { return first; }
  bool IsLast() const { return last; }
  /** Name of the block, unique in its route, and of that route; both empty before SetName. */
  const std::string& Name() const { return name; }
  const std::string& RouteName() const { return routeName; }
  /** What the blocks of the kit share in this route (see <vorn/kit/RouteBoard.h>); null for a block without a route. */
  RouteBoard* Board() const { return board; }
  /** What a block of the kit shows to the library (see <vorn/kit/BlockView.h>); null for another block. */
  const BlockView* View() const { return view; }

  /**
   * @name For the route
   *
   * What the route calls instead of the hooks above, so that the bookkeeping stays true. A block's own code has no
   * use for these.
   */
  /**@{*/

  /** Names the block, once, right after its creation. `dumpPath` is the route's and must outlive the block. */
  void SetName(const std::string& routeName, const std::string& name, const std::string* dumpPath);

  /** Enters the endpoint into the active ones and asks the hook. -20 when it is active already. */
  int BaseOnInEpLinked(unsigned long index);
  void BaseOnInEpUnlinked(unsigned long index);
  int BaseOnOutEpLinked(unsigned long index);
  void BaseOnOutEpUnlinked(unsigned long index);

  /** Start() and Stop() unless the block already is in that state. 0, or the hook's result. */
  int BaseStart();
  int BaseStop();

  /** Reset(), then every active endpoint reads as empty. */
  void BaseReset();

  /** Carries the frame buffers over the links, inputs back and outputs forth, and dumps the outputs. Always 0. */
  int CommitFrame();
  /** Closes the dump files. */
  void CloseDump();
  /**@}*/

 protected:
  /** For the kit: once, in the constructor. The view lives as long as the block. */
  void Show(const BlockView* newView) { view = newView; }

 private:
  friend class RouteImpl;

  /** What the hook answers; one that throws refuses. */
  int AskHook(int (Block::*hook)(unsigned long), unsigned long index);
  void DumpFrame(const OutputEndpoint& ep);
  std::FILE* OpenDump(const OutputEndpoint& ep) const;

  std::array<InputEndpoint, Endpoint::COUNT> inEps;
  std::array<OutputEndpoint, Endpoint::COUNT> outEps;
  std::map<std::size_t, InputEndpoint*> activeInEps;
  std::map<std::size_t, OutputEndpoint*> activeOutEps;
  bool first;
  bool last;
  std::string routeName;
  std::string name;
  const std::string* dumpPath = nullptr;
  std::array<std::FILE*, Endpoint::COUNT> dumpFiles{};
  bool started = false;

  // The active endpoints once more, in the same order: what the frame path walks.
  std::vector<InputEndpoint*> linkedInEps;
  std::vector<OutputEndpoint*> linkedOutEps;

  RouteBoard* board = nullptr;      // the route's
  const BlockView* view = nullptr;  // the block's own
};

}  // namespace vorn

#endif
