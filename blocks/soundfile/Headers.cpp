#include "Headers.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "FileBytes.h"

namespace soundfile {
namespace {

constexpr std::size_t MOST_HEADER = 65536;
constexpr std::size_t RIFF_HEAD = 12;  // "RIFF", length, "WAVE"
constexpr std::size_t CHUNK_HEAD = 8;  // name, length
constexpr int MOST_CHUNKS = 10000;     // of a file that makes sense
constexpr std::uint32_t UNKNOWN = 0xFFFFFFFF;

using Bytes = std::vector<char>;
using View = std::span<const char>;

bool Has(View bytes, std::size_t at, std::string_view name) {
  return at + name.size() <= bytes.size() && std::equal(name.begin(), name.end(), &bytes[at]);
}

std::uint64_t Number(View bytes, std::size_t at, std::size_t count, bool isBig) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < count && at + i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[at + i]);
    number |= static_cast<std::uint64_t>(byte) << 8 * (isBig ? count - 1 - i : i);
  }
  return number;
}

void AppendNumber(Bytes& bytes, std::uint64_t number, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) bytes.push_back(static_cast<char>(number >> 8 * i));
}

void AppendChunk(Bytes& bytes, const char* name, std::uint64_t length) {
  bytes.insert(bytes.end(), name, name + 4);
  AppendNumber(bytes, length, 4);
}

// Where the samples of a WAV begin; 0 where that cannot be seen.
std::size_t DataOfWav(View header) {
  if (!Has(header, 0, "RIFF") || !Has(header, 8, "WAVE")) return 0;
  for (std::size_t at = RIFF_HEAD; at + CHUNK_HEAD <= header.size();) {
    if (Has(header, at, "data")) return at + CHUNK_HEAD;
    const std::uint64_t length = Number(header, at + 4, 4, false);
    at += CHUNK_HEAD + length + (length & 1);
  }
  return 0;
}

Bytes HeaderOf(FileBytes& file) {
  Bytes header(MOST_HEADER);
  header.resize(static_cast<std::size_t>(file.ReadAt(header.data(), MOST_HEADER, 0)));
  return header;
}

// Moves everything back, last piece first.
bool CopyBack(FileBytes& file, sf_count_t by) {
  Bytes piece(4 << 20);
  for (sf_count_t end = file.Length(); end > 0;) {
    const sf_count_t count = std::min<sf_count_t>(end, static_cast<sf_count_t>(piece.size()));
    end -= count;
    if (file.ReadAt(piece.data(), count, end) != count || file.WriteAt(piece.data(), count, end + by) != count) {
      return false;
    }
  }
  return true;
}

// What programs write that cannot know: all ones, or as much as fits into a signed number, rounded down.
bool MeansUnknown(std::uint64_t length) {
  return length >= 0xFFFFFF00 || (length >= 0x7FFFEF00 && length <= 0x80000000);
}

struct Chunk {
  std::array<char, CHUNK_HEAD> head{};
  bool isBig = false;

  bool Is(std::string_view name) const { return Has(head, 0, name); }
  std::uint64_t Length() const { return Number(head, 4, 4, isBig); }
  // With its head, and rounded up.
  sf_count_t Size() const { return static_cast<sf_count_t>(CHUNK_HEAD + Length() + (Length() & 1)); }
};

// All zero at the end of the file.
Chunk ChunkAt(FileBytes& file, sf_count_t at, bool isBig) {
  Chunk chunk{.isBig = isBig};
  if (file.Seek(at, SEEK_SET) != at || file.Read(chunk.head.data(), CHUNK_HEAD) < sf_count_t(CHUNK_HEAD)) return {};
  return chunk;
}

constexpr std::string_view NO_NAME("\0\0\0\0", 4);

bool IsEndless(FileBytes& file, sf_count_t at, sf_count_t end, bool isBig) {
  for (int part = 0; part < MOST_CHUNKS && at < end; ++part) {
    const Chunk chunk = ChunkAt(file, at, isBig);
    if (chunk.Is(NO_NAME) || chunk.Is("data")) return false;
    const bool isType = chunk.Is("INFO") || chunk.Is("adtl");  // without a length
    if (!isType && chunk.Length() > INT_MAX) return true;
    at += isType ? 4 : chunk.Size();
  }
  return false;
}

