// The POSIX operation table: files, directories, shared objects, the user,
// the clock and mutexes. This is the only file of the library that calls the
// operating system for them, and npResultFromErrno is the only place where an
// errno becomes an NpResult.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <cinttypes>
#include <climits>
#include <csignal>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <vector>

#include "platform_fs.h"
#include "qzbase/platform.h"

struct NpFile {
  int fd;
};

struct NpDir {
  DIR* dir;
  std::string path;     // the directory as given, for joining entry names
  int flags;
  std::string pending;  // an entry read but not delivered (name buffer too small)
  NpDirEntry pendingEntry;
  bool hasPending;
};

struct NpDso {
  void* library;
};

namespace {

// The call that met an errno: a few errno values mean different things to
// different calls.
enum class NpCall {
  kStat,
  kRename,
  kLink,
  kUnlink,
  kOpen,
  kClose,
  kChperm,
  kDirOpen,
  kDirRead,
  kDirCreate,
  kDirUnlink,
  kMutex,
  kRead,
  kWrite,
};

// `err` is an errno value (or the error number a pthread call returned).
int npResultFromErrno(int err, NpCall call) {
  if (call == NpCall::kDirOpen) {
    // Directory opens tell only these apart.
    switch (err) {
      case ENOENT: return NP_ERR_DIR_NOT_FOUND;
      case ENOTDIR: return NP_ERR_NOT_A_DIRECTORY;
      case EACCES: case EPERM: return NP_ERR_ACCESS;
      default: return NP_ERR_UNKNOWN;
    }
  }
  switch (err) {
    case 0: return NP_ERR_UNKNOWN;
    case ENOENT: return NP_ERR_NOT_FOUND;
    case ENOTDIR:
      // A path through a file names nothing that exists; for a rename or a
      // mkdir it is a bad path.
      if (call == NpCall::kStat || call == NpCall::kUnlink || call == NpCall::kOpen ||
          call == NpCall::kChperm) {
        return NP_ERR_NOT_FOUND;
      }
      return NP_ERR_INVALID_PATH;
    case EACCES: case EPERM: return NP_ERR_ACCESS;
    case EEXIST:
      // rmdir may report a non-empty directory as EEXIST.
      return call == NpCall::kDirUnlink ? NP_ERR_NOT_EMPTY : NP_ERR_EXISTS;
    case ENOTEMPTY:
      // A rename onto a non-empty directory fails because the target exists.
      return call == NpCall::kRename ? NP_ERR_EXISTS : NP_ERR_NOT_EMPTY;
    case ENOSPC: case EDQUOT: return NP_ERR_NO_SPACE;
    case EROFS: return NP_ERR_READ_ONLY_FS;
    case ENAMETOOLONG: return NP_ERR_NAME_TOO_LONG;
    case EBUSY: return NP_ERR_BUSY;
    case EIO: return NP_ERR_IO;
    case EXDEV: return NP_ERR_CROSS_DEVICE;
    case EINVAL: case ELOOP: return NP_ERR_INVALID_PATH;
    case EISDIR: return NP_ERR_IS_DIRECTORY;
    case EMFILE: case ENFILE: return NP_ERR_TOO_MANY_FILES;
    case ENOMEM: return NP_ERR_NO_MEMORY;
    default: return NP_ERR_UNKNOWN;
  }
}

int lastError(NpCall call) { return npResultFromErrno(errno, call); }

int entryType(mode_t mode) {
  if (S_ISDIR(mode)) return NP_TYPE_DIRECTORY;
  if (S_ISREG(mode)) return NP_TYPE_FILE;
  return NP_TYPE_OTHER;
}

// ---------------------------------------------------------------------------
// Files.

// The type of a file for NpFileInfo: every kind named.
int infoType(mode_t mode) {
  if (S_ISREG(mode)) return NP_TYPE_FILE;
  if (S_ISDIR(mode)) return NP_TYPE_DIRECTORY;
  if (S_ISLNK(mode)) return NP_TYPE_LINK;
  if (S_ISFIFO(mode)) return NP_TYPE_FIFO;
  if (S_ISCHR(mode) || S_ISBLK(mode)) return NP_TYPE_DEVICE;
  if (S_ISSOCK(mode)) return NP_TYPE_SOCKET;
  return NP_TYPE_OTHER;
}

void fillInfo(const struct stat& st, NpFileInfo* out) {
  out->mtime = static_cast<int64_t>(st.st_mtime);
  out->ctime = static_cast<int64_t>(st.st_ctime);
  out->size = static_cast<uint64_t>(st.st_size);
  out->type = infoType(st.st_mode);
  out->mode = static_cast<unsigned>(st.st_mode & 07777);
  out->device = static_cast<uint64_t>(st.st_dev);
  out->inode = static_cast<uint64_t>(st.st_ino);
  out->links = static_cast<uint64_t>(st.st_nlink);
}

int posixStat(const char* path, NpStat* out) {
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  struct stat st;
  if (stat(path, &st) != 0) return lastError(NpCall::kStat);
  if (out != nullptr) {
    out->ctime = static_cast<int64_t>(st.st_ctime);
    out->mtime = static_cast<int64_t>(st.st_mtime);
    out->atime = static_cast<int64_t>(st.st_atime);
    out->size = static_cast<uint64_t>(st.st_size);
    out->type = entryType(st.st_mode);
    out->mode = static_cast<unsigned>(st.st_mode & 07777);
  }
  return NP_OK;
}

int posixRename(const char* oldPath, const char* newPath) {
  if (oldPath == nullptr || newPath == nullptr) return NP_ERR_INVALID_PATH;
  if (rename(oldPath, newPath) != 0) return lastError(NpCall::kRename);
  return NP_OK;
}

int posixLink(const char* existingPath, const char* newPath) {
  if (existingPath == nullptr || newPath == nullptr) return NP_ERR_INVALID_PATH;
  if (link(existingPath, newPath) != 0) return lastError(NpCall::kLink);
  return NP_OK;
}

int posixLstat(const char* path, NpFileInfo* out) {
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  struct stat st;
  if (lstat(path, &st) != 0) return lastError(NpCall::kStat);
  if (out != nullptr) fillInfo(st, out);
  return NP_OK;
}

// Where the file system cannot rename without replacing in one step: a file
// gets its new name as a second link (which fails when the name is taken)
// and then loses the old one; a directory, which cannot be linked, is
// renamed after a test, the one case where a race remains.
int renameWithoutReplacingFallback(const char* oldPath, const char* newPath) {
  struct stat st;
  if (lstat(oldPath, &st) != 0) return lastError(NpCall::kRename);
  if (!S_ISDIR(st.st_mode)) {
    if (link(oldPath, newPath) == 0) {
      if (unlink(oldPath) != 0) {
        const int result = lastError(NpCall::kUnlink);
        unlink(newPath);  // the second name goes again; the file keeps its old one
        return result;
      }
      return NP_OK;
    }
    if (errno == EEXIST) return NP_ERR_EXISTS;
    if (errno != EPERM && errno != ENOTSUP && errno != EOPNOTSUPP && errno != EMLINK) {
      return lastError(NpCall::kLink);
    }
  }
  if (lstat(newPath, &st) == 0) return NP_ERR_EXISTS;
  if (errno != ENOENT) return lastError(NpCall::kStat);
  if (rename(oldPath, newPath) != 0) return lastError(NpCall::kRename);
  return NP_OK;
}

int posixRenameNoReplace(const char* oldPath, const char* newPath) {
  if (oldPath == nullptr || newPath == nullptr) return NP_ERR_INVALID_PATH;
  if (renameat2(AT_FDCWD, oldPath, AT_FDCWD, newPath, RENAME_NOREPLACE) == 0) return NP_OK;
  if (errno == EEXIST || errno == ENOTEMPTY) return NP_ERR_EXISTS;
  // File systems without the no-replace rename say EINVAL; kernels without
  // renameat2, ENOSYS.
  if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return lastError(NpCall::kRename);
  return renameWithoutReplacingFallback(oldPath, newPath);
}

int posixUnlink(const char* path) {
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  if (unlink(path) != 0) return lastError(NpCall::kUnlink);
  return NP_OK;
}

// A probe never changes the file system: it tests that an existing entry
// could be opened so. For a directory, "writable" means that entries can be
// created and removed in it.
int probeOpen(const char* path, int flags) {
  struct stat st;
  if (stat(path, &st) != 0) return lastError(NpCall::kOpen);
  bool write = (flags & NP_FIO_WRITE) != 0;
  if (S_ISDIR(st.st_mode)) {
    int mode = write ? (W_OK | X_OK) : R_OK;
    if (faccessat(AT_FDCWD, path, mode, AT_EACCESS) != 0) return lastError(NpCall::kOpen);
    return NP_OK;
  }
  int access = write ? ((flags & NP_FIO_READ) != 0 ? O_RDWR : O_WRONLY) : O_RDONLY;
  // Non-blocking so that a fifo without a partner does not hang the probe.
  int fd = open(path, access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENXIO) return NP_OK;  // a fifo without a reader: openable
    return lastError(NpCall::kOpen);
  }
  close(fd);
  return NP_OK;
}

