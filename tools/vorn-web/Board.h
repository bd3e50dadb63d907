// What the page is to know, by topic: one thread writes, any number of open pages read.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vorn_web {

/**
 * The latest text on each topic. A page that reads slowly misses what was replaced meanwhile, and nothing piles up for
 * it. All operations from any thread.
 */
class Board {
 public:
  struct Notice {
    std::string topic;
    std::string text;
  };

  /** Replaces the text on a topic; the same text again is no news. */
  void Put(const std::string& topic, const std::string& text);

  /** No more waits: readers come back at once. */
  void Close();
  bool IsClosed() const;

  /** How many pages are open. */
  int Readers() const;

  /** An open page. */
  class Reader {
   public:
    explicit Reader(Board& newBoard);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /** What is new since the last call, at first everything; empty when nothing came in time, or the board is closed. */
    std::vector<Notice> Next(std::chrono::milliseconds patience);

   private:
    Board& board;
    std::uint64_t seen = 0;
  };

 private:
  struct Entry {
    std::string text;
    std::uint64_t number = 0;  // of the change that brought it
  };

  mutable std::mutex mutex;
  std::condition_variable changed;
  // Guarded by mutex.
  std::map<std::string, Entry> entries;
  std::uint64_t changes = 0;
  int readers = 0;
  bool closed = false;
};

}  // namespace vorn_web
