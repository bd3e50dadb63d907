// Standard input, output and error of a program.
#pragma once

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace vorn {

/**
 * Opens those that the program was started without on /dev/null. Otherwise a file that is opened later, a recording
 * say, would take the place of one and get its lines. First of all in main().
 */
inline void OpenStandardStreams() {
  for (int descriptor = 0; descriptor <= 2; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) open("/dev/null", O_RDWR);  // takes the lowest number that is free
  }
}

/** Writes what is still to come out. @return why not everything did, or empty. */
inline std::string FlushOutput() {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return "";
  return std::string("standard output did not take everything: ") + std::strerror(errno != 0 ? errno : EIO);
}

}  // namespace vorn
