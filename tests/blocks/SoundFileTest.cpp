// filesource and filesink against libsndfile called directly.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sndfile.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include <vorn/Plugin.h>

#include "../../blocks/soundfile/SoundFile.h"
#include "testkit/LogFile.h"
#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

// The call of the system, or of libsndfile, that fails, for what lies at a partial name; plug-ins find these first.
static std::string failingCall;

static bool Fails(const char* call) {
  errno = EIO;
  return failingCall == call;
}

#pragma GCC visibility push(default)
extern "C" {
int close(int fd) {
  char path[256]{};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const bool isPartial = readlink(link.c_str(), path, sizeof path - 1) > 0 && strstr(path, ".partial") != nullptr;
  const auto ret = static_cast<int>(syscall(SYS_close, fd));
  return isPartial && Fails("close") ? -1 : ret;
}
int fsync(int fd) { return Fails("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, fd)); }
int rename(const char* from, const char* to) {
  return Fails("rename") ? -1 : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
SNDFILE* sf_open_virtual(SF_VIRTUAL_IO* io, int mode, SF_INFO* info, void* data) {
  if (failingCall == "sf_open_virtual") return failingCall.clear(), nullptr;
  static const auto real = reinterpret_cast<decltype(&sf_open_virtual)>(dlsym(RTLD_NEXT, "sf_open_virtual"));
  return real(io, mode, info, data);
}
}
#pragma GCC visibility pop

namespace {

using testkit::Graph;
using testkit::StreamSpec;
using vorn::SampleFormat;
constexpr auto END_OF_FILE = vorn::Route::StopReason::STOP_END_OF_FILE;
constexpr auto ERROR = vorn::Route::StopReason::STOP_ERROR;

struct Sound {
  SF_INFO info{};
  std::vector<double> values;  // full scale is 1
};

Sound ReadSound(const std::string& path, SF_INFO raw = {}) {
  Sound sound{raw, {}};
  SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.info);
  if (!file) return {};
  sound.values.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
  sf_readf_double(file, sound.values.data(), sound.info.frames);
  sf_close(file);
  return sound;
}

// `values` are such that the file holds them exactly.
void WriteSound(const std::string& path, int format, int channels, const std::vector<double>& values,
                int rate = 48000) {
  SF_INFO info{};
  info.format = format;
  info.channels = channels;
  info.samplerate = rate;
  SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(file, nullptr) << path << sf_strerror(nullptr);
  std::vector<int> whole;
  for (const double v : values) whole.push_back(static_cast<int>(std::fmin(v * 2147483648.0, 2147483647.0)));
  const int encoding = format & SF_FORMAT_SUBMASK;
  const auto count = static_cast<sf_count_t>(values.size());
  const bool isReal = encoding == SF_FORMAT_FLOAT || encoding == SF_FORMAT_VORBIS;
  EXPECT_EQ(isReal ? sf_write_double(file, values.data(), count) : sf_write_int(file, whole.data(), count), count);
  sf_close(file);
}

std::vector<double> Scaled(std::vector<double> values, double factor) {
  for (double& value : values) value *= factor;
  return values;
}

std::string Bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class SoundFiles : public testing::Test {
 protected:
  // `source` and `sink` are arguments. @return why the route stopped.
  std::optional<vorn::Route::StopReason> Copy(const std::vector<std::string>& source,
                                              const std::vector<std::string>& sink, const StreamSpec& spec) {
    graph->DeleteAll();
    return graph.Chain({graph.Add("filesource", source), graph.Add("filesink", sink)}, spec) ? graph.Run()
                                                                                             : std::nullopt;
  }

  testkit::Folder scratch;
  testkit::LogFile log;
  Graph graph;
};

struct Kind {
  const char* ending;
  int format;
  SampleFormat samples;
};
const Kind KINDS[] = {{"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SampleFormat::BYTE},
                      {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, SampleFormat::S16_LE},
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

// Red if a byte order, a width or a sign is mistaken, if a batch loses its rest, or if the answered stream is not the
// file's.
TEST_F(SoundFiles, CopiesKeepEverySampleAsItIs) {
  for (const Kind& kind : KINDS) {
    for (const std::size_t values : {3U, 100003U * 3U}) {
      const std::string in = scratch / "in." + kind.ending;
      const std::string out = scratch / "out." + kind.ending;
      WriteSound(in, kind.format, 3,
                 Scaled(testkit::RandomNumbers(kind.samples, values), 1 / testkit::FullScale(kind.samples)));
      const StreamSpec spec{48000, kind.samples, 3, 480};
      ASSERT_EQ(Copy({in}, {out}, spec), END_OF_FILE) << in;
      const Sound a = ReadSound(in);
      const Sound b = ReadSound(out);
      EXPECT_EQ(b.info.format & ~SF_FORMAT_ENDMASK, kind.format);
      EXPECT_EQ(b.info.frames, static_cast<sf_count_t>(values / 3));
      EXPECT_EQ(a.values, b.values) << in << std::hex << kind.format;
      EXPECT_TRUE(kind.format != (SF_FORMAT_WAV | SF_FORMAT_PCM_16) || Bytes(in) == Bytes(out));
      std::vector<std::string> stream;
      EXPECT_EQ(graph.Add("filesource", {in, "frame=64"})->GetParameter(vorn::PARAMETER_STREAMS, stream), 0);
      EXPECT_EQ(stream, std::vector<std::string>({std::string("rate=48000 format=") + vorn::FormatName(kind.samples) +
                                                  " channels=3 frame=64 length=" + std::to_string(values / 3)}));
    }
  }
}

// Red if a format of a link is silently wrong on either side, or cut instead of rounded.
TEST_F(SoundFiles, EveryFormatOfALinkGetsTheNearestValues) {
  const std::string path = scratch / "in.raw";
  for (const Kind& kind : KINDS) {
    const std::string in = scratch / "in." + kind.ending;
    WriteSound(in, kind.format, 1,
               Scaled(testkit::RandomNumbers(kind.samples, 5000), 1 / testkit::FullScale(kind.samples)));
    const std::vector<double> values = ReadSound(in).values;
    for (const SampleFormat format : testkit::FORMATS) {
      const StreamSpec spec{48000, format, 1, 480};
      graph->DeleteAll();
      vorn::Block* sink = graph.Add("testsink");
      ASSERT_TRUE(graph.Chain({graph.Add("filesource", {in}), sink}, spec));
      ASSERT_EQ(graph.Run(), END_OF_FILE);
      const auto played = testkit::Numbers(format, Graph::Recorded(sink));
      ASSERT_EQ(played.size(), values.size());
      for (std::size_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(played[i], testkit::Nearest(format, values[i] * testkit::FullScale(format)))
            << in << vorn::FormatName(format) << i;
      }
      // The same stream written to this kind of file: as many bits as it has, or as the kind knows.
      const std::string out = scratch / "out." + kind.ending;
      graph->DeleteAll();
      vorn::Block* source = graph.Add("testsource");
      Graph::Play(source, testkit::Bytes(format, played), spec);
      ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, spec));
      ASSERT_EQ(graph.Run(), END_OF_FILE);
      const Sound sound = ReadSound(out);
      const double scale = (sound.info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_24 ? 8388608.0 : 0;
      ASSERT_EQ(sound.values.size(), played.size());
      for (std::size_t i = 0; i < played.size(); ++i) {
        const double value = played[i] / testkit::FullScale(format);
        ASSERT_EQ(sound.values[i], scale != 0 ? std::fmin(std::nearbyint(value * scale), scale - 1) / scale : value)
            << out << vorn::FormatName(format) << i;
      }
    }
  }
}

// Red if a file without a header is not just the samples of the link, or is not read back with the same words.
TEST_F(SoundFiles, FilesWithoutAHeaderHoldTheBytesOfTheLink) {
  for (const SampleFormat format : testkit::FORMATS) {
    const StreamSpec spec{16000, format, 2, 100};
    const auto bytes = testkit::Bytes(format, testkit::RandomNumbers(format, 2 * 777));
    const std::string out = scratch / "out.pcm";
    graph->DeleteAll();
    vorn::Block* source = graph.Add("testsource");
    Graph::Play(source, bytes, spec);
    ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, spec));
    ASSERT_EQ(graph.Run(), END_OF_FILE);
    EXPECT_EQ(Bytes(out), std::string(bytes.begin(), bytes.end()));
    const std::string again = scratch / "again";
    ASSERT_EQ(Copy({out, "rate=16000", "channels=2", std::string("format=") + vorn::FormatName(format)},
                   {again, "container=raw"}, spec),
              END_OF_FILE);
    EXPECT_EQ(Bytes(again), Bytes(out));
  }
  EXPECT_EQ(Copy({scratch / "again"}, {scratch / "x.wav"}, StreamSpec{}), std::nullopt);
  EXPECT_TRUE(log.Has("say rate=, channels= and format="));
}

// Red if Ogg is not decoded to the float stream libsndfile gives, or if an encoded file has not every sample.
TEST_F(SoundFiles, OggPassesAsFloat) {
  std::vector<double> sine(50001);
  for (std::size_t i = 0; i < sine.size(); ++i) sine[i] = 0.5 * std::sin(0.05 * static_cast<double>(i));
  WriteSound(scratch / "in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 1, sine);
  const StreamSpec spec{48000, SampleFormat::FLOAT_LE, 1, 480};
  ASSERT_EQ(Copy({scratch / "in.ogg"}, {scratch / "out.wav"}, spec), END_OF_FILE);
  EXPECT_EQ(ReadSound(scratch / "in.ogg").values, ReadSound(scratch / "out.wav").values);
  ASSERT_EQ(Copy({scratch / "out.wav"}, {scratch / "out.oga", "quality=0.9"}, spec), END_OF_FILE);
  const Sound coded = ReadSound(scratch / "out.oga");
  ASSERT_EQ(coded.values.size(), sine.size());
  for (std::size_t i = 1000; i < 49000; ++i) ASSERT_NEAR(coded.values[i], sine[i], 0.05);
}

long ReadsAndWritesMade() {
  std::ifstream io("/proc/self/io");  // "syscr: 123"
  long reads = 0, writes = 0;
  for (std::string word; io >> word;) {
    if (word == "syscr:") io >> reads;
    if (word == "syscw:") io >> writes;
  }
  return reads + writes;
}

// Red if small frames, or the small pieces of a codec, go to the system one by one.
TEST_F(SoundFiles, FilesAreReadAndWrittenInBatches) {
  const std::vector<double> noise = Scaled(testkit::RandomNumbers(SampleFormat::S16_LE, 2000000), 1 / 65536.0);
  for (const auto& [ending, format] : {std::pair{"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                                       {"flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                       {"ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS}}) {
    const std::string in = scratch / "in." + ending;
    WriteSound(in, format, 1, noise);
    const auto batches = static_cast<long>(std::filesystem::file_size(in) / 65536);
    const long before = ReadsAndWritesMade();
    ASSERT_EQ(Copy({in}, {scratch / "out." + ending}, StreamSpec{48000, SampleFormat::S16_LE, 1, 16}), END_OF_FILE);
    EXPECT_LT(ReadsAndWritesMade() - before, 2 * batches + 60) << ending;  // the log has its lines
  }
}

// Red if a part is off by one, a loop has a gap, or a stop or a new start leaves a file unfinished or mixed with what
// was there.
TEST_F(SoundFiles, PartsLoopsStopsAndStartsAreExact) {
  std::vector<double> ramp(48000);
  for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<double>(i % 30000) / 32768;
  const std::string in = scratch / "in.wav";
  const std::string out = scratch / "out.wav";
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, ramp);
  const StreamSpec spec;
  ASSERT_EQ(Copy({in, "start=0.1", "length=0.25"}, {out}, spec), END_OF_FILE);
  EXPECT_EQ(ReadSound(out).values, std::vector<double>(ramp.begin() + 4800, ramp.begin() + 16800));
  ASSERT_EQ(graph.Run(), END_OF_FILE);
  EXPECT_EQ(ReadSound(out).values, std::vector<double>(ramp.begin() + 4800, ramp.begin() + 16800));

  graph->DeleteAll();
  vorn::Block* source = graph.Add("filesource", {in, "loop=true", "start=0.5", "length=0.0101"});
  vorn::Block* sink = graph.Add("filesink", {out});
  ASSERT_TRUE(graph.Chain({source, sink}, spec));
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(graph->Start(), 0);
    std::vector<std::string> written{"0"};
    while (std::stod(written.at(0)) < 200000) graph->GetParameter(sink, 3, written);  // ctest has the deadline
    ASSERT_EQ(graph->Stop(), 0);
    const std::vector<double> looped = ReadSound(out).values;
    EXPECT_GE(looped.size(), 200000U);
    for (std::size_t i = 0; i < looped.size(); ++i) ASSERT_EQ(looped[i], ramp[24000 + i % 485]) << i;
    EXPECT_EQ(graph.Numbers(sink)["written"], static_cast<double>(looped.size()));
    EXPECT_NEAR(graph.Numbers(source)["played"], static_cast<double>(looped.size()) / 48000, 0.1);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      EXPECT_NE(std::filesystem::read_symlink(entry, gone), in);
    }
  }

  EXPECT_EQ(Copy({in, "start=1"}, {out}, spec), std::nullopt);
  EXPECT_TRUE(log.Has("start is at 1 s, the file has 1 s"));
}

// Red if a refusal does not say which file, what came and what would do.
TEST_F(SoundFiles, RefusalsSayWhy) {
  const std::string in = scratch / "in.wav";
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, std::vector<double>(2000), 44100);
  const StreamSpec cd{44100, SampleFormat::S16_LE, 2, 441};
  const StreamSpec wide{44100, SampleFormat::S16_LE, 9, 441};
  EXPECT_EQ(Copy({scratch / "none.wav"}, {scratch / "out.wav"}, cd), std::nullopt);
  EXPECT_TRUE(log.Has("none.wav: No such file or directory"));
  EXPECT_EQ(Copy({in}, {scratch / "none/out.wav"}, cd), std::nullopt);
  EXPECT_TRUE(log.Has("none/out.wav: No such file or directory"));
  EXPECT_EQ(Copy({in}, {scratch / ""}, cd), std::nullopt);
  EXPECT_EQ(Copy({in}, {scratch / "out.wav"}, StreamSpec{48000, SampleFormat::S16_LE, 1, 480}), std::nullopt);
  EXPECT_TRUE(log.Has("output 0: got 48000 Hz 1 channel, takes 44100 Hz 2 channels as " + in +
                      "; put 'resample', 'remap' after it"));
  EXPECT_EQ(Copy({in}, {scratch / "out.txt"}, cd), std::nullopt);
  EXPECT_TRUE(log.Has("'txt' is no kind of sound file"));
  EXPECT_EQ(Copy({in}, {scratch / "out.opus"}, cd), std::nullopt);
  EXPECT_TRUE(log.Has("takes 8000 12000 16000 24000 48000 Hz; put a 'resample' before it"));
  graph->DeleteAll();
  graph.Chain({graph.Add("testsource"), graph.Add("filesink", {scratch / "out.flac"})}, wide);
  EXPECT_NE(graph->Start(), 0);
  EXPECT_TRUE(log.Has("takes up to 8 channels; put a 'remap' before it"));
  for (const char* name : {"out.opus", "out.flac"}) EXPECT_FALSE(std::filesystem::exists(scratch / name));

  for (const char* argument : {"start=-1", "format=S16", "lop=true"})
    EXPECT_EQ(graph.Add("filesource", {in, argument}), nullptr);
  EXPECT_TRUE(log.Has("filesource: argument 'lop': unknown; takes path loop start length format rate channels frame"));
  EXPECT_EQ(graph.Add("filesource"), nullptr);
  EXPECT_TRUE(log.Has("filesource: argument 'path': missing; takes a text"));
}

std::vector<std::string> Partials(const std::string& folder) {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename().string().find(".partial") != std::string::npos) found.push_back(entry.path());
  }
  return found;
}

