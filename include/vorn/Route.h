/**
 * Routes: a graph of blocks and links, and the thread that runs it.
 *
 *     vorn::Route* route = vorn::Vorn::Instance()->NewRoute("RouteA", nullptr);
 *     vorn::Block* source = route->NewBlock("libtone.so", true, false, {});
 *     vorn::Block* sink = route->NewBlock("libnull.so", false, true, {});
 *     route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, source, 0, sink, 0);
 *     route->Start();
 *
 * Every operation is an action: it is queued, the route's thread carries it out between two frame cycles, and the
 * caller waits for its result. Operations may be called from any number of threads.
 *
 * An operation must not be called from the route's own thread, that is from Callbacks or from a block of this route:
 * it would wait for itself. There is no time-out: while a block sleeps inside ProcessFrame(), callers wait.
 */
#ifndef VORN_ROUTE_H
#define VORN_ROUTE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <vorn/Block.h>
#include <vorn/Edit.h>

namespace vorn {

class VORN_API Route {
 public:
  /** Why a route stopped. */
  enum class StopReason : std::uint32_t {
    STOP_REQUESTED = 0,    ///< By Stop(), or a block faded out.
    STOP_ERROR = 1,        ///< The graph is incomplete, or a block failed.
    STOP_END_OF_FILE = 2,  ///< A block reported the end of its stream.
  };

  /**
   * What a route tells its client. Derive, override what you need, and keep the object alive until OnExit returned.
   *
   * Thread: the route's own. Be quick, and do not call operations of the same route from here. What is thrown is
   * logged, and changes nothing.
   */
  class VORN_API Callbacks {
   public:
    /** The route runs: all blocks are started, the first frame cycle comes next. */
    virtual void OnStarted();
    /**
     * The route stopped, and its blocks were told to. Comes again at every action while the graph stays incomplete, and
     * first of all right after the start of such a graph. Does not come when a block refuses to stop.
     */
    virtual void OnStopped(StopReason reason);
    /** The route is being deleted: its last callback. */
    virtual void OnExit();
    virtual ~Callbacks();
  };

  /**
   * One request, for ExecuteActions(): the type and its parameters. The route's thread writes the results into it.
   * Preset them (`ret` to -20, pointers to null): a request that is refused early leaves them as they are.
   */
  struct Action {
    enum class Type : std::uint32_t {
      NEW_BLOCK = 0,
      NEW_LINK = 1,
      START = 2,
      SET_PARAMETER = 3,
      GET_PARAMETER = 4,
      RESET = 5,
      STOP = 6,
      DELETE = 7,
      DELETE_ALL = 8,
      EXIT = 9,  ///< For the library: ends the route's thread.
      SET_DUMP = 10,
    };

    struct NewBlockParams {
      const char* soFileName;
      bool first;
      bool last;
      const std::vector<std::string>* args;
      Block** block;  ///< Where the new block is written, or nullptr.
    };
    struct NewLinkParams {
      std::uint32_t rate;
      SampleFormat format;
      std::uint32_t channels;
      long samplesPerFrame;
      Block** source;  ///< Read when the action runs, so an earlier action of the batch may fill it.
      std::size_t sourceBlkOutEpIdx;
      Block** sink;  ///< As source.
      std::size_t sinkBlkInEpIdx;
      Link* link;  ///< The result.
    };
    struct ResultOnly {
      std::int32_t ret;
    };
    struct SetParameterParams {
      Block* block;
      std::uint32_t paramId;
      const std::vector<std::string>* params;
      std::int32_t ret;
    };
    struct GetParameterParams {
      Block* block;
      std::uint32_t paramId;
      std::vector<std::string>* params;
      std::int32_t ret;
    };
    struct ResetParams {
      Block* block;
      std::int32_t ret;
    };
    struct DeleteParams {
      void* instance;
      std::int32_t ret;
    };
    struct SetDumpParams {
      const char* path;
    };

    Type type;
    union {
      NewBlockParams newBlock;
      NewLinkParams newLink;
      ResultOnly start;
      SetParameterParams setParameter;
      GetParameterParams getParameter;
      ResetParams reset;
      ResultOnly stop;
      DeleteParams del;
      ResultOnly deleteAll;
      SetDumpParams setDump;
    };
  };

  virtual ~Route();

  /** Where a thread is; null for what it is not in. */
  struct Position {
    const char* route;  ///< Name of the route whose thread it is.
    const char* block;  ///< Name of the block whose code runs; the plug-in's file while a block is made.
  };

  /**
   * Where the calling thread is, for a handler of crashes or of std::terminate, which can so name the block to blame.
   * What a block does on a thread of its own, nobody knows.
   *
   * @return texts that are good as long as the handler does not return.
   * Thread: any. Async-signal-safe: reads two pointers.
   */
  static Position Here() noexcept;

