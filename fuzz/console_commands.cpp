// Commands of the console, one a line, to a framework of their own; and requests to its monitor, in lines that begin
// with '>'.
//
// Nothing outside of a scratch folder is reached, whatever the input: every plug-in that is asked for is the one in
// here, the log goes nowhere, and setdump, which alone takes a path, gets it moved into the folder. Memory is short, so
// that huge frames meet a failed allocation and not the machine's limits. The linker's --wrap puts the loader and the
// operators new of this file in place.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <new>
#include <sstream>

#include "Input.h"
#include "Monitor/Edits.h"
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

/** A client of the monitor, which may let it go where its memory runs out. */
class Asker {
 public:
  ~Asker() { close(fd); }

  /** A line that waits for more than its reply, or writes to a folder, is not asked. */
  static bool MayAsk(const std::string& line) {
    std::vector<vorn::monitor::Word> words;
    if (!vorn::monitor::SplitWords(line, words) || words.empty()) return true;
    return words[0].text != "dump" && words[0].text != "watch" && words[0].text != "events";
  }

  void Ask(const std::string& line) {
    if (!isOpen && !Open()) return;
    const std::string sent = line + '\n';
    isOpen = send(fd, sent.data(), sent.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sent.size());
    for (char c = 0; isOpen && c != '\n';) {
      const ssize_t got = recv(fd, &c, 1, 0);
      Require(got >= 0, "A request without a reply");
      isOpen = got > 0;
    }
  }

 private:
  bool Open() {
    close(fd);
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval limit{60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "vorn." + std::to_string(getpid());
    name.copy(address.sun_path + 1, name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return isOpen = connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
  }

  int fd = -1;
  bool isOpen = false;
};

/** A request that begins with "do" is a command of the console. */
void Request(Asker& asker, const std::string& line) {
  std::istringstream words(line);
  std::string word, rest;
  words >> word;
  if (word == "do") std::getline(words, rest), asker.Ask("do " + Confined(rest));
  if (word != "do" && Asker::MayAsk(line)) asker.Ask(line);
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
    Asker asker;
    for (std::string line; std::getline(input, line);) {
      if (line.starts_with('>')) {
        Request(asker, line.substr(1));
        continue;
      }
      Run(framework, line.substr(0, std::min(line.find('\0'), LONGEST_COMMAND)));
    }
  }
  memoryIsShort = false;
  std::filesystem::remove_all(scratch);
  return 0;
}
}
