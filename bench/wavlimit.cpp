// wavlimit IN.wav OUT.wav: a 16-bit file made 6 dB quieter by a loop of read, multiply and write, which is the limit.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "Measure.h"

namespace {

constexpr std::size_t SAMPLES = 2 * 16384;

/** 10^(-6/20) in 15 bits. */
constexpr int FACTOR = 16422;

void Scale(std::int16_t* samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) samples[i] = static_cast<std::int16_t>((samples[i] * FACTOR + 16384) >> 15);
}

}  // namespace

int main(int argc, char** argv) {
  alignas(64) static std::int16_t samples[SAMPLES];
  char header[44];
  const int in = argc == 3 ? open(argv[1], O_RDONLY) : -1;
  const int out = argc == 3 ? open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0644) : -1;
  if (read(in, header, sizeof header) != sizeof header || std::memcmp(header + 36, "data", 4) != 0) {
    bench::Die("usage: wavlimit IN.wav OUT.wav, with samples from byte 44 on");
  }
  if (write(out, header, sizeof header) != sizeof header) bench::Die("cannot write");
  for (ssize_t got; (got = read(in, samples, sizeof samples)) > 0;) {
    Scale(samples, static_cast<std::size_t>(got) / sizeof *samples);
    if (write(out, samples, static_cast<std::size_t>(got)) != got) bench::Die("cannot write");
  }
  return 0;
}
