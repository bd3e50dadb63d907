#include "FifoPlanning.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "Arguments.h"
#include "DryRun.h"
#include "StreamText.h"

namespace vorn::graph {
namespace {

double Seconds(const Stream& stream) { return static_cast<double>(stream.frame) / stream.rate; }

/** A filter looks ahead: so many samples of the lower rate, and somewhat fewer in every quality of `resample`. */
constexpr double LOOK_AHEAD = 2048;

/** What a block may keep of a stream, in seconds: what it gathers for frames of another size or another rate. */
double Kept(const Stream& in, const Stream& out) {
  const double filter = in.rate == out.rate ? 0 : LOOK_AHEAD / std::min(in.rate, out.rate);
  const bool isSameLength = in.frame * out.rate == out.frame * in.rate;
  return filter + (isSameLength ? 0 : std::max(Seconds(in), Seconds(out)));
}

/** Whether a block has more to give than it gets, now and then, and then has its sources wait. */
bool HoldsBack(const Stream& in, const Stream& out) { return in.rate != out.rate || out.frame < in.frame; }

/** Of the longest way through a route. */
struct Delay {
  double seconds = 0;
  bool holdsBack = false;

  void Include(const Delay& other) {
    seconds = std::max(seconds, other.seconds);
    holdsBack = holdsBack || other.holdsBack;
  }
};

class FifoPlanner {
 public:
  FifoPlanner(GraphPlan& newPlan, const std::vector<std::size_t>& newOrder)
      : plan(newPlan), order(newOrder), delays(plan.routes.size()) {}

  std::optional<Error> Plan() {
    for (FifoPlan& fifo : plan.fifos) {
      if (auto error = SettleStream(fifo)) return error;
    }
    MeasureDelays();
    FindParallelWays();
    for (std::size_t i = 0; i < plan.fifos.size(); ++i) {
      if (auto error = SettleCapacity(i)) return error;
    }
    TakeWhatIsThere();
    return CheckDeadlock();
  }

 private:
  const Node& NodeOf(const FifoPlan& fifo) const { return plan.graph.nodes[fifo.node]; }
  std::string NameOf(std::size_t node) const { return Quoted(plan.graph.nodes[node].name); }
  std::size_t From(const FifoPlan& fifo) const { return plan.graph.nodes[fifo.writer].route; }
  std::size_t To(const FifoPlan& fifo) const { return plan.graph.nodes[fifo.reader].route; }

  std::optional<Error> SettleStream(FifoPlan& fifo) const {
    Stream written = StreamInto(plan, fifo);
    Stream read;
    for (const std::size_t out : plan.blocks[fifo.reader].outs) {
      const Stream& stream = plan.links[out].stream;
      if (fifo.readFrame == 0) read = stream;
      fifo.readFrame = std::max<long>(fifo.readFrame, stream.frame);
    }
    fifo.writtenFrame = written.frame;
    written.frame = read.frame = 0;
    if (const auto difference = Compare(written, read); difference.Any()) {
      return Error{NodeOf(fifo).at, "FIFO " + NameOf(fifo.node) + ": " + NameOf(fifo.writer) + " writes " +
                                        Describe(written, difference) + ", " + NameOf(fifo.reader) + " reads " +
                                        Describe(read, difference) + "; put " + Menders(difference) + " before " +
                                        NameOf(fifo.writer)};
    }
    fifo.stream = written;
    fifo.stream.Complete(read);
    Settle(fifo.stream);
    fifo.stream.frame = std::max(fifo.writtenFrame, fifo.readFrame);
    fifo.prefill = NodeOf(fifo).prefill;
    return std::nullopt;
  }

  // Sizes

  void MeasureDelays() {
    std::vector<Delay> behind(plan.blocks.size());  // by node, where its streams leave
    for (const std::size_t node : order) {
      const BlockPlan& block = plan.blocks[node];
      for (const std::size_t in : block.ins) Pass(behind[plan.links[in].from], plan.links[in].stream, node, behind);
      if (block.reads == BlockPlan::NO_FIFO) continue;
      const FifoPlan& fifo = plan.fifos[block.reads];
      if (fifo.readFrame > fifo.writtenFrame)
        behind[node].seconds += static_cast<double>(fifo.readFrame) / fifo.stream.rate;
      delays[To(fifo)].Include(behind[node]);
    }
  }

  void Pass(const Delay& before, const Stream& in, std::size_t node, std::vector<Delay>& behind) {
    Delay longest = before;
    for (const std::size_t out : plan.blocks[node].outs) {
      const Stream& stream = plan.links[out].stream;
      longest.Include({before.seconds + Kept(in, stream), HoldsBack(in, stream)});
    }
    behind[node].Include(longest);
    delays[plan.graph.nodes[node].route].Include(longest);
  }

