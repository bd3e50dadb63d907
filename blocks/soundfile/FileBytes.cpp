#include "FileBytes.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Headers.h"

namespace soundfile {
namespace {

// How far a header may lead forward in a pipe.
constexpr sf_count_t MOST_SKIPPED = 4 << 20;

// Calls until `count` is done, nothing comes any more, or an error. @return how much was done.
template <class Call>
sf_count_t Repeat(sf_count_t count, const Call& call) {
  sf_count_t done = 0;
  while (done < count) {
    const ssize_t moved = call(done);
    if (moved < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (moved <= 0) break;
    done += moved;
  }
  return done;
}

}  // namespace

void FileBytes::Adopt(int descriptor, int newMode) {
  Close();
  fd = descriptor;
  mode = newMode;
  systemError = 0;
  at = heldAt = written = 0;
  held.clear();
  held.reserve(2 * BATCH_BYTES);
  origin = lseek(fd, 0, SEEK_CUR);
  // A file that is appended to takes every byte at its end, wherever it is meant to go.
  isPipe = origin < 0 || (mode == SFM_WRITE && (fcntl(fd, F_GETFL) & O_APPEND) != 0);
  keepsAll = isPipe;
}

void FileBytes::Close() {
  if (fd < 0) return;
  FlushLast();
  // Another program may go on behind this, as in (vorn-run ...; echo) > file.
  if (mode == SFM_WRITE && !isPipe) lseek(fd, origin + written, SEEK_SET);
  const int ret = close(fd);
  if (ret < 0 && errno != EINTR) Noting(ret);
  fd = -1;
}

void FileBytes::Sync() {
  if (!isPipe && fsync(fd) < 0 && errno != EINVAL) Noting(-1);
}

void FileBytes::MoveOrigin(sf_count_t offset) {
  if (!isPipe) origin += offset;
  heldAt -= offset;
  at -= offset;
  if (heldAt >= 0) return;
  const auto gone = std::min<sf_count_t>(-heldAt, static_cast<sf_count_t>(held.size()));
  held.erase(held.begin(), held.begin() + gone);
  heldAt += gone;
}

sf_count_t FileBytes::Length() {
  if (mode == SFM_WRITE) return std::max(written, HeldEnd());
  if (isPipe) return SF_COUNT_MAX;
  struct stat status {};
  return Noting(fstat(fd, &status)) < 0 ? -1 : status.st_size - origin;
}

sf_count_t FileBytes::Seek(sf_count_t offset, int whence) {
  const sf_count_t to = offset + (whence == SEEK_CUR ? at : whence == SEEK_END ? Length() : 0);
  if (to < 0) {
    errno = EINVAL;
    return Noting(-1);
  }
  return at = to;
}

// Reading

sf_count_t FileBytes::Read(void* to, sf_count_t count) {
  auto* const bytes = static_cast<char*>(to);
  if (!isPipe && count >= BATCH_BYTES) {
    const sf_count_t got = ReadAt(bytes, count, at);
    at += got;
    return got;
  }
  sf_count_t done = 0;
  while (done < count && (IsHeld(at) || Refill())) {
    const sf_count_t piece = std::min(count - done, HeldEnd() - at);
    std::memcpy(bytes + done, &held[static_cast<std::size_t>(at - heldAt)], static_cast<std::size_t>(piece));
    done += piece;
    at += piece;
  }
  return done;
}

bool FileBytes::Refill() {
  if (isPipe) return RefillFromPipe();
  held.resize(BATCH_BYTES);
  heldAt = at;
  held.resize(static_cast<std::size_t>(ReadAt(held.data(), BATCH_BYTES, at)));
  return !held.empty();
}

// What a header leads to lies ahead, at most as far as it is worth to wait for: libsndfile also looks for an end, which
// is nowhere.
bool FileBytes::RefillFromPipe() {
  if (at < heldAt || at - HeldEnd() > MOST_SKIPPED) return false;
  while (!IsHeld(at)) {
    if (!keepsAll) {
      heldAt = HeldEnd();
      held.clear();
    }
    const std::size_t before = held.size();
    held.resize(before + BATCH_BYTES);
    const long got = ReadFromPipe(&held[before], BATCH_BYTES);
    held.resize(before + static_cast<std::size_t>(std::max(got, 0L)));
    if (got <= 0) return false;
  }
  return true;
}

// What there is.
long FileBytes::ReadFromPipe(char* to, std::size_t count) {
  for (;;) {
    if (!Await(POLLIN)) return 0;
    const ssize_t got = read(fd, to, count);
    if (got >= 0 || (errno != EINTR && errno != EAGAIN)) return Noting(got);
  }
}

sf_count_t FileBytes::ReadAt(char* to, sf_count_t count, sf_count_t from) {
  return Repeat(count, [&](sf_count_t done) {
    return Noting(pread(fd, to + done, static_cast<std::size_t>(count - done), origin + from + done));
  });
}

// Writing

sf_count_t FileBytes::Write(const void* from, sf_count_t count) {
  const auto* const bytes = static_cast<const char*>(from);
  const bool fits = !held.empty() && at >= heldAt && at <= HeldEnd();
  if ((!fits || count >= BATCH_BYTES) && !Flush()) return 0;
  if (count >= BATCH_BYTES) {
    const sf_count_t done = WriteAt(bytes, count, at);
    at += done;
    return done;
  }
  if (held.empty()) heldAt = at;
  const sf_count_t over = std::min(count, HeldEnd() - at);
  std::copy_n(bytes, over, held.begin() + (at - heldAt));
  held.insert(held.end(), bytes + over, bytes + count);
  at += count;
  return static_cast<long>(held.size()) < BATCH_BYTES || Flush() ? count : 0;
}

bool FileBytes::Flush() {
  if (isPipe && written == 0 && mode == SFM_WRITE) MarkLengthUnknown(held);
  return FlushLast();
}

bool FileBytes::FlushLast() {
  if (mode == SFM_READ || held.empty()) return true;
  const auto count = static_cast<sf_count_t>(held.size());
  const bool all = WriteAt(held.data(), count, heldAt) == count;
  held.clear();
  return all;
}

sf_count_t FileBytes::WriteAt(const char* from, sf_count_t count, sf_count_t to) {
  const bool isTooLate = isPipe && to < written;
  if (isTooLate) return count;
  const sf_count_t done = Repeat(count, [&](sf_count_t moved) {
    const auto left = static_cast<std::size_t>(count - moved);
    return isPipe ? WriteToPipe(from + moved, left) : Noting(pwrite(fd, from + moved, left, origin + to + moved));
  });
  written = std::max(written, to + done);
  return done;
}

// A pipe that is ready takes as much without a wait, also where the descriptor is shared, so that it has to stay one
// that waits.
long FileBytes::WriteToPipe(const char* from, std::size_t count) {
  if (Await(POLLOUT)) return Noting(write(fd, from, std::min<std::size_t>(count, PIPE_BUF)));
  errno = ECANCELED;
  return Noting(-1);
}

bool FileBytes::Await(short events) {
  return interrupt == nullptr || interrupt->Await(fd, events) == vorn::Interrupt::READY;
}

long FileBytes::Noting(long result) {
  if (result < 0 && errno != EINTR && errno != EAGAIN && systemError == 0) systemError = errno;
  return result;
}

}  // namespace soundfile
