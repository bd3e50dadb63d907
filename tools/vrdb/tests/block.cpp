// A block for any place in a graph, without the kit. With the argument pace=MILLISECONDS a frame takes so long; with
// stand=PATH it is done once somebody has opened that pipe.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <vorn/Block.h>

namespace {

class Any : public vorn::Block {
 public:
  Any(bool isFirst, bool isLast, const std::vector<std::string>& args) : Block(isFirst, isLast) {
    for (const std::string& arg : args) {
      if (arg.rfind("pace=", 0) == 0) pace = std::atoi(arg.c_str() + 5);
      if (arg.rfind("stand=", 0) == 0) pipe = arg.substr(6);
    }
  }

  long ProcessFrame() override {
    if (pace > 0) poll(nullptr, 0, pace);
    if (!pipe.empty()) close(open(pipe.c_str(), O_RDONLY));
    ClearActiveInEpsData();
    for (const auto& [index, ep] : ActiveOutEps()) ep->FB()->samples = ep->FB()->samplesPerFrame;
    return vorn::FRAME_DONE;
  }

 private:
  int pace = 0;
  std::string pipe;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) vorn::Block* CreateBlock(bool first, bool last,
                                                                           const std::vector<std::string>& args) {
  return new Any(first, last, args);
}