int posixOpen(const char* path, int flags, NpFile** handle) {
  if (handle != nullptr) *handle = nullptr;
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  if ((flags & NP_FIO_PROBE) != 0) return probeOpen(path, flags);
  if (handle == nullptr) return NP_ERR_BUFFER;

  bool write = (flags & NP_FIO_WRITE) != 0;
  int osFlags = O_CLOEXEC | O_NOCTTY;
  if (write) {
    osFlags |= (flags & NP_FIO_READ) != 0 ? O_RDWR : O_WRONLY;
  } else {
    osFlags |= O_RDONLY;
  }
  if ((flags & NP_FIO_CREATE_NEW) != 0) {
    osFlags |= O_CREAT | O_EXCL;
  } else if ((flags & NP_FIO_CREATE) != 0) {
    osFlags |= O_CREAT;
  }
  if ((flags & NP_FIO_TRUNCATE) != 0 && write) osFlags |= O_TRUNC;
  const bool noFollow = (flags & NP_FIO_NOFOLLOW) != 0;
  // Non-blocking, so that a fifo is found out by the status below instead of
  // waiting for a partner.
  if (noFollow) osFlags |= O_NOFOLLOW | O_NONBLOCK;

  int fd = open(path, osFlags, 0666);
  if (fd < 0) {
    if (noFollow && errno == ELOOP) {
      struct stat st;
      if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) return NP_ERR_IS_LINK;
    }
    return lastError(NpCall::kOpen);
  }
  struct stat st;
  if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    close(fd);
    return NP_ERR_IS_DIRECTORY;
  }
  if (noFollow) {
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      close(fd);
      return NP_ERR_NOT_REGULAR;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  }
  NpFile* file = new (std::nothrow) NpFile{fd};
  if (file == nullptr) {
    close(fd);
    return NP_ERR_NO_MEMORY;
  }
  *handle = file;
  return NP_OK;
}

