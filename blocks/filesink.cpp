// filesink: writes a sound file of the stream that comes in. The path's ending says what kind of file, the link's
// sample format how its samples are stored: as they are where that kind of file can, otherwise in the nearest way it
// knows.
//
// The file is written in batches of 64 KiB or more, and finished, header and all, when its stream ends or its route
// stops, whatever for. Where writing fails the route stops with an error, and what there is of the file is renamed, so
// that it passes for nothing it is not.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include <vorn/Plugin.h>

#include "SoundFile.h"

namespace {

using vorn::Parameter;
using vorn::Refusal;
using vorn::SampleFormat;

// Kinds of file that go by other names than libsndfile's own.
constexpr struct {
  const char* ending;
  int container;
} OTHER_ENDINGS[] = {{"aif", SF_FORMAT_AIFF},    {"aifc", SF_FORMAT_AIFF}, {"snd", SF_FORMAT_AU},
                     {"ogg", SF_FORMAT_OGG},     {"opus", SF_FORMAT_OGG},  {"mp3", SF_FORMAT_MPEG},
                     {"wavex", SF_FORMAT_WAVEX}, {"nist", SF_FORMAT_NIST}, {"sph", SF_FORMAT_NIST},
                     {"pcm", SF_FORMAT_RAW}};

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

std::string EndingOf(const std::string& path) {
  const std::size_t dot = path.find_last_of("./");
  return dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot + 1);
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

// Completes `info` with the encoding. @return false when the container takes no such stream.
bool ChooseEncoding(SF_INFO& info, int container, const std::string& ending, SampleFormat format) {
  std::vector<int> choices = Encodings(format);
  choices.insert(choices.end(), {SF_FORMAT_VORBIS, SF_FORMAT_MPEG_LAYER_III, SF_FORMAT_ALAW});
  if (container == SF_FORMAT_RAW) choices = {soundfile::RawFormat(format)};
  if (strcasecmp(ending.c_str(), "opus") == 0) choices = {SF_FORMAT_OPUS};
  for (const int encoding : choices) {
    info.format = container | encoding;
    if (soundfile::SoundFile::CanWrite(info)) return true;
  }
  return false;
}

// Adds what the container takes of the stream that it refused.
void AddTaken(Refusal& refusal, SF_INFO info, int container, const std::string& ending, SampleFormat format) {
  const auto fits = [&](int rate, int channels) {
    info.samplerate = rate;
    info.channels = channels;
    return ChooseEncoding(info, container, ending, format);
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

class FileSink : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { PATH, CONTAINER, QUALITY, WRITTEN };

  static vorn::Description Describe() {
    return vorn::Description("filesink", "writes a sound file")
        .Input(vorn::Port("in", "stored in the nearest way the kind of file knows"))
        .Takes(Parameter::Text(PATH, "path")
                   .WritesFile()
                   .Positional()
                   .Required()
                   .Help("file to write; what was there is lost"))
        .Takes(Parameter::Text(CONTAINER, "container")
                   .Help("kind of file by its usual ending (wav, flac, ogg, raw); without: the ending of the path"))
        .Takes(Parameter::Number(QUALITY, "quality", "", 0, 1)
                   .Help("of a compressed file, from small to good; without: the usual one"))
        .Takes(Parameter::Reading(WRITTEN, "written", "samples"))
        .Example("filesink out.flac");
  }

  static Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                             std::vector<vorn::Stream>&) {
    SF_INFO info;
    return in.empty() ? Refusal() : ChooseFile(parameters, in[0], info);
  }

  ~FileSink() override { Finish(); }

 protected:
  int Prepare() override {
    const Refusal refusal = ChooseFile(Table(), vorn::StreamOf(In()), file.info);
    if (!refusal.empty()) return Refuse(refusal);
    const std::string& path = Text(PATH);
    const std::string error = file.Open(path, SFM_WRITE);
    if (!error.empty()) return Refuse(path + ": " + error);
    return Configure(), 0;
  }

  long Process() override {
    if (!file.IsOpen()) return vorn::FRAME_FAILED;  // the end did not come off, and the route was stopped for it
    const std::uint8_t* from = In().data;
    for (long left = In().samples; left > 0;) {
      const long count = std::min(left, batchSamples - held);
      std::copy_n(from, count * sampleBytes, &batch[static_cast<std::size_t>(held * sampleBytes)]);
      held += count;
      left -= count;
      from += count * sampleBytes;
      if (held == batchSamples && !WriteBatch()) return vorn::FRAME_FAILED;
    }
    return vorn::FRAME_DONE;
  }

  // The end of the stream finishes the file, so that a failure can still stop the route with an error.
  bool HoldsSamples() const override { return file.IsOpen(); }
  long Drain(bool atEnd) override { return !atEnd || Finish() ? vorn::FRAME_DONE : vorn::FRAME_FAILED; }

  int Release() override { return Finish() ? 0 : -20; }

  void OnGet(unsigned id) override {
    if (id == WRITTEN) Store(WRITTEN, static_cast<double>(written + held));
  }

 private:
  // Completes `info` with the kind of file for a stream. @return what is wrong with it, or empty.
  static Refusal ChooseFile(const vorn::Parameters& parameters, vorn::Stream in, SF_INFO& info) {
    const std::string& path = parameters.Text(PATH);
    const std::string& named = parameters.Text(CONTAINER);
    const std::string ending = named.empty() ? EndingOf(path) : named;
    const int container = ContainerOf(ending);
    if (ending.empty()) return path + ": has no ending such as .wav that says what kind of file it is, nor container=";
    if (container == 0) {
      return path + ": '" + ending + "' is no kind of sound file; takes wav, flac, ogg and others, or container=";
    }
    info = {};
    info.samplerate = static_cast<int>(in.rate);
    info.channels = static_cast<int>(in.channels);
    const auto format = static_cast<SampleFormat>(in.format);
    if (in.rate == 0 || in.channels == 0 || in.format < 0 || ChooseEncoding(info, container, ending, format)) return {};
    in.length = -1;
    Refusal refusal = Refusal::Input(0).Got(vorn::StreamText(in));
    AddTaken(refusal, info, container, ending, format);
    return refusal.Line(refusal.Label() + ": got " + refusal.got + ", " + path + " takes " + refusal.takes +
                        (refusal.advice.empty() ? "" : "; " + refusal.advice));
  }

  void Configure() {
    SNDFILE* handle = file.Handle();
    // A chunk with the peak and the time would make files of the same samples differ.
    sf_command(handle, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    if (IsGiven(QUALITY)) {
      double quality = Number(QUALITY);
      sf_command(handle, SFC_SET_VBR_ENCODING_QUALITY, &quality, sizeof quality);
    }
    sampleBytes = In().channels * static_cast<long>(vorn::BytesPerSample(In().format));
    batchSamples = std::max((soundfile::BATCH_BYTES + sampleBytes - 1) / sampleBytes, In().samplesPerFrame);
    batch.resize(static_cast<std::size_t>(batchSamples * sampleBytes));
    file.Carry(In().format, batchSamples);
    held = written = 0;
  }

  bool WriteBatch() {
    const long count = std::exchange(held, 0);
    if (count > 0 && (file.Write(batch.data(), count) != count || file.HasFailed())) return Abandon(file.Error());
    written += count;
    return true;
  }

  bool Finish() {
    if (!file.IsOpen()) return true;
    if (!WriteBatch()) return false;
    const std::string error = file.Close();
    return error.empty() || Abandon(error);
  }

  bool Abandon(const std::string& error) {
    file.Close();
    const std::string& path = Text(PATH);
    const std::string rest = path + ".incomplete";
    struct stat status {};
    const bool moved =
        stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && std::rename(path.c_str(), rest.c_str()) == 0;
    Refuse(path + ": " + error + " after " + std::to_string(written) + " samples" +
           (moved ? "; what there is, is in " + rest : ""));
    return false;
  }

  soundfile::SoundFile file;
  std::vector<std::uint8_t> batch;
  long sampleBytes = 0;
  long batchSamples = 0;
  long held = 0;  // samples in the batch
  long written = 0;
};

}  // namespace

VORN_PLUGIN(FileSink)
