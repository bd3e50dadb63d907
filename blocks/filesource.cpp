// filesource: plays a sound file, as it is: its rate and channels are those of the stream, and its samples arrive bit
// by bit where the link has the file's own format. A link of another format gets them rounded to the nearest value and
// saturated.
//
// The file is read in batches of 64 KiB or more. Frames carry their time from the start of playing.
#include <algorithm>
#include <cmath>
#include <limits>

#include <vorn/Plugin.h>

#include "SoundFile.h"

namespace {

using soundfile::SoundFile;
using vorn::Parameter;
using vorn::Refusal;

constexpr long ENDLESS = std::numeric_limits<long>::max();

class FileSource : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { PATH, LOOP, START, LENGTH, FORMAT, RATE, CHANNELS, FRAME, PLAYED };

  static vorn::Description Describe() {
    const double most = std::numeric_limits<double>::infinity();
    return vorn::Description("filesource", "plays a sound file")
        .Output(vorn::Port("out", "the file's rate and channels, any format"))
        .Takes(Parameter::Text(PATH, "path")
                   .ReadsFile()
                   .Positional()
                   .Required()
                   .Help("file to play, of any kind libsndfile reads"))
        .Takes(Parameter::Flag(LOOP, "loop").Help("start over at the end, for ever"))
        .Takes(Parameter::Number(START, "start", "s", 0, most).Default(0).Help("where in the file to start"))
        .Takes(Parameter::Number(LENGTH, "length", "s", 0, most).Default(0).Help("how much to play; 0: to the end"))
        .Takes(Parameter::Word(FORMAT, "format", "auto " + vorn::FormatNames(vorn::ALL_FORMATS))
                   .Help("sample format of a file without a header, with rate and channels"))
        .Takes(Parameter::Integer(RATE, "rate", "Hz", 1, 10000000).Help("of a file without a header"))
        .Takes(Parameter::Integer(CHANNELS, "channels", "", 1, 1024).Help("of a file without a header"))
        .Takes(Parameter::Integer(FRAME, "frame", "samples", 0, 1 << 20)
                   .Default(0)
                   .Help("samples in a frame, where the graph does not say; 0: no opinion"))
        .Takes(Parameter::Reading(PLAYED, "played", "s"))
        .Example("filesource speech.wav");
  }

