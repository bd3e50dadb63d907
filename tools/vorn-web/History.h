// The last minutes of everything that moves, so that a page that is opened late, or anew, has its curves at once.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/JsonMembers.h"

namespace vorn_web {

/** All operations from any thread. */
class History {
 public:
  static constexpr std::int64_t STEP = 500;         ///< Milliseconds between two points, at least.
  static constexpr std::size_t LONGEST = 1200;      ///< Points: ten minutes.
  static constexpr std::size_t MOST_SERIES = 2000;  ///< Of whatever a process says it has.

  /**
   * A point of each series in a reply to `stats`: fps, share (of a processor) and cycle (worst, in microseconds) of
   * routes, fill (0 to 1) of FIFOs, readings of blocks. Nothing, if the last point is less than STEP ago.
   *
   * @param now Milliseconds since 1970.
   */
  void Add(const support::Json& stats, std::int64_t now);

  /** A point without a value, so that curves have a gap where the process was gone. */
  void AddGap(std::int64_t now);

  /** {"times": [milliseconds], "series": [{"of": [kind, name...], "values": [number or null, one a time]}]} */
  std::string ToJson() const;

 private:
  using Name = std::vector<std::string>;

  void Begin_l(std::int64_t now);
  void Set_l(Name name, std::optional<double> value);
  void Forget_l();

  mutable std::mutex mutex;
  // Guarded by mutex.
  std::deque<std::int64_t> times;
  std::map<Name, std::deque<float>> series;  // as long as `times`; NaN where there was no value
};

}  // namespace vorn_web