int posixClose(NpFile* handle) {
  if (handle == nullptr) return NP_OK;
  // The descriptor is gone after close() whatever it reports.
  int result = close(handle->fd) == 0 ? NP_OK : lastError(NpCall::kClose);
  delete handle;
  return result;
}

int posixFinfo(NpFile* handle, NpFileInfo* out) {
  if (handle == nullptr) return NP_ERR_UNKNOWN;
  struct stat st;
  if (fstat(handle->fd, &st) != 0) return lastError(NpCall::kStat);
  if (out != nullptr) fillInfo(st, out);
  return NP_OK;
}

int posixRead(NpFile* handle, void* buffer, std::size_t length, std::size_t* got) {
  if (got != nullptr) *got = 0;
  if (handle == nullptr || (buffer == nullptr && length > 0)) return NP_ERR_BUFFER;
  ssize_t count;
  while ((count = read(handle->fd, buffer, length)) < 0 && errno == EINTR) {
  }
  if (count < 0) return lastError(NpCall::kRead);
  if (got != nullptr) *got = static_cast<std::size_t>(count);
  return NP_OK;
}

int posixWrite(NpFile* handle, const void* data, std::size_t length) {
  if (handle == nullptr || (data == nullptr && length > 0)) return NP_ERR_BUFFER;
  const char* bytes = static_cast<const char*>(data);
  while (length > 0) {
    const ssize_t count = write(handle->fd, bytes, length);
    if (count < 0) {
      if (errno == EINTR) continue;
      return lastError(NpCall::kWrite);
    }
    bytes += count;
    length -= static_cast<std::size_t>(count);
  }
  return NP_OK;
}

