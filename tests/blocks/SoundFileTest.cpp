// filesource and filesink against libsndfile called directly. What failing calls do to files: tests/faults.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "../../blocks/soundfile/SoundFile.h"
#include "testkit/Interpose.h"
#include "testkit/LogFile.h"
#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Contents, testkit::END_OF_FILE, testkit::Graph, testkit::StreamSpec, testkit::Write;
using vorn::SampleFormat;
using Args = std::vector<std::string>;
using Levels = std::vector<double>;  // full scale is -1 to 1
using Reason = std::optional<vorn::Route::StopReason>;
constexpr auto ERROR = vorn::Route::StopReason::STOP_ERROR;
constexpr int WAV = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

// A disk that stands still from some place of a file on.
struct Disk {
  std::atomic<bool> stands{false}, isWaitedFor{false};
  std::atomic<off_t> from{0};
  std::atomic<int> error{0};  // what comes of the wait
  bool Moves(off_t place) {
    if (!stands || place < from) return true;
    isWaitedFor = true;
    isWaitedFor.notify_all();
    stands.wait(true);
    return (errno = error) == 0;
  }
} disk;

struct Sound {
  SF_INFO info{};
  Levels levels;
};

Sound ReadSound(const std::string& path) {
  Sound sound;
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.info);
  if (!file) return {};
  sound.levels.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
  sf_readf_double(file, sound.levels.data(), sound.info.frames);
  sf_close(file);
  return sound;
}

// `levels` are such that the file holds them exactly.
void WriteSound(const std::string& path, int format, const Levels& levels, int channels = 1, int rate = 48000) {
  SF_INFO info{};
  info.format = format, info.channels = channels, info.samplerate = rate;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr) << path << sf_strerror(nullptr);
  std::vector<int> whole;
  for (const double level : levels) whole.push_back(static_cast<int>(std::fmin(level * 0x1p31, 0x1p31 - 1)));
  const int encoding = format & SF_FORMAT_SUBMASK;
  const auto count = static_cast<sf_count_t>(levels.size());
  const bool isReal = encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_VORBIS;
  EXPECT_EQ(isReal ? sf_write_double(file, levels.data(), count) : sf_write_int(file, whole.data(), count), count);
  sf_close(file);
}

Levels Noise(std::size_t count, SampleFormat format = SampleFormat::S16_LE) {
  return testkit::Decoded(format, testkit::Bytes(format, testkit::RandomNumbers(format, count)));
}

class SoundFiles : public testing::Test {
 protected:
  // @return why the route stopped.
  Reason Copy(const Args& source, const Args& sink, const StreamSpec& spec = {}) {
    graph->DeleteAll();
    return graph.Chain({graph.Add("filesource", source), graph.Add("filesink", sink)}, spec) ? graph.Run()
                                                                                             : std::nullopt;
  }
  // What lies under a name that is not the last one.
  std::vector<std::string> Partials() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(scratch / "")) {
      if (entry.path().filename().string().find(".partial") != std::string::npos) found.push_back(entry.path());
    }
    return found;
  }

  const testkit::Folder scratch;
  const std::string in = scratch / "in.wav", out = scratch / "out.wav", pipe = scratch / "pipe";
  testkit::LogFile log;
  Graph graph;
};

