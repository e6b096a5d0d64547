// The np_* entry points: dispatch through the operation table in force, and
// the helpers that need no operating system (result texts, file-name
// conversion, path splitting, library-name forms).
#include "qzbase/platform.h"

#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

// Null means "the default table"; a test installs its own and restores it.
std::atomic<const NpPlatformOps*> g_installedOps{nullptr};

const NpPlatformOps* ops() {
  const NpPlatformOps* installed = g_installedOps.load(std::memory_order_acquire);
  return installed != nullptr ? installed : npDefaultPlatformOps();
}

}  // namespace

const NpPlatformOps* npGetPlatformOps(void) { return ops(); }

const NpPlatformOps* npSetPlatformOps(const NpPlatformOps* table) {
  const NpPlatformOps* previous = g_installedOps.exchange(table, std::memory_order_acq_rel);
  return previous != nullptr ? previous : npDefaultPlatformOps();
}

// ---------------------------------------------------------------------------
// Dispatch.

int np_fio_stat(const char* path, NpStat* st) { return ops()->fio_stat(path, st); }

int np_fio_rename(const char* oldPath, const char* newPath) {
  return ops()->fio_rename(oldPath, newPath);
}

int np_fio_link(const char* existingPath, const char* newPath) {
  return ops()->fio_link(existingPath, newPath);
}

int np_fs_info(const char* path, NpFsInfo* info) { return ops()->fs_info(path, info); }

int np_fio_unlink(const char* path) { return ops()->fio_unlink(path); }

int np_fio_lstat(const char* path, NpFileInfo* info) { return ops()->fio_lstat(path, info); }

int np_fio_finfo(NpFile* handle, NpFileInfo* info) { return ops()->fio_finfo(handle, info); }

int np_fio_rename_noreplace(const char* oldPath, const char* newPath) {
  return ops()->fio_rename_noreplace(oldPath, newPath);
}

int np_fio_read(NpFile* handle, void* buffer, std::size_t length, std::size_t* got) {
  return ops()->fio_read(handle, buffer, length, got);
}

int np_fio_write(NpFile* handle, const void* data, std::size_t length) {
  return ops()->fio_write(handle, data, length);
}

int np_fio_trylock(NpFile* handle) { return ops()->fio_trylock(handle); }

int np_fio_open(const char* path, int flags, NpFile** handle) {
  return ops()->fio_open(path, flags, handle);
}

int np_fio_close(NpFile* handle) { return ops()->fio_close(handle); }

int np_fio_chperm(const char* path, int who, int how, int what) {
  return ops()->fio_chperm(path, who, how, what);
}

int np_dir_open(const char* path, int flags, NpDir** handle) {
  return ops()->dir_open(path, flags, handle);
}

int np_dir_next(NpDir* handle, char* name, std::size_t nameLength) {
  return ops()->dir_next(handle, name, nameLength);
}

int np_dir_next_stat(NpDir* handle, char* name, std::size_t nameLength, NpDirEntry* entry) {
  return ops()->dir_next_stat(handle, name, nameLength, entry);
}

int np_dir_close(NpDir* handle) { return ops()->dir_close(handle); }

int np_dir_create(const char* path, int mode) { return ops()->dir_create(path, mode); }

int np_dir_unlink(const char* path) { return ops()->dir_unlink(path); }

int np_dso_load(const char* path, int flags, NpDso** handle) {
  return ops()->dso_load(path, flags, handle);
}

void* np_dso_getsym(NpDso* handle, const char* name) { return ops()->dso_getsym(handle, name); }

int np_dso_unload(NpDso* handle) { return ops()->dso_unload(handle); }

int np_osinf_user(char* buffer, std::size_t length) { return ops()->osinf_user(buffer, length); }

int np_osinf_host(char* buffer, std::size_t length) { return ops()->osinf_host(buffer, length); }

int64_t np_proc_id(void) { return ops()->proc_id(); }

int np_proc_probe(int64_t processId, uint64_t* startToken) {
  return ops()->proc_probe(processId, startToken);
}

int np_proc_sleep(int seconds) { return ops()->proc_sleep(seconds); }

