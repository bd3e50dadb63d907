/**
 * Part of <vorn/Plugin.h>: what a block of the kit does with frames.
 *
 * In every cycle each block sends one thing on each output: samples, or a mark that says that nothing comes this time
 * (Mark::NOTHING) or that nothing will come any more (Mark::ENDED). All else follows from this sentence:
 *
 *     source ---480---> tee ---480---> mix ---480---> sink      one cycle, from left to right; the join (mix)
 *                        |              ^                        waits until both inputs have arrived
 *                        +---480---> reframe 9600 --NOTHING--+
 *
 * - A block with several inputs waits until all have arrived, and has to ask nobody. It lines them up: what came early
 *   waits in a queue.
 * - A stream is over when the mark says so. A block then gives out what it holds, a frame a cycle, and sends ENDED
 *   itself when nothing is left.
 * - A source that has ended goes on sending ENDED. The route is over when all its sources have ended and no block holds
 *   anything, connected or not: see RouteBoard. A source that finds it so answers FRAME_END_OF_FILE.
 * - A block that has enough for the next cycle says so upstream: see Request.
 *
 * A block without the kit must never be called for an empty frame. So a block of the kit beside one sends nothing at
 * all where it has no samples, and the blocks behind such a place cannot count on something in every cycle: they look
 * upstream whether a frame is still on its way.
 */
#ifndef VORN_KIT_FLOW_H
#define VORN_KIT_FLOW_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <vorn/Block.h>
#include <vorn/kit/InputQueue.h>
#include <vorn/kit/Marks.h>
#include <vorn/kit/RouteBoard.h>

namespace vorn {

/** What Flow calls: the block's own work, and what lies around the block. */
class FlowOwner {
 public:
  // As in PluginBlock.
  virtual long Process() = 0;
  virtual long Drain(bool atEnd) = 0;
  virtual bool HoldsSamples() const = 0;
  virtual bool HoldsFrame() const = 0;
  virtual bool Drives(std::size_t input) const = 0;

  /** Whether the host wants this block to wait no more, and a source to end. */
  virtual bool IsInterrupted() const = 0;

  /** Passes a request on to the block before an input. @return what that block's Flow::Hear answers; -20 without the kit. */
  virtual int Ask(std::size_t input, Request request) = 0;
  /** Whether a frame may still reach this input in the running cycle: asked only beside blocks without the kit. */
  virtual bool MayArrive(std::size_t input) const = 0;
  /** Gives an output room for so many samples. */
  virtual void Grow(std::size_t output, long samples) = 0;
  /** The block's streams are over: it sends and takes nothing any more. */
  virtual void OnOver() = 0;
  /** Logs why the route fails. @return FRAME_FAILED. */
  virtual long FailFlow(const char* why) = 0;
  /** Logs what is lost though the route goes on. */
  virtual void Warn(const char* what) = 0;

 protected:
  ~FlowOwner() = default;
};

/** The frames, queues and marks of one block. Thread: the route's. Real time: Run allocates only where a queue outgrows all before. */
class Flow {
 public:
  /** One linked endpoint. */
  struct Port {
    std::size_t index;
    FrameBuffer* fb;
    bool foreign;        ///< The block at the other end is without the kit.
    bool lined = false;  ///< An input that is lined up with others.
    bool drives = true;  ///< An input that the output follows.
  };

  explicit Flow(FlowOwner& newOwner) : owner(newOwner) { frames.fill(nullptr); }
  ~Flow() {
    Stop();
    Spoil(false);
    Link({}, {});
  }
  Flow(const Flow&) = delete;
  Flow& operator=(const Flow&) = delete;

  /** Before anything else. The board outlives the Flow or the next call. */
  void Share(RouteBoard* newBoard);
  /** The endpoints that are linked now, by index. Throws std::bad_alloc, and changes nothing then. */
  void Link(std::vector<Port> newInputs, std::vector<Port> newOutputs);
  /** An endpoint that is not linked any more. Allocates nothing. */
  void Unlink(bool input, std::size_t index);
  /**
   * The link of this endpoint has another block at its other end now, and its stream goes on: what waits here stays.
   * Allocates nothing.
   */
  void Meet(bool input, std::size_t index, bool isForeign);
  /** What an input shows while nothing is linked to it. */
  void ShowUnlinked(std::size_t input, const FrameBuffer* fb) { frames[input] = fb; }
  /** The block waits for something outside of its route. Before anything is linked. */
  void SetPace() { setsPace = true; }
  /** Whether a block of the route does so. */
  bool IsPaced() const { return board->pacers > 0; }
  /** Makes outputs follow frames that grow. */
  void KeepFrameSize() { keepsFrameSize = true; }
  /** The source ends with the others of its route: it only reads back what they sent. While the route is stopped. */
  void Follow() { follows = true; }

  /**
   * Whether this block could not undo its Prepare. As long as one of the route could not, none starts again: the route
   * that did not stop is about to fail, and a sink that has finished its file must not open it anew for that.
   */
  void Spoil(bool now) {
    if (now != spoilt) board->spoilt += now ? 1 : -1;
    spoilt = now;
  }
  bool IsRouteSpoilt() const { return board->spoilt != 0; }