// Red if a byte order, a width or a sign is mistaken, a format of a link is silently wrong on either side, or cut
// instead of rounded, a batch loses its rest, a header is not libsndfile's, or the answered stream is not the file's.
TEST_F(SoundFiles, EveryFormatOfALinkGetsTheNearestValues) {
  const struct {
    const char* ending;
    int format;
    SampleFormat samples;
  } kinds[] = {{"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SampleFormat::BYTE},
               {"wav", WAV, SampleFormat::S16_LE},
               {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, SampleFormat::S24_3LE},
               {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, SampleFormat::S32_LE},
               {"wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, SampleFormat::FLOAT_LE},
               {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, SampleFormat::BYTE},
               {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, SampleFormat::S24_3LE},
               {"au", SF_FORMAT_AU | SF_FORMAT_PCM_16, SampleFormat::S16_LE},
               {"snd", SF_FORMAT_AU | SF_FORMAT_FLOAT, SampleFormat::FLOAT_LE},
               {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, SampleFormat::BYTE},
               {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SampleFormat::S16_LE},
               {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, SampleFormat::S24_3LE}};
  for (const auto& kind : kinds) {
    const std::string file = scratch / "in." + kind.ending, copy = scratch / "out." + kind.ending;
    WriteSound(file, kind.format, Noise(3 * 11003, kind.samples), 3);
    Args stream;
    EXPECT_EQ(graph.Add("filesource", {file, "frame=64"})->GetParameter(vorn::PARAMETER_STREAMS, stream), 0);
    EXPECT_EQ(stream, Args{std::string("rate=48000 format=") + vorn::FormatName(kind.samples) +
                           " channels=3 frame=64 length=11003"});
    const Levels levels = ReadSound(file).levels;
    for (const SampleFormat format : testkit::FORMATS) {
      const StreamSpec spec{48000, format, 3, 480};
      graph->DeleteAll();
      vorn::Block* sink = graph.Add("testsink");
      ASSERT_TRUE(graph.Chain({graph.Add("filesource", {file}), sink}, spec));
      ASSERT_EQ(graph.Run(), END_OF_FILE);
      const auto bytes = Graph::Recorded(sink);
      ASSERT_EQ(bytes, testkit::Encoded(format, levels)) << file << vorn::FormatName(format);
      // The same stream written to this kind of file: as many bits as it has, or as the kind knows.
      graph->DeleteAll();
      vorn::Block* back = graph.Add("filesink", {copy});
      graph.Feed(back, 0, bytes, spec);
      ASSERT_EQ(graph.Run(), END_OF_FILE);
      const Sound sound = ReadSound(copy);
      EXPECT_EQ(sound.info.format & ~SF_FORMAT_ENDMASK, format == kind.samples ? kind.format : sound.info.format);
      const bool isWhole =
          (kind.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV && kind.samples != SampleFormat::FLOAT_LE;
      EXPECT_TRUE(!isWhole || format != kind.samples || Contents(copy) == Contents(file)) << copy;
      const bool isCut = (sound.info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_24;
      Levels expected = testkit::Decoded(format, bytes);
      for (double& level : expected)
        level = isCut ? std::fmin(std::nearbyint(level * 0x1p23) * 0x1p-23, 1 - 0x1p-23) : level;
      ASSERT_EQ(sound.levels, expected) << copy << vorn::FormatName(format);
    }
  }
}

// Red if Ogg is not decoded to the float stream libsndfile gives, or if an encoded file has not every sample.
TEST_F(SoundFiles, OggPassesAsFloat) {
  Levels sine(50001);
  for (std::size_t i = 0; i < sine.size(); ++i) sine[i] = 0.5 * std::sin(0.05 * static_cast<double>(i));
  WriteSound(scratch / "in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, sine);
  const StreamSpec spec{48000, SampleFormat::FLOAT_LE, 1, 480};
  ASSERT_EQ(Copy({scratch / "in.ogg"}, {out}, spec), END_OF_FILE);
  EXPECT_EQ(ReadSound(scratch / "in.ogg").levels, ReadSound(out).levels);
  ASSERT_EQ(Copy({out}, {scratch / "out.oga", "quality=0.9"}, spec), END_OF_FILE);
  const Levels coded = ReadSound(scratch / "out.oga").levels;
  ASSERT_EQ(coded.size(), sine.size());
  for (std::size_t i = 1000; i < 49000; ++i) ASSERT_NEAR(coded[i], sine[i], 0.05);
}

long ReadsAndWritesMade() {
  std::istringstream io(Contents("/proc/self/io"));  // "syscr: 123"
  long made = 0, number = 0;
  for (std::string word; io >> word >> number;) made += word == "syscr:" || word == "syscw:" ? number : 0;
  return made;
}

// Red if small frames, or the small pieces of a codec, go to the system one by one.
TEST_F(SoundFiles, FilesAreReadAndWrittenInBatches) {
  Levels noise = Noise(500000);
  for (double& level : noise) level /= 2;
  for (const auto& [ending, format] : {std::pair{"wav", WAV},
                                       {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                       {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS}}) {
    const std::string file = scratch / "in." + ending;
    WriteSound(file, format, noise);
    const auto batches = static_cast<long>(std::filesystem::file_size(file) / 65536);
    const long before = ReadsAndWritesMade();
    ASSERT_EQ(Copy({file}, {scratch / "out." + ending}, {48000, SampleFormat::S16_LE, 1, 16}), END_OF_FILE);
    EXPECT_LT(ReadsAndWritesMade() - before, 2 * batches + 60) << ending;  // the log has its lines
  }
}

// Red if a part is off by one, a loop has a gap, or a stop or a new start leaves a file unfinished or mixed with what
// was there.
TEST_F(SoundFiles, PartsLoopsStopsAndStartsAreExact) {
  Levels ramp(48000);
  for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<double>(i % 30000) / 32768;
  WriteSound(in, WAV, ramp);
  ASSERT_EQ(Copy({in, "start=0.1", "length=0.25"}, {out}), END_OF_FILE);
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(ReadSound(out).levels, Levels(ramp.begin() + 4800, ramp.begin() + 16800));
    ASSERT_EQ(graph.Run(), END_OF_FILE);
  }

  graph->DeleteAll();
  vorn::Block* source = graph.Add("filesource", {in, "loop=true", "start=0.5", "length=0.0101"});
  vorn::Block* sink = graph.Add("filesink", {out});
  ASSERT_TRUE(graph.Chain({source, sink}, {}));
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(graph->Start(), 0);
    while (graph.Numbers(sink)["written"] < 200000) continue;  // ctest has the deadline
    ASSERT_EQ(graph->Stop(), 0);
    const Levels looped = ReadSound(out).levels;
    EXPECT_GE(looped.size(), 200000U);
    for (std::size_t i = 0; i < looped.size(); ++i) ASSERT_EQ(looped[i], ramp[24000 + i % 485]) << i;
    EXPECT_EQ(graph.Numbers(sink)["written"], static_cast<double>(looped.size()));
    EXPECT_NEAR(graph.Numbers(source)["played"], static_cast<double>(looped.size()) / 48000, 0.1);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      EXPECT_NE(std::filesystem::read_symlink(entry, gone), in);
    }
  }
}

// Red if a refusal does not say which file, what came and what would do, or leaves a file behind.
TEST_F(SoundFiles, RefusalsSayWhy) {
  WriteSound(in, WAV, Levels(2 * 22050), 2, 44100);
  Write(scratch / "raw", "");
  const std::string part("INFOISFT\xf8\xff\xff\xff....", 16);  // which libsndfile would follow for ever
  Write(scratch / "list.wav", Contents(in).substr(0, 36) + std::string("LIST\x10\0\0\0", 8) + part);
  const StreamSpec cd{44100, SampleFormat::S16_LE, 2, 441};
  const struct {
    Args source, sink;
    std::string line;
    StreamSpec spec = {};
  } cases[] = {
      {{scratch / "none.wav"}, {out}, "none.wav: No such file or directory", cd},
      {{in}, {scratch / "none/out.wav"}, "none/out.wav: No such file or directory", cd},
      {{in}, {scratch / ""}, "", cd},
      {{in},
       {out},
       "output 0: got 48000 Hz 1 channel, takes 44100 Hz 2 channels as " + in + "; put 'resample', 'remap' after it"},
      {{scratch / "list.wav"}, {out}, "list.wav: its LIST chunk is damaged: a part of it has a negative length", cd},
      {{in}, {scratch / "out.opus"}, "takes 8000 12000 16000 24000 48000 Hz; put a 'resample' before it", cd},
      {{in, "start=0.5"}, {out}, "start is at 0.5 s, the file has 0.5 s", cd},
      {{scratch / "raw"}, {out}, "say rate=, channels= and format="},
      {{}, {out}, "filesource: argument 'path': missing; takes a text"},
      {{in, "start=-1"}, {out}, "argument 'start'"},
      {{in, "format=S16"}, {out}, "argument 'format'"},
      {{in, "lop=true"}, {out}, "argument 'lop': unknown; takes path loop start length format rate channels frame"}};
  for (const auto& [source, sink, line, spec] : cases) {
    EXPECT_EQ(Copy(source, sink, spec), std::nullopt) << line;
    EXPECT_TRUE(log.Has(line)) << line << "\n" << log.Text();
  }
  EXPECT_FALSE(std::filesystem::exists(scratch / "out.opus"));

  Write(scratch / "flat.wav", Contents(in).replace(32, 2, 2, '\0'));  // its samples have no bytes
  EXPECT_TRUE(Copy({scratch / "flat.wav"}, {out}, cd));
  EXPECT_EQ(ReadSound(out).levels, ReadSound(in).levels);
}

// Red if a full disk, a failure elsewhere in the route, or a start that fails, costs what was there or passes for an
// end; if an orderly stop does not finish the file; or if links, modes or arguments are not kept.
TEST_F(SoundFiles, AnOutputIsWholeOrNotAtAll) {
  WriteSound(in, WAV, Levels(100000, 0.5));
  Write(out, "old");
  const auto copyTwice = [&](const Args& second) {
    graph->DeleteAll();
    vorn::Block* tee = graph.Add("tee");
    EXPECT_TRUE(graph.Chain({graph.Add("filesource", {in}), tee, graph.Add("filesink", {out})}, {}));
    return graph.Link(tee, 1, graph.Add("filesink", second), 0, {}) ? graph.Run() : std::nullopt;
  };
  EXPECT_EQ(copyTwice({scratch / "none/out.wav"}), std::nullopt);
  graph->DeleteAll();
  EXPECT_TRUE(Partials().empty() && Contents(out) == "old");
  EXPECT_EQ(copyTwice({"/dev/full", "container=wav"}), ERROR);
  EXPECT_TRUE(log.Has("/dev/full: No space left on device after 0 samples"));
  EXPECT_TRUE(Contents(out) == "old");
  ASSERT_EQ(Partials().size(), 1U);
  EXPECT_TRUE(log.Has(out + ": not finished; what there is, is in " + Partials()[0]));

  EXPECT_EQ(Copy({in}, {out, "clobber=false"}), std::nullopt);
  EXPECT_TRUE(log.Has(out + ": is there already"));
  EXPECT_EQ(Copy({in}, {scratch / "new.wav", "clobber=false"}), END_OF_FILE);
  EXPECT_TRUE(Contents(scratch / "new.wav") == Contents(in));

  const std::string link = scratch / "link.wav";
  std::filesystem::create_symlink("out.wav", link);
  chmod(out.c_str(), 0640);
  EXPECT_EQ(Copy({in}, {link}), END_OF_FILE);
  EXPECT_TRUE(std::filesystem::is_symlink(link) && Contents(out) == Contents(in));
  EXPECT_EQ(std::filesystem::status(out).permissions(), std::filesystem::perms{0640});
}

// Red if a frame waits for the disk where a FIFO sets the pace, or if what came or was written late is not all, or is
// taken for good where it was not.
TEST_F(SoundFiles, ADiskThatStandsStillCostsNoFrameWhereThereIsAPace) {
  constexpr std::size_t BATCH = 32768;  // samples
  testkit::Samples samples = testkit::Count(4 * BATCH), heard(samples.size());
  vorn::FIFO* fifo = nullptr;
  const auto put = [&](std::size_t from, std::size_t to) {
    for (; from < to; from += 256) ASSERT_EQ(fifo->Put(&samples[from], 256, true, -1), 256);
  };
  const auto take = [&](std::size_t from, std::size_t to) {
    for (; from < to; from += 256) ASSERT_EQ(fifo->Take(&heard[from], 256, true, nullptr), 256);
  };
  for (const int error : {0, ENOSPC}) {
    fifo = vorn::Vorn::Instance()->NewFIFO(48000, 2, 960, 0);
    vorn::Block *source = graph.Add("fifosource"), *sink = graph.Add("filesink", {out});
    ASSERT_TRUE(graph.Chain({source, sink}, {}));
    ASSERT_EQ(vorn::AttachProducer(source, fifo), 0);
    disk.from = 0, disk.stands = true, disk.isWaitedFor = false, disk.error = error;
    fifo->BeginWriting();
    ASSERT_EQ(graph->Start(), 0);
    put(0, 3 * BATCH);
    disk.isWaitedFor.wait(false);
    disk.stands = false;
    disk.stands.notify_all();
    if (error == 0) put(3 * BATCH, 4 * BATCH);
    if (error == 0) fifo->EndWriting();
    Reason reason;
    while (!(reason = graph.Wait(std::chrono::milliseconds(1)))) {
      if (error != 0) fifo->Put(samples.data(), 256, false, -1);  // it fails in the next frame
    }
    EXPECT_EQ(reason, error == 0 ? END_OF_FILE : ERROR);
    EXPECT_EQ(log.Has("No space left on device after 0 samples"), error != 0) << log.Text();
    if (error == 0) std::filesystem::rename(out, in);
    graph->DeleteAll();
    vorn::Vorn::Instance()->DeleteFIFO(fifo);
  }
  fifo = vorn::Vorn::Instance()->NewFIFO(48000, 2, 960, 0);

  EXPECT_EQ(ReadSound(in).levels.size(), samples.size());
  vorn::Block *source = graph.Add("filesource", {in}), *sink = graph.Add("fifosink");
  ASSERT_TRUE(graph.Chain({source, sink}, {}));
  ASSERT_EQ(vorn::AttachConsumer(sink, fifo), 0);
  disk.from = 2 * 3 * BATCH, disk.stands = true, disk.isWaitedFor = false, disk.error = 0;
  fifo->BeginReading();
  ASSERT_EQ(graph->Start(), 0);
  disk.isWaitedFor.wait(false);  // before anything was taken
  take(0, 3 * BATCH);
  disk.stands = false;
  disk.stands.notify_all();
  take(3 * BATCH, 4 * BATCH);
  EXPECT_EQ(graph.Wait(), END_OF_FILE);
  EXPECT_TRUE(heard == samples);
  graph->DeleteAll();
  vorn::Vorn::Instance()->DeleteFIFO(fifo);
}

// Red if the header of a file that grows is not renewed, so that a crash would cost all of it.
TEST_F(SoundFiles, AFileThatGrowsCanBeRead) {
  WriteSound(in, WAV, Levels(48000, 0.5));
  for (const char* ending : {"wav", "aiff", "au", "caf"}) {
    const std::string file = scratch / "out." + ending;
    graph->DeleteAll();
    ASSERT_TRUE(
        graph.Chain({graph.Add("filesource", {in, "loop=true"}), graph.Add("filesink", {file, "inplace=true"})}, {}));
    ASSERT_EQ(graph->Start(), 0);
    while (ReadSound(file).levels.size() < 600000) std::this_thread::yield();  // ctest has the deadline
    ASSERT_EQ(graph->Stop(), 0);
  }
}

// Red if the samples or the length of a file beyond what a WAV can say are lost, or if another kind overflows.
TEST_F(SoundFiles, LongFilesSayHowLongTheyAre) {
  const auto write = [](const std::string& path, int format) {
    soundfile::SoundFile file;
    file.mostBytes = 100000;
    file.info.format = format, file.info.channels = 2, file.info.samplerate = 48000;
    const auto begin = [&] {
      const std::string error = file.Open(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600), SFM_WRITE);
      return file.Carry(SampleFormat::S16_LE, 1000), error;
    };
    begin();
    file.Write(std::vector<std::uint8_t>(4000).data(), 1000);  // of which nothing is left
    std::string error = begin();
    long written = 0;
    for (long i = 0; i < 100 && error.empty(); ++i) {
      const std::vector<std::int16_t> values(2000, static_cast<std::int16_t>(i));
      const long count = file.Write(reinterpret_cast<const std::uint8_t*>(values.data()), 1000);
      written += count;
      if (count < 1000 || !file.RenewHeader()) error = file.Error();
    }
    return std::pair(written, error + file.Close(false));
  };
  for (const char* folder : {"/dev/shm", ""}) {  // a file system that moves no blocks by itself, and one that may
    const std::string path = *folder ? folder + ("/" + std::to_string(getpid()) + ".wav") : scratch / "long.wav";
    EXPECT_EQ(write(path, WAV), std::pair(100000L, std::string()));
    const Levels levels = ReadSound(path).levels;
    EXPECT_EQ(Contents(path).substr(0, 4), "RF64");
    EXPECT_EQ(Contents(path).substr(36, 3), "\xA0\x86\x01");  // 100000 samples
    ASSERT_EQ(levels.size(), 200000U);
    for (std::size_t i = 0; i < levels.size(); ++i) ASSERT_EQ(levels[i], static_cast<double>(i / 2000) / 32768) << i;
    std::filesystem::remove(path);
  }
  for (const int format : {SF_FORMAT_AIFF, SF_FORMAT_AU, SF_FORMAT_VOC}) {
    const auto [written, error] = write(scratch / "long", format | SF_FORMAT_PCM_16);
    EXPECT_NE(error.find("cannot be longer"), error.npos) << error;
    EXPECT_EQ(ReadSound(scratch / "long").info.frames, written);
    EXPECT_GT(written, 5000);
  }
}

// Red if a file that is shorter than it says loses what is there, or passes for a whole one.
TEST_F(SoundFiles, ShortFilesAreGivenAsFarAsTheyGo) {
  const Levels noise = Noise(200000);
  for (const auto& [ending, format] : {std::pair{"wav", SF_FORMAT_WAV},
                                       {"rf64", SF_FORMAT_RF64},
                                       {"w64", SF_FORMAT_W64},
                                       {"aiff", SF_FORMAT_AIFF},
                                       {"au", SF_FORMAT_AU},
                                       {"flac", SF_FORMAT_FLAC}}) {
    const std::string file = scratch / "in." + ending;
    WriteSound(file, format | SF_FORMAT_PCM_16, noise);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    graph->DeleteAll();
    vorn::Block* source = graph.Add("filesource", {file});
    vorn::BlockCounters counters;
    AttachCounters(source, &counters);
    ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, {}));
    for (int run = 0; run < 2; ++run) EXPECT_EQ(graph.Run(), END_OF_FILE);
    const Levels levels = ReadSound(out).levels;
    EXPECT_GT(levels.size(), 90000U);
    EXPECT_TRUE(std::equal(levels.begin(), levels.end(), noise.begin()));
    EXPECT_TRUE(log.Has(file + ": ends after " + std::to_string(levels.size()) + " of the 200000 samples"));
    EXPECT_EQ(counters.losses, 2U);
    AttachCounters(source, nullptr);
  }
}

