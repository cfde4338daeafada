// SPDX-License-Identifier: Apache-2.0
#include "runtime/private_files.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "runtime/file_descriptor.h"
#include "runtime/glib_ptr.h"

namespace quorvex::linux_service {
namespace {

constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kZeroBlock = 4096;

constexpr char kCannotCreateDirectory[] = "Unable to create the private runtime directory: ";
constexpr char kCannotSecureDirectory[] = "Unable to secure the private runtime directory: ";
constexpr char kCannotCreateFile[] = "Unable to create the private VPN configuration: ";
constexpr char kCannotSecureFile[] = "Unable to secure the private VPN configuration: ";
constexpr char kCannotWriteFile[] = "Unable to write the private VPN configuration: ";
constexpr char kCannotPersistFile[] = "Unable to persist the private VPN configuration: ";
constexpr char kCannotOpenForRemoval[] = "Unable to open private runtime data for removal: ";
constexpr char kNotARegularFile[] = "Private runtime data is not a regular file.";
constexpr char kCannotClear[] = "Unable to clear private runtime data.";
constexpr char kCannotRemove[] = "Unable to remove private runtime data: ";

// Unlinks a file that could not be finished, after its descriptor has been closed: declared
// before the descriptor, it is destroyed after it.
class UnlinkGuard {
 public:
  explicit UnlinkGuard(const char* guardedPath) : path(guardedPath) {}
  UnlinkGuard(const UnlinkGuard&) = delete;
  UnlinkGuard& operator=(const UnlinkGuard&) = delete;
  ~UnlinkGuard() {
    if (armed) {
      // The failing step's own message stands, whatever becomes of this.
      static_cast<void>(unlink(path));
    }
  }
  void Arm() { armed = true; }
  void Dismiss() { armed = false; }

 private:
  const char* path;
  bool armed = false;
};

// Reports the step with the text of the current errno; always false.
bool FailWithErrno(const char* step, std::string* error) {
  *error = std::string(step) + g_strerror(errno);
  return false;
}

bool Fail(const char* sentence, std::string* error) {
  *error = sentence;
  return false;
}

bool PrepareDirectoryOf(const char* path, std::string* error) {
  const GCharPtr directory(g_path_get_dirname(path));
  if (g_mkdir_with_parents(directory.get(), kDirectoryMode) != 0) {
    return FailWithErrno(kCannotCreateDirectory, error);
  }
  // A directory that somebody left with wider rights is tightened, too.
  if (chmod(directory.get(), kDirectoryMode) != 0) {
    return FailWithErrno(kCannotSecureDirectory, error);
  }
  return true;
}

bool WriteAll(int fd, std::string_view rest) {
  while (!rest.empty()) {
    const ssize_t written = write(fd, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool FillPrivateFile(int fd, const std::string& contents, std::string* error) {
  // An older file that was truncated keeps its mode unless told otherwise.
  if (fchmod(fd, kFileMode) != 0) {
    return FailWithErrno(kCannotSecureFile, error);
  }
  if (!WriteAll(fd, contents)) {
    return FailWithErrno(kCannotWriteFile, error);
  }
  if (fsync(fd) != 0) {
    return FailWithErrno(kCannotPersistFile, error);
  }
  return true;
}

bool OverwriteWithZeros(int fd, off_t size) {
  static constexpr std::array<char, kZeroBlock> kZeros{};
  off_t offset = 0;
  while (offset < size) {
    const auto length =
        std::min<std::size_t>(kZeros.size(), static_cast<std::size_t>(size - offset));
    const ssize_t written = pwrite(fd, kZeros.data(), length, offset);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    offset += written;
  }
  return true;
}

// Clears what `fd` refers to; the descriptor stays the caller's.
bool ClearRegularFile(int fd, std::string* error) {
  struct stat status = {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    return Fail(kNotARegularFile, error);
  }
  if (!OverwriteWithZeros(fd, status.st_size)) {
    return Fail(kCannotClear, error);
  }
  // Best effort: the runtime directory normally lies in memory, where there is nothing to flush.
  static_cast<void>(fsync(fd));
  return true;
}

bool UnlinkFile(const char* path, std::string* error) {
  if (unlink(path) == 0 || errno == ENOENT) {
    return true;
  }
  return FailWithErrno(kCannotRemove, error);
}

}  // namespace

bool WritePrivateFile(const char* path, const std::string& contents, std::string* error) {
  if (!PrepareDirectoryOf(path, error)) {
    return false;
  }
  UnlinkGuard partialFile(path);
  const FileDescriptor file(
      open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file.IsOpen()) {
    return FailWithErrno(kCannotCreateFile, error);
  }
  partialFile.Arm();
  if (!FillPrivateFile(file.Get(), contents, error)) {
    return false;
  }
  partialFile.Dismiss();
  return true;
}

bool AppendToPrivateFile(const char* path, const std::string& contents, std::string* error) {
  const FileDescriptor file(open(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC));
  return file.IsOpen() ? FillPrivateFile(file.Get(), contents, error)
                       : FailWithErrno(kCannotCreateFile, error);
}

bool SecureRemoveFile(const char* path, std::string* error) {
  {
    const FileDescriptor file(open(path, O_WRONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file.IsOpen()) {
      return errno == ENOENT || FailWithErrno(kCannotOpenForRemoval, error);
    }
    if (!ClearRegularFile(file.Get(), error)) {
      return false;
    }
  }
  return UnlinkFile(path, error);
}

}  // namespace quorvex::linux_service
