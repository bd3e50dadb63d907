// A block without the kit: passes frames on, and waits for its input for ever. An empty frame would hang its route.
#include <cstring>

#include <vorn/Block.h>

class TestForeign : public vorn::Block {
 public:
  using Block::Block;
  long ProcessFrame() override {
    if (!ActiveInEpsDataIsReady()) return vorn::FRAME_PENDING;
    const vorn::FrameBuffer& in = *InEp(0).FB();
    if (!ActiveOutEps().empty()) {
      vorn::FrameBuffer& out = *OutEp(0).FB();
      std::memcpy(out.data, in.data,
                  static_cast<std::size_t>(in.samples) * in.channels * vorn::BytesPerSample(in.format));
      out.samples = in.samples;
    }
    ClearActiveInEpsData();
    return vorn::FRAME_DONE;
  }
};

extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new TestForeign(first, last);
}
