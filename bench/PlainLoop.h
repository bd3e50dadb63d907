// The least that a chain of blocks can be: a virtual call and the copy of a frame's description for each.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace bench {

struct FrameDescription {
  void* data;
  std::uint64_t stamp;
  std::uint64_t index;
  std::uint32_t samples, channels, format, rate;
  std::uint64_t flags;
};
static_assert(sizeof(FrameDescription) == 48);

struct Step {
  virtual ~Step() = default;
  virtual int Process(const FrameDescription& in, FrameDescription& out) = 0;
};

/** In a file of its own, so that no compiler sees through the calls. Steps alternate between two classes. */
std::unique_ptr<Step> MakeStep(std::size_t index);

class PlainLoop {
 public:
  explicit PlainLoop(std::size_t count) : links(count + 1) {
    for (std::size_t i = 0; i < count; ++i) steps.push_back(MakeStep(i));
  }
  bool Run(long frames) {
    for (long f = 0; f < frames; ++f) {
      links[0] = {frame, static_cast<std::uint64_t>(f) * 10000, static_cast<std::uint64_t>(f), 480, 2, 1, 48000, 0};
      for (std::size_t i = 0; i < steps.size(); ++i) {
        if (steps[i]->Process(links[i], links[i + 1]) < 0) break;
      }
      asm volatile("" : : "r"(links.data()) : "memory");  // the last description is used
    }
    return links.back().index == static_cast<std::uint64_t>(frames - 1);
  }

 private:
  std::vector<std::unique_ptr<Step>> steps;
  std::vector<FrameDescription> links;
  alignas(64) unsigned char frame[1920] = {};
};

}  // namespace bench