// Red if a full disk passes for a success, if what was written takes the name of a whole file, or if the error does not
// say where it is.
TEST_F(SoundFiles, FilesThatBreakOffStopTheRouteWithAnError) {
  const StreamSpec spec;
  const std::vector<double> noise = Scaled(testkit::RandomNumbers(SampleFormat::S16_LE, 200000), 1 / 32768.0);
  WriteSound(scratch / "in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, noise);

  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (const char* ending : {"wav", "flac", "ogg"}) {
    const std::string out = scratch / "out." + ending;
    for (const rlim_t bytes : {40000U, 200000U}) {  // on the way, at once, and in the rest that waits for the end
      std::ofstream(out) << "old";
      rlimit small = before;
      small.rlim_cur = bytes;
      setrlimit(RLIMIT_FSIZE, &small);
      EXPECT_EQ(Copy({scratch / "in.wav", bytes == 40000U ? "loop=true" : "length=2.2"}, {out}, spec), ERROR) << out;
      setrlimit(RLIMIT_FSIZE, &before);
      EXPECT_TRUE(Bytes(out) == "old");
      const auto partials = Partials(scratch / "");
      ASSERT_EQ(partials.size(), 1U);
      EXPECT_TRUE(log.Has(out + ": File too large")) << out;
      EXPECT_TRUE(log.Has("what there is, is in " + partials[0]));
      EXPECT_TRUE(partials[0].ends_with(std::string(".partial.") + ending));
      std::filesystem::remove(partials[0]);
      if (ending != std::string("wav")) break;
    }
  }
}

// Red if an error of closing, flushing or renaming is dropped, or costs what was there; or if memory that is short for
// a moment changes the encoding.
TEST_F(SoundFiles, NoErrorOfTheEndIsLost) {
  const std::string in = scratch / "in.wav";
  const std::string out = scratch / "out.wav";
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, std::vector<double>(1000, 0.5));
  for (const char* call : {"close", "fsync", "rename"}) {
    std::ofstream(out) << "old";
    failingCall = call;
    EXPECT_EQ(Copy({in}, {out, "sync=true"}, StreamSpec{}), ERROR) << call;
    failingCall.clear();
    EXPECT_TRUE(log.Has(out + ": Input/output error after 1000 samples; what there is, is in ")) << call;
    EXPECT_TRUE(Bytes(out) == "old");
  }
  graph->DeleteAll();
  vorn::Block* source = graph.Add("testsource");
  Graph::Play(source, std::vector<std::uint8_t>(2000), StreamSpec{});
  ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, StreamSpec{}));
  failingCall = "sf_open_virtual";
  EXPECT_NE(graph->Start(), 0);
  EXPECT_TRUE(Bytes(out) == "old");
}

