#include "History.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "support/Format.h"

namespace vorn_web {
namespace {

using support::Json;
using support::ListOf;
using support::Member;
using support::NumberOf;
using support::TextOf;

constexpr float NOTHING = std::numeric_limits<float>::quiet_NaN();

/** A measurement, which comes as text: empty or nan where there is none. */
std::optional<double> ValueOf(const Json& reading) {
  const std::string text = TextOf(reading, "value");
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return text.empty() || *end != '\0' ? NumberOf(reading, "value") : std::optional(value);
}

std::string ToText(const std::deque<float>& values) {
  std::string text;
  for (const float value : values) {
    if (!text.empty()) text += ',';
    text += std::isfinite(value) ? support::Format("%.5g", static_cast<double>(value)) : "null";
  }
  return '[' + text + ']';
}

}  // namespace

void History::Add(const Json& stats, std::int64_t now) {
  const std::lock_guard lock(mutex);
  if (!times.empty() && now - times.back() < STEP) return;
  Begin_l(now);
  for (const Json& route : ListOf(stats, "routes")) {
    const std::string name = TextOf(route, "name");
    Set_l({"fps", name}, NumberOf(route, "framesPerSecond"));
    Set_l({"share", name}, NumberOf(route, "processorShare"));
    Set_l({"cycle", name}, NumberOf(Member(route, "cycle"), "worst"));
    for (const Json& reading : ListOf(route, "readings")) {
      Set_l({"reading", name, TextOf(reading, "block"), TextOf(reading, "name")}, ValueOf(reading));
    }
  }
  for (const Json& fifo : ListOf(stats, "fifos")) {
    const auto count = NumberOf(fifo, "count"), capacity = NumberOf(fifo, "capacity");
    if (count && capacity && *capacity > 0) Set_l({"fill", TextOf(fifo, "name")}, *count / *capacity);
  }
  Forget_l();
}

void History::AddGap(std::int64_t now) {
  const std::lock_guard lock(mutex);
  if (!times.empty()) Begin_l(now);
}

void History::Begin_l(std::int64_t now) {
  times.push_back(now);
  const bool isFull = times.size() > LONGEST;
  if (isFull) times.pop_front();
  for (auto& [name, values] : series) {
    values.push_back(NOTHING);
    if (isFull) values.pop_front();
  }
}

void History::Set_l(Name name, std::optional<double> value) {
  if (!value || !std::isfinite(*value)) return;
  auto found = series.find(name);
  if (found == series.end()) {
    if (series.size() == MOST_SERIES) return;
    found = series.emplace(std::move(name), std::deque<float>(times.size(), NOTHING)).first;
  }
  found->second.back() = static_cast<float>(*value);
}

/** Drops what has had no value for as long as the history reaches back. */
void History::Forget_l() {
  std::erase_if(series, [](const auto& entry) {
    return std::ranges::none_of(entry.second, [](float value) { return std::isfinite(value); });
  });
}

std::string History::ToJson() const {
  const std::lock_guard lock(mutex);
  std::string text = R"({"times":)" + support::ToText(Json(times)) + R"(,"series":[)";
  for (bool isFirst = true; const auto& [name, values] : series) {
    if (!std::exchange(isFirst, false)) text += ',';
    text += R"({"of":)" + support::ToText(Json(name)) + R"(,"values":)" + ToText(values) + '}';
  }
  return text + "]}";
}

}  // namespace vorn_web