int64_t np_time_now(void) { return ops()->time_now(); }

// ---------------------------------------------------------------------------
// Helpers without system calls.

const char* np_fio_errdesc(int code) {
  switch (code) {
    case NP_OK: return "No error";
    case NP_ERR_UNKNOWN: return "Unspecified error";
    case NP_ERR_DIR_NOT_FOUND: return "Directory not found";
    case NP_ERR_NOT_FOUND: return "No such file or directory";
    case NP_ERR_ACCESS: return "Permission denied";
    case NP_ERR_EXISTS: return "File exists";
    case NP_ERR_NOT_EMPTY: return "Directory not empty";
    case NP_ERR_NO_SPACE: return "No space left on device";
    case NP_ERR_READ_ONLY_FS: return "Read-only file system";
    case NP_ERR_NAME_TOO_LONG: return "File name too long";
    case NP_ERR_BUSY: return "Device or resource busy";
    case NP_ERR_IO: return "Input/output error";
    case NP_ERR_CROSS_DEVICE: return "Invalid cross-device link";
    case NP_ERR_INVALID_PATH: return "Invalid path";
    case NP_ERR_IS_DIRECTORY: return "Is a directory";
    case NP_ERR_TOO_MANY_FILES: return "Too many open files";
    case NP_ERR_NO_MEMORY: return "Out of memory";
    case NP_ERR_BUFFER: return "Buffer too small";
    case NP_ERR_NOT_REGULAR: return "Not a regular file";
    case NP_ERR_IS_LINK: return "Is a symbolic link";
    default: break;
  }
  // Unknown codes get their number; the text lives per thread so that the
  // pointer stays valid until this thread asks again.
  thread_local char unknown[40];
  std::snprintf(unknown, sizeof unknown, "Unknown error (%d)", code);
  return unknown;
}

namespace {

// Length of the well-formed UTF-8 sequence starting at text[0] (at most
// `available` bytes), or 0 when the bytes there are not well-formed: stray
// continuation bytes, overlong forms, surrogates, values above U+10FFFF and
// sequences cut short all count as invalid.
std::size_t utf8SequenceLength(const unsigned char* text, std::size_t available) {
  unsigned char lead = text[0];
  if (lead < 0x80) return 1;
  std::size_t length;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // overlong
    if (lead == 0xED) high = 0x9F;  // surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // overlong
    if (lead == 0xF4) high = 0x8F;  // above U+10FFFF
  } else {
    return 0;
  }
  if (available < length) return 0;
  if (text[1] < low || text[1] > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (text[i] < 0x80 || text[i] > 0xBF) return 0;
  }
  return length;
}

bool isUnsafeAscii(unsigned char c) {
  if (c < 0x20 || c == 0x7F) return true;
  switch (c) {
    case '/': case '\\': case ':': case '*': case '?': case '"': case '<': case '>': case '|':
      return true;
    default:
      return false;
  }
}

// The C1 control characters U+0080 to U+009F, in UTF-8 a lead byte 0xC2
// followed by 0x80 to 0x9F: as much control characters as the C0 range (one
// of them begins a terminal's control sequences).
bool isC1Control(const unsigned char* text, std::size_t sequence) {
  return sequence == 2 && text[0] == 0xC2 && text[1] <= 0x9F;
}

bool isTrailingTrash(char c) { return c == ' ' || c == '.'; }

}  // namespace

