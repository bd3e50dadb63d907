#include "SoundFile.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace soundfile {
namespace {

// What libsndfile calls.
FileBytes& BytesOf(void* bytes) { return *static_cast<FileBytes*>(bytes); }
SF_VIRTUAL_IO io{[](void* bytes) { return BytesOf(bytes).Length(); },
                 [](sf_count_t offset, int whence, void* bytes) { return BytesOf(bytes).Seek(offset, whence); },
                 [](void* to, sf_count_t count, void* bytes) { return BytesOf(bytes).Read(to, count); },
                 [](const void* from, sf_count_t count, void* bytes) { return BytesOf(bytes).Write(from, count); },
                 [](void* bytes) { return BytesOf(bytes).Tell(); }};

bool IsWav(int format) {
  const int container = format & SF_FORMAT_TYPEMASK;
  return container == SF_FORMAT_WAV || container == SF_FORMAT_WAVEX;
}

// How many bytes a kind of file can have.
sf_count_t MostBytes(int format, sf_count_t most) {
  switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_AIFF:
    case SF_FORMAT_AU: return most;
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
    case SF_FORMAT_CAF:
    case SF_FORMAT_FLAC:
    case SF_FORMAT_OGG:
    case SF_FORMAT_MPEG:
    case SF_FORMAT_RAW: return SF_COUNT_MAX;
    default: return most / 2;  // their readers take a length for a signed number, some at least
  }
}

// Whether the length in the header is one of bytes, of which libsndfile does not tell where there are fewer.
bool TellsOfBytes(int format) {
  switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
    case SF_FORMAT_AIFF:
    case SF_FORMAT_AU: return WidthOf(format) != 0;
    default: return false;
  }
}

// Whether the length is in the header, so that it can be renewed.
bool HasLengthInHeader(int format) {
  switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
    case SF_FORMAT_AIFF:
    case SF_FORMAT_AU:
    case SF_FORMAT_CAF: return true;
    default: return false;
  }
}

// Whether a kind of file can be written in one go, without ever going back.
bool FlowsThroughPipes(int format) {
  switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_AU:
    case SF_FORMAT_FLAC:
    case SF_FORMAT_OGG:
    case SF_FORMAT_MPEG:
    case SF_FORMAT_RAW: return true;
    default: return false;
  }
}

}  // namespace

