#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace vrdb {

enum class Look { PLAIN, BOLD, DIM, RED, GREEN, YELLOW, REVERSE };

/** Dresses text for a terminal that shows colours, and nowhere else. */
class Style {
 public:
  /** Colours where `fd` is a terminal, unless NO_COLOR or a dumb terminal speaks against it. */
  explicit Style(int fd) : Style(isatty(fd) == 1 && !IsSet("NO_COLOR") && Environment("TERM") != "dumb") {}
  explicit Style(bool colours) : on(colours) {}

  std::string operator()(Look look, std::string_view text) const {
    static constexpr const char* CODES[] = {"", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[7m"};
    const std::string plain(text);
    return on && look != Look::PLAIN ? CODES[static_cast<int>(look)] + plain + "\x1b[0m" : plain;
  }
  explicit operator bool() const { return on; }

 private:
  static std::string_view Environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
  }
  static bool IsSet(const char* name) { return !Environment(name).empty(); }

  bool on;
};

/** RUNNING looks well, BROKEN_RUNNING does not; the monitor says `running`. */
inline Look LookOfStatus(std::string_view status) {
  if (status == "RUNNING" || status == "running" || status == "runs") return Look::GREEN;
  return status == "STOPPED" || status == "stopped" ? Look::YELLOW : Look::RED;
}

}  // namespace vrdb
