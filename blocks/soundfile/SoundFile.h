// What filesource and filesink share: a file of libsndfile.
#pragma once

#include <sndfile.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FileBytes.h"
#include "Formats.h"
#include "Headers.h"

namespace soundfile {

// An open sound file that gives and takes samples of one chosen format.
//
// Where the bytes of the file are what is wanted, they pass as they are; those of a plain WAV are read and written
// without libsndfile. Otherwise libsndfile carries them in a type of
// its own that loses nothing of the file, and they are converted with the rounding and saturation of the kit.
class SoundFile {
 public:
  SF_INFO info{};
  // The longest a length field of 32 bits can say. A WAV becomes an RF64 beyond, others end before it.
  sf_count_t mostBytes = 0xFFFFFFFF;

  SoundFile() = default;
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;
  ~SoundFile() { Close(false); }

  // Opens what is at a descriptor, which it takes over, for reading or for writing anew. @return empty, or what went
  // wrong.
  std::string Open(int descriptor, int mode);
  // What brings it back from the wait for the other end of a pipe; null for nothing.
  void Obey(vorn::Interrupt* interrupt) { bytes.Obey(interrupt); }
  // Whether it was brought back, so that something could not be written.
  bool WasInterrupted() const { return bytes.SystemError() == ECANCELED; }
  // Finishes the file, header and all. @param syncs to the disk itself. @return as Open.
  std::string Close(bool syncs);

  bool IsOpen() const { return file != nullptr || isPlain; }
  bool IsPipe() const { return bytes.IsPipe(); }
  // Null of a plain WAV, which needs no libsndfile.
  SNDFILE* Handle() { return file.get(); }
  // Goes on from this sample. @return false on an error.
  bool Seek(long sample);
  bool HasFailed() { return !problem.empty() || bytes.SystemError() != 0 || (file && sf_error(file.get()) != 0); }
  std::string Error();
  // Samples a reader can expect by what the file says of itself; -1 where it does not say.
  sf_count_t AnnouncedSamples() const { return announced; }

  // Says in which format Read and Write see the samples, and makes room for `samples` at a time.
  void Carry(vorn::SampleFormat format, long samples);
  // @return how many samples were read; fewer than asked for at the end of the file or on an error.
  long Read(std::uint8_t* to, long samples);
  // Samples that can be read without waiting; 0 of a kind of file whose samples have no fixed length.
  long BufferedSamples() const;
  // @return how many samples were written; fewer on an error.
  long Write(const std::uint8_t* from, long samples);
  // Lets the file on the disk be a whole one for the moment. @return false on an error.
  bool RenewHeader();

 private:
  bool OpenPlain(int mode);
  void WritePlainHeader();
  std::string OpenHandle(int mode);
  std::string ReadLength();
  std::string OpenWithoutHeader(sf_count_t dataOffset);
  bool Fits(long samples);
  bool IsPastWav();
  void MendPastWav();
  std::optional<vorn::SampleFormat> BytesOfFile();
  long SampleBytes(vorn::SampleFormat format) const;
  long ReadCarrier(void* to, long samples);
  long WriteCarrier(const void* from, long samples);
  void Convert(vorn::SampleFormat a, const void* from, vorn::SampleFormat b, void* to, long samples);

  struct Closer {
    void operator()(SNDFILE* handle) const { sf_close(handle); }
  };

  FileBytes bytes;
  std::unique_ptr<SNDFILE, Closer> file;
  bool isPlain = false;        // a WAV without libsndfile
  bool isWritten = false;      // such a one
  sf_count_t plainOffset = 0;  // of its samples
  std::string problem;
  sf_count_t announced = -1;
  sf_count_t samplesWritten = 0;
  vorn::SampleFormat wanted = vorn::SampleFormat::S16_LE;
  vorn::SampleFormat carrier = NATIVE_S16;
  bool passes = false;
  std::vector<std::uint8_t> carried;
  std::vector<double> work;
};

}  // namespace soundfile
