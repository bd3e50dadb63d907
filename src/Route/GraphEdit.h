// An edit on its way: what is asked for, what the graph is to be, and the change that makes it so.
//
// All that can fail comes first, and leaves a trace only in memory that the edit gives back: names and new blocks, room
// for links. Then links change their ends (Rewire), new links ask the blocks at them, new blocks start; until here Undo
// puts everything back. Commit ends it, and cannot fail: only now do blocks that stay hear of links that go, so what a
// block does when it is unlinked is never to be undone.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <vorn/Edit.h>
#include <vorn/kit/RouteBoard.h>

#include "Route/LoadedBlock.h"
#include "Route/RouteImpl.h"

namespace vorn {

/** The steps of an Edit, as they were written. */
class EditImpl {
 public:
  enum class Kind { NEW_BLOCK, NEW_LINK, DELETE, SET_PARAMETER, INSERT, REMOVE, REPLACE, TAP };
  struct Step {
    Kind kind;
    Edit::Instance what{""};  // a block or a link; the source of a new link
    Edit::Instance sink{""};
    std::size_t output = 0;
    std::size_t input = 0;
    FrameBuffer stream{};  // of a new link
    std::string text{};    // the plug-in's file, or the parameter
    bool first = false;
    bool last = false;
    Edit::Texts texts{};  // arguments, or values

    /** Whether it makes a block of a plug-in. */
    bool Loads() const {
      return kind == Kind::NEW_BLOCK || kind == Kind::INSERT || kind == Kind::REPLACE || kind == Kind::TAP;
    }
  };

  static const std::vector<Step>& StepsOf(const Edit& edit) { return edit.impl->steps; }
  /** @return what the step makes. */
  static Edit::Instance Add(Edit& edit, Step step);
  static const void* PointerOf(const Edit::Instance& which) { return which.pointer; }
  static const std::string& NameOf(const Edit::Instance& which) { return which.name; }
  /** From 1; 0: it is none that a step makes. */
  static std::size_t StepOf(const Edit::Instance& which) { return which.step; }

  std::vector<Step> steps;
};

/** What an edit's caller and the route's thread hand to each other. */
struct EditJob {
  enum class Outcome {
    LEFT,       // nobody carries it out any more
    DONE,       //
    REFUSED,    //
    NEEDS_TEE,  // one more than there are; nothing is changed
    BUSY,       // two frames wait where only one can; nothing is changed
  };

  const std::vector<EditImpl::Step>& steps;
  std::vector<LoadedBlock> made{};  // one a step; of those that load none without a block
  std::vector<LoadedBlock> tees{};
  Outcome outcome = Outcome::LEFT;
  EditResult result{};
  std::vector<LoadedBlock> leaving{};  // out of the graph: to be stopped and deleted
  RouteBoard failed{};                 // that of blocks whose edit came to nothing
};

/** Thread: the route's. */
class GraphEdit {
 public:
  GraphEdit(RouteImpl& newRoute, EditJob& newJob) : route(newRoute), job(newJob) {}
  GraphEdit(const GraphEdit&) = delete;
  GraphEdit& operator=(const GraphEdit&) = delete;

  /** Does it or leaves no trace, and says so in the job. */
  void Run();

 private:
  using Step = EditImpl::Step;

  struct Refused {
    std::string why;
  };
  /** The caller has to try again. */
  struct Retry {
    EditJob::Outcome why;
  };

  struct Node {
    Block* block;
    bool isNew;
    bool isGone = false;
  };
  /** A link as it is to be, and as it was. */
  struct Wire {
    Link* link;  // null until a new one is made
    std::string name;
    OutputEndpoint* source;
    InputEndpoint* sink;
    FrameBuffer stream;
    OutputEndpoint* oldSource = nullptr;  // null: it is new
    InputEndpoint* oldSink = nullptr;
    bool isGone = false;
    const Wire* heir = nullptr;  // of one that goes: the link that takes over a frame which waits in it