  /**
   * Loads a plug-in and creates a block of it.
   *
   * @param soFileName as dlopen takes it: a path, or a bare name that is found in the loader's folders or in the
   *        folder `vorn` beside libvorn.so. The block is named after this text, less "lib" in front and ".so" with all
   *        that follows, and a number: libgain.so makes gain_0, gain_1 and so on.
   * @param first,last what the plug-in is told. Whether the block counts as first or last is for the block to say.
   * @param args for the plug-in.
   * @return the block, owned by the route, or nullptr: the log says why.
   */
  virtual Block* NewBlock(const char* soFileName, bool first, bool last, const std::vector<std::string>& args) = 0;

  /**
   * Links an output of one block to an input of another and fixes the stream between them.
   *
   * @param rate Hz. @param samplesPerFrame samples per channel in one frame.
   * @param sourceBlkOutEpIdx,sinkBlkInEpIdx 0 to 31, not linked yet.
   * @return the link, owned by the route, or nullptr: the log says why. A block may refuse.
   */
  virtual Link* NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                        Block* source, std::size_t sourceBlkOutEpIdx, Block* sink, std::size_t sinkBlkInEpIdx) = 0;

  /**
   * Starts all blocks and runs frame cycles until a stop. The graph is checked afterwards: a first block must be there,
   * a block that is not first needs an input, one that is not last an output. Where that fails the route stops with
   * STOP_ERROR and waits; once an action mends the graph it runs on its own.
   *
   * Blocks are also started where no caller waits for it, before the next frame cycle. If such a start fails, the
   * route's thread ends: there is nobody to tell, and whatever waits for this route from then on waits for ever,
   * DeleteRoute included; the end of the process does not. Those are the starts
   *
   * - of a block that NewBlock adds while the route runs (better by an Edit, which starts it itself);
   * - of all blocks, when an action mends an incomplete graph;
   * - of a block that answered an earlier start with more than 0, and is asked again;
   * - of the blocks that a stop had stopped before another block refused to.
   *
   * @return 0, also when it runs already, or the first negative result of a block's Start().
   */
  virtual int Start() = 0;

  /** @return the block's result, or -20 when `block` is none of this route. */
  virtual int SetParameter(Block* block, unsigned int paramId, const std::vector<std::string>& params) = 0;
  /** As SetParameter; the block fills `params`. */
  virtual int GetParameter(Block* block, unsigned int paramId, std::vector<std::string>& params) = 0;

  /** Makes a block forget what it holds and its endpoints read as empty. @return 0, or -20 as above. */
  virtual int Reset(Block* block) = 0;

  /**
   * Stops all blocks. Where one refuses, the route runs on.
   *
   * @return 0, also when stopped already, or the first negative result of a block's Stop().
   */
  virtual int Stop() = 0;

  /**
   * Deletes a block with all its links, or one link. Allowed while the route runs: Block::Stop() is not called then.
   *
   * @param instance the Block* or Link*. @return 0, or -20 when it is neither a block nor a link of this route.
   */
  virtual int Delete(void* instance) = 0;

  /** Deletes all links, then all blocks. Plug-ins stay loaded until the route is deleted. @return 0. */
  virtual int DeleteAll() = 0;

  /**
   * Writes what leaves every output from now on to a raw file in the folder `path`, such as
   * RouteA-gain_0-O00-48000Hz-S16_LE-2ch.pcm. nullptr ends it and closes the files. A file that cannot be opened is
   * logged at level D, and tried again with the next frame; a block that was made from a path has that in its name, so
   * its file needs a folder more, and a warning says so where that is missing.
   *
   * A file keeps its name and stays open over stops and starts, and when its output is linked anew: a stream of
   * another rate or format goes on in the same file.
   */
  virtual void SetDump(const char* path) = 0;

  /**
   * Carries out several actions in order, with no other caller's action and no frame cycle between them, and returns
   * after the last. Returns at once for null or a count of 0. A failed action does not keep the next ones back. Without
   * memory for the batch none is carried out, and all results stay as they were.
   */
  virtual void ExecuteActions(Action* actions, std::size_t count) = 0;

  /**
   * Changes the graph between two frame cycles, whole or not at all: see Edit. No other block stops, starts or loses a
   * sample, and a block that fails does not end the route's thread.
   *
   * Thread: the caller's makes the new blocks, and deletes those that go, while the route runs on.
   * Errors: the result says in words what was expected.
   */
  EditResult Execute(const Edit& edit);

  /** Edits of one step: see Edit. */
  EditResult Insert(const Edit::Instance& link, const std::string& soFileName, const Edit::Texts& args);
  EditResult Remove(const Edit::Instance& block);
  EditResult Replace(const Edit::Instance& block, const std::string& soFileName, const Edit::Texts& args);
  EditResult Tap(const Edit::Instance& link, const std::string& soFileName, const Edit::Texts& args);
};

}  // namespace vorn

#endif
