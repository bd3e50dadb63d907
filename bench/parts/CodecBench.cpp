// Samples of each format to floating point and back: 960 a time, a frame of 10 ms in stereo.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include <vorn/SampleCodec.h>
#include <vorn/kit/StreamCheck.h>

namespace {

constexpr std::size_t COUNT = 960;

template <class Real>
void DecodeFrame(benchmark::State& state, vorn::SampleFormat format) {
  const std::vector<std::uint8_t> from(COUNT * vorn::BytesPerSample(format), 1);
  std::vector<Real> to(COUNT);
  for (auto _ : state) {
    vorn::Decode(format, from.data(), to.data(), COUNT);
    benchmark::ClobberMemory();
  }
}

template <class Real>
void EncodeFrame(benchmark::State& state, vorn::SampleFormat format) {
  const std::vector<Real> from(COUNT, Real{0.25});
  std::vector<std::uint8_t> to(COUNT * vorn::BytesPerSample(format));
  for (auto _ : state) {
    vorn::Encode(format, from.data(), to.data(), COUNT);
    benchmark::ClobberMemory();
  }
}

const bool registered = [] {
  for (int f = 0; f <= static_cast<int>(vorn::SampleFormat::FLOAT_BE); ++f) {
    const auto format = static_cast<vorn::SampleFormat>(f);
    const std::string name = vorn::FormatName(format);
    benchmark::RegisterBenchmark(("Decode/" + name + "/float").c_str(), DecodeFrame<float>, format);
    benchmark::RegisterBenchmark(("Decode/" + name + "/double").c_str(), DecodeFrame<double>, format);
    benchmark::RegisterBenchmark(("Encode/" + name + "/float").c_str(), EncodeFrame<float>, format);
    benchmark::RegisterBenchmark(("Encode/" + name + "/double").c_str(), EncodeFrame<double>, format);
  }
  return true;
}();

}  // namespace
