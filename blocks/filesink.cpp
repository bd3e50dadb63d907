// filesink: writes a sound file of the stream that comes in. The path's ending says what kind of file, the link's
// sample format how its samples are stored: as they are where that kind of file can, otherwise in the nearest way it
// knows.
//
// The file is written beside its place, in batches of 64 KiB or more, by another thread where a device or a FIFO sets
// the pace of the route: a disk may take two seconds then. It comes to its place when its stream ends or its route
// stops in order. Where writing fails the route stops with an error; then, and when the route fails otherwise, what
// there is stays beside, and what was in the place stays there.
#include <algorithm>
#include <atomic>
#include <new>
#include <system_error>
#include <thread>

#include <vorn/Plugin.h>

#include "soundfile/BatchRing.h"
#include "soundfile/Kinds.h"
#include "soundfile/OutputPlace.h"
#include "soundfile/SoundFile.h"

namespace {

using soundfile::Batch;
using vorn::Parameter;
using vorn::Refusal;

class FileSink : public vorn::PluginBlock {
 public:
  using PluginBlock::PluginBlock;
  enum : unsigned { PATH, CONTAINER, QUALITY, WRITTEN, SYNC, INPLACE, CLOBBER };

  static vorn::Description Describe() {
    return vorn::Description("filesink", "writes a sound file")
        .Input(vorn::Port("in", "stored in the nearest way the kind of file knows"))
        .Takes(Parameter::Text(PATH, "path")
                   .WritesFile()
                   .Positional()
                   .Required()
                   .Help("file to write, - for standard output; it replaces what is there once it is whole"))
        .Takes(Parameter::Text(CONTAINER, "container")
                   .Help("kind of file by its usual ending (wav, flac, ogg, raw); without: the ending of the path"))
        .Takes(Parameter::Number(QUALITY, "quality", "", 0, 1)
                   .Help("of a compressed file, from small to good; without: the usual one"))
        .Takes(Parameter::Flag(SYNC, "sync").Help("wait at the end until all is on the disk"))
        .Takes(Parameter::Flag(INPLACE, "inplace")
                   .Help("write into the file itself from the start, for those who follow it"))
        .Takes(Parameter::Flag(CLOBBER, "clobber").Default("true").Help("replace what is there; false: refuse to"))
        .Takes(Parameter::Reading(WRITTEN, "written", "samples"))
        .PerFrame(
            "writes once in 64 KiB or more, on a thread of its own where a device or a FIFO sets the pace, and of a "
            "pipe waits for its reader")
        .Example("filesink out.flac");
  }

  static Refusal PlanStreams(const vorn::Parameters& parameters, const std::vector<vorn::Stream>& in,
                             std::vector<vorn::Stream>&) {
    SF_INFO info;
    Refusal refusal = in.empty() ? Refusal() : ChooseFile(parameters, in[0], info);
    return refusal.empty() ? CheckPlace(parameters) : refusal;
  }

  ~FileSink() override { Finish(); }

 protected:
  int Prepare() override {
    Leave();  // of a start that failed
    const Refusal refusal = ChooseFile(Table(), vorn::StreamOf(In()), file.info);
    if (!refusal.empty()) return Refuse(refusal);
    written = taken = 0;
    isBegun = isCutOff = isShort = hasFailed = false;
    std::string error = place.Open(Text(PATH), {Flag(INPLACE), Flag(CLOBBER)}, Interruption());
    file.Obey(&Interruption());
    if (error.empty()) error = file.Open(place.Descriptor(), SFM_WRITE);
    if (error.empty()) return Configure(), BeginWriter(), 0;
    Leave();
    return Refuse(Target() + ": " + error);
  }

  long Process() override {
    if (isCutOff) return vorn::FRAME_END_OF_FILE;
    if (!file.IsOpen()) return vorn::FRAME_FAILED;  // the end did not come off, and the route was stopped for it
    const std::uint8_t* from = In().data;
    for (long left = In().samples; left > 0 && !hasFailed;) {
      const long count = std::min(left, batchSamples - batch->samples);
      std::copy_n(from, count * sampleBytes, &batch->bytes[static_cast<std::size_t>(batch->samples * sampleBytes)]);
      batch->samples += count;
      taken += count;
      left -= count;
      from += count * sampleBytes;
      if (batch->samples == batchSamples) Turn();
    }
    if (!hasFailed) return vorn::FRAME_DONE;
    Abandon();
    return isCutOff ? vorn::FRAME_END_OF_FILE : vorn::FRAME_FAILED;
  }

  // The end of the stream finishes the file, so that a failure can still stop the route with an error.
  bool HoldsSamples() const override { return file.IsOpen(); }
  long Drain(bool atEnd) override { return !atEnd || Finish() || isCutOff ? vorn::FRAME_DONE : vorn::FRAME_FAILED; }

  int Release() override { return Finish() || isCutOff ? 0 : -20; }

  void OnGet(unsigned id) override {
    if (id == WRITTEN) Store(WRITTEN, static_cast<double>(taken));
  }

 private:
  static Refusal ChooseFile(const vorn::Parameters& parameters, vorn::Stream in, SF_INFO& info) {
    const std::string& path = parameters.Text(PATH);
    const std::string& container = parameters.Text(CONTAINER);
    return soundfile::ChooseKind(soundfile::NameOf(path, false),
                                 container.empty() ? soundfile::EndingOf(path) : container, in, info);
  }

