/**
 * Graph files: reads a graph from text, works out what it leaves open, and runs it, as vorn-run does. Link to
 * libvorngraph (pkg-config vorngraph, CMake Vorn::vorngraph). The language is in docs/graph-files.md.
 *
 *     // Runs a graph file, with half a minute at most: player GRAPH.dot [name=value ...]
 *     #include <cstdio>
 *     #include <string>
 *     #include <vorn/Graph.h>
 *
 *     int main(int argc, char** argv) {
 *       vorn::Graph::Variables variables;
 *       for (int i = 2; i < argc; ++i) {
 *         const std::string text = argv[i];
 *         const std::size_t equals = text.find('=');
 *         if (equals != text.npos) variables[text.substr(0, equals)] = text.substr(equals + 1);
 *       }
 *       vorn::Graph graph = vorn::Graph::FromFile(argc > 1 ? argv[1] : "", variables);
 *
 *       vorn::Graph::RunOptions options;
 *       options.duration = std::chrono::seconds(30);
 *       options.onProgress = [](const vorn::Graph::Figures& figures, double) {
 *         std::printf("%.1f s\n", figures.seconds);
 *       };
 *       const vorn::Graph::Result result = graph.Run(options);
 *       if (result.error) std::fprintf(stderr, "%s\n", result.error->ToString().c_str());
 *       return result.error ? 1 : 0;
 *     }
 *
 * Failures are values: an Error says in one line what is wrong and where it was written. Nothing is thrown but what the
 * standard library throws where memory or threads run out.
 *
 * What is one a process: the names of routes (a graph without clusters is RouteA), so two graphs that use the same
 * names cannot be built at a time; the log; the console, where a graph that is built can be seen and edited like any
 * other. Signals are the program's: this library handles none, and its threads block all of them.
 */
#ifndef VORN_GRAPH_H
#define VORN_GRAPH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

/**
 * A graph: first text, then a plan, then routes, blocks, links and FIFOs of the library, which run.
 *
 * Threads: one thread controls a graph, and runs it; Stop() from any thread. Callbacks come on the controlling thread.
 * One run at a time.
 *
 * Ownership: a graph owns all that it makes. Destroying it takes the routes down and unloads the blocks.
 */
class VORN_API Graph {
 public:
  /** What takes the place of $name in a graph file. Each must be used. */
  using Variables = std::map<std::string, std::string>;

  /** A place in a text. Lines and columns count from 1, columns in bytes; line 0 stands for the text as a whole. */
  struct Place {
    /** graph.dot:7:3, or just graph.dot. */
    std::string ToString() const;

    std::string file;  ///< What the text is called; empty: the graph as a whole.
    int line = 0;
    int column = 0;
  };

  struct Error {
    Error(Place where, std::string what) : at(std::move(where)), text(std::move(what)) {}
    /** graph.dot:7:3: block 'vol' has no parameter 'gian'; gain has gain ramp */
    std::string ToString() const;

    Place at;
    std::string text;  ///< One line: what is wrong, what was expected, and where it can be said, what to do.
  };

  /** What made a run end. */
  enum class End {
    STREAM,     ///< All sources came to their end.
    DURATION,   ///< RunOptions::duration was over before the streams were.
    STOPPED,    ///< Stop() was called.
    FAILURE,    ///< A route failed, could not be started, or was stopped or deleted by somebody else.
    NOT_BUILT,  ///< The graph could not be read, planned or built. Nothing ran.
  };

  struct Result {
    /** "end of stream", "end of duration", "stopped", "signal" (a stop with one), "failure" or "not built". */
    const char* Name() const;

    End end = End::STREAM;
    int signal = 0;              ///< What Stop() was told.
    std::optional<Error> error;  ///< Of FAILURE and NOT_BUILT.
    double elapsedSeconds = 0;   ///< On the clock.
  };

