// Sound files through filesource, from a file and from a pipe. The first byte has the kind of file in its lower three
// bits, of which the first bytes are put in front; then flags. What follows are the bytes of the file.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <tlogging.h>

#include "Input.h"
#include "testkit/TestGraph.h"

namespace {

using fuzz::Require;
using std::chrono::milliseconds;
using testkit::StreamSpec;

constexpr std::string_view KINDS[] = {"", "RIFF", "fLaC", "OggS", "FORM", ".snd", "caff", ""};
constexpr unsigned RAW = 7;
constexpr unsigned PIPE = 8, LOOP = 16, PART = 32, FLOATS = 64;
constexpr std::size_t LONGEST_PIPE = 65536;  // what fits without a reader
constexpr std::uint64_t MOST_FRAMES = 64;
constexpr milliseconds PATIENCE(20000);

/** @return a descriptor of the bytes in a file without a name, or in a pipe that nobody writes to any more. */
int Hold(const std::string& bytes, bool isPipe) {
  int ends[2] = {-1, -1};
  if (!isPipe) ends[0] = ends[1] = memfd_create("sound", MFD_CLOEXEC);
  Require(!isPipe || pipe(ends) == 0, "No pipe");
  const auto size = static_cast<ssize_t>(isPipe ? std::min(bytes.size(), LONGEST_PIPE) : bytes.size());
  Require(write(ends[1], bytes.data(), static_cast<std::size_t>(size)) == size, "No file to read");
  if (isPipe) close(ends[1]);
  return ends[0];
}

std::vector<std::string> ArgumentsOf(int sound, unsigned flags) {
  std::vector<std::string> args{"path=/dev/fd/" + std::to_string(sound)};
  if (flags % std::size(KINDS) == RAW) args.insert(args.end(), {"rate=8000", "channels=3", "format=S24_3BE"});
  if ((flags & LOOP) != 0) args.emplace_back("loop=true");
  if ((flags & PART) != 0) args.insert(args.end(), {"start=0.0004", "length=0.004"});
  return args;
}

/** What the source says of its stream; false where it can say nothing. */
bool Ask(testkit::Graph& graph, vorn::Block* source, StreamSpec& spec) {
  std::vector<std::string> answer;
  if (graph->GetParameter(source, vorn::PARAMETER_STREAMS, answer) != 0) return false;
  char format[16] = {};
  const int fields =
      std::sscanf(answer.at(0).c_str(), "rate=%u format=%15s channels=%u", &spec.rate, format, &spec.channels);
  Require(fields == 3 && vorn::ParseFormat(format, spec.format), "A stream that cannot be read");
  return true;
}

/** Until it ends, or has played so much that it may go on for ever. */
void Run(testkit::Graph& graph, vorn::Block* source) {
  vorn::BlockCounters counters;
  Require(vorn::AttachCounters(source, &counters) == 0, "No counters");
  if (graph->Start() == 0) {
    milliseconds waited(0);
    while (!graph.Wait(milliseconds(1)) && counters.frames < MOST_FRAMES) {
      Require(++waited < PATIENCE, "It neither plays nor ends");
    }
    graph->Stop();
  }
  vorn::AttachCounters(source, nullptr);
}

}  // namespace

// What libsndfile forgets where a file is damaged.
extern "C" VORN_API const char* __lsan_default_suppressions() {
  return "leak:libsndfile.so\nleak:libvorbis.so\nleak:libogg.so\nleak:libFLAC.so\nleak:libopus.so\nleak:libmpg123.so";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  vorn::Vorn::Instance();
  _tlogging_set_level(0);
  for (const char* name : {"libfilesource.so", "libnull.so"}) {  // stay loaded, as coverage has to
    Require(dlopen(name, RTLD_NOW) != nullptr, "Have LD_LIBRARY_PATH name the folder of the plug-ins");
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned flags = input.Take<std::uint8_t>();
  const std::string bytes = std::string(KINDS[flags % std::size(KINDS)]) + std::string(input.Rest());
  const int sound = Hold(bytes, (flags & PIPE) != 0);
  testkit::Graph graph;
  vorn::Block* const source = graph.Add("filesource", ArgumentsOf(sound, flags));
  vorn::Block* const sink = graph.Add("null");
  Require(source && sink, "No blocks");
  StreamSpec spec;
  spec.frame = 100;
  if (Ask(graph, source, spec)) {
    if ((flags & FLOATS) != 0) spec.format = vorn::SampleFormat::FLOAT_LE;
    Require(graph.Link(source, 0, sink, 0, spec), "No link");
    Run(graph, source);
  }
  close(sound);
  return 0;
}
