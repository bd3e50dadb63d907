// What the headers of files say of their length, which libsndfile neither tells nor writes where it is not known or
// beyond 4 GiB.
#pragma once

#include <sndfile.h>

#include <array>
#include <span>

namespace soundfile {

class FileBytes;

// Bytes of one value of an encoding that holds plain values; 0 for others.
int WidthOf(int format);

// Makes the header of a WAV or an AU say that its length is not known, as other programs do that write to a pipe: its
// length fields are all ones. Others stay as they are.
void MarkLengthUnknown(std::span<char> header);

// What a file says of itself.
struct Announced {
  bool isUnknown = false;  // It was written by somebody who did not know its length.
  sf_count_t bytes = 0;    // Of samples; 0 where it does not say.
};

// @param info of the open file. @param dataOffset where its samples begin.
Announced ReadAnnounced(FileBytes& file, const SF_INFO& info, sf_count_t dataOffset);

// Why libsndfile would read the chunks of a WAV for ever; null where it would not. One that has a negative length leads
// back, and behind the end of a pipe it finds chunks of zeros. The file is at its start, and is so again.
const char* WhyEndless(FileBytes& file);

constexpr int MOST_PLAIN_CHANNELS = 64;
constexpr int PLAIN_WAV_HEADER = 44;  // bytes

// Whether this is a WAV whose samples are plain whole numbers: it is read and written here, without libsndfile, which
// need not be loaded then.
bool IsPlainWav(int format);

// Reads the header of a file that is such a WAV, and whole. @param dataOffset where its samples begin. @return false
// for any other file, or where something about it is not as usual: libsndfile knows what to make of that.
bool ReadPlainWav(FileBytes& file, SF_INFO& info, sf_count_t& dataOffset);

// The header of such a WAV, as libsndfile writes it. @param bytes of its samples.
std::array<char, PLAIN_WAV_HEADER> PlainWavHeader(const SF_INFO& info, sf_count_t bytes);

// Makes an RF64 of a finished WAV that is longer than its header can say. The samples move back by a block of the disk;
// where the file system cannot do that by itself, they are copied.
//
// @param samples per channel. @return false with the error noted in `file`.
bool MakeRf64(FileBytes& file, sf_count_t samples);

}  // namespace soundfile