  /** How far a graph or a route has come. */
  struct Figures {
    bool areKnown = false;          ///< Whether any block counts; else all is 0.
    std::uint64_t frames = 0;       ///< Of a graph, the sum of its routes.
    std::uint64_t errorFrames = 0;  ///< Frames that were lost, as after a timeout. Of a graph, the sum of its routes.
    std::uint64_t samples = 0;      ///< Per channel, of the source that is farthest; where no source counts, a sink.
    double seconds = 0;             ///< The same in time.
    std::optional<double> length;   ///< Seconds until all sources have ended, where all of them know.
  };

  /** What a block measured: a parameter that can only be read. */
  struct Reading {
    std::string block;  ///< As the graph calls it.
    std::string name;
    std::string unit;  ///< Empty: none.
    double value = 0;  ///< NaN where there is nothing to say.
  };

  /** How a run compares with what was recorded of an output. Samples are per channel, and counted from the start. */
  struct Comparison {
    bool IsSame() const { return !firstDifference; }

    std::string block;           ///< As the graph calls it.
    std::size_t output = 0;      ///< Of the block.
    std::uint32_t rate = 0;      ///< Hz
    std::uint64_t recorded = 0;  ///< Samples that can be replayed.
    std::uint64_t replayed = 0;  ///< Samples that came this time.
    std::uint64_t compared = 0;  ///< As many as both have.
    /** The first sample that is another one, or missing, behind those that may differ. */
    std::optional<std::uint64_t> firstDifference;
    /** Where the last difference of those that may differ ends; 0: there was none. */
    std::uint64_t settled = 0;
  };

  struct RunOptions {
    /**
     * The sources are stopped after this time on the clock, from when all routes run; what they gave goes through to
     * the end. A start that takes two seconds more than that is given up.
     */
    std::optional<std::chrono::nanoseconds> duration;
    /**
     * 1 to 99: what the thread of every route asks for (SCHED_FIFO); its stack is there before the first frame. 0:
     * nothing. It runs either way. To lock memory (mlockall) is for the program.
     */
    int realtimePriority = 0;
    /** Several times a second, with the seconds on the clock since the run began. */
    std::function<void(const Figures& figures, double elapsedSeconds)> onProgress;
    /** A line that is good to know, such as whether the real-time priority was granted. */
    std::function<void(const std::string& text)> onNotice;
    /** A warning or an error that the run survived. Only where the graph has the log: see TakeLog(). */
    std::function<void(const std::string& text)> onWarning;
  };

  /**
   * Reads a graph. One that cannot be read is a graph all the same: whatever is asked of it answers with that error.
   *
   * @param name how errors call the text.
   */
  static Graph FromFile(const std::string& path, const Variables& variables = {});
  static Graph FromText(const std::string& text, const std::string& name, const Variables& variables = {});
  /**
   * Blocks with their arguments, joined by '!', or by '!!' where a new thread begins:
   * filesource 'my song.wav' ! gain -6 ! filesink quiet.flac
   */
  static Graph FromPipeline(const std::string& text, const std::string& name = "pipeline");

  /**
   * A graph that runs a recording of `vrdb record` again: the recorded one with the samples that its sources gave in
   * place of them, whatever they were, and nothing in place of its sinks. It gives the same samples each time it runs.
   *
   * @param folder of the recording.
   */
  static Graph FromRecording(const std::string& folder);

  /** `other` can then only be destroyed or assigned to. */
  Graph(Graph&& other) noexcept;
  /** The graph that was here is destroyed, as by the destructor. */
  Graph& operator=(Graph&& other) noexcept;
  /** Not while it runs. */
  ~Graph();

  /**
   * Gives a parameter of a block another value than the graph does: "node.parameter=value". What was built is taken
   * down.
   *
   * @param source what errors put in front of the text.
   */
  std::optional<Error> Set(const std::string& setting, const std::string& source = "setting");

  /**
   * The same for all blocks that have the parameter: "sync=true".
   */
  std::optional<Error> SetAll(const std::string& setting, const std::string& source = "setting");