Announced OfWav(View start, View before) {
  const bool isBig = Has(start, 0, "RIFX");
  const std::uint64_t riff = Number(start, 4, 4, isBig);
  const std::uint64_t length = Number(before, 12, 4, isBig);
  const bool isUnfinished = length == 0 && (riff <= CHUNK_HEAD || MeansUnknown(riff));
  return {isUnfinished || MeansUnknown(length), static_cast<sf_count_t>(length)};
}

}  // namespace

int WidthOf(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW: return 1;
    case SF_FORMAT_PCM_16: return 2;
    case SF_FORMAT_PCM_24: return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT: return 4;
    case SF_FORMAT_DOUBLE: return 8;
    default: return 0;
  }
}

void MarkLengthUnknown(std::span<char> header) {
  if (const std::size_t data = DataOfWav(header)) {
    std::memset(&header[4], 0xFF, 4);
    std::memset(&header[data - 4], 0xFF, 4);
  } else if (Has(header, 0, ".snd") && header.size() >= 12) {
    std::memset(&header[8], 0xFF, 4);
  }
}

Announced ReadAnnounced(FileBytes& file, const SF_INFO& info, sf_count_t dataOffset) {
  if (dataOffset < 24) return {};
  Bytes start(36);
  Bytes before(16);
  const sf_count_t at = file.Tell();
  file.Seek(0, SEEK_SET);
  file.Read(start.data(), static_cast<sf_count_t>(start.size()));
  file.Seek(dataOffset - static_cast<sf_count_t>(before.size()), SEEK_SET);
  file.Read(before.data(), static_cast<sf_count_t>(before.size()));
  file.Seek(at, SEEK_SET);
  switch (info.format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX: return OfWav(start, before);
    case SF_FORMAT_RF64: return {false, static_cast<sf_count_t>(Number(start, 28, 8, false))};
    case SF_FORMAT_W64: return {false, static_cast<sf_count_t>(Number(before, 8, 8, false)) - 24};
    case SF_FORMAT_AIFF: return {false, static_cast<sf_count_t>(Number(before, 4, 4, true)) - 8};
    case SF_FORMAT_AU: {
      const std::uint64_t length = Number(start, 8, 4, Has(start, 0, ".snd"));
      return {length == UNKNOWN, length == UNKNOWN ? 0 : static_cast<sf_count_t>(length)};
    }
    default: return {};
  }
}

const char* WhyEndless(FileBytes& file) {
  const Chunk riff = ChunkAt(file, 0, false);
  const bool isBig = riff.Is("RIFX");
  const bool isWav = (isBig || riff.Is("RIFF") || riff.Is("RF64")) && ChunkAt(file, CHUNK_HEAD, false).Is("WAVE");
  bool isEndless = false, hasData = false;
  sf_count_t at = isWav ? RIFF_HEAD : file.Length();
  for (int count = 0; count < MOST_CHUNKS && !isEndless && at < file.Length(); ++count) {
    const Chunk chunk = ChunkAt(file, at, isBig);
    hasData = hasData || chunk.Is("data");
    if (chunk.Is(NO_NAME) || (hasData && file.IsPipe())) break;
    const sf_count_t next = at + chunk.Size();
    isEndless = chunk.Is("LIST") && IsEndless(file, at + static_cast<sf_count_t>(CHUNK_HEAD), next, isBig);
    at = next;
  }
  file.Seek(0, SEEK_SET);
  if (isEndless) return "its LIST chunk is damaged: a part of it has a negative length";
  return isWav && !hasData && file.IsPipe() ? "it ends before its samples begin" : nullptr;
}

bool IsPlainWav(int format) {
  return format == (SF_FORMAT_WAV | SF_FORMAT_PCM_16) || format == (SF_FORMAT_WAV | SF_FORMAT_PCM_24) ||
         format == (SF_FORMAT_WAV | SF_FORMAT_PCM_32);
}

