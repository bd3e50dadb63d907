// Two routes with a FIFO between them, and the edits that can be made to them while they run.
#pragma once

#include <vorn/Plugin.h>
#include <vorn/Vorn.h>

#include <functional>
#include <mutex>
#include <numeric>
#include <thread>

#include "random/Dice.h"

namespace soak {

using randomgraphs::Dice;
using vorn::Block, vorn::Link, vorn::Route;
using Words = std::vector<std::string>;

/** Where this does not hold, says what is wrong and ends the program. */
void Need(bool holds, const std::string& otherwise);

/** What a thread is at, for the case that it stands. */
using Step = std::atomic<const char*>;

constexpr long FRAME = 48;

/** Plays 0, 1, 2 and so on, some thousand frames a second. */
struct Source : Block {
  using Block::Block;
  const char* Subname() const override { return "src"; }
  long ProcessFrame() override {
    std::this_thread::sleep_for(std::chrono::microseconds(200));
    for (const auto& [index, ep] : ActiveOutEps()) {
      auto* const samples = reinterpret_cast<std::uint32_t*>(ep->FB()->data);
      std::iota(samples, samples + FRAME, next);
      ep->FB()->samples = FRAME;
    }
    next += FRAME;
    return vorn::FRAME_DONE;
  }
  std::uint32_t next = 0;
};

struct Sink : Block {
  using Block::Block;
  const char* Subname() const override { return "snk"; }
  long ProcessFrame() override { return ClearActiveInEpsData(), vorn::FRAME_DONE; }
};

/** Takes 0, 1, 2 and so on, and nothing else. */
struct Judge : Sink {
  using Sink::Sink;
  long ProcessFrame() override {
    const vorn::FrameBuffer& in = *InEp(0).FB();
    for (long i = 0; i < in.samples; ++i, ++next) {
      const std::uint32_t came = reinterpret_cast<const std::uint32_t*>(in.data)[i];
      Need(came == next, "sample " + std::to_string(next) + " came as " + std::to_string(came));
    }
    taken += in.samples;
    return Sink::ProcessFrame();
  }
  static inline std::atomic<long> taken{0};
  std::uint32_t next = 0;
};

/** What the plug-in "probe" is told, so that it makes a block of this program. */
template <class T>
const Words& Make() {
  static const std::function<Block*(bool, bool)> maker = [](bool first, bool last) { return new T(first, last); };
  static const Words args{std::to_string(reinterpret_cast<std::uintptr_t>(&maker))};
  return args;
}

// What a route is asked to do.
using Action = Route::Action;
inline Action New(const char* file, bool first, bool last, const Words& args, Block*& made) {
  return {.type = Action::Type::NEW_BLOCK, .newBlock = {file, first, last, &args, &made}};
}
inline Action Join(Block*& from, Block*& to) {
  return {.type = Action::Type::NEW_LINK,
          .newLink = {48000, vorn::SampleFormat::S32_LE, 1, FRAME, &from, 0, &to, 0, nullptr}};
}
inline Action Delete(void* instance) { return {.type = Action::Type::DELETE, .del = {instance, -20}}; }

/** All of it in one batch. */
inline void Do(Route& route, std::vector<Action> actions) {
  route.ExecuteActions(actions.data(), actions.size());
  for (const Action& action : actions) {
    if (action.type == Action::Type::NEW_BLOCK) Need(*action.newBlock.block, "a block was not made");
    if (action.type == Action::Type::NEW_LINK) Need(action.newLink.link, "a link was not made");
    if (action.type == Action::Type::DELETE) Need(action.del.ret == 0, "a block or link was not deleted");
  }
}

/** Source, some blocks, fifosink; fifosource, some blocks, sink. Thread: one for all operations. */
class Pair {
 public:
  /** @param routes two letters. @param newSink what the second route ends in. */
  Pair(const char* routes, Dice newDice, const Words& newSink = Make<Sink>())
      : dice(newDice),
        sink(newSink),
        put(routes[0], [this] { fifo->EndWriting(); }),
        get(routes[1], [this] { fifo->EndReading(); }) {
    Build();
  }
  ~Pair() { TakeDown(); }

  void StartBoth() {
    fifo->BeginWriting();
    fifo->BeginReading();
    Need(get.route->Start() == 0 && put.route->Start() == 0, "not started");
  }

  /** What is thrown for it does not depend on how far the routes are: the same seed makes the same edits. */
  void Edit(Step& step) {
    const struct {
      const char* name;
      void (Pair::*make)(Chain&);
    } edits[] = {{"insert", &Pair::Insert}, {"remove", &Pair::Remove},   {"break", &Pair::Break},
                 {"dump", &Pair::Dump},     {"restart", &Pair::Restart}, {"new FIFO", &Pair::ChangeFifo},
                 {"renew", &Pair::Renew}};
    const auto& edit = edits[dice.Below(std::size(edits))];
    Chain& chain = dice.Chance(50) ? put : get;
    step = "start";
    if (dice.Chance(70) && !(put.runs && get.runs)) Restart(chain);
    if (chain.runs) ++editsOfRunning;
    step = edit.name;
    (this->*edit.make)(chain);
  }
  static inline std::atomic<long> editsOfRunning{0};

