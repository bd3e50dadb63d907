// Files that are there whole or not at all.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace support {

/**
 * Writes a file beside its place, and puts it there once it is whole; what was there before stays until then.
 *
 * @return empty, or what went wrong.
 */
inline std::string WriteWhole(const std::string& path, std::string_view text) {
  std::string beside = path + ".XXXXXX";
  const int fd = mkostemp(beside.data(), O_CLOEXEC);
  bool isWhole = fd >= 0;
  while (isWhole && !text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    isWhole = written >= 0 || errno == EINTR;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  const mode_t mask = umask(0);
  umask(mask);
  isWhole = isWhole && fchmod(fd, 0666 & ~mask) == 0 && std::rename(beside.c_str(), path.c_str()) == 0;
  const std::string problem = isWhole ? "" : "cannot write '" + path + "': " + std::strerror(errno);
  if (fd >= 0) close(fd);
  if (fd >= 0 && !isWhole) unlink(beside.c_str());
  return problem;
}

}  // namespace support
