// Commands of the console, one a line, to a framework of their own.
//
// Nothing outside of a scratch folder is reached, whatever the input: every plug-in that is asked for is the one in
// here, the log goes nowhere, and setdump, which alone takes a path, gets it moved into the folder. Memory is short, so
// that huge frames meet a failed allocation and not the machine's limits. The linker's --wrap puts the loader and the
// operators new of this file in place.
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <new>
#include <sstream>

#include "Input.h"
#include "Vorn/VornImpl.h"
#include "testkit/Log.h"

namespace {

using fuzz::Require;

constexpr std::size_t LONGEST_COMMAND = 1023;
constexpr std::size_t MOST_MEMORY = 1u << 16;  // in one piece
constexpr rlim_t LARGEST_FILE = 1u << 20;
constexpr long FRAMES_TO_A_TIMEOUT = 16;  // ends a cycle that a loop of links would keep going for ever

std::atomic<bool> memoryIsShort{false};

std::string scratch;  // a folder in a folder, so that ".." is ours as well; ends in "/"

struct AnyBlock : vorn::Block {
  AnyBlock(bool isFirst, bool isLast, const std::vector<std::string>& args)
      : Block(isFirst, isLast), subname(args.empty() ? "" : args[0]) {}

  const char* Subname() const override { return subname.c_str(); }
  int OnInEpLinked(unsigned long index) override { return ActiveInEps().at(index)->FB()->rate == 0 ? -5 : 0; }
  long ProcessFrame() override {
    ++frames;
    for (const auto& [index, ep] : ActiveOutEps()) {
      vorn::FrameBuffer& frame = *ep->FB();
      const std::size_t sampleBytes = frame.channels * BytesPerSample(frame.format);
      const auto samples = static_cast<std::size_t>(frame.samplesPerFrame);
      if (sampleBytes > 0 && samples > 0) frame.data[0] = frame.data[sampleBytes * samples - 1] = 1;
      frame.samples = frame.samplesPerFrame;
      frame.timestamp = frames;
    }
    ClearActiveInEpsData();
    return frames % FRAMES_TO_A_TIMEOUT ? vorn::FRAME_DONE : vorn::FRAME_TIMEOUT;
  }
  int SetParameter(unsigned int paramId, const std::vector<std::string>& params) override {
    return values = params, static_cast<int>(paramId);
  }
  int GetParameter(unsigned int paramId, std::vector<std::string>& params) override {
    return params = values, static_cast<int>(paramId);
  }

  const std::string subname;
  std::vector<std::string> values;
  long frames = 0;
};

/** The command, its dump folder moved into the scratch folder. */
std::string Confined(const std::string& command) {
  std::istringstream words(command);
  std::string word, path;
  if (!(words >> word >> path) || word != "setdump" || path == "--") return command;
  for (char& c : path) c = c == '/' ? '_' : c;
  return word + " " + scratch + path;
}

void Run(vorn::VornImpl& framework, const std::string& command) {
  std::stringstream args(Confined(command));
  std::string word;
  if (!(args >> word)) return;
  std::string reply = "none";
  if (!framework.RunCommand(word, args, reply)) Require(reply == "none", "A reply from nobody");
  Require(reply.find('\0') == reply.npos, "A NUL inside a reply");
}

}  // namespace

extern "C" {

VORN_API vorn::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return new AnyBlock(first, last, args);
}

void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size) {
  if (memoryIsShort && size > MOST_MEMORY) throw std::bad_alloc();
  return __real__Znwm(size);
}
void* __real__ZnwmSt11align_val_t(std::size_t size, std::align_val_t alignment);
void* __wrap__ZnwmSt11align_val_t(std::size_t size, std::align_val_t alignment) {
  if (memoryIsShort && size > MOST_MEMORY) throw std::bad_alloc();
  return __real__ZnwmSt11align_val_t(size, alignment);
}

void* __real_dlopen(const char* file, int flags);
void* __wrap_dlopen(const char*, int flags) { return __real_dlopen(nullptr, flags); }

int LLVMFuzzerInitialize(int*, char***) {
  char folder[] = "/tmp/vorn-fuzz-XXXXXX";
  Require(mkdtemp(folder), "No scratch folder");
  scratch = folder + std::string("/dump/");
  testkit::Log::Keep("EWIDVT");  // so that every line is put together
  testkit::Log::watch = [](const std::string& line) {
    const bool isFile = line.starts_with("file ") && line != "file none";
    Require(!isFile || line.starts_with("file " + scratch), "A path outside of the scratch folder");
    testkit::Log::Take();
  };
  const rlimit limit{LARGEST_FILE, LARGEST_FILE};
  setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, SIG_IGN);
  std::atexit([] { std::filesystem::remove_all(std::filesystem::path(scratch).parent_path().parent_path()); });
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
  std::filesystem::create_directory(scratch);
  memoryIsShort = true;
  {
    vorn::VornImpl framework("/nowhere");
    for (std::string line; std::getline(input, line);) {
      Run(framework, line.substr(0, std::min(line.find('\0'), LONGEST_COMMAND)));
    }
  }
  memoryIsShort = false;
  std::filesystem::remove_all(scratch);
  return 0;
}
}
