// The bytes of a file, for libsndfile, which asks for them in whatever pieces its codecs like: 2 KiB of an Ogg, 8 KiB
// of a FLAC. The system is asked for a batch at a time.
#pragma once

#include <fcntl.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

namespace soundfile {

constexpr long BATCH_BYTES = 65536;  // read or written at a time, at least

class FileBytes {
 public:
  FileBytes() = default;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;
  ~FileBytes() { Close(); }

  // @param newMode SFM_READ or SFM_WRITE, which makes a new file. @return 0, or an errno.
  int Open(const std::string& path, int newMode) {
    mode = newMode;
    const int flags = mode == SFM_READ ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    fd = open(path.c_str(), flags | O_CLOEXEC, 0666);
    if (fd < 0) return errno;
    systemError = 0;
    at = heldAt = 0;
    held.clear();
    held.reserve(2 * BATCH_BYTES);
    if (struct stat status{}; fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) return EISDIR;
    return 0;
  }

  void Close() {
    if (fd < 0) return;
    Flush();
    close(fd);
    fd = -1;
  }

  int Descriptor() const { return fd; }
  bool IsPipe() const { return lseek(fd, 0, SEEK_CUR) < 0; }
  // The first errno since Open, or 0.
  int SystemError() const { return systemError; }

  // As SF_VIRTUAL_IO has them.

  sf_count_t Length() {
    struct stat status {};
    if (Noting(fstat(fd, &status)) < 0) return -1;
    return mode == SFM_READ ? status.st_size : std::max<sf_count_t>(status.st_size, HeldEnd());
  }

  sf_count_t Seek(sf_count_t offset, int whence) {
    const sf_count_t to = offset + (whence == SEEK_CUR ? at : whence == SEEK_END ? Length() : 0);
    if (to < 0) {
      errno = EINVAL;
      return Noting(-1);
    }
    return at = to;
  }

  sf_count_t Tell() const { return at; }

  sf_count_t Read(void* to, sf_count_t count) {
    if (count >= BATCH_BYTES) return Moved(ReadAt(static_cast<char*>(to), count, at));
    sf_count_t done = 0;
    while (done < count && (IsHeld(at) || Refill())) {
      const sf_count_t piece = std::min(count - done, HeldEnd() - at);
      std::memcpy(static_cast<char*>(to) + done, &held[static_cast<std::size_t>(at - heldAt)],
                  static_cast<std::size_t>(piece));
      done += Moved(piece);
    }
    return done;
  }

  sf_count_t Write(const void* from, sf_count_t count) {
    if ((at != HeldEnd() || count >= BATCH_BYTES) && !Flush()) return 0;
    const auto* const bytes = static_cast<const char*>(from);
    if (count >= BATCH_BYTES) return Moved(WriteAt(bytes, count, at));
    if (held.empty()) heldAt = at;
    held.insert(held.end(), bytes, bytes + count);
    Moved(count);
    return static_cast<long>(held.size()) < BATCH_BYTES || Flush() ? count : 0;
  }

 private:
  sf_count_t HeldEnd() const { return heldAt + static_cast<sf_count_t>(held.size()); }
  bool IsHeld(sf_count_t position) const { return position >= heldAt && position < HeldEnd(); }

  bool Refill() {
    held.resize(BATCH_BYTES);
    heldAt = at;
    held.resize(static_cast<std::size_t>(ReadAt(held.data(), BATCH_BYTES, at)));
    return !held.empty();
  }

  // @return false when not all of what is held could be written; it is given up then.
  bool Flush() {
    if (mode == SFM_READ || held.empty()) return true;
    const auto count = static_cast<sf_count_t>(held.size());
    const bool all = WriteAt(held.data(), count, heldAt) == count;
    held.clear();
    return all;
  }

  sf_count_t ReadAt(char* to, sf_count_t count, sf_count_t from) {
    return Transfer(count, [&](sf_count_t done) {
      return pread(fd, to + done, static_cast<std::size_t>(count - done), from + done);
    });
  }

  sf_count_t WriteAt(const char* from, sf_count_t count, sf_count_t to) {
    return Transfer(count, [&](sf_count_t done) {
      return pwrite(fd, from + done, static_cast<std::size_t>(count - done), to + done);
    });
  }

  template <class Call>
  sf_count_t Transfer(sf_count_t count, const Call& call) {
    sf_count_t done = 0;
    while (done < count) {
      const ssize_t moved = call(done);
      if (moved < 0 && errno == EINTR) continue;
      if (Noting(moved) <= 0) break;
      done += moved;
    }
    return done;
  }

  sf_count_t Moved(sf_count_t count) {
    at += count;
    return count;
  }

  long Noting(long result) {
    if (result < 0 && systemError == 0) systemError = errno;
    return result;
  }

  int fd = -1;
  int mode = SFM_READ;
  int systemError = 0;
  sf_count_t at = 0;

  // Bytes of the file from heldAt on: the next ones to be read, or those still to be written.
  std::vector<char> held;
  sf_count_t heldAt = 0;
};

}  // namespace soundfile
