// The kinds of files that filesink writes, and how they hold samples.
#pragma once

#include <sndfile.h>

#include <string>

#include <vorn/kit/Refusal.h>
#include <vorn/kit/Streams.h>

namespace soundfile {

/** What is behind the last dot of a path; empty for nothing. */
std::string EndingOf(const std::string& path);

/**
 * Completes `info` with the kind of file for a stream, as far as that is known.
 *
 * @param ending of a file of that kind.
 * @return what is wrong with it, or empty.
 */
vorn::Refusal ChooseKind(const std::string& path, const std::string& ending, vorn::Stream in, SF_INFO& info);

}  // namespace soundfile