  static Refusal CheckPlace(const vorn::Parameters& parameters) {
    if (parameters.Flag(CLOBBER)) return {};
    const std::string& path = parameters.Text(PATH);
    const std::string taken = soundfile::OutputPlace::WhyTaken(path);
    return taken.empty() ? taken : path + ": " + taken;
  }

  std::string Target() const { return soundfile::NameOf(Text(PATH), false); }

  void Configure() {
    SNDFILE* handle = file.Handle();
    // A chunk with the peak and the time would make files of the same samples differ.
    if (handle != nullptr) sf_command(handle, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    if (handle != nullptr && IsGiven(QUALITY)) {
      double quality = Number(QUALITY);
      sf_command(handle, SFC_SET_VBR_ENCODING_QUALITY, &quality, sizeof quality);
    }
    sampleBytes = In().channels * static_cast<long>(vorn::BytesPerSample(In().format));
    batchSamples = std::max((soundfile::BATCH_BYTES + sampleBytes - 1) / sampleBytes, In().samplesPerFrame);
    own = {std::vector<std::uint8_t>(static_cast<std::size_t>(batchSamples * sampleBytes)), 0, {}, {}};
    batch = &own;
    file.Carry(In().format, batchSamples);
    samplesToRenewal = untilRenewal = std::max(SECONDS_TO_RENEWAL * In().rate, BYTES_TO_RENEWAL / sampleBytes);
  }

  // Where there is no thread to be had, the route writes for itself. A pipe is as quick as its reader.
  void BeginWriter() try {
    if (!IsPaced() || file.IsPipe()) return;
    ring.Open(batchSamples * sampleBytes, static_cast<long>(In().rate) * sampleBytes);
    writer = std::thread([this] { WriteBehind(); });
    batch = ring.AwaitEmpty();
  } catch (const std::system_error&) {
  }

  void WriteBehind() try {
    for (Batch* full = ring.AwaitFilled(); full != nullptr; full = ring.AwaitFilled()) {
      const bool isWritten = Write(*full);
      ring.PassEmptied();
      if (!isWritten) return ring.Close();
    }
  } catch (const std::bad_alloc&) {
    isShort = hasFailed = true;
    ring.Close();
  }

  // Gets rid of the batch, or has it got rid of.
  void Turn() {
    if (!writer.joinable()) return static_cast<void>(Write(*batch));
    ring.PassFilled();
    Batch* const empty = ring.AwaitEmpty();
    if (empty != nullptr) batch = empty;
  }

  bool Write(Batch& full) {
    const long count = std::exchange(full.samples, 0);
    if (count == 0) return true;
    isBegun = true;
    if (file.Write(full.bytes.data(), count) != count || file.HasFailed()) return !(hasFailed = true);
    written += count;
    untilRenewal -= count;
    if (untilRenewal > 0) return true;
    untilRenewal = samplesToRenewal;
    return file.RenewHeader() || !(hasFailed = true);
  }

  // @return whether all went well.
  bool WriteRest() {
    if (!hasFailed) Turn();
    EndWriter();
    return !hasFailed || Abandon();
  }

  void EndWriter() {
    if (!writer.joinable()) return;
    ring.Close();
    writer.join();
  }

  bool Finish() {
    if (!file.IsOpen()) return true;
    if (!WriteRest()) return false;
    const bool isWhole = !HasRouteFailed();
    std::string error = file.Close(isWhole && Flag(SYNC));
    if (error.empty() && isWhole) error = place.Commit(Flag(SYNC));
    if (!error.empty()) return Abandon(error);
    const std::string rest = Leave();
    if (!isWhole && isBegun) {
      VORN_LOG_W("%s: not finished%s%s", Target().c_str(), rest.empty() ? "" : "; what there is, is in ", rest.c_str());
    }
    return true;
  }

  bool Abandon() {
    EndWriter();
    return Abandon(isShort ? "no memory" : file.Error());
  }

  bool Abandon(const std::string& error) {
    isCutOff = file.WasInterrupted();
    file.Close(false);
    const std::string rest = Leave();
    const std::string after = " after " + std::to_string(written) + " samples";
    if (isCutOff) {
      Lose(Target() + ": interrupted while nobody reads" + after);
    } else {
      Refuse(Target() + ": " + error + after + (rest.empty() ? "" : "; what there is, is in " + rest));
    }
    return false;
  }

  // @return where what was written is; empty for in its place, or nowhere since it is nothing.
  std::string Leave() {
    EndWriter();
    file.Close(false);
    if (isBegun) return place.Leave();
    place.Remove();
    return {};
  }

  static constexpr long SECONDS_TO_RENEWAL = 2;
  static constexpr long BYTES_TO_RENEWAL = 1 << 20;

  soundfile::OutputPlace place;
  long sampleBytes = 0;
  long batchSamples = 0;
  Batch own;  // what the route writes for itself
  Batch* batch = &own;
  long taken = 0;         // samples since the start
  bool isCutOff = false;  // nobody took what was written to a pipe, and the host interrupted it

  // While the writer runs, its own.
  soundfile::SoundFile file;
  bool isBegun = false;  // something was written, or tried to be
  long written = 0;
  long samplesToRenewal = 0;
  long untilRenewal = 0;
  bool isShort = false;  // of memory

  std::atomic<bool> hasFailed{false};
  soundfile::BatchRing ring;  // of the batches for the writer
  std::thread writer;         // last: it uses the rest
};

}  // namespace

VORN_PLUGIN(FileSink)
