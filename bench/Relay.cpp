// The cheapest block there is: hands a frame on without touching the samples. A first block gives as many frames as its
// argument says, then ends the stream.
#include <cstdlib>

#include <vorn/Block.h>

namespace {

class Relay final : public vorn::Block {
 public:
  Relay(bool first, bool last, long maxFrames) : Block(first, last), framesLeft(maxFrames) {}

  long ProcessFrame() override {
    if (IsFirst() && framesLeft-- == 0) return vorn::FRAME_END_OF_FILE;
    if (!IsFirst()) InEp(0).FB()->samples = 0;
    if (!IsLast()) OutEp(0).FB()->samples = OutEp(0).FB()->samplesPerFrame;
    return vorn::FRAME_DONE;
  }

 private:
  long framesLeft;
};

}  // namespace

extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return new Relay(first, last, args.empty() ? 0 : std::atol(args[0].c_str()));
}
