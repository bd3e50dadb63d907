#include "Board.h"

namespace vorn_web {

void Board::Put(const std::string& topic, const std::string& text) {
  const std::lock_guard lock(mutex);
  Entry& entry = entries[topic];
  if (entry.number > 0 && entry.text == text) return;
  entry = {text, ++changes};
  changed.notify_all();
}

void Board::Close() {
  const std::lock_guard lock(mutex);
  closed = true;
  changed.notify_all();
}

bool Board::IsClosed() const {
  const std::lock_guard lock(mutex);
  return closed;
}

int Board::Readers() const {
  const std::lock_guard lock(mutex);
  return readers;
}

Board::Reader::Reader(Board& newBoard) : board(newBoard) {
  const std::lock_guard lock(board.mutex);
  ++board.readers;
}

Board::Reader::~Reader() {
  const std::lock_guard lock(board.mutex);
  --board.readers;
}

std::vector<Board::Notice> Board::Reader::Next(std::chrono::milliseconds patience) {
  std::unique_lock lock(board.mutex);
  board.changed.wait_for(lock, patience, [this] { return board.closed || board.changes > seen; });
  std::vector<Notice> news;
  if (board.closed) return news;
  for (const auto& [topic, entry] : board.entries) {
    if (entry.number > seen) news.push_back({topic, entry.text});
  }
  seen = board.changes;
  return news;
}

}  // namespace vorn_web
