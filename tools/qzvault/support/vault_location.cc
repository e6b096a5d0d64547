#include "vault_location.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "qzbase/sqlite.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

// The vault's own metadata files; a directory that holds one has been used
// as a folder of a vault.
const char* const kVaultFiles[] = {".v_fmd", ".v_cmd", ".v_imd"};

const char kMarkerText[] =
    "This directory is the root of a vault: the vault library keeps its folders'\n"
    "metadata in the files beginning with \".\" below it. Made by qzvault init.\n";

bool present(const fs::path& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

bool regularFile(const fs::path& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool hasVaultFiles(const fs::path& directory) {
  for (const char* name : kVaultFiles) {
    if (present(directory / name)) return true;
  }
  return false;
}

// True when the folder's ".v_fmd" holds the vault's UUID: the root of a vault
// made before roots had a marker. Read only, and only a regular file (never
// a FIFO, which would block).
bool holdsVaultUuid(const fs::path& directory) {
  const fs::path fixed = directory / ".v_fmd";
  if (!regularFile(fixed)) return false;
  SqliteConnection* db = openSqliteDatabase(fixed.c_str(), QZ_SQLITE_OPEN_READONLY);
  if (db == nullptr) return false;
  bool found = false;
  SqliteCursor* rows = db->select(QzbString(
      "SELECT 1 FROM v_attr WHERE fname IS NULL AND attr = '_UUID' AND v0 IS NOT NULL AND v0 <> ''",
      true));
  if (rows != nullptr) {
    found = rows->next() == 1;
    rows->release();
  }
  db->close(0);
  return found;
}

bool isTop(const fs::path& directory) { return directory == directory.root_path() || directory.empty(); }

// The root of the vault that `start` (absolute, resolved) lies in, or an empty
// path: the nearest marked root above, else the topmost directory of the run
// of directories with vault files that begins nearest to `start`.
fs::path findRoot(const fs::path& start) {
  for (fs::path directory = start;; directory = directory.parent_path()) {
    if (isMarkedRoot(directory.string())) return directory;
    if (isTop(directory)) break;
  }
  fs::path found;
  for (fs::path directory = start;; directory = directory.parent_path()) {
    if (hasVaultFiles(directory)) {
      found = directory;
    } else if (!found.empty()) {
      break;
    }
    if (isTop(directory)) break;
  }
  return found;
}

fs::path currentDirectory() {
  std::error_code error;
  const fs::path current = fs::current_path(error);
  if (error) fail("cannot read the current directory: " + error.message());
  return current;
}

// The current directory as a vault path of `root` ("" outside it).
std::string baseWithin(const fs::path& root) {
  std::error_code error;
  const fs::path current = fs::canonical(currentDirectory(), error);
  if (error) return std::string();
  const fs::path relative = current.lexically_relative(root);
  if (relative.empty() || *relative.begin() == "..") return std::string();
  const std::string text = relative.generic_string();
  return text == "." ? std::string() : text;
}

// A root named by --vault or QZVAULT_DIR.
VaultLocation namedRoot(const std::string& given, const std::string& how) {
  std::error_code error;
  const fs::path named = fs::absolute(given, error).lexically_normal();
  const fs::file_status status = fs::status(named, error);
  if (!fs::exists(status)) failUsage("no such directory: " + named.string() + " (" + how + ")");
  if (!fs::is_directory(status)) failUsage("not a directory: " + named.string() + " (" + how + ")");
  const fs::path root = fs::canonical(named, error);
  if (error) fail("cannot resolve " + named.string() + ": " + error.message());
  if (!isMarkedRoot(root.string())) {
    const fs::path above = isTop(root) ? fs::path() : findRoot(root.parent_path());
    if (!above.empty()) {
      const std::string instead =
          how == kVaultDirVariable ? "set " + how + "=" + above.string() : "give " + how + " " + above.string();
      failUsage(named.string() + " is a folder of the vault at " + above.string() + ", not its root (" +
                instead + ")");
    }
    if (!hasVaultFiles(root)) {
      failUsage(named.string() + " is not a vault (run 'qzvault init' there to make it one)");
    }
  }
  return VaultLocation{root.string(), baseWithin(root), how};
}

}  // namespace

bool isMarkedRoot(const std::string& directory) {
  const fs::path path(directory);
  return present(path / kVaultMarker) || holdsVaultUuid(path);
}

VaultLocation locateVault(const GlobalOptions& options) {
  if (!options.vault.empty()) return namedRoot(options.vault, "--vault");
  const char* variable = std::getenv(kVaultDirVariable);
  if (variable != nullptr && *variable != '\0') return namedRoot(variable, kVaultDirVariable);

  std::error_code error;
  const fs::path current = fs::canonical(currentDirectory(), error);
  if (error) fail("cannot resolve the current directory: " + error.message());
  const fs::path root = findRoot(current);
  if (root.empty()) {
    failUsage(current.string() + " is not inside a vault (run 'qzvault init' to make it one, or "
              "give --vault DIR)");
  }
  return VaultLocation{root.string(), baseWithin(root), "current directory"};
}

std::string directoryToMake(const GlobalOptions& options, std::string* how) {
  std::string given;
  if (!options.vault.empty()) {
    given = options.vault;
    *how = "--vault";
  } else if (const char* variable = std::getenv(kVaultDirVariable); variable != nullptr && *variable != '\0') {
    given = variable;
    *how = kVaultDirVariable;
  } else {
    given = currentDirectory().string();
    *how = "current directory";
  }
  std::error_code error;
  return fs::absolute(given, error).lexically_normal().string();
}

void checkNotInsideAnotherVault(const std::string& directory) {
  std::error_code error;
  fs::path path = fs::weakly_canonical(fs::path(directory), error);
  if (error) path = fs::path(directory);
  if (fs::is_directory(path, error) && isMarkedRoot(path.string())) return;
  if (isTop(path)) return;
  // The nearest directory above that exists: the directory itself may not.
  fs::path above = path.parent_path();
  while (!isTop(above) && !fs::is_directory(above, error)) above = above.parent_path();
  const fs::path root = findRoot(above);
  if (!root.empty()) {
    failUsage(directory + " is inside the vault at " + root.string() +
              " (a folder of a vault cannot be a vault of its own)");
  }
}

void writeVaultMarker(const std::string& directory) {
  const fs::path marker = fs::path(directory) / kVaultMarker;
  if (present(marker)) return;
  const int fd = open(marker.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    if (errno == EEXIST) return;
    fail("cannot write " + marker.string() + ": " + std::strerror(errno));
  }
  const std::size_t length = sizeof kMarkerText - 1;
  const ssize_t written = write(fd, kMarkerText, length);
  const int writeError = errno;
  const bool closed = close(fd) == 0;
  if (written != static_cast<ssize_t>(length) || !closed) {
    unlink(marker.c_str());
    fail("cannot write " + marker.string() + ": " +
         std::strerror(written < 0 ? writeError : closed ? ENOSPC : errno));
  }
}

}  // namespace qzvtool
