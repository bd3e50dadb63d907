// As a source, ten frames of 16-bit samples that count from 0; as a sink, their sum as parameter 0.
#include <vorn/Block.h>

namespace {

class Tally : public vorn::Block {
 public:
  using Block::Block;

  long ProcessFrame() override {
    if (!IsFirst()) return Add(*ActiveInEps().at(0)->FB());
    return frames++ < 10 ? Fill(*ActiveOutEps().at(0)->FB()) : vorn::FRAME_END_OF_FILE;
  }

  int GetParameter(unsigned int, std::vector<std::string>& params) override {
    params = {std::to_string(sum)};
    return 0;
  }

 private:
  long Fill(vorn::FrameBuffer& out) {
    auto* to = reinterpret_cast<short*>(out.data);
    for (long i = 0; i < out.samplesPerFrame; ++i) to[i] = next++;
    out.samples = out.samplesPerFrame;
    return vorn::FRAME_DONE;
  }

  long Add(const vorn::FrameBuffer& in) {
    const auto* from = reinterpret_cast<const short*>(in.data);
    for (long i = 0; i < in.samples; ++i) sum += from[i];
    ClearActiveInEpsData();
    return vorn::FRAME_DONE;
  }

  int frames = 0;
  short next = 0;
  long sum = 0;
};

}  // namespace

extern "C" VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>&) {
  return new Tally(first, last);
}