  /** By route, a number that it shares with those that it is joined with. */
  std::vector<std::size_t> Groups(const std::vector<bool>& isCut) const {
    std::vector<std::size_t> groups(plan.routes.size());
    std::iota(groups.begin(), groups.end(), 0);
    for (std::size_t i = 0; i < plan.fifos.size(); ++i) {
      const std::size_t from = groups[From(plan.fifos[i])];
      const std::size_t to = groups[To(plan.fifos[i])];
      if (!isCut[i]) std::ranges::replace(groups, from, to);
    }
    return groups;
  }

  /** Those that are still joined when one FIFO is cut have another way between them. */
  void FindParallelWays() {
    std::vector<bool> isCut(plan.fifos.size());
    hasNoOther = isCut;
    for (std::size_t i = 0; i < plan.fifos.size(); ++i) {
      isCut[i] = true;
      const auto groups = Groups(isCut);
      hasNoOther[i] = groups[From(plan.fifos[i])] != groups[To(plan.fifos[i])];
      isCut[i] = false;
    }
    circles = Groups(hasNoOther);
  }

  /** Of what the other ways keep back, this one holds twice as much. */
  long CapacityFor(std::size_t index) const {
    const FifoPlan& fifo = plan.fifos[index];
    const long rate = fifo.stream.rate;
    const long least = fifo.prefill + std::max<long>(4 * fifo.stream.frame, rate / 10);
    if (hasNoOther[index]) return least;
    double seconds = 0;
    for (std::size_t i = 0; i < delays.size(); ++i) {
      if (circles[i] == circles[From(fifo)]) seconds += delays[i].seconds;
    }
    return least + std::lround(std::ceil(2 * seconds * rate));
  }

  std::optional<Error> SettleCapacity(std::size_t index) {
    FifoPlan& fifo = plan.fifos[index];
    fifo.capacity = NodeOf(fifo).capacity.value_or(CapacityFor(index));
    if (fifo.capacity >= 2 * fifo.stream.frame) return std::nullopt;
    return Error{NodeOf(fifo).at, "FIFO " + NameOf(fifo.node) + ": a capacity of " + std::to_string(fifo.capacity) +
                                      " samples is less than two frames: " + NameOf(fifo.writer) + " writes " +
                                      std::to_string(fifo.writtenFrame) + ", " + NameOf(fifo.reader) + " reads " +
                                      std::to_string(fifo.readFrame) + "; expected at least " +
                                      std::to_string(2 * fifo.stream.frame)};
  }

  // Deadlocks

  std::optional<Error> CheckDeadlock() {
    const auto waits = FindDeadlock(plan, order);
    if (waits.empty() || !IsCircle(waits) || !IsCertain(waits)) return std::nullopt;
    const auto forRoom = std::ranges::find(waits, true, &Wait::forRoom);
    return forRoom == waits.end() ? NeedsPrefill(waits) : NeedsCapacity(waits, *forRoom);
  }

  /**
   * Between routes, sources that pause may end a wait that no size ends here: what only looks like a deadlock is left
   * to the run, which finds it where it is one.
   */
  bool IsCertain(const std::vector<Wait>& waits) {
    const auto isInOneRoute = [&](const Wait& one) { return From(plan.fifos[one.fifo]) == To(plan.fifos[one.fifo]); };
    if (std::ranges::all_of(waits, isInOneRoute)) return true;
    const std::vector<FifoPlan> settled = plan.fifos;
    const bool isForRoom = std::ranges::find(waits, true, &Wait::forRoom) != waits.end();
    for (const Wait& one : waits) {
      FifoPlan& fifo = plan.fifos[one.fifo];
      if (one.forRoom != isForRoom) continue;
      if (!isForRoom) fifo.prefill += fifo.readFrame + CapacityFor(one.fifo);
      fifo.capacity = CapacityFor(one.fifo);
      if (isForRoom) break;
    }
    const bool isEnded = FindDeadlock(plan, order).empty();
    plan.fifos = settled;
    return isEnded;
  }

  /** Whether each route that is waited for is the one that waits next. */
  bool IsCircle(const std::vector<Wait>& waits) const {
    for (std::size_t i = 0; i < waits.size(); ++i) {
      const Wait& next = waits[(i + 1) % waits.size()];
      const FifoPlan& fifo = plan.fifos[waits[i].fifo];
      const FifoPlan& nextFifo = plan.fifos[next.fifo];
      if ((waits[i].forRoom ? To(fifo) : From(fifo)) != (next.forRoom ? From(nextFifo) : To(nextFifo))) return false;
    }
    return true;
  }

  Error NeedsPrefill(const std::vector<Wait>& waits) {
    const Wait wait = *std::ranges::max_element(waits, {}, [&](const Wait& one) {
      return std::pair(plan.fifos[one.fifo].closesCycle, plan.fifos[one.fifo].prefill);
    });
    FifoPlan& fifo = plan.fifos[wait.fifo];
    const long given = fifo.prefill;
    double seconds = 0;
    for (const Wait& one : waits) seconds += delays[From(plan.fifos[one.fifo])].seconds;
    fifo.prefill = fifo.readFrame + std::lround(std::ceil(seconds * fifo.stream.rate));
    fifo.capacity = CapacityFor(wait.fifo);
    const auto [split, isSurer] = Split(waits);
    std::string remedy = isSurer ? split : Remedy(wait, "prefill", fifo.prefill, given);
    if (!isSurer && !split.empty()) remedy += ", or " + split;
    return {NodeOf(fifo).at, "FIFO " + NameOf(fifo.node) +
                                 " closes a cycle, in which everybody would wait: " + ListOf(waits) + "; " + remedy};
  }

