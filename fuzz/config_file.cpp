// The configuration file. The first byte is what the value was before; the rest is the file.
#include <sys/mman.h>
#include <unistd.h>

#include "Config/Profile.h"
#include "Input.h"
#include "Vorn/VornImpl.h"
#include "testkit/Log.h"

using fuzz::Require;

constexpr std::size_t LONGEST_LINE = 255;

static int file = -1;
static std::string path;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  file = memfd_create("config", 0);
  path = "/dev/fd/" + std::to_string(file);
  testkit::Log::Keep("EWIDVT");
  testkit::Log::watch = [](const std::string& line) {
    Require(line != "file ", "A log file without a name");
    testkit::Log::Take();
  };
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const char before = input.Take<char>();
  const std::string_view text = input.Rest();
  Require(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
          "No file");
  char value[LONGEST_LINE + 1] = {before};
  const bool isFound = GetProfileString(path.c_str(), "config", "loglevel", value) == 0;
  Require(isFound || (value[0] == before && value[1] == 0), "A value that nobody found");
  const vorn::VornImpl framework(path.c_str());
  return 0;
}
