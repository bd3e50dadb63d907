// Pipes whose headers were read to plan a graph: a header comes once, so they wait here, open, until they are played.
#pragma once

#include <memory>
#include <string>

#include "SoundFile.h"

namespace soundfile {

/** Whether a path leads to a pipe, or to another thing that is read once. "-" is standard input. */
bool IsPipe(const std::string& path);

/**
 * Opens a file to be read, or takes up a pipe where it was put down.
 *
 * @param raw what a file without a header holds; none for one with a header.
 * @param interrupt ends the wait for the other end of a pipe; null for nothing.
 */
std::unique_ptr<SoundFile> OpenToRead(const std::string& path, const SF_INFO& raw, vorn::Interrupt* interrupt,
                                      std::string& error);

/** Puts a pipe down for the next OpenToRead. Any other file is closed. */
void PutDown(const std::string& path, std::unique_ptr<SoundFile> file);

}  // namespace soundfile