int np_fio_fncode(const char* name, char* out, std::size_t outLength) {
  if (out == nullptr || outLength < 2) return NP_ERR_BUFFER;
  const std::size_t limit = outLength - 1 < NP_NAME_MAX ? outLength - 1 : NP_NAME_MAX;
  const unsigned char* in = reinterpret_cast<const unsigned char*>(name != nullptr ? name : "");
  std::size_t inLength = std::strlen(reinterpret_cast<const char*>(in));

  // Copy character by character, replacing what a file name must not hold,
  // and stop before the first character that would not fit whole.
  std::size_t written = 0;
  bool leading = true;  // still in the run of leading dots and blanks
  for (std::size_t i = 0; i < inLength;) {
    std::size_t sequence = utf8SequenceLength(in + i, inLength - i);
    bool replace = sequence == 0 || (sequence == 1 && isUnsafeAscii(in[i])) ||
                   isC1Control(in + i, sequence);
    if (leading) {
      if (sequence == 1 && (in[i] == '.' || in[i] == ' ')) {
        replace = true;
      } else {
        leading = false;
      }
    }
    std::size_t produced = replace ? 1 : sequence;
    if (written + produced > limit) break;
    if (replace) {
      out[written] = '_';
    } else {
      std::memcpy(out + written, in + i, sequence);
    }
    written += produced;
    i += sequence == 0 ? 1 : sequence;
  }
  // Trailing blanks and dots are dropped (they vanish or confuse on other
  // file systems); the leading run was replaced, so this never empties a
  // name down to dots.
  while (written > 0 && isTrailingTrash(out[written - 1])) --written;
  if (written == 0) out[written++] = '_';
  out[written] = '\0';
  return NP_OK;
}

namespace {

// Copies `length` bytes of `text` into `buffer` zero-terminated; what fits is
// written when the buffer is too small. False when it did not fit.
bool copyPart(const char* text, std::size_t length, char* buffer, std::size_t bufferLength) {
  if (buffer == nullptr) return true;
  if (bufferLength == 0) return false;
  std::size_t copied = length < bufferLength ? length : bufferLength - 1;
  std::memcpy(buffer, text, copied);
  buffer[copied] = '\0';
  return copied == length;
}

}  // namespace

int np_fio_pparse(const char* path, char* dir, std::size_t dirLength, char* name,
                  std::size_t nameLength) {
  if (path == nullptr) path = "";
  const char* slash = std::strrchr(path, '/');
  bool fits;
  if (slash == nullptr) {
    fits = copyPart("", 0, dir, dirLength);
    fits = copyPart(path, std::strlen(path), name, nameLength) && fits;
  } else {
    std::size_t dirPart = static_cast<std::size_t>(slash - path);
    if (dirPart == 0) dirPart = 1;  // the root keeps its separator
    fits = copyPart(path, dirPart, dir, dirLength);
    fits = copyPart(slash + 1, std::strlen(slash + 1), name, nameLength) && fits;
  }
  return fits ? NP_OK : NP_ERR_BUFFER;
}

int np_dir_pathlen(void) { return NP_PATH_MAX; }

namespace {

// True when `leaf` is "stem.so" or "stem.so.N[.N...]" with a non-empty stem
// and decimal version parts.
bool hasSharedObjectForm(const char* leaf) {
  const char* cursor = leaf;
  const char* found = nullptr;
  // The last ".so" that is followed by the end or by version parts.
  while ((cursor = std::strstr(cursor, ".so")) != nullptr) {
    const char* after = cursor + 3;
    bool versionOnly = true;
    if (*after != '\0') {
      // Each part: "." then one or more digits.
      const char* p = after;
      while (*p != '\0') {
        if (*p != '.' || !(p[1] >= '0' && p[1] <= '9')) {
          versionOnly = false;
          break;
        }
        ++p;
        while (*p >= '0' && *p <= '9') ++p;
      }
    }
    if (versionOnly) found = cursor;
    ++cursor;
  }
  return found != nullptr && found != leaf;
}

}  // namespace

int np_dso_mklname(const char* name, char* out, std::size_t outLength) {
  if (name == nullptr || out == nullptr) return NP_ERR_BUFFER;
  const char* slash = std::strrchr(name, '/');
  const char* leaf = slash != nullptr ? slash + 1 : name;
  if (!hasSharedObjectForm(leaf)) return NP_ERR_INVALID_PATH;
  // On this platform the library name is the file name itself.
  std::size_t length = std::strlen(name);
  if (length + 1 > outLength) return NP_ERR_BUFFER;
  std::memcpy(out, name, length + 1);
  return NP_OK;
}

bool np_uchar_isdigit(const char* text) {
  return text != nullptr && *text >= '0' && *text <= '9';
}