std::string SoundFile::Open(int descriptor, int mode) {
  Close(false);
  problem.clear();
  announced = -1;
  samplesWritten = 0;
  bytes.Adopt(descriptor, mode);
  if (mode == SFM_WRITE && IsPipe() && !FlowsThroughPipes(info.format)) {
    return "a pipe takes wav, au, flac, ogg, mp3 or raw: others begin with their length";
  }
  if (OpenPlain(mode)) return {};
  if (const char* const why = mode == SFM_READ && info.format == 0 ? WhyEndless(bytes) : nullptr) return why;
  std::string error = OpenHandle(mode);
  if (error.empty() && mode == SFM_READ && (info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_RAW) error = ReadLength();
  bytes.EndHeader();
  return error;
}

bool SoundFile::OpenPlain(int mode) {
  isWritten = mode == SFM_WRITE;
  const bool isEven = info.channels * WidthOf(info.format) % 2 == 0;  // others end with a byte more, at times
  isPlain = !IsPipe() && (isWritten ? IsPlainWav(info.format) && info.channels <= MOST_PLAIN_CHANNELS && isEven
                                    : info.format == 0 && ReadPlainWav(bytes, info, plainOffset));
  if (!isPlain) return false;
  if (isWritten) {
    plainOffset = PLAIN_WAV_HEADER;
    WritePlainHeader();
  } else {
    announced = info.frames;
  }
  bytes.Seek(plainOffset, SEEK_SET);
  return true;
}

// And comes back to where the file is written.
void SoundFile::WritePlainHeader() {
  const sf_count_t at = bytes.Tell();
  const auto header = PlainWavHeader(info, std::max<sf_count_t>(bytes.Length() - plainOffset, 0));
  bytes.Seek(0, SEEK_SET);
  bytes.Write(header.data(), static_cast<sf_count_t>(header.size()));
  bytes.Seek(at, SEEK_SET);
}

bool SoundFile::Seek(long sample) {
  if (!isPlain) return sf_seek(file.get(), sample, SEEK_SET) == sample;
  return bytes.Seek(plainOffset + sample * SampleBytes(FormatOfFile(info.format)), SEEK_SET) >= 0;
}

std::string SoundFile::OpenHandle(int mode) {
  file.reset(sf_open_virtual(&io, mode, &info, &bytes));
  return file && bytes.SystemError() == 0 ? std::string() : Error();
}

std::string SoundFile::ReadLength() {
  const int width = WidthOf(info.format) * info.channels;
  if (!TellsOfBytes(info.format)) {
    if (info.frames < SF_COUNT_MAX / 2) announced = info.frames;
    return {};
  }
  sf_seek(file.get(), 0, SEEK_SET);
  const sf_count_t dataOffset = bytes.Tell();
  const Announced says = ReadAnnounced(bytes, info, dataOffset);
  if (says.isUnknown && IsWav(info.format)) return OpenWithoutHeader(dataOffset);
  if (!says.isUnknown && says.bytes > 0) announced = says.bytes / width;
  return {};
}

// libsndfile takes a length that nobody knew for one of 4 GiB.
std::string SoundFile::OpenWithoutHeader(sf_count_t dataOffset) {
  const bool isBig = (info.format & SF_FORMAT_ENDMASK) == SF_ENDIAN_BIG;
  file.reset();
  bytes.MoveOrigin(dataOffset);
  bytes.Seek(0, SEEK_SET);
  info.format = SF_FORMAT_RAW | (info.format & SF_FORMAT_SUBMASK) | (isBig ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE);
  return OpenHandle(SFM_READ);
}

std::string SoundFile::Close(bool syncs) {
  if (!IsOpen()) return bytes.Close(), std::string();
  problem.clear();
  if (std::exchange(isPlain, false)) {
    if (isWritten) WritePlainHeader();
  } else if (const int ret = sf_close(file.release()); ret != 0) {
    problem = sf_error_number(ret);
  }
  bytes.FlushLast();
  if (samplesWritten > 0 && IsPastWav() && !MakeRf64(bytes, samplesWritten)) problem = "its header cannot be written";
  if (syncs) bytes.Sync();
  bytes.Close();
  return bytes.SystemError() != 0 || !problem.empty() ? Error() : std::string();
}

std::string SoundFile::Error() {
  if (bytes.SystemError() != 0) return std::strerror(bytes.SystemError());
  return problem.empty() ? sf_strerror(file.get()) : problem;
}

long SoundFile::BufferedSamples() const {
  const int width = WidthOf(info.format) * info.channels;
  return width == 0 ? 0 : static_cast<long>(bytes.Buffered() / width);
}

void SoundFile::Carry(vorn::SampleFormat format, long samples) {
  wanted = format;
  passes = BytesOfFile() == format;
  const vorn::SampleFormat own = FormatOfFile(info.format);
  carrier = isPlain                               ? own
            : own == vorn::SampleFormat::FLOAT_LE ? vorn::NATIVE_FLOAT
            : own == vorn::SampleFormat::S16_LE   ? NATIVE_S16
                                                  : NATIVE_S32;
  const std::size_t values = static_cast<std::size_t>(samples) * static_cast<std::size_t>(info.channels);
  carried.resize(passes || carrier == wanted ? 0 : values * vorn::BytesPerSample(carrier));
  work.resize(carried.empty() ? 0 : values);
}

long SoundFile::Read(std::uint8_t* to, long samples) {
  if (passes && !isPlain) {
    const long size = SampleBytes(wanted);
    return static_cast<long>(std::max<sf_count_t>(sf_read_raw(file.get(), to, samples * size), 0)) / size;
  }
  if (carrier == wanted) return ReadCarrier(to, samples);
  const long got = ReadCarrier(carried.data(), samples);
  Convert(carrier, carried.data(), wanted, to, got);
  return got;
}

long SoundFile::Write(const std::uint8_t* from, long samples) {
  if (!Fits(samples)) return 0;
  samplesWritten += samples;
  if (passes && !isPlain) {
    const long size = SampleBytes(wanted);
    return static_cast<long>(std::max<sf_count_t>(sf_write_raw(file.get(), from, samples * size), 0)) / size;
  }
  if (carrier == wanted) return WriteCarrier(from, samples);
  // libsndfile cuts what a narrower file cannot hold; rounding to its width first leaves nothing to cut.
  const vorn::SampleFormat own = FormatOfFile(info.format);
  if (!isPlain && carrier == NATIVE_S32 && own != vorn::SampleFormat::S32_LE) {
    Convert(wanted, from, own, carried.data(), samples);
    Convert(own, carried.data(), carrier, carried.data(), samples);
  } else {
    Convert(wanted, from, carrier, carried.data(), samples);
  }
  return WriteCarrier(carried.data(), samples);
}

bool SoundFile::Fits(long samples) {
  constexpr sf_count_t SPARE = 4096;  // for what a header and its end take
  const sf_count_t more = static_cast<sf_count_t>(samples) * info.channels * std::max(WidthOf(info.format), 1);
  if (bytes.IsPipe() || bytes.Length() + more + SPARE <= MostBytes(info.format, mostBytes)) return true;
  problem = "this kind of file cannot be longer; wav, caf, w64 and flac can";
  return false;
}

bool SoundFile::RenewHeader() {
  if (isPlain) {
    WritePlainHeader();
  } else if (!bytes.IsPipe() && HasLengthInHeader(info.format)) {
    sf_command(file.get(), SFC_UPDATE_HEADER_NOW, nullptr, 0);
  }
  if (!bytes.Flush()) return false;
  if (IsPastWav()) MendPastWav();
  return !HasFailed();
}

bool SoundFile::IsPastWav() { return !bytes.IsPipe() && IsWav(info.format) && bytes.Length() > mostBytes; }

// Until the end there is no room for the header of an RF64. Programs take a length of all ones for "to the end".
void SoundFile::MendPastWav() {
  std::array<char, 256> header;
  const sf_count_t size = bytes.ReadAt(header.data(), header.size(), 0);
  MarkLengthUnknown(std::span(header).first(static_cast<std::size_t>(size)));
  bytes.WriteAt(header.data(), size, 0);
}

// The format of the bytes as they lie in the file, for containers that hold plain samples.
std::optional<vorn::SampleFormat> SoundFile::BytesOfFile() {
  if (isPlain) return FormatOfFile(info.format);
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

long SoundFile::SampleBytes(vorn::SampleFormat format) const {
  return info.channels * static_cast<long>(vorn::BytesPerSample(format));
}

long SoundFile::ReadCarrier(void* to, long samples) {
  if (isPlain) {
    const long size = SampleBytes(carrier);
    const sf_count_t left = plainOffset + info.frames * size - bytes.Tell();
    return static_cast<long>(bytes.Read(to, std::clamp<sf_count_t>(left, 0, samples * size))) / size;
  }
  if (carrier == NATIVE_S16) return sf_readf_short(file.get(), static_cast<short*>(to), samples);
  if (carrier == NATIVE_S32) return sf_readf_int(file.get(), static_cast<int*>(to), samples);
  return sf_readf_float(file.get(), static_cast<float*>(to), samples);
}

long SoundFile::WriteCarrier(const void* from, long samples) {
  if (isPlain) {
    const long size = SampleBytes(carrier);
    return static_cast<long>(bytes.Write(from, samples * size)) / size;
  }
  if (carrier == NATIVE_S16) return sf_writef_short(file.get(), static_cast<const short*>(from), samples);
  if (carrier == NATIVE_S32) return sf_writef_int(file.get(), static_cast<const int*>(from), samples);
  return sf_writef_float(file.get(), static_cast<const float*>(from), samples);
}

// Through double, which holds every format exactly. `from` and `to` may be the same.
void SoundFile::Convert(vorn::SampleFormat a, const void* from, vorn::SampleFormat b, void* to, long samples) {
  const std::size_t values = static_cast<std::size_t>(samples) * static_cast<std::size_t>(info.channels);
  vorn::Decode(a, from, work.data(), values);
  vorn::Encode(b, work.data(), to, values);
}

}  // namespace soundfile