int posixTrylock(NpFile* handle) {
  if (handle == nullptr) return NP_ERR_UNKNOWN;
  // A lock of the open file description, so that closing another descriptor
  // of the same file in this process does not drop it.
  struct flock request;
  std::memset(&request, 0, sizeof request);
  request.l_type = F_WRLCK;
  request.l_whence = SEEK_SET;
  if (fcntl(handle->fd, F_OFD_SETLK, &request) == 0) return NP_OK;
  if (errno == EAGAIN || errno == EACCES) return NP_ERR_BUSY;
  if (errno != EINVAL) return NP_ERR_UNKNOWN;
  // Kernels without such locks: flock() locks belong to the open file too.
  if (flock(handle->fd, LOCK_EX | LOCK_NB) == 0) return NP_OK;
  return errno == EWOULDBLOCK ? NP_ERR_BUSY : NP_ERR_UNKNOWN;
}

int posixChperm(const char* path, int who, int how, int what) {
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  if ((who != NP_PERM_ALL && who != NP_PERM_OWNER) ||
      (how != NP_PERM_ADD && how != NP_PERM_REMOVE) ||
      what <= 0 || (what & ~(NP_PERM_WRITE | NP_PERM_READ | NP_PERM_EXECUTE)) != 0) {
    return NP_ERR_UNKNOWN;
  }
  mode_t bits = 0;
  if ((what & NP_PERM_READ) != 0) bits |= who == NP_PERM_ALL ? (S_IRUSR | S_IRGRP | S_IROTH) : S_IRUSR;
  if ((what & NP_PERM_WRITE) != 0) bits |= who == NP_PERM_ALL ? (S_IWUSR | S_IWGRP | S_IWOTH) : S_IWUSR;
  if ((what & NP_PERM_EXECUTE) != 0) bits |= who == NP_PERM_ALL ? (S_IXUSR | S_IXGRP | S_IXOTH) : S_IXUSR;
  struct stat st;
  if (stat(path, &st) != 0) return lastError(NpCall::kChperm);
  mode_t mode = st.st_mode & 07777;
  mode = how == NP_PERM_ADD ? (mode | bits) : (mode & ~bits);
  if (chmod(path, mode) != 0) return lastError(NpCall::kChperm);
  return NP_OK;
}

// ---------------------------------------------------------------------------
// Directories.

int posixDirOpen(const char* path, int flags, NpDir** handle) {
  if (handle != nullptr) *handle = nullptr;
  if (path == nullptr) return NP_ERR_DIR_NOT_FOUND;
  if (handle == nullptr) return NP_ERR_UNKNOWN;
  DIR* dir = opendir(path);
  if (dir == nullptr) return lastError(NpCall::kDirOpen);
  NpDir* result = new (std::nothrow) NpDir{dir, path, flags, std::string(), NpDirEntry{}, false};
  if (result == nullptr) {
    closedir(dir);
    return NP_ERR_UNKNOWN;
  }
  // Entries are joined as "<path>/<name>"; a path given with its trailing
  // separator (the root, or "dir/") keeps just that one.
  if (result->path.empty() || result->path.back() != '/') result->path += '/';
  *handle = result;
  return NP_OK;
}

// Reads the next entry that passes the handle's filter into *fullPath and
// *entry. False at the end of the directory or on a read error (*result says
// which).
bool readNextEntry(NpDir* handle, std::string* fullPath, NpDirEntry* entry, int* result) {
  bool filesOnly = (handle->flags & NP_DIR_FILES) != 0 && (handle->flags & NP_DIR_DIRS) == 0;
  bool dirsOnly = (handle->flags & NP_DIR_DIRS) != 0 && (handle->flags & NP_DIR_FILES) == 0;
  for (;;) {
    errno = 0;
    struct dirent* found = readdir(handle->dir);
    if (found == nullptr) {
      *result = errno == 0 ? NP_ERR_NOT_FOUND : lastError(NpCall::kDirRead);
      return false;
    }
    const char* leaf = found->d_name;
    if (std::strcmp(leaf, ".") == 0 || std::strcmp(leaf, "..") == 0) continue;
    *fullPath = handle->path;
    *fullPath += leaf;
    struct stat st;
    const bool noFollow = (handle->flags & NP_DIR_NOFOLLOW) != 0;
    if (noFollow) {
      // An entry that is gone since readdir saw it is skipped.
      if (lstat(fullPath->c_str(), &st) != 0) continue;
    } else if (stat(fullPath->c_str(), &st) != 0) {
      // A link whose target is missing is still an entry; an entry that is
      // gone since readdir saw it is skipped.
      if (lstat(fullPath->c_str(), &st) != 0) continue;
    }
    entry->mtime = static_cast<int64_t>(st.st_mtime);
    entry->ctime = static_cast<int64_t>(st.st_ctime);
    entry->size = static_cast<uint64_t>(st.st_size);
    if (S_ISLNK(st.st_mode)) {
      entry->type = noFollow ? NP_TYPE_LINK : NP_TYPE_OTHER;
    } else {
      entry->type = entryType(st.st_mode);
    }
    if (filesOnly && entry->type != NP_TYPE_FILE) continue;
    if (dirsOnly && entry->type != NP_TYPE_DIRECTORY) continue;
    *result = NP_OK;
    return true;
  }
}

