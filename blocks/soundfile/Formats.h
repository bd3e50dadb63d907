// Which sample format carries the samples of a file without loss.
#pragma once

#include <sndfile.h>

#include <vorn/SampleCodec.h>
#include <vorn/kit/Streams.h>

namespace soundfile {

constexpr bool IS_BIG_ENDIAN_HOST = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
constexpr vorn::SampleFormat NATIVE_S16 = IS_BIG_ENDIAN_HOST ? vorn::SampleFormat::S16_BE : vorn::SampleFormat::S16_LE;
constexpr vorn::SampleFormat NATIVE_S32 = IS_BIG_ENDIAN_HOST ? vorn::SampleFormat::S32_BE : vorn::SampleFormat::S32_LE;

// The sample format that holds what a file holds; codecs without a width of their own count as what their decoder
// gives.
inline vorn::SampleFormat FormatOfFile(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_DPCM_8: return vorn::SampleFormat::BYTE;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24: return vorn::SampleFormat::S24_3LE;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32: return vorn::SampleFormat::S32_LE;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III: return vorn::SampleFormat::FLOAT_LE;
    default: return vorn::SampleFormat::S16_LE;
  }
}

inline vorn::SampleFormat BigEndian(vorn::SampleFormat format) {
  using vorn::SampleFormat;
  switch (format) {
    case SampleFormat::S16_LE: return SampleFormat::S16_BE;
    case SampleFormat::S24_3LE: return SampleFormat::S24_3BE;
    case SampleFormat::S32_LE: return SampleFormat::S32_BE;
    case SampleFormat::FLOAT_LE: return SampleFormat::FLOAT_BE;
    default: return format;
  }
}

// libsndfile's own words for "BYTE" to "FLOAT_BE" in a file without a header.
inline int RawFormat(vorn::SampleFormat format) {
  static constexpr int ENCODINGS[] = {SF_FORMAT_PCM_S8,
                                      SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_16 | SF_ENDIAN_BIG,
                                      SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_32 | SF_ENDIAN_BIG,
                                      SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_PCM_24 | SF_ENDIAN_BIG,
                                      SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE,
                                      SF_FORMAT_FLOAT | SF_ENDIAN_BIG};
  return SF_FORMAT_RAW | ENCODINGS[static_cast<unsigned>(format)];
}

}  // namespace soundfile
