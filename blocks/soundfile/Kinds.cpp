#include "Kinds.h"

#include <strings.h>

#include <algorithm>
#include <vector>

#include <vorn/kit/StreamCheck.h>

#include "Formats.h"
#include "Headers.h"

namespace soundfile {
namespace {

using vorn::Refusal;
using vorn::SampleFormat;

// Kinds of file that go by other names than libsndfile's own.
constexpr struct {
  const char* ending;
  int container;
} OTHER_ENDINGS[] = {{"wav", SF_FORMAT_WAV},  {"aif", SF_FORMAT_AIFF},    {"aifc", SF_FORMAT_AIFF},
                     {"snd", SF_FORMAT_AU},   {"ogg", SF_FORMAT_OGG},     {"opus", SF_FORMAT_OGG},
                     {"mp3", SF_FORMAT_MPEG}, {"wavex", SF_FORMAT_WAVEX}, {"nist", SF_FORMAT_NIST},
                     {"sph", SF_FORMAT_NIST}, {"pcm", SF_FORMAT_RAW}};

// How samples of a format are stored best, then second best.
const std::vector<int>& Encodings(SampleFormat format) {
  static const std::vector<int> ENCODINGS[] = {
      {SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8, SF_FORMAT_PCM_16, SF_FORMAT_PCM_24},
      {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8},
      {SF_FORMAT_PCM_24, SF_FORMAT_PCM_32, SF_FORMAT_FLOAT, SF_FORMAT_PCM_16, SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8},
      {SF_FORMAT_PCM_32, SF_FORMAT_PCM_24, SF_FORMAT_FLOAT, SF_FORMAT_PCM_16, SF_FORMAT_PCM_S8, SF_FORMAT_PCM_U8},
      {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE, SF_FORMAT_PCM_32, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16, SF_FORMAT_PCM_S8,
       SF_FORMAT_PCM_U8}};
  switch (format) {
    case SampleFormat::BYTE: return ENCODINGS[0];
    case SampleFormat::S16_LE:
    case SampleFormat::S16_BE: return ENCODINGS[1];
    case SampleFormat::S24_3LE:
    case SampleFormat::S24_3BE: return ENCODINGS[2];
    case SampleFormat::S32_LE:
    case SampleFormat::S32_BE: return ENCODINGS[3];
    default: return ENCODINGS[4];
  }
}

// 0 for none.
int ContainerOf(const std::string& ending) {
  for (const auto& other : OTHER_ENDINGS) {
    if (strcasecmp(other.ending, ending.c_str()) == 0) return other.container;
  }
  int count = 0;
  sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof count);
  for (int i = 0; i < count; ++i) {
    SF_FORMAT_INFO kind{i, nullptr, nullptr};
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &kind, sizeof kind);
    if (strcasecmp(kind.extension, ending.c_str()) == 0) return kind.format;
  }
  return 0;
}

// Takes the first encoding that the container has for the format. No memory is needed for that, so that the choice is
// always the same.
bool ChooseEncoding(SF_INFO& info, int container, const std::string& ending, SampleFormat format) {
  std::vector<int> choices = Encodings(format);
  choices.insert(choices.end(), {SF_FORMAT_VORBIS, SF_FORMAT_MPEG_LAYER_III, SF_FORMAT_ALAW});
  if (container == SF_FORMAT_RAW) choices = {RawFormat(format)};
  if (strcasecmp(ending.c_str(), "opus") == 0) choices = {SF_FORMAT_OPUS};
  for (const int encoding : choices) {
    if (container == SF_FORMAT_PAF && encoding == SF_FORMAT_PCM_24) continue;  // said to be there, but fails
    info.format = container | encoding;
    if (sf_format_check(&info) != 0) return true;
  }
  return false;
}

// libsndfile knows some of its limits only once it has begun a file, so this begins one, nowhere. @return 0, or the
// error.
int ErrorOfBeginning(SF_INFO info) {
  static SF_VIRTUAL_IO nowhere{[](void*) { return sf_count_t{0}; }, [](sf_count_t at, int, void*) { return at; },
                               [](void*, sf_count_t, void*) { return sf_count_t{0}; },
                               [](const void*, sf_count_t count, void*) { return count; },
                               [](void*) { return sf_count_t{0}; }};
  SNDFILE* const file = sf_open_virtual(&nowhere, SFM_WRITE, &info, nullptr);
  if (file == nullptr) return std::max(sf_error(nullptr), 1);
  return sf_close(file);
}

// Adds what the container takes of the stream that it refused.
void AddTaken(Refusal& refusal, SF_INFO info, int container, const std::string& ending, SampleFormat format) {
  const auto fits = [&](int rate, int channels) {
    info.samplerate = rate;
    info.channels = channels;
    return ChooseEncoding(info, container, ending, format) && ErrorOfBeginning(info) == 0;
  };
  const int rate = info.samplerate;
  if (fits(rate, 1)) {
    int most = 1;
    while (most < 1024 && (info.channels = most + 1, sf_format_check(&info) != 0)) ++most;
    refusal.Field("channels").Takes("up to " + vorn::ChannelText(static_cast<std::uint32_t>(most)));
    refusal.Advice("put a 'remap' before it");
    return;
  }
  std::string rates;
  for (const int common : {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000, 192000}) {
    if (fits(common, 1)) rates += std::to_string(common) + " ";
  }
  if (rates.empty()) {
    refusal.Takes("nothing: it cannot be written");
  } else {
    refusal.Field("rate").Takes(rates + "Hz").Advice("put a 'resample' before it");
  }
}

}  // namespace

std::string EndingOf(const std::string& path) {
  const std::size_t dot = path.find_last_of("./");
  return dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot + 1);
}

Refusal ChooseKind(const std::string& path, const std::string& ending, vorn::Stream in, SF_INFO& info) {
  if (ending.empty()) return path + ": has no ending such as .wav that says what kind of file it is, nor container=";
  const int container = ContainerOf(ending);
  if (container == 0) {
    return path + ": '" + ending + "' is no kind of sound file; takes wav, flac, ogg and others, or container=";
  }
  info = {};
  info.samplerate = static_cast<int>(in.rate);
  info.channels = static_cast<int>(in.channels);
  if (in.rate == 0 || in.channels == 0 || in.format < 0) return {};
  const auto format = static_cast<SampleFormat>(in.format);
  info.format = container | Encodings(format).front();
  if (IsPlainWav(info.format) && info.channels <= MOST_PLAIN_CHANNELS && info.samplerate > 0) return {};
  if (ChooseEncoding(info, container, ending, format)) {
    const int error = ErrorOfBeginning(info);
    if (error == 0) return {};
    // What goes well the next time was no matter of the stream: memory was short.
    if (ErrorOfBeginning(info) == 0) return path + ": " + sf_error_number(error);
  }
  in.length = -1;
  Refusal refusal = Refusal::Input(0).Got(vorn::StreamText(in));
  AddTaken(refusal, info, container, ending, format);
  return refusal.Line(refusal.Label() + ": got " + refusal.got + ", " + path + " takes " + refusal.takes +
                      (refusal.advice.empty() ? "" : "; " + refusal.advice));
}

}  // namespace soundfile
