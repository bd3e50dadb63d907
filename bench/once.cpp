// once chain|kit|fifo|stamped FRAMES [BLOCKS]: carries so many frames once, for a tool that counts instructions.
#include <string>

#include "Blocks.h"

namespace {

using namespace bench;

void WriteAndRead(unsigned rate, long frames) {
  constexpr long COUNT = 480;
  vorn::FIFO* fifo = QuietVorn()->NewFIFO(rate, sizeof(std::int32_t), 10 * COUNT, 0);
  std::vector<std::int32_t> samples(COUNT);
  long stamp = 0;
  for (long f = 0; f < frames; ++f) {
    fifo->Consume(samples.data(), COUNT, true, f * 10000);
    fifo->Produce(samples.data(), COUNT, true, &stamp);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 2 ? argv[1] : "";
  const long frames = argc > 2 ? std::atol(argv[2]) : 0;
  const auto blocks = static_cast<std::size_t>(argc > 3 ? std::atol(argv[3]) : 8);
  if (what == "chain" || what == "kit") {
    RelayGraph(Shape::CHAIN, what == "kit" ? Style::KIT : Style::PLAIN, blocks).Run(frames);
  } else if (what == "fifo" || what == "stamped") {
    WriteAndRead(what == "stamped" ? 48000 : 0, frames);
  } else {
    Die("usage: once chain|kit|fifo|stamped FRAMES [BLOCKS]");
  }
}
