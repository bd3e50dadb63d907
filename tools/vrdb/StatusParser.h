/** The console's status report, read back from its text. */
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vrdb {

/** A linked endpoint of a block. */
struct EndpointStatus {
  unsigned index = 0;
  std::string link;
  unsigned rate = 0;
  std::string format;
  unsigned channels = 0;
  long samplesPerFrame = 0;
  std::optional<std::int64_t> micros;  ///< time stamp of its frame
};

struct BlockStatus {
  std::string name;
  std::vector<EndpointStatus> inputs;
  std::vector<EndpointStatus> outputs;
};

struct RouteStatus {
  std::string name;
  std::string status;  ///< STOPPED, RUNNING, BROKEN_RUNNING or EXIT
  std::uint64_t frames = 0;
  std::uint64_t errors = 0;
  std::vector<BlockStatus> blocks;

  const BlockStatus* Block(std::string_view wanted) const;
};

struct FifoStatus {
  std::string name;
  long samples = 0;
  long capacity = 0;
  long percent = 0;
};

/** Routes and FIFOs, newest first. */
struct Report {
  std::vector<RouteStatus> routes;
  std::vector<FifoStatus> fifos;

  const RouteStatus* Route(std::string_view name) const;
};

/** Reads what it understands and passes over the rest; never fails. */
Report ParseStatus(std::string_view text);

/**
 * Takes the next line off `text`, without its line end. The console cuts every line at 255 characters, and the line end
 * with it: the next line then follows at once.
 */
std::string_view TakeReportLine(std::string_view& text);

}  // namespace vrdb