int posixDirNextStat(NpDir* handle, char* name, std::size_t nameLength, NpDirEntry* entry) {
  if (handle == nullptr) return NP_ERR_UNKNOWN;
  if (!handle->hasPending) {
    int result;
    if (!readNextEntry(handle, &handle->pending, &handle->pendingEntry, &result)) return result;
    handle->hasPending = true;
  }
  // An entry that does not fit stays pending, so that a caller may retry
  // with a larger buffer.
  if (name == nullptr || handle->pending.size() + 1 > nameLength) return NP_ERR_BUFFER;
  std::memcpy(name, handle->pending.c_str(), handle->pending.size() + 1);
  if (entry != nullptr) *entry = handle->pendingEntry;
  handle->hasPending = false;
  return NP_OK;
}

int posixDirNext(NpDir* handle, char* name, std::size_t nameLength) {
  return posixDirNextStat(handle, name, nameLength, nullptr);
}

int posixDirClose(NpDir* handle) {
  if (handle == nullptr) return NP_OK;
  int result = closedir(handle->dir) == 0 ? NP_OK : lastError(NpCall::kClose);
  delete handle;
  return result;
}

int makeOneDirectory(const char* path) {
  if (mkdir(path, 0777) != 0) return lastError(NpCall::kDirCreate);
  return NP_OK;
}

int posixDirCreate(const char* path, int mode) {
  if (path == nullptr || *path == '\0') return NP_ERR_NOT_FOUND;
  if ((mode & NP_DIR_CREATE_PARENTS) == 0) return makeOneDirectory(path);

  // Create each missing ancestor, then the directory itself; an ancestor that
  // exists must be a directory.
  std::string walk(path);
  while (walk.size() > 1 && walk.back() == '/') walk.pop_back();
  for (std::size_t at = walk.find('/', 1); at != std::string::npos; at = walk.find('/', at + 1)) {
    if (walk[at - 1] == '/') continue;  // "a//b"
    std::string ancestor = walk.substr(0, at);
    struct stat st;
    if (stat(ancestor.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) return NP_ERR_INVALID_PATH;
      continue;
    }
    int result = makeOneDirectory(ancestor.c_str());
    if (result != NP_OK && result != NP_ERR_EXISTS) return result;
  }
  return makeOneDirectory(walk.c_str());
}

int posixDirUnlink(const char* path) {
  if (path == nullptr) return NP_ERR_NOT_FOUND;
  if (rmdir(path) != 0) return lastError(NpCall::kDirUnlink);
  return NP_OK;
}

// ---------------------------------------------------------------------------
// Shared objects.

thread_local std::string t_dsoError;

