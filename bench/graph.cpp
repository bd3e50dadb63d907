// graph N: what a frame costs in graphs of N blocks that do not touch it, beside the least that such a chain can cost.
//
// Prints a row a graph: name, N, nanoseconds a frame (median, least, most), those of the processor, allocations a
// frame.
#include <string>

#include "Blocks.h"
#include "PlainLoop.h"

namespace {

using namespace bench;

void Print(const char* name, long count, const Runs& runs) {
  std::printf("%s\t%ld\t", name, count);
  runs.Print();
  std::printf("\t%.3f\n", runs.MedianOfAllocations());
  std::fflush(stdout);
}

void MeasureLoop(long count) {
  PlainLoop loop(static_cast<std::size_t>(count));
  const long frames = Length(20'000'000 / (count + 2));
  Print("plain loop", count, Repeat(static_cast<double>(frames), [&](Mark& from, Mark& to) {
          from = Mark::Now();
          if (!loop.Run(frames)) Die("the loop is broken");
          to = Mark::Now();
        }));
}

void MeasureGraph(const char* name, Shape shape, Style style, long count) {
  RelayGraph graph(shape, style, static_cast<std::size_t>(count));
  const long frames = Length(6'000'000 / (count + 2));
  Print(name, count, Repeat(static_cast<double>(frames), [&](Mark& from, Mark& to) {
          const Span& span = graph.Run(frames);
          from = span.from;
          to = span.to;
        }));
}

}  // namespace

int main(int argc, char** argv) {
  const long count = argc == 2 ? std::atol(argv[1]) : 0;
  if (count < 1) Die("usage: graph NUMBER-OF-BLOCKS");
  MeasureLoop(count);
  MeasureGraph("vorn", Shape::CHAIN, Style::PLAIN, count);
  MeasureGraph("vorn, kit", Shape::CHAIN, Style::KIT, count);
  if (count > static_cast<long>(vorn::Endpoint::COUNT)) return 0;
  MeasureGraph("vorn, wide", Shape::WIDE, Style::PLAIN, count);
  MeasureGraph("vorn, kit, wide", Shape::WIDE, Style::KIT, count);
}