  /**
   * Has each run write what leaves every block to a file of its own in this folder, which is made where it is missing.
   */
  std::optional<Error> SetDump(const std::string& folder);

  /**
   * Takes the log of the process (libtlogging) for as long as this graph lives. Without it a graph leaves the log
   * alone; with it warnings come to RunOptions::onWarning, and errors carry also such reasons as are in the log alone:
   * those of blocks without the kit, and of blocks that could not be made. One graph of a process at a time, before it
   * is planned. The log goes nowhere afterwards: set its file and options anew.
   *
   * @param shownLevel nothing: warnings and errors, to this graph alone. 0 to 6, see <vorn/Vorn.h>: what the log has up
   *        to that level also appears on standard error.
   */
  void TakeLog(std::optional<int> shownLevel = std::nullopt);

  /**
   * Works out what the graph leaves open: plug-ins, ports, streams, sizes of FIFOs. Loads plug-ins. Makes no route, but
   * for a source that cannot say otherwise what stream it makes.
   */
  std::optional<Error> Plan();

  /** Plans, and makes all routes, blocks, links and FIFOs. Starts nothing. They stay, and the next run uses them. */
  std::optional<Error> Check();

  /**
   * Checks, starts, and waits until all is over: until every source came to its end, time is up, somebody stops it, or
   * something fails. What was built remains, stopped, for CurrentFigures() and CurrentReadings(); another run builds it
   * anew and begins from the start.
   */
  Result Run(const RunOptions& options);
  Result Run() { return Run(RunOptions()); }

  /**
   * Stops the sources of the run, also those that wait; what they gave goes through to the end, then Run() returns. A
   * sink that can get rid of nothing any more is waited for no longer than its longest pause before, twice over, and
   * 2 s at most: then it loses the rest, which is a FAILURE. Without a run, the next ends as soon as it has begun. The
   * first call of a run counts.
   *
   * @param signal which one the program stops it for, to tell in the result; 0: none.
   * Thread: any; also in a signal handler. Does not wait.
   */
  void Stop(int signal = 0) noexcept;

  /**
   * Compares the last run of a graph FromRecording() with the recording, output by output, downstream: the first that
   * differs is the cause of those after it. An output is the same when all of its bits are.
   *
   * @param settling how long a route may differ that was recorded in the middle: its blocks held samples from before,
   * which nobody knows. At most half of what was recorded.
   * @return an Error for a graph of another kind, before a run, and where there is nothing to compare.
   */
  std::variant<std::vector<Comparison>, Error> CompareWithRecording(
      std::chrono::nanoseconds settling = std::chrono::seconds(1)) const;
  /** Why not all that was recorded can be replayed: somebody edited the graph meanwhile, say. Empty: all can. */
  std::string LimitOfRecording() const;

  /** Of the graph. All 0 before it is built. Any time on the controlling thread, callbacks included. */
  Figures CurrentFigures() const;
  /** What all blocks measured, in the order of the graph. Asks the routes, which answer between two frames. */
  std::vector<Reading> CurrentReadings() const;

  // After a Plan(), Check() or Run() that came to a plan; empty before.

  /** Whether a block writes to standard output, so that nothing else may: a filesink to "-". */
  bool WritesStandardOutput() const;

  /** A graph file of the same graph with nothing left open: reading it gives the same plan again. */
  std::string ToDot() const;
  /** A table for people: one line a link and a FIFO, with their streams. */
  std::string ToTable() const;
  /** The plan as JSON: blocks, links and FIFOs. */
  std::string ToJson() const;
  /** A run as JSON: how it ended, figures of the graph and of its routes, and what the blocks measured. */
  std::string ToJson(const Result& result) const;
  /** The same of a replay, with a member `replay`: whether all outputs are the same, and each of them. */
  std::string ToJson(const Result& result, const std::vector<Comparison>& comparisons) const;

 private:
  struct Impl;
  explicit Graph(std::unique_ptr<Impl> newImpl);

  std::unique_ptr<Impl> impl;
};

}  // namespace vorn

#endif