  Error NeedsCapacity(const std::vector<Wait>& waits, const Wait& wait) {
    FifoPlan& fifo = plan.fifos[wait.fifo];
    const long given = fifo.capacity;
    fifo.capacity = CapacityFor(wait.fifo);
    return {NodeOf(fifo).at, "FIFO " + NameOf(fifo.node) + " is too small, and everybody would wait: " + ListOf(waits) +
                                 "; " + Remedy(wait, "capacity", fifo.capacity, given)};
  }

  std::string ListOf(const std::vector<Wait>& waits) const {
    std::string list;
    for (const Wait& wait : waits) {
      const FifoPlan& fifo = plan.fifos[wait.fifo];
      const std::size_t user = wait.forRoom ? fifo.writer : fifo.reader;
      list += (list.empty() ? "" : ", ") + NameOf(user) + " (" + plan.graph.routes[plan.graph.nodes[user].route].name +
              ") for " + (wait.forRoom ? "room in " : "") + NameOf(fifo.node);
    }
    return list;
  }

  /** Once the plan has it. */
  std::string Remedy(const Wait& wait, const std::string& what, long enough, long given) const {
    const auto waits = FindDeadlock(plan, order);
    if (std::ranges::find(waits, wait) != waits.end()) {
      return "no " + what + " is enough, since in the long run more is " +
             (wait.forRoom ? "written than read" : "read than written") + "; make the frames equally long";
    }
    return "give it a " + what + " of " + std::to_string(enough) + (given > 0 ? ", not " + std::to_string(given) : "");
  }

  /** Where only the thread of a route joins a reader and a writer. @return surer than a prefill, where the writer's sources pause. */
  std::pair<std::string, bool> Split(const std::vector<Wait>& waits) const {
    for (std::size_t i = 0; i < waits.size(); ++i) {
      const std::size_t writer = plan.fifos[waits[i].fifo].writer;
      const std::size_t reader = plan.fifos[waits[(i + 1) % waits.size()].fifo].reader;
      if (Feeds(reader, writer)) continue;
      return {"put " + NameOf(writer) + " and " + NameOf(reader) + " into routes of their own",
              delays[From(plan.fifos[waits[i].fifo])].holdsBack};
    }
    return {};
  }

  bool Feeds(std::size_t source, std::size_t node) const {
    std::vector<bool> isBefore(plan.blocks.size());
    isBefore[node] = true;
    for (std::size_t i = order.size(); i-- > 0;) {
      if (!isBefore[order[i]]) continue;
      for (const std::size_t in : plan.blocks[order[i]].ins) isBefore[plan.links[in].from] = true;
    }
    return isBefore[source];
  }

  // Circles of routes

  /**
   * Where what a route reads depends on what it writes, the last frame of a stream is short, and its reader would wait
   * for the rest of it for ever: so it takes what is there.
   */
  void TakeWhatIsThere() {
    for (const FifoPlan& fifo : plan.fifos) {
      BlockPlan& reader = plan.blocks[fifo.reader];
      const auto isSaid = [](const std::string& arg) { return arg.starts_with("whole="); };
      const bool mayTake = LeadsTo(To(fifo), From(fifo)) && FindParameter(reader, "whole");
      if (mayTake && std::ranges::none_of(reader.args, isSaid)) reader.args.emplace_back("whole=false");
      reader.takesAny = !FlagOf(reader, "whole", true);
    }
  }

  bool LeadsTo(std::size_t route, std::size_t other) const {
    std::vector<std::size_t> reached{route};
    for (std::size_t i = 0; i < reached.size(); ++i) {
      if (reached[i] == other) return true;
      for (const std::size_t fifo : plan.routes[reached[i]].writes) {
        const std::size_t next = To(plan.fifos[fifo]);
        if (std::ranges::find(reached, next) == reached.end()) reached.push_back(next);
      }
    }
    return false;
  }

  GraphPlan& plan;
  const std::vector<std::size_t>& order;
  std::vector<Delay> delays;         // by route
  std::vector<bool> hasNoOther;      // by FIFO: its two routes are joined by it alone
  std::vector<std::size_t> circles;  // by route: equal where several ways lead
};

}  // namespace

Stream StreamInto(const GraphPlan& plan, const FifoPlan& fifo) {
  const auto& ins = plan.blocks[fifo.writer].ins;
  return ins.empty() ? Stream() : plan.links[ins.front()].stream;
}

std::optional<Error> PlanFifos(GraphPlan& plan, const std::vector<std::size_t>& order) {
  return FifoPlanner(plan, order).Plan();
}

}  // namespace vorn::graph