  static Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>&,
                             std::vector<vorn::Stream>& out) {
    Clip clip;
    Refusal refusal = clip.Look(parameters);
    const vorn::Stream stream = clip.Streamed(parameters);
    for (std::size_t i = 0; i < out.size() && refusal.empty(); ++i) {
      refusal = vorn::CheckSame(vorn::SAME_RATE | vorn::SAME_CHANNELS, false, i, out[i], stream, parameters.Text(PATH));
      out[i].Complete(stream);
    }
    return refusal;
  }

 protected:
  int OutputStreams(std::vector<vorn::Stream>& streams) override {
    Clip probe;
    const Refusal refusal = probe.Look(Table());
    if (!refusal.empty()) return Refuse(refusal);
    streams = {probe.Streamed(Table())};
    return 0;
  }

  int Prepare() override {
    Refusal refusal = clip.Open(Table());
    if (!refusal.empty()) return Refuse(refusal);
    refusal = vorn::CheckSame(vorn::SAME_RATE | vorn::SAME_CHANNELS, false, 0, vorn::StreamOf(Out()),
                              clip.Streamed(Table()), Text(PATH));
    if (!refusal.empty()) return Refuse(refusal);
    sampleBytes = Out().channels * static_cast<long>(vorn::BytesPerSample(Out().format));
    const long frameBytes = Out().samplesPerFrame * sampleBytes;
    batchSamples = (soundfile::BATCH_BYTES + frameBytes - 1) / frameBytes * Out().samplesPerFrame;
    batch.resize(static_cast<std::size_t>(batchSamples * sampleBytes));
    clip.file.Carry(Out().format, batchSamples);
    next = filled = played = 0;
    return 0;
  }

  long Process() override {
    if (next == filled) {
      filled = ReadBatch();
      next = 0;
      if (filled < 0) return vorn::FRAME_FAILED;
      if (filled == 0) return vorn::FRAME_END_OF_FILE;
    }
    vorn::FrameBuffer& out = Out();
    out.samples = std::min(out.samplesPerFrame, filled - next);
    out.timestamp = played / out.rate * 1000000 + played % out.rate * 1000000 / out.rate;
    std::copy_n(&batch[static_cast<std::size_t>(next * sampleBytes)], out.samples * sampleBytes, out.data);
    next += out.samples;
    played += out.samples;
    return vorn::FRAME_DONE;
  }

  void OnGet(unsigned id) override {
    if (id == PLAYED && played > 0) Store(PLAYED, static_cast<double>(played) / Out().rate);
  }

  int Release() override { return clip.file.Close(), 0; }

 private:
  // A file, and the part of it that is played, in samples.
  struct Clip {
    Refusal Open(const vorn::Parameters& parameters) {
      const std::string& path = parameters.Text(PATH);
      file.info = {};
      if (parameters.Choice(FORMAT) != 0) {
        if (!parameters.IsGiven(RATE) || !parameters.IsGiven(CHANNELS)) {
          return path + ": a file without a header takes rate, channels and format";
        }
        file.info.samplerate = static_cast<int>(parameters.Integer(RATE));
        file.info.channels = static_cast<int>(parameters.Integer(CHANNELS));
        file.info.format = soundfile::RawFormat(static_cast<vorn::SampleFormat>(parameters.Choice(FORMAT) - 1));
      }
      const std::string error = file.Open(path, SFM_READ);
      if (!error.empty()) {
        const bool strange = sf_error(nullptr) == SF_ERR_UNRECOGNISED_FORMAT;
        return path + ": " + error + (strange ? " If it has no header, say rate=, channels= and format=." : "");
      }
      return Cut(path, parameters);
    }

    // Opens what will be opened again to be played.
    Refusal Look(const vorn::Parameters& parameters) {
      Refusal refusal = Open(parameters);
      if (!refusal.empty() || file.info.seekable != 0 || parameters.Choice(FORMAT) != 0) return refusal;
      return parameters.Text(PATH) +
             ": a pipe, whose header can be read once only; send samples without a header, and say rate=, channels= "
             "and format=";
    }

    // A pipe has no length of its own.
    Refusal Cut(const std::string& path, const vorn::Parameters& parameters) {
      const double rate = file.info.samplerate;
      fileEnd = file.info.seekable != 0 ? file.info.frames : ENDLESS;
      start = at = static_cast<long>(std::min(std::round(parameters.Number(START) * rate), 1e15));
      const double length = parameters.Number(LENGTH) * rate;
      end = length > 0 ? std::min(fileEnd, start + std::lround(std::min(length, 1e15))) : fileEnd;
      loop = parameters.Flag(LOOP);
      if (start == 0 && !loop) return {};
      if (file.info.seekable == 0) return path + ": a pipe is played once and from its start: no start, no loop";
      if (start >= end)
        return path + ": start is at " + vorn::NumberText(parameters.Number(START)) + " s, the file has " +
               vorn::NumberText(static_cast<double>(fileEnd) / rate) + " s";
      return Rewind() ? Refusal() : path + ": " + file.Error();
    }

    bool Rewind() { return sf_seek(file.Handle(), at = start, SEEK_SET) == start; }

    vorn::Stream Streamed(const vorn::Parameters& parameters) const {
      vorn::Stream stream;
      stream.linked = 1;
      stream.rate = static_cast<std::uint32_t>(file.info.samplerate);
      stream.channels = static_cast<std::uint32_t>(file.info.channels);
      stream.SetFormat(parameters.Choice(FORMAT) != 0 ? static_cast<vorn::SampleFormat>(parameters.Choice(FORMAT) - 1)
                                                      : soundfile::FormatOfFile(file.info.format));
      stream.frame = parameters.Integer(FRAME);
      if (!loop && end != ENDLESS) stream.length = end - start;
      return stream;
    }

    SoundFile file;
    long fileEnd = 0;
    long start = 0;
    long end = 0;
    long at = 0;
    bool loop = false;
  };

  // Fills the batch, over the end and the start of a loop if need be. @return samples, 0 at the end, -1 after an E
  // line.
  long ReadBatch() {
    long got = 0;
    while (got < batchSamples) {
      const long asked = std::min(batchSamples - got, clip.end - clip.at);
      const long read = asked > 0 ? clip.file.Read(&batch[static_cast<std::size_t>(got * sampleBytes)], asked) : 0;
      got += read;
      clip.at += read;
      if (read < asked && clip.end != ENDLESS) return got > 0 ? got : GiveUp();
      if (read < asked && clip.file.HasFailed()) return got > 0 ? got : GiveUp();
      if (read == asked && asked > 0) continue;
      if (!clip.loop) break;
      if (!clip.Rewind()) return GiveUp();
    }
    return got;
  }

  long GiveUp() {
    const std::string why = clip.file.HasFailed() ? clip.file.Error() : "the file is shorter than it says";
    Refuse(Text(PATH) + ": " + why + " (after " + std::to_string(clip.at) + " of " + std::to_string(clip.fileEnd) +
           " samples)");
    return -1;
  }

  Clip clip;
  std::vector<std::uint8_t> batch;
  long sampleBytes = 0;
  long batchSamples = 0;
  long filled = 0;  // samples in the batch
  long next = 0;    // the next of them to play
  long played = 0;  // since the start
};

}  // namespace

VORN_PLUGIN(FileSource)
