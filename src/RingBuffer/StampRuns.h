// The time stamps of the samples in a ring buffer. One is kept for each piece that was written; those of the samples
// behind its first are worked out when somebody asks.
#pragma once

#include <cstdint>
#include <memory>

namespace vorn {

class StampRuns {
 public:
  /** @param newRate Hz; 0: there are no stamps. @param newRoom more than the most samples that are held. */
  StampRuns(unsigned int newRate, long newRoom)
      : rate(newRate), room(newRoom), runs(newRate == 0 ? nullptr : new Run[static_cast<std::size_t>(newRoom)]) {}

  /** Holds so many samples without a stamp. */
  void Reset(long samples) {
    read = 0;
    written = silent = samples;
    first = count = 0;
  }
  /** `samples` more, the first of which has this stamp. */
  void Write(long samples, std::int64_t stamp) {
    if (rate == 0) return;
    if (count == room) DropRun();  // as many runs as samples: the first one is no longer held
    const long at = first + count;
    runs[static_cast<std::size_t>(at < room ? at : at - room)] = {written, stamp};
    ++count;
    written += samples;
    Settle();
  }
  /** The oldest samples are gone. */
  void Drop(long samples) {
    read += samples;
    Settle();
  }
  /** As after Drop of all but the newest. */
  void Keep(long samples) {
    read = written - samples;
    Settle();
  }
  /** Of the oldest sample held, which there is; -1 for none. */
  std::int64_t First() const {
    if (read < silent) return -1;
    const Run& run = runs[static_cast<std::size_t>(first)];
    return Later(run.stamp, read - run.begin);
  }

  /** The stamp so many samples after another one of the same piece. */
  std::int64_t Later(std::int64_t stamp, std::int64_t samples) const {
    return samples == 0 || rate == 0 ? stamp : stamp + samples * 1000000 / rate;
  }

 private:
  struct Run {
    std::int64_t begin;  // its first sample's place in all that was written
    std::int64_t stamp;
  };

  void DropRun() {
    first = first + 1 < room ? first + 1 : 0;
    --count;
  }
  /** The first run is that of the oldest sample held. */
  void Settle() {
    while (count > 1 && runs[static_cast<std::size_t>(first + 1 < room ? first + 1 : 0)].begin <= read) DropRun();
  }

  const unsigned int rate;
  const long room;
  const std::unique_ptr<Run[]> runs;  // a ring
  long first = 0;
  long count = 0;
  // In samples since the last reset.
  std::int64_t read = 0;
  std::int64_t written = 0;
  std::int64_t silent = 0;
};

}  // namespace vorn
