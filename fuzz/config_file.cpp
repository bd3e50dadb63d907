// The configuration file. The first byte is what the value was before; the rest is the file, which a model reads as
// well: the rules of the format, said with sscanf.
#include <sys/mman.h>
#include <unistd.h>

#include <optional>
#include <sstream>

#include "Config/Profile.h"
#include "Input.h"
#include "SilentLog.h"
#include "Vorn/VornImpl.h"

namespace {

using fuzz::Require;

constexpr std::size_t LONGEST_LINE = 255;
constexpr const char* KEYS[] = {"logtostdout", "logtostderr", "loglevel", "dumppath"};

int file = -1;
std::string path;

/** As fgets cuts the file; a NUL ends what is seen of a line. */
std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t size = std::min({text.find('\n'), text.size() - 1, LONGEST_LINE - 1}) + 1;
    lines.emplace_back(std::string(text.substr(0, size)).c_str());
    text.remove_prefix(size);
  }
  return lines;
}

std::string Trimmed(const std::string& text) {
  constexpr const char* SPACE = " \t\n\v\f\r";
  const std::size_t begin = text.find_first_not_of(SPACE);
  return begin == text.npos ? "" : text.substr(begin, text.find_last_not_of(SPACE) + 1 - begin);
}

/** @return what is behind the '=', before it is trimmed. */
std::optional<std::string> Model(std::string_view text, const std::string& wanted) {
  bool inSection = false;
  for (const std::string& line : LinesOf(text)) {
    const std::string begin = line.substr(std::min(line.find_first_not_of(" \t\n\v\f\r"), line.size()));
    if (inSection && begin[0] == '[') return std::nullopt;
    if (begin[0] == '[') inSection = begin.compare(0, 8, "[config]") == 0;
    char key[LONGEST_LINE + 1] = {};
    char value[LONGEST_LINE + 1] = {};
    if (!inSection || begin[0] == '#' || begin.find('=') == begin.npos) continue;
    std::sscanf(begin.c_str(), "%255[^=|^ |^\t]", key);
    if (key != wanted) continue;
    std::sscanf(&begin[begin.find('=') + 1], "%255[^\n]", value);
    return value;
  }
  return std::nullopt;
}

void Check(std::string_view text, const char* key, char before) {
  char value[LONGEST_LINE + 1] = {before};
  const auto expected = Model(text, key);
  Require(GetProfileString(path.c_str(), "config", key, value) == (expected ? 0 : -1), "A key too few or too many");
  const bool isKept = !expected || expected->empty();
  const std::string right = isKept ? std::string(1, before).c_str() : Trimmed(*expected);
  Require(value == (right.empty() && !isKept ? *expected : right), "Another value");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  file = memfd_create("config", 0);
  path = "/dev/fd/" + std::to_string(file);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const char before = input.Take<char>();
  const std::string_view text = input.Rest();
  Require(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
          "No file");
  for (const char* key : KEYS) Check(text, key, before);

  std::string logFile;
  fuzz::onLogFile = [&](const char* asked) { logFile = asked; };
  const vorn::VornImpl framework(path.c_str());
  const std::string folder = logFile.substr(0, logFile.size() - std::min(logFile.size(), std::strlen("vorn.log")));
  Require(logFile.empty() == !Model(text, "dumppath"), "A log file too few or too many");
  Require(folder.empty() || folder.back() == '/', "A folder without its end");
  return 0;
}
