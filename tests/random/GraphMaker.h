// Makes a graph from a seed.
#pragma once

#include <cstdint>

#include "Dice.h"
#include "Graph.h"

namespace randomgraphs {

/**
 * Every graph that it makes can run to its end: inputs of a join bring as many samples a second, and where a loop of
 * routes or FIFOs waits for itself there is prefill enough. Lengths, frame sizes, delays and FIFOs are otherwise as odd
 * as they come.
 */
class GraphMaker {
 public:
  /** @param variant another one is the same graph with other frames, and must give the same samples. */
  GraphMaker(std::uint64_t seed, unsigned variant);

  Graph Make();

 private:
  static constexpr long MOST_FRAME = 2048;

  /** A size that is another one in every variant; two of one number are always alike. */
  struct Frame {
    long samples = 0;
    unsigned number = 0;   ///< 0: the default of the file
    bool isSmall = true;   ///< not above MOST_FRAME
    bool isFixed = false;  ///< but for these, which are always alike
  };
  /** An output that leads nowhere yet. */
  struct End {
    std::size_t node = 0;
    std::size_t port = 0;
    std::size_t route = 0;
    unsigned rate = 48000;
    vorn::SampleFormat format = vorn::SampleFormat::S16_LE;
    unsigned channels = 1;
    Frame frame = {};
  };
  using Ends = std::vector<End>;

  void ChooseEnding();
  void AddSources();
  void Grow();
  void Close();
  void Shuffle();

  static long FrameSize(Dice& from);
  Frame NewFrame() { return {FrameSize(pace), ++frames}; }
  Frame BigFrame();
  /** The same in all variants. */
  Frame FixedFrame() { return {FrameSize(dice), ++frames, true, true}; }

  /** @return its output 0, like `end` but for the block. */
  End Add(Node node, const End& end);
  /** Behind `end`. */
  End Append(Work work, const char* block, const std::string& args, const End& end);
  void AddSink(const End& end);
  void Keep(const End& end) { ends.push_back(end); }
  void Keep(const Ends& more) { ends.insert(ends.end(), more.begin(), more.end()); }
  End TakeEnd();
  /** Ends of one route. */
  Ends TakeSome(std::size_t most);

  // Sources
  End Source(std::size_t route, Frame frame);
  End File(End end, long samples, const std::string& frameText);
  End Noise(const End& end, long samples, const std::string& frameText);
  long Length();

  // Blocks that stand alone
  End Change(const End& end);
  End ChangeInStep(const End& end);
  Ends Tee(const End& end, std::size_t outputs);
  End Delay(const End& end, long samples);
  End Reframe(const End& end, Frame frame);
  End Convert(End end, vorn::SampleFormat format);
  End Resample(End end, unsigned rate);
  /** @param outputs the channels of each. */
  Ends Remap(const Ends& ins, const std::vector<unsigned>& outputs);

  // Blocks that go together
  End Like(End end, const End& model, bool withChannels);
  End Mix(const Ends& ins);
  Ends Join(Ends ins);
  Ends Split(const End& end);
  End Diamond(const End& end);
  End Leg(End end, const End& model);

  // FIFOs
  struct Crossing {
    std::size_t route = 0;  ///< that reads
    long prefill = 0;
    Frame frame = {};  ///< that is read
    long capacity = 0;
    bool closesLoop = false;
  };
  /** @return the FIFO that `end` fills. */
  End Send(const End& end, const Crossing& crossing);
  End Cross(const End& end, const Crossing& crossing);
  Crossing NewCrossing(const End& end, std::size_t route);
  void CrossSomewhere();
  void JoinThroughFifos();
  void SendAndReturn();
  void FeedBack();
  void Postpone();
  End TightSource();
  long Prefill(bool isTight, const Frame& frame);

  // Routes that FIFOs join, directly or not, are one island: to join them once more could make them wait for each
  // other.
  std::vector<std::size_t> RoutesApartFrom(std::size_t route) const;
  void Unite(std::size_t route, std::size_t other);

  Dice dice;  // what the graph is
  Dice pace;  // in which frames it runs
  Graph graph;
  bool mayLoop = false;
  unsigned baseRate = 48000;
  vorn::SampleFormat baseFormat = vorn::SampleFormat::S16_LE;
  std::vector<std::size_t> islands;  // by route
  Ends ends;
  unsigned frames = 0;
};

}  // namespace randomgraphs