// Red if a failure elsewhere in the route, or a start that fails, costs what was there or passes for an end; if an
// orderly stop does not finish the file; or if links, modes or arguments are not kept.
TEST_F(SoundFiles, AnOutputIsWholeOrNotAtAll) {
  const std::string in = scratch / "in.wav";
  const std::string out = scratch / "out.wav";
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, std::vector<double>(100000, 0.5));
  const auto copyTwice = [&](const std::vector<std::string>& second) {
    graph->DeleteAll();
    vorn::Block* tee = graph.Add("tee");
    EXPECT_TRUE(graph.Chain({graph.Add("filesource", {in}), tee, graph.Add("filesink", {out})}, StreamSpec{}));
    return graph.Link(tee, 1, graph.Add("filesink", second), 0, StreamSpec{}) ? graph.Run() : std::nullopt;
  };
  std::ofstream(out) << "old";
  EXPECT_EQ(copyTwice({scratch / "none/out.wav"}), std::nullopt);
  graph->DeleteAll();
  EXPECT_EQ(Partials(scratch / ""), std::vector<std::string>());
  EXPECT_TRUE(Bytes(out) == "old");
  EXPECT_EQ(copyTwice({"/dev/full", "container=wav"}), ERROR);
  EXPECT_TRUE(Bytes(out) == "old");
  ASSERT_EQ(Partials(scratch / "").size(), 1U);
  EXPECT_TRUE(log.Has(out + ": not finished; what there is, is in " + Partials(scratch / "")[0]));

  EXPECT_EQ(Copy({in}, {out, "clobber=false"}, StreamSpec{}), std::nullopt);
  EXPECT_TRUE(log.Has(out + ": is there already"));
  EXPECT_EQ(Copy({in}, {scratch / "new.wav", "clobber=false"}, StreamSpec{}), END_OF_FILE);
  EXPECT_TRUE(Bytes(scratch / "new.wav") == Bytes(in));

  const std::string link = scratch / "link.wav";
  std::filesystem::create_symlink("out.wav", link);
  chmod(out.c_str(), 0640);
  EXPECT_EQ(Copy({in}, {link}, StreamSpec{}), END_OF_FILE);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_TRUE(Bytes(out) == Bytes(in));
  struct stat status {};
  stat(out.c_str(), &status);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

