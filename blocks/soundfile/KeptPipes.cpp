#include "KeptPipes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "OutputPlace.h"

namespace soundfile {
namespace {

using Identity = std::pair<dev_t, ino_t>;

std::mutex mutex;
std::map<Identity, std::unique_ptr<SoundFile>> pipes;  // guarded by mutex

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  const int ret = IsStandard(path) ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
  if (ret != 0) status.st_mode = 0;
  return status;
}

bool IsPipe(const struct stat& status) { return S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode); }

std::unique_ptr<SoundFile> TakeUp(const struct stat& status) {
  const std::lock_guard lock(mutex);
  const auto found = pipes.find({status.st_dev, status.st_ino});
  if (found == pipes.end()) return nullptr;
  auto file = std::move(found->second);
  pipes.erase(found);
  return file;
}

// A pipe that is read without waiting has somebody who writes it once it is ready to be read.
int OpenDescriptor(const std::string& path, bool waits) {
  if (IsStandard(path)) return fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | (waits ? 0 : O_NONBLOCK));
  struct stat status {};
  if (fd < 0 || fstat(fd, &status) != 0 || !S_ISDIR(status.st_mode)) return fd;
  close(fd);
  errno = EISDIR;
  return -1;
}

}  // namespace

bool IsPipe(const std::string& path) { return IsPipe(StatusOf(path)); }

std::unique_ptr<SoundFile> OpenToRead(const std::string& path, const SF_INFO& raw, vorn::Interrupt* interrupt,
                                      std::string& error) {
  const struct stat status = StatusOf(path);
  auto file = IsPipe(status) ? TakeUp(status) : nullptr;
  const bool isKept = file != nullptr;
  if (!isKept) file = std::make_unique<SoundFile>();
  file->Obey(interrupt);
  if (isKept) return file;
  file->info = raw;
  const int fd = OpenDescriptor(path, interrupt == nullptr || !IsPipe(status));
  error = fd < 0 ? std::strerror(errno) : file->Open(fd, SFM_READ);
  return file;
}

void PutDown(const std::string& path, std::unique_ptr<SoundFile> file) {
  const struct stat status = StatusOf(path);
  if (!IsPipe(status)) return;
  file->Obey(nullptr);
  const std::lock_guard lock(mutex);
  pipes[{status.st_dev, status.st_ino}] = std::move(file);
}

}  // namespace soundfile