bool ReadPlainWav(FileBytes& file, SF_INFO& info, sf_count_t& dataOffset) {
  constexpr std::size_t FORMAT_BYTES = 16;
  constexpr std::uint64_t PCM = 1;
  std::array<char, 4096> start;
  const View header(start.data(),
                    static_cast<std::size_t>(std::max<sf_count_t>(file.ReadAt(start.data(), start.size(), 0), 0)));
  const std::size_t data = DataOfWav(header);
  const std::size_t about = RIFF_HEAD + CHUNK_HEAD;
  if (data == 0 || !Has(header, RIFF_HEAD, "fmt ") || Number(header, about - 4, 4, false) != FORMAT_BYTES) return false;
  const std::uint64_t bits = Number(header, about + 14, 2, false);
  const std::uint64_t width = Number(header, about + 12, 2, false);
  const std::uint64_t channels = Number(header, about + 2, 2, false);
  const std::uint64_t rate = Number(header, about + 4, 4, false);
  const std::uint64_t bytes = Number(header, data - 4, 4, false);
  const bool isPlain = Number(header, about, 2, false) == PCM && (bits == 16 || bits == 24 || bits == 32) &&
                       channels > 0 && channels <= static_cast<std::uint64_t>(MOST_PLAIN_CHANNELS) &&
                       width == channels * bits / 8;
  if (!isPlain) return false;
  const bool isWhole = rate > 0 && rate <= INT_MAX && bytes > 0 && bytes < 0x7FFFEF00 && bytes % width == 0 &&
                       file.Length() >= static_cast<sf_count_t>(data + bytes);
  if (!isWhole) return false;
  info = {};
  info.samplerate = static_cast<int>(rate);
  info.channels = static_cast<int>(channels);
  info.frames = static_cast<sf_count_t>(bytes / width);
  info.format = SF_FORMAT_WAV | (bits == 16 ? SF_FORMAT_PCM_16 : bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32);
  info.sections = info.seekable = 1;
  dataOffset = static_cast<sf_count_t>(data);
  return true;
}

std::array<char, PLAIN_WAV_HEADER> PlainWavHeader(const SF_INFO& info, sf_count_t bytes) {
  std::array<char, PLAIN_WAV_HEADER> header;
  char* to = header.data();
  const auto text = [&](const char* name) { to = std::copy_n(name, 4, to); };
  const auto number = [&](sf_count_t value, int count) {
    for (int i = 0; i < count; ++i) *to++ = static_cast<char>(value >> 8 * i);
  };
  const int width = info.channels * WidthOf(info.format);
  text("RIFF");
  number(bytes + PLAIN_WAV_HEADER - static_cast<sf_count_t>(CHUNK_HEAD), 4);
  text("WAVE");
  text("fmt ");
  number(16, 4);
  number(1, 2);
  number(info.channels, 2);
  number(info.samplerate, 4);
  number(static_cast<sf_count_t>(info.samplerate) * width, 4);
  number(width, 2);
  number(8 * WidthOf(info.format), 2);
  text("data");
  number(bytes, 4);
  return header;
}

bool MakeRf64(FileBytes& file, sf_count_t samples) {
  const Bytes old = HeaderOf(file);
  const std::size_t data = DataOfWav(old);
  if (data == 0) return false;
  constexpr sf_count_t BLOCK = 4096;  // what most file systems can insert
  const sf_count_t length = file.Length() + BLOCK;
  if (fallocate(file.Descriptor(), FALLOC_FL_INSERT_RANGE, 0, BLOCK) != 0 && !CopyBack(file, BLOCK)) return false;

  const std::uint64_t blockAlign = Number(old, RIFF_HEAD + CHUNK_HEAD + 12, 2, false);
  Bytes header;
  AppendChunk(header, "RF64", UNKNOWN);
  header.insert(header.end(), {'W', 'A', 'V', 'E'});
  AppendChunk(header, "ds64", 28);
  AppendNumber(header, static_cast<std::uint64_t>(length) - CHUNK_HEAD, 8);
  AppendNumber(header, static_cast<std::uint64_t>(samples) * blockAlign, 8);
  AppendNumber(header, static_cast<std::uint64_t>(samples), 8);
  AppendNumber(header, 0, 4);  // no other chunk is as long
  header.insert(header.end(), old.begin() + RIFF_HEAD, old.begin() + static_cast<long>(data - CHUNK_HEAD));
  const std::size_t end = data + BLOCK;
  const std::size_t junk = end - header.size() - 2 * CHUNK_HEAD;
  AppendChunk(header, "JUNK", junk);
  header.resize(header.size() + junk);
  AppendChunk(header, "data", UNKNOWN);
  return file.WriteAt(header.data(), static_cast<sf_count_t>(end), 0) == static_cast<sf_count_t>(end);
}

}  // namespace soundfile