// Red if the header of a file that grows is not renewed, so that a crash would cost all of it.
TEST_F(SoundFiles, AFileThatGrowsCanBeRead) {
  const std::string in = scratch / "in.wav";
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, std::vector<double>(48000, 0.5));
  for (const char* ending : {"wav", "aiff", "au", "caf"}) {
    const std::string out = scratch / "out." + ending;
    graph->DeleteAll();
    ASSERT_TRUE(graph.Chain({graph.Add("filesource", {in, "loop=true"}), graph.Add("filesink", {out, "inplace=true"})},
                            StreamSpec{}));
    ASSERT_EQ(graph->Start(), 0);
    while (ReadSound(out).values.size() < 600000) std::this_thread::yield();  // ctest has the deadline
    ASSERT_EQ(graph->Stop(), 0);
  }
}

// Red if the samples or the length of a file beyond what a WAV can say are lost, or if another kind overflows.
TEST_F(SoundFiles, LongFilesSayHowLongTheyAre) {
  const auto write = [](const std::string& path, int format) {
    soundfile::SoundFile file;
    file.mostBytes = 100000;
    file.info.format = format;
    file.info.channels = 2;
    file.info.samplerate = 48000;
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
    EXPECT_EQ(write(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16), std::pair(100000L, std::string()));
    const Sound sound = ReadSound(path);
    EXPECT_EQ(Bytes(path).substr(0, 4), "RF64");
    EXPECT_EQ(Bytes(path).substr(36, 3), "\xA0\x86\x01");  // 100000 samples
    ASSERT_EQ(sound.values.size(), 200000U);
    for (std::size_t i = 0; i < sound.values.size(); ++i) {
      ASSERT_EQ(sound.values[i], static_cast<double>(i / 2000) / 32768) << i;
    }
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
  const std::vector<double> noise = Scaled(testkit::RandomNumbers(SampleFormat::S16_LE, 200000), 1 / 32768.0);
  for (const auto& [ending, format] :
       {std::pair{"wav", SF_FORMAT_WAV}, std::pair{"rf64", SF_FORMAT_RF64}, std::pair{"w64", SF_FORMAT_W64},
        std::pair{"aiff", SF_FORMAT_AIFF}, std::pair{"au", SF_FORMAT_AU}, std::pair{"flac", SF_FORMAT_FLAC}}) {
    const std::string in = scratch / "in." + ending;
    const std::string out = scratch / "out.wav";
    WriteSound(in, format | SF_FORMAT_PCM_16, 1, noise);
    std::filesystem::resize_file(in, std::filesystem::file_size(in) / 2);
    graph->DeleteAll();
    vorn::Block* source = graph.Add("filesource", {in});
    vorn::BlockCounters counters;
    AttachCounters(source, &counters);
    ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {out})}, StreamSpec{}));
    for (int run = 0; run < 2; ++run) EXPECT_EQ(graph.Run(), END_OF_FILE);
    const std::vector<double> values = ReadSound(out).values;
    EXPECT_GT(values.size(), 90000U);
    EXPECT_TRUE(std::equal(values.begin(), values.end(), noise.begin()));
    EXPECT_TRUE(log.Has(in + ": ends after " + std::to_string(values.size()) + " of the 200000 samples"));
    EXPECT_EQ(counters.losses, 2U);
    AttachCounters(source, nullptr);
  }
}