 private:
  struct Chain : Route::Callbacks {
    Chain(char letter, std::function<void()> tell) : name(std::string("Route") + letter), tellOther(std::move(tell)) {}
    void OnStarted() override { runs = true; }
    void OnStopped(Route::StopReason) override { runs = false, tellOther(); }
    const std::string name;
    const std::function<void()> tellOther;  // that nobody is at this end of the FIFO any more
    std::atomic<bool> runs{false};
    Route* route = nullptr;
    std::vector<Block*> blocks;
  };

  void Build() {
    Build(put, {"libprobe.so", "libfifosink.so"}, Make<Source>(), {});
    Build(get, {"libfifosource.so", "libprobe.so"}, {}, sink);
    NewFifo();
  }

  static void Build(Chain& chain, std::array<const char*, 2> files, const Words& first, const Words& last) {
    {
      const std::lock_guard lock(controlling);
      chain.route = vorn::Vorn::Instance()->NewRoute(chain.name.c_str(), &chain);
    }
    chain.blocks.resize(2);
    Block*& from = chain.blocks[0];
    Block*& to = chain.blocks[1];
    Do(*chain.route, {New(files[0], true, false, first, from), New(files[1], false, true, last, to), Join(from, to)});
  }

  void NewFifo() {
    const std::lock_guard lock(controlling);
    vorn::Vorn::Instance()->DeleteFIFO(fifo);
    fifo = vorn::Vorn::Instance()->NewFIFO(48000, sizeof(std::uint32_t), dice.Between(1, 10 * FRAME), 0);
    vorn::AttachConsumer(put.blocks.back(), fifo);
    vorn::AttachProducer(get.blocks.front(), fifo);
  }

  // Whether they are stopped, run, or sleep in the FIFO at the time.
  void TakeDown() {
    if (dice.Chance(50)) StopBoth();
    fifo->Shutdown();
    if (dice.Chance(20)) get.route->DeleteAll();
    const std::lock_guard lock(controlling);
    for (Chain* chain : {&put, &get}) vorn::Vorn::Instance()->DeleteRoute(chain->route);
    vorn::Vorn::Instance()->DeleteFIFO(std::exchange(fifo, nullptr));
  }

  void StopBoth() {
    vorn::InterruptBlock(put.blocks.back());
    vorn::InterruptBlock(get.blocks.front());
    Need(put.route->Stop() == 0 && get.route->Stop() == 0, "not stopped");
    vorn::ResumeBlock(put.blocks.back());
    vorn::ResumeBlock(get.blocks.front());
  }

  void Insert(Chain& chain) {
    const std::size_t at = dice.Below(chain.blocks.size() - 1);
    const char* const file = dice.Chance(50) ? "libgain.so" : "libdelay.so";
    if (chain.blocks.size() > 6) return;
    Block *&before = chain.blocks[at], *&behind = chain.blocks[at + 1], *made = nullptr;
    Do(*chain.route,
       {Delete(LinkBehind(before)), New(file, false, false, ONE, made), Join(before, made), Join(made, behind)});
    chain.blocks.insert(chain.blocks.begin() + static_cast<long>(at) + 1, made);
  }

  void Remove(Chain& chain) {
    if (chain.blocks.size() < 3) return;
    const std::size_t at = 1 + dice.Below(chain.blocks.size() - 2);
    Do(*chain.route, {Delete(chain.blocks[at]), Join(chain.blocks[at - 1], chain.blocks[at + 1])});
    chain.blocks.erase(chain.blocks.begin() + static_cast<long>(at));
  }

  void Break(Chain& chain) {
    const std::size_t at = dice.Below(chain.blocks.size() - 1);
    Do(*chain.route, {Delete(LinkBehind(chain.blocks[at]))});
    Need(chain.route->Reset(chain.blocks[at]) == 0, "not reset");
    Do(*chain.route, {Join(chain.blocks[at], chain.blocks[at + 1])});
  }

  void Dump(Chain& chain) { chain.route->SetDump(dice.Chance(50) ? "dumps" : nullptr); }

  void Restart(Chain&) { StopBoth(), StartBoth(); }

  void ChangeFifo(Chain&) {
    StopBoth();
    vorn::AttachConsumer(put.blocks.back(), nullptr);
    vorn::AttachProducer(get.blocks.front(), nullptr);
    NewFifo();
  }

  void Renew(Chain&) { TakeDown(), Build(); }

  // Ours alone to change.
  static Link* LinkBehind(Block* block) { return block->OutEp(0).AttachedLink(); }

  static inline const Words ONE{"1"};
  static inline std::mutex controlling;  // one at a time makes and deletes routes and FIFOs

  Dice dice;
  const Words& sink;
  vorn::FIFO* fifo = nullptr;
  Chain put;
  Chain get;
};

}  // namespace soak