  /** A new run: forgets everything. */
  void Start();
  void Stop();
  /** After an error frame: forgets the frames, not the ends. */
  void Forget();

  /** One call of Block::ProcessFrame. */
  long Run();
  /** A request from the block behind an output. @return 1 where all sources concerned obey; 0 where one does not. */
  int Hear(std::size_t output, Request request);
  /** True once, after an interrupt has ended a source that had more to give. */
  bool TakeCut() { return std::exchange(isCut, false); }

  /** The frame at an input that is being worked on. */
  const FrameBuffer& In(std::size_t input) const { return *frames[input]; }
  bool HasEnded(std::size_t input) const { return (endedInputs >> input & 1U) != 0; }
  const std::vector<Port>& Inputs() const { return inputs; }
  const std::vector<Port>& Outputs() const { return outputs; }

 private:
  enum class Role { NONE, RUNNING_DRIVER, ENDED_DRIVER, RUNNING_FOLLOWER, ENDED_FOLLOWER };

  static constexpr int MOST_WAITS = 4096;
  static constexpr int IDLE_CYCLES_BEFORE_LOSS = 3;

  struct Queued {
    InputQueue queue;
    FrameBuffer front;
  };

  std::vector<Port>& Ports(bool input) { return input ? inputs : outputs; }
  void OpenQueues(const std::vector<Port>& newInputs);
  void CountLinks();
  void Renew();
  Role RoleNow() const;
  void CountRole(Role counted, long by);
  void Tally();
  void TallyHolder();
  bool SourcesLead(std::size_t input) { return board->followers == 0 || owner.Ask(input, Request::LEADS) != 0; }

  long RunSource();
  bool MustEnd() const { return IsUnwanted() || owner.IsInterrupted(); }
  long RunEveryday();
  long RunInputs();
  long TakeInputs(long result, std::uint32_t asked);
  bool AllArrived() const;
  bool MayMoreArrive() const;
  void EndMissing();
  long RunDirect(std::uint32_t asked);
  long RunJoin(std::uint32_t asked);
  bool AllFit() const;
  bool QueueInputs();
  long ReadySamples() const;
  long RunQueued(long samples);
  void TakeMark(const Port& in);

  long Work();
  long Conclude(long result);
  long Pause(std::uint32_t asked);
  long AtEnd(std::uint32_t asked);
  long Quit();
  long Finish(long result);
  long Send(Mark mark);
  long SendEnd();
  bool IsRouteOver();
  bool IsDoneWith(std::size_t input) const { return isOver && (quit || !HasEnded(input)); }

  int Leads();
  int AskAll(Request request);
  void HoldBack();
  bool IsAhead(const Port& in) const;
  void Balance();

  void ClearOutputs();
  void ConsumeInputs();
  bool IsOutputFull() const;
  bool IsLive() const;
  bool IsHolding() const;
  bool QueuesHold() const;
  bool IsUnwanted() const { return !outputs.empty() && (unwanted & linkedOutputs) == linkedOutputs; }

  // What the everyday call touches lies together, with the first of `frames`.
  FlowOwner& owner;
  RouteBoard* board = &ownBoard;
  FrameBuffer* everydayIn = nullptr;  // of a block with one input and one output, else null
  FrameBuffer* everydayOut = nullptr;
  unsigned long renewed = 0;  // board->links when `drives` was worked out
  bool keepsFrameSize = false;
  bool started = false;
  bool quit = false;      // not a source: it takes no more
  bool drained = false;   // nothing more came out of Drain
  bool isOver = false;    // ENDED was sent
  bool isHolder = false;  // as the board counts this block
  bool isJoin = false;
  std::uint32_t endedInputs = 0;                           // one bit an endpoint, as below
  std::uint32_t heard = 0;                                 // requests since the last run
  int waits = 0;                                           // pending answers in a row
  std::array<const FrameBuffer*, Endpoint::COUNT> frames;  // what In() shows: the endpoint's, or the front of a queue

  RouteBoard ownBoard;  // of a block outside a route
  bool follows = false;
  bool setsPace = false;

  // Fixed while no link changes.
  std::vector<Port> inputs;
  std::vector<Port> outputs;
  std::uint32_t linkedOutputs = 0;
  std::uint32_t foreignOutputs = 0;
  long foreignLinks = 0;         // as counted on the board
  long pacers = 0;               // as above: 1 or 0
  unsigned long leadsAsked = 0;  // board->links when `leads` was asked for
  int leads = 0;
  std::array<std::unique_ptr<Queued>, Endpoint::COUNT> queues;  // of the inputs of a join

  // How far the streams are.
  bool ended = false;          // a source: it has no more
  bool isCut = false;          // a source: it ended because it was interrupted
  std::uint32_t unwanted = 0;  // outputs that heard Request::DONE
  bool holdsAll = false;       // the answer to the HOLD among those heard
  unsigned long movesSeen = 0;
  int idleCycles = 0;

  // What else the board counts of this block.
  bool spoilt = false;
  Role role = Role::NONE;
};

}  // namespace vorn

#endif
