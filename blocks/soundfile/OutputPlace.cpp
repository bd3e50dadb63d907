#include "OutputPlace.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "Kinds.h"

namespace soundfile {
namespace {

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

// /dev/stdout and its like: what the link is said to lead to may be another file by now, or none.
bool IsDescriptor(const std::string& link) {
  const std::string folder = FolderOf(link);
  struct statfs system {};
  return statfs(folder.empty() ? "." : folder.c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

// Follows symbolic links. @return empty for a link that leads to an open descriptor, or nowhere.
std::string Resolve(std::string path) {
  for (int links = 0; links < 40; ++links) {
    std::array<char, 4096> to;
    const ssize_t length = readlink(path.c_str(), to.data(), to.size());
    if (length < 0) return path;
    if (IsDescriptor(path)) return {};
    const std::string target(to.data(), static_cast<std::size_t>(length));
    path = target[0] == '/' ? target : FolderOf(path) + target;
  }
  return {};
}

// .out.desk.4711.0.partial.wav for out.wav.
std::string PartialName(const std::string& place, int number) {
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  const std::string folder = FolderOf(place);
  const std::string name = place.substr(folder.size());
  const std::string ending = EndingOf(name).empty() ? "" : '.' + EndingOf(name);
  const std::string rest = '.' + std::string(host.data()).substr(0, 64) + '.' + std::to_string(getpid()) + '.' +
                           std::to_string(number) + ".partial" + ending;
  std::string stem = name.substr(0, name.size() - ending.size());
  if (stem.size() + rest.size() > 250) stem.resize(250 - std::min<std::size_t>(rest.size(), 250));
  return folder + '.' + stem + rest;
}

// A file beside the others of its folder is made by rename().
int RenameOver(const std::string& from, const std::string& to, bool mayReplace) {
  if (mayReplace) return rename(from.c_str(), to.c_str());
  const int ret = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (ret == 0 || errno != EINVAL) return ret;
  if (link(from.c_str(), to.c_str()) != 0) return -1;  // a file system without the other
  return unlink(from.c_str());
}

int SyncFolder(const std::string& folder) {
  const int fd = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return -1;
  const int ret = fsync(fd) < 0 && errno != EINVAL ? -1 : 0;
  const int error = errno;
  close(fd);
  errno = error;
  return ret;
}

}  // namespace

std::string NameOf(const std::string& path, bool isInput) {
  return IsStandard(path) ? isInput ? "standard input" : "standard output" : path;
}

std::string OutputPlace::WhyTaken(const std::string& path) {
  struct stat status {};
  const bool isThere = !IsStandard(path) && lstat(path.c_str(), &status) == 0;
  const bool isSpecial = isThere && stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  return isThere && !isSpecial ? "is there already, and is not to be replaced" : "";
}

std::string OutputPlace::Open(const std::string& path, Wishes wishes, vorn::Interrupt& interrupt) {
  Leave();
  mayReplace = wishes.replaces;
  if (IsStandard(path)) {
    fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    return fd < 0 ? std::strerror(errno) : "";
  }
  if (std::string taken = mayReplace ? "" : WhyTaken(path); !taken.empty()) return taken;
  struct stat status {};
  const bool isSpecial = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
  if (isSpecial && S_ISFIFO(status.st_mode)) return OpenPipe(path, interrupt);
  place = isSpecial ? "" : Resolve(path);
  return wishes.inPlace || place.empty() ? OpenDirectly(path) : OpenBeside(place);
}

std::string OutputPlace::OpenDirectly(const std::string& path) {
  place.clear();
  const int flags = O_CREAT | O_CLOEXEC | O_TRUNC | (mayReplace ? 0 : O_EXCL);
  struct stat status {};
  const bool isRegular = stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
  if (isRegular) fd = open(path.c_str(), flags | O_RDWR, 0666);
  if (fd < 0) fd = open(path.c_str(), (isRegular ? flags : flags & ~O_EXCL) | O_WRONLY, 0666);
  return fd < 0 ? std::strerror(errno) : "";
}

// Nobody tells when somebody comes to read.
std::string OutputPlace::OpenPipe(const std::string& path, vorn::Interrupt& interrupt) {
  constexpr int MILLIS_BETWEEN_LOOKS = 10;
  place.clear();
  do {
    fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0 || errno != ENXIO) return fd < 0 ? std::strerror(errno) : "";
  } while (interrupt.Sleep(MILLIS_BETWEEN_LOOKS) == vorn::Interrupt::TIMEOUT);
  return "interrupted before anybody came to read it";
}

std::string OutputPlace::OpenBeside(const std::string& path) {
  struct stat before {};
  const bool isThere = stat(path.c_str(), &before) == 0;
  if (isThere && access(path.c_str(), W_OK) != 0) return std::strerror(errno);
  for (int number = 0; fd < 0; ++number) {
    partial = PartialName(path, number);
    fd = open(partial.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, isThere ? before.st_mode & 0700 : 0666);
    if (fd >= 0 || errno == EEXIST) continue;
    const std::string why = std::strerror(errno);
    partial.clear();
    return isThere ? why + " in its folder; inplace=true writes into the file itself" : why;
  }
  if (!isThere) return {};
  const bool isOwned = fchown(fd, before.st_uid, before.st_gid) == 0;
  (void)!fchmod(fd, before.st_mode & (isOwned ? 07777 : 0777));
  return {};
}

std::string OutputPlace::Commit(bool syncs) {
  fd = -1;
  if (partial.empty()) return {};
  if (RenameOver(partial, place, mayReplace) != 0) return std::strerror(errno);
  partial.clear();
  return syncs && SyncFolder(FolderOf(place)) != 0 ? std::strerror(errno) : "";
}

std::string OutputPlace::Leave() {
  fd = -1;
  return std::exchange(partial, {});
}

void OutputPlace::Remove() {
  const std::string name = Leave();
  if (!name.empty()) unlink(name.c_str());
}

}  // namespace soundfile