int posixDsoLoad(const char* path, int flags, NpDso** handle) {
  if (handle != nullptr) *handle = nullptr;
  if (path == nullptr || handle == nullptr) {
    t_dsoError = "no library path given";
    return NP_ERR_UNKNOWN;
  }
  // Only a regular file is handed to the dynamic loader: it would open a
  // FIFO and wait for a writer for ever, or read a device without end. The
  // test opens without blocking and looks at what was opened, so that it sees
  // the file a link leads to. A bare name (no "/") is the loader's own search
  // of the system's library directories and is left to it.
  if (std::strchr(path, '/') != nullptr) {
    const int probe = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (probe < 0) {
      t_dsoError = std::string(path) + ": " + std::strerror(errno);
      return NP_ERR_UNKNOWN;
    }
    struct stat st;
    const bool regular = fstat(probe, &st) == 0 && S_ISREG(st.st_mode);
    close(probe);
    if (!regular) {
      t_dsoError = std::string(path) + ": not a regular file";
      return NP_ERR_UNKNOWN;
    }
  }
  // Flag 4 (the library's choice) resolves every symbol now and keeps the
  // library's symbols out of the global name space; other flags resolve
  // lazily.
  int mode = ((flags & 4) != 0 ? RTLD_NOW : RTLD_LAZY) | RTLD_LOCAL;
  void* library = dlopen(path, mode);
  if (library == nullptr) {
    const char* reason = dlerror();
    t_dsoError = reason != nullptr ? reason : "unknown dynamic loading error";
    return NP_ERR_UNKNOWN;
  }
  NpDso* dso = new (std::nothrow) NpDso{library};
  if (dso == nullptr) {
    dlclose(library);
    t_dsoError = "out of memory";
    return NP_ERR_UNKNOWN;
  }
  *handle = dso;
  return NP_OK;
}

void* posixDsoGetsym(NpDso* handle, const char* name) {
  if (handle == nullptr || name == nullptr) return nullptr;
  return dlsym(handle->library, name);
}

int posixDsoUnload(NpDso* handle) {
  if (handle == nullptr) return NP_OK;
  int result = dlclose(handle->library) == 0 ? NP_OK : NP_ERR_UNKNOWN;
  delete handle;
  return result;
}

// ---------------------------------------------------------------------------
// User, sleep, clock.

int posixUser(char* buffer, std::size_t length) {
  if (buffer == nullptr || length == 0) return NP_ERR_BUFFER;
  uid_t uid = geteuid();
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> scratch(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
  struct passwd entry;
  struct passwd* found = nullptr;
  int rc;
  while ((rc = getpwuid_r(uid, &entry, scratch.data(), scratch.size(), &found)) == ERANGE &&
         scratch.size() < (1u << 20)) {
    scratch.resize(scratch.size() * 2);
  }
  std::string name;
  if (rc == 0 && found != nullptr && found->pw_name != nullptr && found->pw_name[0] != '\0') {
    name = found->pw_name;
  } else {
    name = std::to_string(static_cast<unsigned long>(uid));
  }
  if (name.size() + 1 > length) {
    buffer[0] = '\0';
    return NP_ERR_BUFFER;
  }
  std::memcpy(buffer, name.c_str(), name.size() + 1);
  return NP_OK;
}

int posixHost(char* buffer, std::size_t length) {
  if (buffer == nullptr || length == 0) return NP_ERR_BUFFER;
  char name[HOST_NAME_MAX + 1];
  if (gethostname(name, sizeof name) != 0) return NP_ERR_UNKNOWN;
  name[HOST_NAME_MAX] = '\0';
  const std::size_t size = std::strlen(name);
  if (size + 1 > length) {
    buffer[0] = '\0';
    return NP_ERR_BUFFER;
  }
  std::memcpy(buffer, name, size + 1);
  return NP_OK;
}

int64_t posixProcId(void) { return static_cast<int64_t>(getpid()); }

// Reads the state letter (field 3) and the start time in clock ticks after
// boot (field 22) of /proc/<pid>/stat. False when they cannot be read. Two
// processes given the same id one after the other have different start
// times.
bool readProcessStat(int64_t processId, char* state, uint64_t* startTicks) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%" PRId64 "/stat", processId);
  FILE* file = std::fopen(path, "re");
  if (file == nullptr) return false;
  char line[1024];
  const std::size_t size = std::fread(line, 1, sizeof line - 1, file);
  std::fclose(file);
  line[size] = '\0';
  // The command name (field 2) is in parentheses and may hold blanks and
  // parentheses itself: the fields after it follow its last ')'.
  const char* cursor = std::strrchr(line, ')');
  if (cursor == nullptr) return false;
  ++cursor;
  for (int field = 3; field <= 22; ++field) {
    while (*cursor == ' ') ++cursor;
    if (*cursor == '\0') return false;
    if (field == 3) *state = *cursor;
    if (field == 22) {
      *startTicks = std::strtoull(cursor, nullptr, 10);
      return true;
    }
    while (*cursor != ' ' && *cursor != '\0') ++cursor;
  }
  return false;
}

