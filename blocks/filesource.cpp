// filesource: plays a sound file, as it is: its rate and channels are those of the stream, and its samples arrive bit
// by bit where the link has the file's own format. A link of another format gets them rounded to the nearest value and
// saturated.
//
// The file is read in batches of 64 KiB or more, a pipe frame by frame. Where a device or a FIFO sets the pace of the
// route, another thread reads the file two seconds ahead; of a pipe the system itself holds what comes. Frames carry
// their time from the start of playing. A file that is shorter than it says is played as far as it goes, with a
// warning.
#include <algorithm>
#include <cmath>
#include <limits>
#include <system_error>
#include <thread>

#include <vorn/Plugin.h>

#include "soundfile/BatchRing.h"
#include "soundfile/KeptPipes.h"
#include "soundfile/OutputPlace.h"

namespace {

using soundfile::Batch;
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
                   .Help("file to play, of any kind libsndfile reads; - for standard input"))
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
        .PerFrame(
            "reads once in 64 KiB or more, on a thread of its own where a device or a FIFO sets the pace, of a pipe "
            "what is there")
        .Example("filesource speech.wav");
  }

  static Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>&,
                             std::vector<vorn::Stream>& out) {
    vorn::Stream stream;
    Refusal refusal = Clip::Look(parameters, stream);
    for (std::size_t i = 0; i < out.size() && refusal.empty(); ++i) {
      refusal = vorn::CheckSame(vorn::SAME_RATE | vorn::SAME_CHANNELS, false, i, out[i], stream, NameOf(parameters));
      out[i].Complete(stream);
    }
    return refusal;
  }

  ~FileSource() override { EndReader(); }

 protected:
  int OutputStreams(std::vector<vorn::Stream>& streams) override {
    streams.resize(1);
    const Refusal refusal = Clip::Look(Table(), streams[0]);
    return refusal.empty() ? 0 : Refuse(refusal);
  }

  int Prepare() override {
    Refusal refusal = clip.Open(Table(), &Interruption());
    if (!refusal.empty()) return Refuse(refusal);
    refusal = vorn::CheckSame(vorn::SAME_RATE | vorn::SAME_CHANNELS, false, 0, vorn::StreamOf(Out()),
                              clip.Streamed(Table()), NameOf(Table()));
    if (!refusal.empty()) return Refuse(refusal);
    sampleBytes = Out().channels * static_cast<long>(vorn::BytesPerSample(Out().format));
    const long frameBytes = Out().samplesPerFrame * sampleBytes;
    const long frames = clip.file->IsPipe() ? 1 : (soundfile::BATCH_BYTES + frameBytes - 1) / frameBytes;
    batchSamples = frames * Out().samplesPerFrame;
    clip.file->Carry(Out().format, batchSamples);
    next = played = 0;
    isShorter = false;
    own = {std::vector<std::uint8_t>(static_cast<std::size_t>(batchSamples * sampleBytes)), 0, {}, {}};
    batch = &own;
    if (IsPaced() && !clip.file->IsPipe()) BeginReader();
    return 0;
  }

  long Process() override {
    if (next == batch->samples) {
      Turn();
      if (!batch->loss.empty()) Lose(std::exchange(batch->loss, {}));
      if (!batch->error.empty()) return Fail(batch->error);
      if (batch->samples == 0) return vorn::FRAME_END_OF_FILE;
    }
    vorn::FrameBuffer& out = Out();
    out.samples = std::min(out.samplesPerFrame, batch->samples - next);
    out.timestamp = played / out.rate * 1000000 + played % out.rate * 1000000 / out.rate;
    std::copy_n(&batch->bytes[static_cast<std::size_t>(next * sampleBytes)], out.samples * sampleBytes, out.data);
    next += out.samples;
    played += out.samples;
    return vorn::FRAME_DONE;
  }

  // After an interrupt: what has come out of a pipe is in no file any more.
  bool HoldsSamples() const override { return IsInterrupted() && clip.file && Held() > 0; }
  long Drain(bool) override { return Process(); }

  void OnGet(unsigned id) override {
    if (id == PLAYED && played > 0) Store(PLAYED, static_cast<double>(played) / Out().rate);
  }

  int Release() override {
    EndReader();
    clip.file.reset();
    return 0;
  }

 private:
  static std::string NameOf(const vorn::Parameters& parameters) {
    return soundfile::NameOf(parameters.Text(PATH), true);
  }

  // A file, and the part of it that is played, in samples.
  struct Clip {
    // @return what a file without a header holds, as far as the arguments say.
    static Refusal ReadRaw(const vorn::Parameters& parameters, SF_INFO& info) {
      info = {};
      if (parameters.Choice(FORMAT) == 0) return {};
      if (!parameters.IsGiven(RATE) || !parameters.IsGiven(CHANNELS)) {
        return NameOf(parameters) + ": a file without a header takes rate, channels and format";
      }
      info.samplerate = static_cast<int>(parameters.Integer(RATE));
      info.channels = static_cast<int>(parameters.Integer(CHANNELS));
      info.format = soundfile::RawFormat(static_cast<vorn::SampleFormat>(parameters.Choice(FORMAT) - 1));
      return {};
    }

    Refusal Open(const vorn::Parameters& parameters, vorn::Interrupt* interrupt) {
      SF_INFO raw;
      Refusal refusal = ReadRaw(parameters, raw);
      if (!refusal.empty()) return refusal;
      std::string error;
      file = soundfile::OpenToRead(parameters.Text(PATH), raw, interrupt, error);
      if (error.empty()) return Cut(parameters);
      const bool strange = sf_error(nullptr) == SF_ERR_UNRECOGNISED_FORMAT;
      return NameOf(parameters) + ": " + error +
             (strange ? " If it has no header, say rate=, channels= and format=." : "");
    }

    // Opens what will be opened again to be played.
    static Refusal Look(const vorn::Parameters& parameters, vorn::Stream& stream) {
      Clip clip;
      const std::string& path = parameters.Text(PATH);
      SF_INFO raw;
      Refusal refusal = ReadRaw(parameters, raw);
      if (!refusal.empty()) return refusal;
      if (raw.format != 0 && soundfile::IsPipe(path)) {  // all is known, and to open it could take a while
        clip.file = std::make_unique<SoundFile>();
        clip.file->info = raw;
        clip.end = ENDLESS;
        stream = clip.Streamed(parameters);
        return parameters.Number(START) > 0 || parameters.Flag(LOOP) ? PlayedOnce(parameters) : Refusal();
      }
      refusal = clip.Open(parameters, nullptr);
      if (!refusal.empty()) return refusal;
      stream = clip.Streamed(parameters);
      soundfile::PutDown(path, std::move(clip.file));
      return {};
    }

    static Refusal PlayedOnce(const vorn::Parameters& parameters) {
      return NameOf(parameters) + ": a pipe is played once and from its start: no start, no loop";
    }

    // A pipe need not have a length.
    Refusal Cut(const vorn::Parameters& parameters) {
      const double rate = file->info.samplerate;
      fileEnd =
          file->info.frames < SF_COUNT_MAX / 2 / std::max(file->info.channels * 8, 1) ? file->info.frames : ENDLESS;
      start = at = static_cast<long>(std::min(std::round(parameters.Number(START) * rate), 1e15));
      const double length = parameters.Number(LENGTH) * rate;
      end = length > 0 ? std::min(fileEnd, start + std::lround(std::min(length, 1e15))) : fileEnd;
      loop = parameters.Flag(LOOP);
      if (start == 0 && !loop) return {};
      if (file->IsPipe()) return PlayedOnce(parameters);
      if (start >= end)
        return NameOf(parameters) + ": start is at " + vorn::NumberText(parameters.Number(START)) +
               " s, the file has " + vorn::NumberText(static_cast<double>(fileEnd) / rate) + " s";
      return Rewind() ? Refusal() : NameOf(parameters) + ": " + file->Error();
    }

    bool Rewind() { return file->Seek(at = start); }

    vorn::Stream Streamed(const vorn::Parameters& parameters) const {
      vorn::Stream stream;
      stream.linked = 1;
      stream.rate = static_cast<std::uint32_t>(file->info.samplerate);
      stream.channels = static_cast<std::uint32_t>(file->info.channels);
      stream.SetFormat(parameters.Choice(FORMAT) != 0 ? static_cast<vorn::SampleFormat>(parameters.Choice(FORMAT) - 1)
                                                      : soundfile::FormatOfFile(file->info.format));
      stream.frame = parameters.Integer(FRAME);
      if (!loop && end != ENDLESS) stream.length = end - start;
      return stream;
    }

    std::unique_ptr<SoundFile> file;
    long fileEnd = 0;
    long start = 0;
    long end = 0;
    long at = 0;
    bool loop = false;
  };

  long Held() const { return clip.file->IsPipe() ? batch->samples - next + clip.file->BufferedSamples() : 0; }

  // To the next batch; without samples at the end.
  void Turn() {
    next = 0;
    if (!reader.joinable()) return Fill(own);
    if (batch != &own) ring.PassEmptied();
    batch = ring.AwaitFilled();
    if (batch == nullptr) batch = &own;
  }

  // The first frame need not wait. Where there is no thread to be had, the route reads for itself.
  void BeginReader() try {
    ring.Open(batchSamples * sampleBytes, static_cast<long>(Out().rate) * sampleBytes);
    reader = std::thread([this] { ReadAhead(); });
    ring.AwaitFilled();
  } catch (const std::system_error&) {
  }

  void ReadAhead() {
    for (bool isLast = false; !isLast;) {
      Batch* const empty = ring.AwaitEmpty();
      if (empty == nullptr) return;
      Fill(*empty);
      isLast = empty->samples == 0;
      ring.PassFilled();
    }
    ring.Close();
  }

  void EndReader() {
    if (!reader.joinable()) return;
    ring.Close();
    reader.join();
  }

  // Over the end and the start of a loop if need be. Without samples at the end.
  void Fill(Batch& to) try {
    to.samples = 0;
    to.loss.clear();
    to.error.clear();
    to.samples = Read(to);
  } catch (const std::exception& e) {
    to.error = e.what();  // short enough to need no memory where that is what is short
  }

  long Read(Batch& to) {
    long got = 0;
    while (got < batchSamples) {
      long asked = std::min(batchSamples - got, clip.end - clip.at);
      if (clip.file->IsPipe() && IsInterrupted()) {  // a writer without end must not keep it
        asked = std::min(asked, clip.file->BufferedSamples());
        if (asked == 0) break;
      }
      const long read = asked > 0 ? clip.file->Read(&to.bytes[static_cast<std::size_t>(got * sampleBytes)], asked) : 0;
      got += read;
      clip.at += read;
      if (read == asked && asked > 0) continue;
      if (read < asked && clip.file->HasFailed()) return got > 0 ? got : GiveUp(to);
      if (read < asked && IsInterrupted()) break;
      if (!EndsAsItSays(read < asked)) TellLength(to);
      if (!clip.loop || clip.end <= clip.start) break;
      if (!clip.Rewind()) return GiveUp(to);
    }
    return got;
  }

  bool EndsAsItSays(bool isShort) const {
    const bool isPart = clip.end < clip.fileEnd;
    const sf_count_t announced = clip.file->AnnouncedSamples();
    return (isPart && !isShort) || announced < 0 || clip.at >= announced;
  }

  // Once.
  void TellLength(Batch& to) {
    if (isShorter) return;
    isShorter = true;
    clip.end = clip.fileEnd = clip.at;
    to.loss = NameOf(Table()) + ": ends after " + std::to_string(clip.at) + " of the " +
              std::to_string(clip.file->AnnouncedSamples()) + " samples that it says it has";
  }

  long GiveUp(Batch& to) {
    to.error = NameOf(Table()) + ": " + clip.file->Error() + " after " + std::to_string(clip.at) + " samples";
    return 0;
  }

  Clip clip;  // while the reader runs, its own
  long sampleBytes = 0;
  long batchSamples = 0;
  Batch own;  // what the route reads for itself
  Batch* batch = &own;
  long next = 0;           // the next of its samples to play
  long played = 0;         // since the start
  bool isShorter = false;  // as clip

  soundfile::BatchRing ring;  // of the reader's batches
  std::thread reader;         // last: it uses the rest
};

}  // namespace

VORN_PLUGIN(FileSource)
