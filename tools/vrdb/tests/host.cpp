// A process with a console and a FIFO, until its input ends.
#include <cstdio>

#include <vorn/Vorn.h>

int main() {
  vorn::Vorn::Instance()->NewFIFO(48000, 4, 100, 25);
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) continue;
}