int posixProcProbe(int64_t processId, uint64_t* startToken) {
  if (startToken != nullptr) *startToken = 0;
  // 0 and negative ids would address process groups; they name no process.
  if (processId <= 0 || processId > INT_MAX) return NP_ERR_NOT_FOUND;
  if (kill(static_cast<pid_t>(processId), 0) != 0 && errno != EPERM) {
    return errno == ESRCH ? NP_ERR_NOT_FOUND : NP_ERR_UNKNOWN;
  }
  char state = '?';
  uint64_t ticks = 0;
  if (readProcessStat(processId, &state, &ticks)) {
    // A process that has ended but not yet been waited for runs no more.
    if (state == 'Z' || state == 'X') return NP_ERR_NOT_FOUND;
    if (startToken != nullptr) *startToken = ticks;
  }
  return NP_OK;
}

int posixSleep(int seconds) {
  if (seconds <= 0) return NP_OK;
  struct timespec wanted;
  wanted.tv_sec = seconds;
  wanted.tv_nsec = 0;
  struct timespec left;
  while (nanosleep(&wanted, &left) != 0 && errno == EINTR) wanted = left;
  return NP_OK;
}

int64_t posixTimeNow(void) { return static_cast<int64_t>(time(nullptr)); }

// ---------------------------------------------------------------------------
// Mutexes.

void* posixMutexCreate(int processShared, int recursive) {
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0) return nullptr;
  bool ok = pthread_mutexattr_settype(&attributes, recursive != 0 ? PTHREAD_MUTEX_RECURSIVE
                                                                  : PTHREAD_MUTEX_NORMAL) == 0;
  if (ok && processShared != 0) {
    ok = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED) == 0;
  }
  pthread_mutex_t* mutex = ok ? new (std::nothrow) pthread_mutex_t : nullptr;
  if (mutex != nullptr && pthread_mutex_init(mutex, &attributes) != 0) {
    delete mutex;
    mutex = nullptr;
  }
  pthread_mutexattr_destroy(&attributes);
  return mutex;
}

int posixMutexLock(void* mutex, int wait) {
  if (mutex == nullptr) return NP_ERR_UNKNOWN;
  pthread_mutex_t* m = static_cast<pthread_mutex_t*>(mutex);
  int rc = wait != 0 ? pthread_mutex_lock(m) : pthread_mutex_trylock(m);
  return rc == 0 ? NP_OK : npResultFromErrno(rc, NpCall::kMutex);
}

int posixMutexUnlock(void* mutex) {
  if (mutex == nullptr) return NP_ERR_UNKNOWN;
  int rc = pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
  return rc == 0 ? NP_OK : npResultFromErrno(rc, NpCall::kMutex);
}

void posixMutexDestroy(void* mutex) {
  if (mutex == nullptr) return;
  pthread_mutex_t* m = static_cast<pthread_mutex_t*>(mutex);
  pthread_mutex_destroy(m);
  delete m;
}

int posixFsInfo(const char* path, NpFsInfo* info) {
  if (path == nullptr || info == nullptr) return NP_ERR_UNKNOWN;
  struct statfs status;
  if (statfs(path, &status) != 0) return lastError(NpCall::kStat);
  // f_type is signed on some platforms; the magic numbers are 32-bit.
  npDescribeFileSystem(static_cast<uint64_t>(static_cast<uint32_t>(status.f_type)), info);
  return NP_OK;
}

const NpPlatformOps kPosixOps = {
    posixStat,       posixRename,      posixUnlink,      posixOpen,        posixClose,
    posixChperm,     posixDirOpen,     posixDirNext,     posixDirNextStat, posixDirClose,
    posixDirCreate,  posixDirUnlink,   posixDsoLoad,     posixDsoGetsym,   posixDsoUnload,
    posixUser,       posixSleep,       posixTimeNow,     posixMutexCreate, posixMutexLock,
    posixMutexUnlock, posixMutexDestroy, posixLink,
    posixLstat,      posixFinfo,       posixRenameNoReplace, posixRead, posixWrite,
    posixTrylock,    posixHost,        posixProcId,      posixProcProbe,   posixFsInfo,
};

}  // namespace

const NpPlatformOps* npDefaultPlatformOps(void) { return &kPosixOps; }

const char* np_dso_error(void) { return t_dsoError.c_str(); }
