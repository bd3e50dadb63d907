// A PCM device of ALSA in one direction: opened for a stream, moved by frames, recovered from xruns.
#pragma once

#include <alsa/asoundlib.h>

#include <memory>
#include <string>

#include <vorn/Plugin.h>

namespace alsa {

/** What is asked of a device; fields that are not known are left to it. */
struct Wanted {
  std::string device;
  vorn::Stream stream;
  long period = 0;  // samples; 0: a frame
  long buffer = 0;  // samples; 0: four periods
};

/** How a line on a device begins. */
std::string OfDevice(const std::string& device, const std::string& text);

class Device {
 public:
  explicit Device(snd_pcm_stream_t streamDirection) : direction(streamDirection) {}

  /**
   * Completes the stream with what the device does of its own accord: 48000 Hz, two channels and 16 bits or what is
   * next to them, frames of 10 ms. Refuses what it cannot do, with what it can.
   */
  vorn::Refusal Plan(Wanted& wanted) const;

  /** Opens the device for a stream that is known in all fields. */
  vorn::Refusal Open(const Wanted& wanted);
  /** A playback device plays what it holds first, unless it is interrupted. @return false: it was. */
  bool Close(vorn::Interrupt& interrupt);

  enum class Result { DONE, TIMEOUT, INTERRUPTED, FAILED };

  /** Moves one frame, waiting for the device. An xrun is recovered from and counted. */
  Result Read(std::uint8_t* to, long samples, vorn::Interrupt& interrupt);
  Result Write(const std::uint8_t* from, long samples, vorn::Interrupt& interrupt);
  /** How many samples the last Read() or Write() moved. */
  long Moved() const { return moved; }

  long Xruns() const { return xruns; }
  /** Since the last call. */
  long NewXruns();
  /** Samples between the program and the wire. */
  long Delay() const;
  std::string Error() const;

 private:
  struct Closer {
    void operator()(snd_pcm_t* open) const { snd_pcm_close(open); }
  };
  using Pcm = std::unique_ptr<snd_pcm_t, Closer>;

  vorn::Refusal OpenPcm(const std::string& device, Pcm& opened) const;
  Result Recover(long error);
  int Wait(vorn::Interrupt& interrupt);
  template <class Move>
  Result MoveAll(long samples, vorn::Interrupt& interrupt, Move move);
  bool Drain(vorn::Interrupt& interrupt);

  const snd_pcm_stream_t direction;
  Pcm pcm;
  long sampleBytes = 0;
  unsigned rate = 0;
  long moved = 0;
  long xruns = 0;
  long reported = 0;
  int lastError = 0;
};

/** The parameters that both blocks have. */
enum DeviceParameters : unsigned { DEVICE, RATE, CHANNELS, FORMAT, PERIOD, BUFFER, XRUNS };
void DescribeDevice(vorn::Description& description, const char* deviceHelp);
Wanted WantedOf(const vorn::Parameters& parameters, const vorn::Stream& stream);

}  // namespace alsa
