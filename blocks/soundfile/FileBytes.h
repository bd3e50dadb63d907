// The bytes of a file or a pipe, for libsndfile, which asks for them in whatever pieces its codecs like: 2 KiB of an
// Ogg, 8 KiB of a FLAC. The system is asked for a batch at a time.
#pragma once

#include <sndfile.h>

#include <vector>

#include <vorn/kit/Interrupt.h>

namespace soundfile {

constexpr long BATCH_BYTES = 65536;  // read or written at a time, at least

// The first errno is kept: libsndfile forgets the system's errors on the way, above all those of closing.
//
// A pipe looks to libsndfile like a file of unknown length. What was read of its header can be read again until
// EndHeader. What is written to it goes out in order: a header that is written anew once the first has left is dropped,
// and the first says that the length is not known. Whatever waits for the other end of a pipe can be interrupted: there
// is nothing to read then, and ECANCELED to write.
class FileBytes {
 public:
  FileBytes() = default;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;
  ~FileBytes() { Close(); }

  // Takes over an open descriptor, to begin where it stands. @param newMode SFM_READ or SFM_WRITE.
  void Adopt(int descriptor, int newMode);
  // Null for none.
  void Obey(vorn::Interrupt* newInterrupt) { interrupt = newInterrupt; }
  // Writes what is held. @return false when not all of it could be written; it is given up then.
  bool Flush();
  // The last bytes of the file have come: a pipe's header is as it is meant to be, if it is still here.
  bool FlushLast();
  // To the disk itself.
  void Sync();
  void Close();

  int Descriptor() const { return fd; }
  // Whether there is one way only.
  bool IsPipe() const { return isPipe; }
  // What came from the other end and was not read from here yet.
  sf_count_t Buffered() const { return IsHeld(at) ? HeldEnd() - at : 0; }
  // The first errno since Adopt, or 0.
  int SystemError() const { return systemError; }

  // What was read of a pipe need not be there again.
  void EndHeader() { keepsAll = false; }
  // Makes this place the start of the file.
  void MoveOrigin(sf_count_t offset);

  // As SF_VIRTUAL_IO has them. The length of a pipe that is read is SF_COUNT_MAX.

  sf_count_t Length();
  sf_count_t Seek(sf_count_t offset, int whence);
  sf_count_t Tell() const { return at; }
  sf_count_t Read(void* to, sf_count_t count);
  sf_count_t Write(const void* from, sf_count_t count);

  // Past what is held.

  sf_count_t ReadAt(char* to, sf_count_t count, sf_count_t from);
  sf_count_t WriteAt(const char* from, sf_count_t count, sf_count_t to);

 private:
  sf_count_t HeldEnd() const { return heldAt + static_cast<sf_count_t>(held.size()); }
  bool IsHeld(sf_count_t position) const { return position >= heldAt && position < HeldEnd(); }
  bool Refill();
  bool RefillFromPipe();
  bool Await(short events);
  long ReadFromPipe(char* to, std::size_t count);
  long WriteToPipe(const char* from, std::size_t count);
  long Noting(long result);

  vorn::Interrupt* interrupt = nullptr;
  int fd = -1;
  int mode = SFM_READ;
  bool isPipe = false;
  bool keepsAll = false;
  int systemError = 0;
  sf_count_t origin = 0;  // of a file: where in it position 0 is
  sf_count_t at = 0;
  sf_count_t written = 0;  // the end of what the system has

  // Bytes of the file from heldAt on: the next ones to be read, or those still to be written.
  std::vector<char> held;
  sf_count_t heldAt = 0;
};

}  // namespace soundfile
