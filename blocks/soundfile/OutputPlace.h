// Where an output is written: beside its place, under a name that nobody mistakes, until it is whole.
#pragma once

#include <sys/types.h>

#include <string>

#include <vorn/kit/Interrupt.h>

namespace soundfile {

class OutputPlace {
 public:
  struct Wishes {
    bool inPlace = false;  // in the file itself, for those who follow it while it grows
    bool replaces = true;  // what is there already
  };

  ~OutputPlace() { Leave(); }

  /**
   * Opens what is to be written. A file gets the mode and the owner of the one that it will replace. Behind a symbolic
   * link, the file that it leads to is replaced. A pipe, a device and standard output ("-") are written directly.
   *
   * @param interrupt ends the wait for somebody who reads a pipe.
   * @return empty, or what went wrong.
   */
  std::string Open(const std::string& path, Wishes wishes, vorn::Interrupt& interrupt);
  /** For the caller to close. */
  int Descriptor() const { return fd; }
  bool IsBeside() const { return !partial.empty(); }

  /** Puts the finished file in its place. @param syncs the folder too. @return as Open. */
  std::string Commit(bool syncs);
  /** The file stays where it is, for somebody to see what can be done with it. @return its name. */
  std::string Leave();
  /** There is nothing in it. */
  void Remove();

  /** What stands in the way of a path that is not to be replaced; empty for nothing. */
  static std::string WhyTaken(const std::string& path);

 private:
  std::string OpenBeside(const std::string& path);
  std::string OpenDirectly(const std::string& path);
  std::string OpenPipe(const std::string& path, vorn::Interrupt& interrupt);

  int fd = -1;
  bool mayReplace = true;
  std::string place;    // the file itself, no link
  std::string partial;  // what is written until then; empty: the place itself, or nothing is open
};

/** Whether a path stands for standard input or output. */
inline bool IsStandard(const std::string& path) { return path == "-"; }
/** How people call it. */
std::string NameOf(const std::string& path, bool isInput);

}  // namespace soundfile
