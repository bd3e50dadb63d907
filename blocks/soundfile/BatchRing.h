// Batches of samples that one thread fills and another empties, in order, so that a route whose frames have deadlines
// does not wait for a disk.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace soundfile {

struct Batch {
  std::vector<std::uint8_t> bytes;
  long samples = 0;
  std::string loss;   // what is missing before them
  std::string error;  // why there are none
};

// Neither side locks anything. Each calls the system only where the other waits for it, or it has to wait itself.
//
// Threads: one fills, one empties; Close() either of them.
class BatchRing {
 public:
  static constexpr long SECONDS = 2;  // that a disk may take for what usually takes no time

  // Before there are two threads. @param batchBytes of one batch. @param bytesASecond of the stream.
  void Open(long batchBytes, long bytesASecond) {
    batches.resize(static_cast<std::size_t>(std::max(SECONDS * bytesASecond / batchBytes, 1L) + 2));
    for (Batch& batch : batches) batch = {std::vector<std::uint8_t>(static_cast<std::size_t>(batchBytes)), 0, {}, {}};
    filled = emptied = 0;
    isClosed = false;
  }

  // The next batch to fill, once there is one; null where the ring was closed.
  Batch* AwaitEmpty() {
    Await([this] { return filled - emptied < batches.size() || isClosed; });
    return isClosed ? nullptr : &At(filled);
  }
  void PassFilled() {
    Tell([this] { ++filled; });
  }

  // The next batch to empty, once there is one; null where the ring was closed and all is empty.
  Batch* AwaitFilled() {
    Await([this] { return filled != emptied || isClosed; });
    return filled != emptied ? &At(emptied) : nullptr;
  }
  void PassEmptied() {
    Tell([this] { ++emptied; });
  }

  // Nothing more is filled.
  void Close() {
    Tell([this] { isClosed = true; });
  }

 private:
  Batch& At(std::size_t count) { return batches[count % batches.size()]; }

  template <class Condition>
  void Await(const Condition& condition) {
    for (int seen = changes; !condition(); seen = changes) changes.wait(seen);
  }
  template <class Change>
  void Tell(const Change& change) {
    change();
    ++changes;
    changes.notify_all();
  }

  std::vector<Batch> batches;  // a side has what it was given until it passes it on
  std::atomic<std::size_t> filled{0};
  std::atomic<std::size_t> emptied{0};
  std::atomic<bool> isClosed{false};
  std::atomic<int> changes{0};  // grows after each of these; both sides wait for it
};

}  // namespace soundfile
