// Blocks that a test makes itself, from inside the plug-in "probe".
#pragma once

#include <gtest/gtest.h>
#include <vorn/Route.h>

#include <numeric>

#include "testkit/Log.h"
#include "testkit/Wait.h"

namespace testkit {

using vorn::Block, vorn::Link, vorn::Route, vorn::SampleFormat;

inline void Log::WaitFor(const std::string& line) {
  EXPECT_TRUE(WaitUntil([&] { return Has(line); })) << line;
}

enum Ends { MIDDLE = 0, FIRST = 1, LAST = 2, ALONE = 3 };

/** What a probe answers at its first call, its second and so on; the last answer stays. */
using Script = std::vector<long>;

/** Follows a script. The number of the call goes over its links: forth as samples and stamp, back as frame size. */
struct Probe : Block {
  Probe(bool isFirst, bool isLast, const char* sub, Script answers = {0})
      : Block(isFirst, isLast), subname(sub), script(answers) {}
  const char* Subname() const override { return subname; }
  int OnInEpLinked(unsigned long) override { return linkResult; }
  int OnOutEpLinked(unsigned long) override { return linkResult; }
  int Start() override { return ++starts, startResult; }
  int Stop() override { return ++stops, stopResult; }
  void Reset() override { ++resets; }
  long ProcessFrame() override {
    const int call = ++calls;
    for (const auto& [index, ep] : ActiveOutEps()) ep->FB()->samples = ep->FB()->timestamp = call;
    for (const auto& [index, ep] : ActiveInEps()) ep->FB()->samplesPerFrame = call;
    ClearActiveInEpsData();
    return script[std::min(static_cast<std::size_t>(call), script.size()) - 1];
  }
  /** Whether what the last call did went over all links, and there was one. The route is stopped. */
  bool Committed() const {
    bool all = calls > 0;
    for (const auto& [index, ep] : ActiveOutEps()) all = all && ep->Peer()->FB()->timestamp == calls;
    for (const auto& [index, ep] : ActiveInEps()) all = all && ep->Peer()->FB()->samplesPerFrame == calls;
    return all;
  }

  const char* const subname;
  Script script;  // this and the results are set while the route does not run
  int linkResult = 0, startResult = 0, stopResult = 0;
  std::atomic<int> calls{0}, starts{0}, stops{0}, resets{0};
};

/** A block of class T, made with (first, last, args...) from a file that is "probe"; null where the route refused it. */
template <class T = Probe, class... Args>
T* Load(Route& route, const std::string& file, Ends ends, Args... args) {
  const std::function<Block*(bool, bool)> make = [&](bool first, bool last) { return new T(first, last, args...); };
  const std::string address = std::to_string(reinterpret_cast<std::uintptr_t>(&make));
  return static_cast<T*>(route.NewBlock(file.c_str(), ends & FIRST, ends & LAST, {address}));
}

template <class T = Probe, class... Args>
T* Add(Route& route, Ends ends, Args... args) {
  return Load<T>(route, "libprobe.so", ends, args...);
}

/** A link of the stream that a test uses where any will do. */
inline Link* Join(Route& route, Block* source, Block* sink, std::size_t out = 0, std::size_t in = 0) {
  return route.NewLink(48000, SampleFormat::S16_LE, 2, 4, source, out, sink, in);
}

struct Recorder : Route::Callbacks {
  void OnStarted() override { Log::Add("OnStarted"); }
  void OnStopped(Route::StopReason reason) override {
    Log::Add("OnStopped " + std::to_string(static_cast<int>(reason)));
  }
  void OnExit() override { Log::Add("OnExit"); }
};

}  // namespace testkit

using namespace testkit;
