// A real route for tests of blocks: what goes in, what comes out, and why it stopped.
#pragma once

#include <condition_variable>
#include <mutex>
#include <numeric>

#include <vorn/Plugin.h>
#include <vorn/Vorn.h>

#include "testkit/Files.h"

namespace testkit {

// What testsource plays and testsink recorded: one entry a frame. In a source, an entry without samples is a cycle
// without a frame.
struct Frame {
  std::vector<std::uint8_t> bytes;
  long samples = 0;
  long stamp = -1;
};
using Frames = std::vector<Frame>;

// Block::ioctl of testsource and testsink: `arg` is a Frames**.
constexpr unsigned FRAMES_COMMAND = 0x74657374;

constexpr auto END_OF_FILE = vorn::Route::StopReason::STOP_END_OF_FILE;

// Samples that carry their own index.
using Samples = std::vector<std::int16_t>;
inline Samples Count(long samples, int from = 1) {
  Samples counted(static_cast<std::size_t>(samples));
  std::iota(counted.begin(), counted.end(), static_cast<std::int16_t>(from));
  return counted;
}
inline Samples Sum(Samples a, const Samples& b) {
  a.resize(std::max(a.size(), b.size()));
  for (std::size_t i = 0; i < b.size(); ++i) a[i] = static_cast<std::int16_t>(a[i] + b[i]);
  return a;
}
inline Samples ReadSamples(const std::string& path) {
  const std::string bytes = Contents(path);
  Samples samples(bytes.size() / sizeof samples[0]);
  if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof samples[0]);
  return samples;
}
inline void WriteSamples(const std::string& path, const Samples& samples) {
  Write(path, {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof samples[0]});
}

struct StreamSpec {
  unsigned rate = 48000;
  vorn::SampleFormat format = vorn::SampleFormat::S16_LE;
  unsigned channels = 1;
  long frame = 480;

  std::size_t SampleBytes() const { return channels * vorn::BytesPerSample(format); }
};

inline StreamSpec Floats(unsigned rate, unsigned channels, long frame) {
  return {rate, vorn::SampleFormat::FLOAT_LE, channels, frame};
}

// One route, deleted at the end of the test.
class Graph : private vorn::Route::Callbacks {
 public:
  Graph() : route(vorn::Vorn::Instance()->NewRoute("RouteA", this)) {}
  ~Graph() override { vorn::Vorn::Instance()->DeleteRoute(route); }

  // `first` and `last` are told to blocks that leave it open; no more is needed for kit blocks.
  vorn::Block* Add(const std::string& name, const std::vector<std::string>& args = {}, bool first = false,
                   bool last = false) {
    return route->NewBlock(("lib" + name + ".so").c_str(), first, last, args);
  }
  bool Link(vorn::Block* from, std::size_t output, vorn::Block* to, std::size_t input, const StreamSpec& s) {
    return route->NewLink(s.rate, s.format, s.channels, s.frame, from, output, to, input) != nullptr;
  }
  // A chain over output 0 and input 0, all links alike.
  bool Chain(const std::vector<vorn::Block*>& blocks, const StreamSpec& s) {
    for (std::size_t i = 0; i + 1 < blocks.size(); ++i) {
      if (!blocks[i] || !blocks[i + 1] || !Link(blocks[i], 0, blocks[i + 1], 0, s)) return false;
    }
    return true;
  }

  // What goes into an input, and what leaves an output.
  template <class Sample>
  vorn::Block* Feed(vorn::Block* block, std::size_t input, const std::vector<Sample>& samples, const StreamSpec& s) {
    vorn::Block* source = Add("testsource");
    Link(source, 0, block, input, s);
    Play(source, samples, s);
    return source;
  }
  vorn::Block* Record(vorn::Block* block, std::size_t output, const StreamSpec& s) {
    vorn::Block* sink = Add("testsink");
    Link(block, output, sink, 0, s);
    return sink;
  }

