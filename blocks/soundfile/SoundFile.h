// What filesource and filesink share: a file of libsndfile, and which sample format carries its samples without loss.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <vorn/SampleCodec.h>
#include <vorn/kit/Streams.h>

#include "FileBytes.h"

namespace soundfile {

constexpr bool IS_BIG_ENDIAN_HOST = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
constexpr vorn::SampleFormat NATIVE_S16 = IS_BIG_ENDIAN_HOST ? vorn::SampleFormat::S16_BE : vorn::SampleFormat::S16_LE;
constexpr vorn::SampleFormat NATIVE_S32 = IS_BIG_ENDIAN_HOST ? vorn::SampleFormat::S32_BE : vorn::SampleFormat::S32_LE;

// The sample format that holds what a file holds; codecs without a width of their own count as what their decoder
// gives.
inline vorn::SampleFormat FormatOfFile(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_DPCM_8: return vorn::SampleFormat::BYTE;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24: return vorn::SampleFormat::S24_3LE;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32: return vorn::SampleFormat::S32_LE;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III: return vorn::SampleFormat::FLOAT_LE;
    default: return vorn::SampleFormat::S16_LE;
  }
}

inline vorn::SampleFormat BigEndian(vorn::SampleFormat format) {
  using vorn::SampleFormat;
  switch (format) {
    case SampleFormat::S16_LE: return SampleFormat::S16_BE;
    case SampleFormat::S24_3LE: return SampleFormat::S24_3BE;
    case SampleFormat::S32_LE: return SampleFormat::S32_BE;
    case SampleFormat::FLOAT_LE: return SampleFormat::FLOAT_BE;
    default: return format;
  }
}

// libsndfile's own words for "BYTE" to "FLOAT_BE" in a file without a header.
inline int RawFormat(vorn::SampleFormat format) {
  static constexpr int ENCODINGS[] = {SF_FORMAT_PCM_S8,
                                      SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_16 | SF_ENDIAN_BIG,
                                      SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_32 | SF_ENDIAN_BIG,
                                      SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_24 | SF_ENDIAN_BIG,
                                      SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_FLOAT | SF_ENDIAN_BIG};
  return SF_FORMAT_RAW | ENCODINGS[static_cast<unsigned>(format)];
}

struct Closer {
  void operator()(SNDFILE* file) const { sf_close(file); }
};

// An open sound file that gives and takes samples of one chosen format.
//
// Where the bytes of the file are what is wanted, they pass as they are. Otherwise libsndfile carries them in a type of
// its own that loses nothing of the file, and they are converted with the rounding and saturation of the kit.
//
// The file is read and written here, not in libsndfile, which forgets the system's errors on the way, above all those
// of closing.
class SoundFile {
 public:
  SF_INFO info{};

  // Whether libsndfile writes such files. It knows some of its limits only once it has begun, so it begins one,
  // nowhere.
  static bool CanWrite(SF_INFO info) {
    if (sf_format_check(&info) == 0) return false;
    static SF_VIRTUAL_IO nowhere{[](void*) { return sf_count_t{0}; }, [](sf_count_t at, int, void*) { return at; },
                                 [](void*, sf_count_t, void*) { return sf_count_t{0}; },
                                 [](const void*, sf_count_t count, void*) { return count; },
                                 [](void*) { return sf_count_t{0}; }};
    return std::unique_ptr<SNDFILE, Closer>(sf_open_virtual(&nowhere, SFM_WRITE, &info, nullptr)) != nullptr;
  }

  SoundFile() = default;
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;
  ~SoundFile() { Close(); }

  // Opens for reading or for writing anew. @return empty, or what went wrong, without the path.
  std::string Open(const std::string& path, int mode) {
    Close();
    if (const int error = bytes.Open(path, mode)) return std::strerror(error);
    static SF_VIRTUAL_IO io{&Length, &Seek, &ReadBytes, &WriteBytes, &Tell};
    file.reset(bytes.IsPipe() ? sf_open_fd(bytes.Descriptor(), mode, &info, SF_FALSE)
                              : sf_open_virtual(&io, mode, &info, this));
    return file && bytes.SystemError() == 0 ? std::string() : Error();
  }

  // Finishes the file, header and all. @return as Open.
  std::string Close() {
    file.reset();
    bytes.Close();
    return bytes.SystemError() != 0 ? Error() : std::string();
  }

  bool IsOpen() const { return file != nullptr; }
  SNDFILE* Handle() { return file.get(); }
  bool HasFailed() { return bytes.SystemError() != 0 || (file && sf_error(file.get()) != SF_ERR_NO_ERROR); }
  std::string Error() {
    return bytes.SystemError() != 0 ? std::strerror(bytes.SystemError()) : sf_strerror(file.get());
  }

  // Says in which format Read and Write see the samples, and makes room for `samples` at a time.
  void Carry(vorn::SampleFormat format, long samples) {
    wanted = format;
    passes = BytesOfFile() == format;
    const vorn::SampleFormat own = FormatOfFile(info.format);
    carrier = own == vorn::SampleFormat::FLOAT_LE ? vorn::NATIVE_FLOAT
              : own == vorn::SampleFormat::S16_LE ? NATIVE_S16
                                                  : NATIVE_S32;
    const std::size_t values = static_cast<std::size_t>(samples) * static_cast<std::size_t>(info.channels);
    carried.resize(passes || carrier == wanted ? 0 : values * vorn::BytesPerSample(carrier));
    work.resize(carried.empty() ? 0 : values);
  }

