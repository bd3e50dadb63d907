// A block for any place in a graph, with one parameter, "gain", that it tells as blocks made with the kit do.
#include <vorn/Block.h>

namespace {

constexpr unsigned TABLE = 0xFFFFFF00;

class Any : public vorn::Block {
 public:
  using Block::Block;

  long ProcessFrame() override {
    ClearActiveInEpsData();
    for (const auto& [index, ep] : ActiveOutEps()) ep->FB()->samples = ep->FB()->samplesPerFrame;
    return vorn::FRAME_DONE;
  }
  int SetParameter(unsigned id, const std::vector<std::string>& params) override {
    if (id != 3 || params.size() != 1) return vorn::FRAME_FAILED;
    gain = params[0];
    return 0;
  }
  int GetParameter(unsigned id, std::vector<std::string>& params) override {
    if (id == TABLE) params.push_back("3 gain dB -120..60 " + gain + " live");
    if (id == 3) params.push_back(gain);
    return params.empty() ? static_cast<int>(vorn::FRAME_FAILED) : 0;
  }

 private:
  std::string gain = "0";
};

}  // namespace

extern "C" __attribute__((visibility("default"))) vorn::Block* CreateBlock(bool first, bool last,
                                                                           const std::vector<std::string>&) {
  return new Any(first, last);
}