// Red if a header that was read to plan is missing when it is played, if a length that nobody knew ends a stream, or if
// one is written that is wrong.
TEST_F(SoundFiles, PipesTakeAndGiveFilesWithTheirHeaders) {
  const std::string in = scratch / "in.wav";
  const std::string pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1,
             Scaled(testkit::RandomNumbers(SampleFormat::S16_LE, 200000), 1 / 32768.0));
  for (const std::string kind : {"wav", "au", "flac", "ogg", "raw"}) {
    std::string through;
    std::thread reader([&] { through = Bytes(pipe); });
    EXPECT_EQ(Copy({in}, {pipe, "container=" + kind}, StreamSpec{}), END_OF_FILE);
    reader.join();
    EXPECT_EQ(kind == "wav"  ? through.substr(40, 4)
              : kind == "au" ? through.substr(8, 4)
                             : "\xFF\xFF\xFF\xFF",
              "\xFF\xFF\xFF\xFF");
    std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << through; });
    graph->DeleteAll();
    std::vector<std::string> args{pipe};
    if (kind == "raw") args.insert(args.end(), {"rate=48000", "channels=1", "format=S16_LE"});
    vorn::Block* source = graph.Add("filesource", args);
    std::vector<std::string> stream;
    for (int look = 0; look < 2; ++look) EXPECT_EQ(source->GetParameter(vorn::PARAMETER_STREAMS, stream), 0) << kind;
    ASSERT_TRUE(graph.Chain({source, graph.Add("filesink", {scratch / "out.wav"})}, StreamSpec{})) << kind;
    EXPECT_EQ(graph.Run(), END_OF_FILE);
    writer.join();
    EXPECT_EQ(ReadSound(scratch / "out.wav").info.frames, 200000) << kind;
    EXPECT_TRUE(kind == "ogg" || Bytes(scratch / "out.wav") == Bytes(in)) << kind;
  }
  std::thread reader([&] { EXPECT_EQ(Bytes(pipe), ""); });
  EXPECT_EQ(Copy({in}, {pipe, "container=caf"}, StreamSpec{}), std::nullopt);
  reader.join();
  EXPECT_TRUE(log.Has("a pipe takes wav, au, flac, ogg, mp3 or raw"));
}