    bool IsNew() const { return oldSource == nullptr; }
    /** Has other ends than before, or new ones. */
    bool IsMoved() const { return !isGone && (source != oldSource || sink != oldSink); }
  };
  /** A frame that waits in a link. */
  struct Waiting {
    Wire* wire;
    FrameBuffer frame;
    std::vector<std::uint8_t> bytes;
  };
  struct SavedEnd {
    Endpoint* ep;
    Link* link;
    FrameBuffer fb;
  };
  struct NewBlock {
    LoadedBlock* loaded;
    bool isEntered = false;
  };
  struct Setting {
    Block* block;
    unsigned id;
    const Edit::Texts* values;
    Edit::Texts before{};
  };

  // EditPlan.cpp: works out what is to be. Throws Refused, Retry, or std::bad_alloc.
  void ReadGraph();
  void PlanStep(std::size_t index);
  void PlanNewLink(const Step& step);
  void PlanDelete(const Step& step);
  void PlanInsert(Wire& wire, Block& block);
  void PlanRemove(Node& node);
  void PlanReplace(Node& node, Block& block);
  void PlanTap(Wire& wire, Block& block);
  void Join(Wire& in, Wire& out);
  void Inherit();
  void CheckEndpoints() const;
  void CheckWhole() const;
  Block& Enlist(LoadedBlock& loaded);
  Wire& AddWire(const FrameBuffer& stream, OutputEndpoint* source, InputEndpoint* sink);
  Node* FindBlock(const Edit::Instance& which);
  Wire* FindLink(const Edit::Instance& which);
  Node& BlockOf(const Edit::Instance& which);
  Wire& LinkOf(const Edit::Instance& which);
  std::vector<Wire*> Inputs(const Block& block);
  std::vector<Wire*> Outputs(const Block& block);
  bool HasLink(const Endpoint& ep) const;
  bool IsTee(const Block& block) const;
  /** What a block lacks; empty where it has the links that it needs. */
  std::string LackOf(const Block& block) const;
  /** What the whole graph lacks. */
  std::string Lack() const;
  std::string Called(const Edit::Instance& which, const char* kind) const;

  // EditChange.cpp
  void Prepare();
  void MakeLinks();
  void SaveEnds();
  void SaveFrames();
  void Rewire();
  void AskHooks();
  void AskHook(Block& block, int (Block::*hook)(unsigned long), const Endpoint& ep, const Wire& wire);
  void SetNewBlocks();
  void SetOthers();
  void Set(Setting& setting);
  void Start();
  void StartOne(Block& block);
  void PutFramesBack();
  void Report();
  void Commit();
  void DropLinks();
  void DropBlocks();
  void MeetNeighbours();
  void Undo();
  void GiveBack(const Wire& wire);
  void UndoSettings();
  void UndoHooks();
  void Forsake(NewBlock& comer);
  void Disown(Block& block, RouteBoard* board);
  Setting SettingOf(const Step& step);
  bool IsNew(const Block* block) const;
  bool Goes() const;

  RouteImpl& route;
  EditJob& job;

  // What is to be.
  std::deque<Node> nodes;
  std::deque<Wire> wires;
  std::vector<Block*> madeBlocks;  // by step
  std::vector<Wire*> madeWires;
  std::vector<Block*> neighbours;  // of what Remove takes out: to keep what they need
  std::vector<NewBlock> comers;
  std::size_t teesUsed = 0;
  std::string lackBefore;
  std::string lackAfter;

  // What is done, for Undo and Commit.
  std::vector<std::unique_ptr<Link>> newLinks;
  std::vector<SavedEnd> ends;
  std::vector<Waiting> frames;
  std::vector<Setting> settings;  // of blocks that are not new, as far as they are done
  std::vector<Endpoint*> hooked;  // of blocks that are not new
  std::vector<Block*> started;
  std::set<Link*> comingLinks, goingLinks;
  std::set<Block*> goingBlocks;
  std::map<const Block*, RouteImpl::Origin> goingOrigins;
  bool isRewired = false;
  bool wasFailed = false;
};

}  // namespace vorn