  // @return how many samples were read; fewer than asked for at the end of the file or on an error.
  long Read(std::uint8_t* to, long samples) {
    if (passes) return BytesToSamples(sf_read_raw(file.get(), to, SamplesToBytes(samples)));
    if (carrier == wanted) return ReadCarrier(to, samples);
    const long got = ReadCarrier(carried.data(), samples);
    Convert(carrier, carried.data(), wanted, to, got);
    return got;
  }

  // @return how many samples were written; fewer on an error.
  long Write(const std::uint8_t* from, long samples) {
    if (passes) return BytesToSamples(sf_write_raw(file.get(), from, SamplesToBytes(samples)));
    if (carrier == wanted) return WriteCarrier(from, samples);
    // libsndfile cuts what a narrower file cannot hold; rounding to its width first leaves nothing to cut.
    const vorn::SampleFormat own = FormatOfFile(info.format);
    if (carrier == NATIVE_S32 && own != vorn::SampleFormat::S32_LE) {
      Convert(wanted, from, own, carried.data(), samples);
      Convert(own, carried.data(), carrier, carried.data(), samples);
    } else {
      Convert(wanted, from, carrier, carried.data(), samples);
    }
    return WriteCarrier(carried.data(), samples);
  }

 private:
  // The format of the bytes as they lie in the file, for containers that hold plain samples.
  std::optional<vorn::SampleFormat> BytesOfFile() {
    switch (info.format & SF_FORMAT_TYPEMASK) {
      case SF_FORMAT_WAV:
      case SF_FORMAT_WAVEX:
      case SF_FORMAT_RF64:
      case SF_FORMAT_W64:
      case SF_FORMAT_AIFF:
      case SF_FORMAT_AU:
      case SF_FORMAT_CAF:
      case SF_FORMAT_RAW: break;
      default: return {};
    }
    const bool swapped = sf_command(file.get(), SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE;
    switch (info.format & SF_FORMAT_SUBMASK) {
      case SF_FORMAT_PCM_S8: return vorn::SampleFormat::BYTE;
      case SF_FORMAT_PCM_16:
      case SF_FORMAT_PCM_24:
      case SF_FORMAT_PCM_32:
      case SF_FORMAT_FLOAT: {
        const vorn::SampleFormat little = FormatOfFile(info.format);
        return swapped != IS_BIG_ENDIAN_HOST ? BigEndian(little) : little;
      }
      default: return {};
    }
  }

  sf_count_t SamplesToBytes(long samples) const {
    return samples * info.channels * static_cast<long>(vorn::BytesPerSample(wanted));
  }
  long BytesToSamples(sf_count_t size) const {
    return size <= 0 ? 0 : size / (info.channels * static_cast<long>(vorn::BytesPerSample(wanted)));
  }

  long ReadCarrier(void* to, long samples) {
    if (carrier == NATIVE_S16) return sf_readf_short(file.get(), static_cast<short*>(to), samples);
    if (carrier == NATIVE_S32) return sf_readf_int(file.get(), static_cast<int*>(to), samples);
    return sf_readf_float(file.get(), static_cast<float*>(to), samples);
  }

  long WriteCarrier(const void* from, long samples) {
    if (carrier == NATIVE_S16) return sf_writef_short(file.get(), static_cast<const short*>(from), samples);
    if (carrier == NATIVE_S32) return sf_writef_int(file.get(), static_cast<const int*>(from), samples);
    return sf_writef_float(file.get(), static_cast<const float*>(from), samples);
  }

  // Through double, which holds every format exactly. `from` and `to` may be the same.
  void Convert(vorn::SampleFormat a, const void* from, vorn::SampleFormat b, void* to, long samples) {
    const std::size_t values = static_cast<std::size_t>(samples) * static_cast<std::size_t>(info.channels);
    vorn::Decode(a, from, work.data(), values);
    vorn::Encode(b, work.data(), to, values);
  }

  // What libsndfile calls.
  static FileBytes& BytesOf(void* self) { return static_cast<SoundFile*>(self)->bytes; }
  static sf_count_t Length(void* self) { return BytesOf(self).Length(); }
  static sf_count_t Seek(sf_count_t offset, int whence, void* self) { return BytesOf(self).Seek(offset, whence); }
  static sf_count_t Tell(void* self) { return BytesOf(self).Tell(); }
  static sf_count_t ReadBytes(void* to, sf_count_t count, void* self) { return BytesOf(self).Read(to, count); }
  static sf_count_t WriteBytes(const void* from, sf_count_t count, void* self) {
    return BytesOf(self).Write(from, count);
  }

  FileBytes bytes;
  std::unique_ptr<SNDFILE, Closer> file;
  vorn::SampleFormat wanted = vorn::SampleFormat::S16_LE;
  vorn::SampleFormat carrier = NATIVE_S16;
  bool passes = false;
  std::vector<std::uint8_t> carried;
  std::vector<double> work;
};

}  // namespace soundfile