// Red if a header that was read to plan is missing when it is played, if a length that nobody knew ends a stream, or if
// one is written that is wrong.
TEST_F(SoundFiles, PipesTakeAndGiveFilesWithTheirHeaders) {
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  WriteSound(in, WAV, Noise(200000));
  for (const std::string kind : {"wav", "au", "flac", "ogg", "raw"}) {
    std::string through;
    std::thread reader([&] { through = Contents(pipe); });
    EXPECT_EQ(Copy({in}, {pipe, "container=" + kind}), END_OF_FILE);
    reader.join();
    const std::string length = kind == "wav" ? through.substr(40, 4) : kind == "au" ? through.substr(8, 4) : "";
    EXPECT_TRUE(length.empty() || length == "\xFF\xFF\xFF\xFF") << kind;
    std::thread writer([&] { Write(pipe, through); });
    graph->DeleteAll();
    vorn::Block* source =
        graph.Add("filesource", kind == "raw" ? Args{pipe, "rate=48000", "channels=1", "format=S16_LE"} : Args{pipe});
    Args stream;
    for (int look = 0; look < 2; ++look) EXPECT_EQ(source->GetParameter(vorn::PARAMETER_STREAMS, stream), 0) << kind;
    ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, {})) << kind;
    EXPECT_EQ(graph.Run(), END_OF_FILE);
    writer.join();
    EXPECT_EQ(ReadSound(out).info.frames, 200000) << kind;
    EXPECT_TRUE(kind == "ogg" || Contents(out) == Contents(in)) << kind;
  }
  std::thread reader([&] { EXPECT_EQ(Contents(pipe), ""); });
  EXPECT_EQ(Copy({in}, {pipe, "container=caf"}), std::nullopt);
  reader.join();
  EXPECT_TRUE(log.Has("a pipe takes wav, au, flac, ogg, mp3 or raw"));

  std::thread writer([&] { Write(pipe, Contents(in).substr(0, 38)); });
  EXPECT_EQ(Copy({pipe}, {out}), std::nullopt);
  writer.join();
  EXPECT_TRUE(log.Has("pipe: it ends before its samples begin")) << log.Text();
}