  // Starts, and waits until the route stops by itself. Nothing when it did not start, or not stop within the deadline.
  std::optional<vorn::Route::StopReason> Run(std::chrono::seconds deadline = std::chrono::seconds(60)) {
    reason.reset();
    return route->Start() == 0 ? Wait(deadline) : std::nullopt;
  }
  // The same, with a parameter that is set between the start and the first frame: in one batch.
  std::optional<vorn::Route::StopReason> RunAfterSetting(vorn::Block* block, unsigned id, const std::string& value) {
    using Action = vorn::Route::Action;
    const std::vector<std::string> params{value};
    Action actions[2]{{Action::Type::START, {}}, {Action::Type::SET_PARAMETER, {}}};
    actions[1].setParameter = {block, id, &params, -20};
    reason.reset();
    route->ExecuteActions(actions, 2);
    return actions[1].setParameter.ret == 0 ? Wait() : std::nullopt;
  }
  std::optional<vorn::Route::StopReason> Wait(std::chrono::milliseconds deadline = std::chrono::seconds(60)) {
    std::unique_lock<std::mutex> lock(mutex);
    stopped.wait_for(lock, deadline, [this] { return reason.has_value(); });
    return std::exchange(reason, std::nullopt);
  }

  vorn::Route* operator->() const { return route; }

  // The parameters of a block that are numbers, by name.
  std::map<std::string, double> Numbers(vorn::Block* block) {
    std::vector<std::string> lines;
    route->GetParameter(block, vorn::PARAMETER_TABLE, lines);
    std::map<std::string, double> numbers;
    for (const std::string& line : lines) {
      char name[64];
      char value[64];
      if (std::sscanf(line.c_str(), "%*s %63s %*s %*s %63s", name, value) == 2) numbers[name] = std::atof(value);
    }
    return numbers;
  }

  static Frames& FramesOf(vorn::Block* block) {
    Frames* frames = nullptr;
    block->ioctl(FRAMES_COMMAND, &frames);
    return *frames;
  }

  // Cuts samples, or bytes, into frames of the stream's size, the last one short, and gives them to a testsource.
  template <class Sample>
  static void Play(vorn::Block* source, const std::vector<Sample>& samples, const StreamSpec& s) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(samples.data());
    const std::size_t size = sizeof(Sample) * samples.size();
    const std::size_t frameBytes = static_cast<std::size_t>(s.frame) * s.SampleBytes();
    for (std::size_t at = 0; at < size; at += frameBytes) {
      const std::size_t end = std::min(size, at + frameBytes);
      FramesOf(source).push_back({{bytes + at, bytes + end}, static_cast<long>((end - at) / s.SampleBytes())});
    }
  }
  // Gives the frames of a source the times of their places, in us.
  static void Stamp(vorn::Block* source, long first, unsigned rate) {
    long position = 0;
    for (Frame& frame : FramesOf(source)) {
      frame.stamp = first + std::exchange(position, position + frame.samples) * 1000000 / rate;
    }
  }
  template <class Sample = std::uint8_t>
  static std::vector<Sample> Recorded(vorn::Block* sink) {
    std::vector<Sample> samples;
    for (const Frame& frame : FramesOf(sink)) {
      const auto* first = reinterpret_cast<const Sample*>(frame.bytes.data());
      samples.insert(samples.end(), first, first + frame.bytes.size() / sizeof(Sample));
    }
    return samples;
  }
  static Samples Recorded16(vorn::Block* sink) { return Recorded<std::int16_t>(sink); }
  static std::vector<float> RecordedFloats(vorn::Block* sink) { return Recorded<float>(sink); }

 private:
  void OnStopped(vorn::Route::StopReason why) override {
    const std::lock_guard<std::mutex> lock(mutex);
    reason = why;
    stopped.notify_all();
  }

  std::mutex mutex;
  std::condition_variable stopped;
  std::optional<vorn::Route::StopReason> reason;
  vorn::Route* route;  // last: its thread calls OnStopped
};

}  // namespace testkit
