// The operator's configuration file: which one is read, and reading it
// without ever blocking on a FIFO or streaming a device.
#include "config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "qzbase/config.h"

namespace {

// What a path is, for the one-line refusal of anything but a regular file.
const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

std::string cannotRead(const std::string& path, int error) {
  return "Cannot read configuration file " + path + ": " + std::strerror(error);
}

std::string notRegular(const std::string& path, mode_t mode) {
  return "Configuration file " + path + " is not a regular file (" + kindOf(mode) + ")";
}

std::string tooLarge(const std::string& path) {
  return "Configuration file " + path + " is larger than " +
         std::to_string(QZB_CONFIG_FILE_MAX_BYTES) + " bytes";
}

// The value of an environment variable, or "" when unset.
std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

bool exists(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

bool qzbiReadConfigFile(const std::string& path, std::string* content, std::string* error) {
  // The status first, so that a FIFO or a device is never opened: opening
  // one may block, or have effects of its own.
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    *error = cannotRead(path, errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    *error = notRegular(path, status.st_mode);
    return false;
  }
  if (status.st_size > QZB_CONFIG_FILE_MAX_BYTES) {
    *error = tooLarge(path);
    return false;
  }
  // Non-blocking, in case the path was replaced by a FIFO since the look.
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    *error = cannotRead(path, errno);
    return false;
  }
  struct stat opened;
  if (fstat(fd, &opened) != 0) {
    *error = cannotRead(path, errno);
    close(fd);
    return false;
  }
  if (!S_ISREG(opened.st_mode)) {
    *error = notRegular(path, opened.st_mode);
    close(fd);
    return false;
  }
  // One byte more than the limit tells a file that grew past it since.
  std::string text;
  char buffer[8192];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0) {
      if (errno == EINTR) continue;
      *error = cannotRead(path, errno);
      close(fd);
      return false;
    }
    if (got == 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
    if (text.size() > static_cast<std::size_t>(QZB_CONFIG_FILE_MAX_BYTES)) {
      *error = tooLarge(path);
      close(fd);
      return false;
    }
  }
  close(fd);
  *content = std::move(text);
  return true;
}

bool qzbLocateConfigFile(const char* systemFile, QzbString* path, QzbString* origin) {
  QzbString unusedOrigin;
  if (origin == nullptr) origin = &unusedOrigin;
  path->setNull(true);
  origin->setNull(true);

  const char* named = std::getenv(QZB_CONFIG_FILE_ENV);
  if (named != nullptr) {
    // Set but empty: the operator asked for no file at all.
    if (*named == '\0') return false;
    *path = QzbString(named);
    *origin = QzbString(QZB_CONFIG_FILE_ENV, true);
    return true;
  }

  std::string user;
  const std::string xdg = environment("XDG_CONFIG_HOME");
  if (!xdg.empty() && xdg[0] == '/') {
    user = xdg + "/qzvault/config";
    *origin = QzbString("XDG_CONFIG_HOME", true);
  } else if (!environment("HOME").empty()) {
    user = environment("HOME") + "/.config/qzvault/config";
    *origin = QzbString("HOME", true);
  }
  if (!user.empty() && exists(user)) {
    *path = QzbString::fromStdString(user);
    return true;
  }

  const std::string system = systemFile != nullptr ? systemFile : QZB_SYSTEM_CONFIG_FILE;
  if (exists(system)) {
    *path = QzbString::fromStdString(system);
    *origin = QzbString("system", true);
    return true;
  }
  origin->setNull(true);
  return false;
}
