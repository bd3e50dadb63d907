#include "StatusParser.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace vrdb {
namespace {

constexpr std::size_t LONGEST_LINE = 255;
constexpr std::size_t RATE_WIDTH = 7;
constexpr std::int64_t MOST_SECONDS = std::numeric_limits<std::int64_t>::max() / 1000000 - 1;

/** Takes a line apart from its left; once something did not fit, nothing fits any more. */
class Scanner {
 public:
  explicit Scanner(std::string_view line) : rest(line) {}

  explicit operator bool() const { return good; }

  Scanner& Text(std::string_view expected) {
    good = good && rest.substr(0, expected.size()) == expected;
    if (good) rest.remove_prefix(expected.size());
    return *this;
  }
  Scanner& Blanks() {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    return *this;
  }
  /** What stands before `end`, which is taken as well. */
  template <typename String>
  Scanner& UpTo(std::string_view end, String& text) {
    const auto size = rest.find(end);
    good = good && size != std::string_view::npos;
    if (!good) return *this;
    text = rest.substr(0, size);
    rest.remove_prefix(size + end.size());
    return *this;
  }
  template <typename Integer>
  Scanner& Number(Integer& number) {
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    good = good && error == std::errc();
    if (good) rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return *this;
  }

 private:
  std::string_view rest;
  bool good = true;
};

// "lnk_0    48000": two fields of seven characters, which run together when both are full.
bool SplitLinkAndRate(std::string_view fields, EndpointStatus& endpoint) {
  const auto link = fields.substr(0, fields.find(' '));
  const auto size = link.size() < fields.size() ? link.size() : link.size() - std::min(link.size(), RATE_WIDTH);
  endpoint.link = fields.substr(0, size);
  return static_cast<bool>(Scanner(fields.substr(size)).Blanks().Number(endpoint.rate));
}

std::optional<std::int64_t> ReadStamp(Scanner scanner) {
  std::int64_t seconds = 0;
  std::int64_t micros = 0;
  if (!scanner.Blanks().Number(seconds).Text(".").Number(micros)) return {};
  if (seconds < 0 || seconds > MOST_SECONDS || micros < 0 || micros > 999999) return {};
  return seconds * 1000000 + micros;
}

// "\t\t(I00) <-- lnk_0    48000Hz   S16_LE  2ch    480samples/frame             1.500000"
void ReadEndpoint(std::string_view line, BlockStatus& block) {
  Scanner scanner(line);
  EndpointStatus endpoint;
  std::string_view linkAndRate;
  scanner.Text("\t\t(");
  const bool input = line.size() > 3 && line[3] == 'I';
  scanner.Text(input ? "I" : "O").Number(endpoint.index).Text(input ? ") <-- " : ") --> ").UpTo("Hz ", linkAndRate);
  if (!scanner || !SplitLinkAndRate(linkAndRate, endpoint)) return;
  scanner.Blanks().UpTo(" ", endpoint.format).Blanks().Number(endpoint.channels).Text("ch");
  if (!scanner.Blanks().Number(endpoint.samplesPerFrame).Text("samples/frame")) return;
  endpoint.micros = ReadStamp(scanner);
  (input ? block.inputs : block.outputs).push_back(std::move(endpoint));
}

// "RouteA is RUNNING, 2 frames processed OK, 0 error frame"
bool ReadRoute(std::string_view line, RouteStatus& route) {
  std::string_view plural;
  Scanner scanner(line);
  scanner.UpTo(" is ", route.name).UpTo(", ", route.status).Number(route.frames);
  return static_cast<bool>(
      scanner.Text(" frame").UpTo(" processed OK, ", plural).Number(route.errors).Text(" error frame"));
}

// "fifo_0 25/100 (25%)"
bool ReadFifo(std::string_view line, FifoStatus& fifo) {
  Scanner scanner(line);
  scanner.UpTo(" ", fifo.name).Number(fifo.samples).Text("/").Number(fifo.capacity);
  return static_cast<bool>(scanner.Text(" (").Number(fifo.percent).Text("%)"));
}

template <typename One>
const One* FindByName(const std::vector<One>& all, std::string_view wanted) {
  const auto found = std::find_if(all.begin(), all.end(), [&](const One& one) { return one.name == wanted; });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

const BlockStatus* RouteStatus::Block(std::string_view wanted) const { return FindByName(blocks, wanted); }
const RouteStatus* Report::Route(std::string_view name) const { return FindByName(routes, name); }

std::string_view TakeReportLine(std::string_view& text) {
  const auto end = text.substr(0, LONGEST_LINE).find('\n');
  const auto line = text.substr(0, std::min(end, LONGEST_LINE));
  text.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  return line;
}

Report ParseStatus(std::string_view text) {
  Report report;
  while (!text.empty()) {
    const auto line = TakeReportLine(text);
    RouteStatus route;
    FifoStatus fifo;
    const bool inRoute = !report.routes.empty();
    if (line.substr(0, 2) == "\t\t") {
      if (inRoute && !report.routes.back().blocks.empty()) ReadEndpoint(line, report.routes.back().blocks.back());
    } else if (line.substr(0, 1) == "\t") {
      if (inRoute) report.routes.back().blocks.push_back({std::string(line.substr(1)), {}, {}});
    } else if (ReadRoute(line, route)) {
      report.routes.push_back(std::move(route));
    } else if (ReadFifo(line, fifo)) {
      report.fifos.push_back(std::move(fifo));
    }
  }
  return report;
}

}  // namespace vrdb
