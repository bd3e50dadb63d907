// An edit from its caller's side: blocks are made before the route's thread is asked, and end after it.
#include <exception>
#include <new>
#include <stdexcept>
#include <utility>

#include "Block/Topology.h"
#include "Block/Whereabouts.h"
#include "Log.h"
#include "Route/GraphEdit.h"

namespace vorn {
namespace {

using Kind = EditImpl::Kind;
using Outcome = EditJob::Outcome;

constexpr int MOST_TRIES = 100;  // with a cycle between them
constexpr const char* TEE = "libtee.so";

struct Unmade : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/** What a new block is told that takes the place of this one. */
std::pair<bool, bool> EndsOf(const RouteImpl& route, const Edit::Instance& which) {
  const Topology::Lock lock;
  for (const Block* block : route.Blocks_l()) {
    const void* const pointer = EditImpl::PointerOf(which);
    if (pointer ? block == pointer : block->Name() == EditImpl::NameOf(which))
      return {block->IsFirst(), block->IsLast()};
  }
  return {};  // the route's thread says that there is none
}

LoadedBlock Load(const RouteImpl& route, const std::string& file, bool first, bool last, const Edit::Texts& args) {
  std::string why;
  LoadedBlock loaded = LoadBlock(route.Name(), file, first, last, args, why);
  if (!loaded.block) throw Unmade(why);
  return loaded;
}

void MakeBlocks(const RouteImpl& route, EditJob& job) {
  const Whereabouts::Excursion excursion;
  for (const EditImpl::Step& step : job.steps) {
    auto [first, last] = std::pair(step.first, step.last);
    if (step.kind == Kind::REPLACE) std::tie(first, last) = EndsOf(route, step.what);
    job.made.push_back(step.Loads() ? Load(route, step.text, first, last, step.texts) : LoadedBlock());
  }
}

/** No route calls it any more. What it throws changes nothing: it goes. */
void End(LoadedBlock& leaving) try {
  if (!leaving.block) return;
  Block& block = *leaving.block;
  Whereabouts::InBlock(block);
  if (const int ret = block.BaseStop(); ret < 0) LOG_W("%s did not stop well (%d)", block.Name().c_str(), ret);
  while (!block.ActiveInEps().empty()) block.BaseOnInEpUnlinked(block.ActiveInEps().begin()->first);
  while (!block.ActiveOutEps().empty()) block.BaseOnOutEpUnlinked(block.ActiveOutEps().begin()->first);
} catch (const std::exception& e) {
  LOG_W("%s did not stop well: %s", leaving.block->Name().c_str(), e.what());
}

/** Stops and deletes what is in nobody's graph. */
void EndBlocks(EditJob& job) {
  const Whereabouts::Excursion excursion;
  for (auto* list : {&job.leaving, &job.made, &job.tees}) {
    for (LoadedBlock& block : *list) End(block);
    list->clear();
  }
}

void CarryOut(RouteImpl& route, EditJob& job) {
  MakeBlocks(route, job);
  for (int tries = 0; tries < MOST_TRIES; ++tries) {
    job.outcome = Outcome::LEFT;
    route.CarryOut(job);
    if (job.outcome == Outcome::NEEDS_TEE) {
      const Whereabouts::Excursion excursion;
      job.tees.push_back(Load(route, TEE, false, false, {}));
    } else if (job.outcome != Outcome::BUSY || route.CurrentStatus() != RouteImpl::RUNNING) {
      break;
    }
  }
}

std::string FailureOf(const RouteImpl& route) {
  if (route.IsLost()) return "the thread of " + route.Name() + " has ended: " + route.LastReason();
  if (route.IsOwnThread()) return "called from the route's own thread, which would wait for itself";
  return {};
}

EditResult ResultOf(EditJob& job) {
  if (job.outcome == Outcome::BUSY)
    job.result.reason = "frames wait before and behind the block, and nobody takes them";
  if (job.outcome == Outcome::LEFT) job.result.reason = "the process ends";
  return std::move(job.result);
}

EditImpl::Step Loading(Kind kind, const Edit::Instance& what, const std::string& file, const Edit::Texts& args) {
  EditImpl::Step step{kind};
  step.what = what;
  step.text = file;
  step.texts = args;
  return step;
}

EditImpl::Step Naming(Kind kind, const Edit::Instance& what) {
  EditImpl::Step step{kind};
  step.what = what;
  return step;
}

}  // namespace

Edit::Edit() : impl(std::make_unique<EditImpl>()) {}
Edit::~Edit() = default;
Edit::Edit(Edit&& other) noexcept = default;
Edit& Edit::operator=(Edit&& other) noexcept = default;

Edit::Instance EditImpl::Add(Edit& edit, Step step) {
  edit.impl->steps.push_back(std::move(step));
  Edit::Instance made("");
  made.step = edit.impl->steps.size();
  return made;
}

Edit::Instance Edit::NewBlock(const std::string& soFileName, bool first, bool last, const Texts& args) {
  EditImpl::Step step = Loading(Kind::NEW_BLOCK, "", soFileName, args);
  step.first = first;
  step.last = last;
  return EditImpl::Add(*this, std::move(step));
}

Edit::Instance Edit::NewLink(unsigned int rate, SampleFormat format, unsigned int channels, long samplesPerFrame,
                             const Instance& source, std::size_t sourceBlkOutEpIdx, const Instance& sink,
                             std::size_t sinkBlkInEpIdx) {
  EditImpl::Step step = Naming(Kind::NEW_LINK, source);
  step.sink = sink;
  step.output = sourceBlkOutEpIdx;
  step.input = sinkBlkInEpIdx;
  step.stream.rate = rate;
  step.stream.format = format;
  step.stream.channels = channels;
  step.stream.samplesPerFrame = samplesPerFrame;
  return EditImpl::Add(*this, std::move(step));
}

void Edit::Delete(const Instance& instance) { EditImpl::Add(*this, Naming(Kind::DELETE, instance)); }

void Edit::SetParameter(const Instance& block, const std::string& parameter, const Texts& values) {
  EditImpl::Add(*this, Loading(Kind::SET_PARAMETER, block, parameter, values));
}

Edit::Instance Edit::Insert(const Instance& link, const std::string& soFileName, const Texts& args) {
  return EditImpl::Add(*this, Loading(Kind::INSERT, link, soFileName, args));
}

void Edit::Remove(const Instance& block) { EditImpl::Add(*this, Naming(Kind::REMOVE, block)); }

Edit::Instance Edit::Replace(const Instance& block, const std::string& soFileName, const Texts& args) {
  return EditImpl::Add(*this, Loading(Kind::REPLACE, block, soFileName, args));
}

Edit::Instance Edit::Tap(const Instance& link, const std::string& soFileName, const Texts& args) {
  EditImpl::Step step = Loading(Kind::TAP, link, soFileName, args);
  step.last = true;
  return EditImpl::Add(*this, std::move(step));
}

EditResult Route::Execute(const Edit& edit) {
  auto& route = static_cast<RouteImpl&>(*this);
  EditJob job{EditImpl::StepsOf(edit)};
  job.failed.failed = true;
  try {
    job.result.reason = FailureOf(route);
    if (!job.result.reason.empty()) return job.result;
    CarryOut(route, job);
    EndBlocks(job);
    return ResultOf(job);
  } catch (const Unmade& unmade) {
    job.result.reason = unmade.what();
  } catch (const std::bad_alloc&) {
    job.result.reason = "out of memory";
  }
  EndBlocks(job);
  return std::move(job.result);
}

EditResult Route::Insert(const Edit::Instance& link, const std::string& soFileName, const Edit::Texts& args) {
  Edit edit;
  edit.Insert(link, soFileName, args);
  return Execute(edit);
}

EditResult Route::Remove(const Edit::Instance& block) {
  Edit edit;
  edit.Remove(block);
  return Execute(edit);
}

EditResult Route::Replace(const Edit::Instance& block, const std::string& soFileName, const Edit::Texts& args) {
  Edit edit;
  edit.Replace(block, soFileName, args);
  return Execute(edit);
}

EditResult Route::Tap(const Edit::Instance& link, const std::string& soFileName, const Edit::Texts& args) {
  Edit edit;
  edit.Tap(link, soFileName, args);
  return Execute(edit);
}

}  // namespace vorn