// Red if a wait for the other end of a pipe cannot be ended, or if what is lost by that passes for written.
TEST_F(SoundFiles, WaitsForPipesCanBeInterrupted) {
  const std::string in = scratch / "in.wav";
  const std::string pipe = scratch / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  WriteSound(in, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, std::vector<double>(200000, 0.5));
  vorn::Block* waiting = nullptr;
  const auto run = [&](bool reads, const std::function<bool()>& isWaiting) {
    graph->DeleteAll();
    const std::vector<std::string> raw{pipe, "rate=48000", "channels=1", "format=S16_LE"};
    vorn::Block* source = graph.Add("filesource", reads ? raw : std::vector<std::string>{in});
    vorn::Block* sink = graph.Add("filesink", {reads ? scratch / "out.wav" : pipe, "container=wav"});
    waiting = reads ? source : sink;
    EXPECT_TRUE(graph.Chain({source, sink}, StreamSpec{}));
    std::optional<vorn::Route::StopReason> reason;
    std::thread runner([&] { reason = graph.Run(); });
    while (!isWaiting()) std::this_thread::yield();  // ctest has the deadline
    vorn::InterruptBlock(waiting);
    runner.join();
    return reason;
  };
  const int end = open(pipe.c_str(), O_RDWR | O_NONBLOCK);
  int filled = 0;
  EXPECT_EQ(run(false, [&] { return ioctl(end, FIONREAD, &filled) == 0 && filled > 60000; }), END_OF_FILE);
  EXPECT_TRUE(log.Has(pipe + ": interrupted while nobody reads"));

  std::vector<char> some(70000);
  while (read(end, some.data(), some.size()) > 0) continue;
  EXPECT_EQ(write(end, some.data(), 2000), 2000);
  EXPECT_EQ(run(true, [&] { return ioctl(end, FIONREAD, &filled) == 0 && filled == 0; }), END_OF_FILE);
  EXPECT_EQ(ReadSound(scratch / "out.wav").info.frames, 1000);
  close(end);
}

}  // namespace