// Red if a wait for the other end of a pipe cannot be ended, or if what is lost by that passes for written.
TEST_F(SoundFiles, WaitsForPipesCanBeInterrupted) {
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  WriteSound(in, WAV, Levels(200000, 0.5));
  const int end = open(pipe.c_str(), O_RDWR | O_NONBLOCK);
  // Interrupts the block at the pipe once so many bytes are in it.
  const auto run = [&](bool reads, int least, int most) {
    graph->DeleteAll();
    vorn::Block* source =
        graph.Add("filesource", reads ? Args{pipe, "rate=48000", "channels=1", "format=S16_LE"} : Args{in});
    vorn::Block* sink = graph.Add("filesink", {reads ? out : pipe, "container=wav"});
    EXPECT_TRUE(graph.Chain({source, sink}, {}) && graph->Start() == 0);
    for (int filled = -1; ioctl(end, FIONREAD, &filled), filled < least || filled > most;) std::this_thread::yield();
    vorn::InterruptBlock(reads ? source : sink);
    return graph.Wait();
  };
  EXPECT_EQ(run(false, 60001, 1 << 20), END_OF_FILE);
  EXPECT_TRUE(log.Has(pipe + ": interrupted while nobody reads"));

  std::vector<char> some(70000);
  while (read(end, some.data(), some.size()) > 0) continue;
  EXPECT_EQ(write(end, some.data(), 2000), 2000);
  EXPECT_EQ(run(true, 0, 0), END_OF_FILE);
  EXPECT_EQ(ReadSound(out).info.frames, 1000);
  close(end);
}

}  // namespace

// What the plug-ins call, in place of the C library's.
extern "C" VORN_API ssize_t pread(int file, void* to, size_t count, off_t at) {
  REAL(pread);
  return disk.Moves(at) ? real(file, to, count, at) : -1;
}
extern "C" VORN_API ssize_t pwrite(int file, const void* from, size_t count, off_t at) {
  REAL(pwrite);
  return disk.Moves(at) ? real(file, from, count, at) : -1;
}
