// Directory listing (QzviFileList) and the small file-name rules that folder
// and object code share.
#include "file_list.h"

#include <cstring>
#include <new>
#include <string>

#include "debug_log.h"
#include "qzbase/file_types.h"
#include "qzbase/path.h"
#include "time_util.h"

// The base layer's file-type table is the one source of the two-part
// extensions; this array only points at its entries.
static_assert(QZB_TWO_PART_EXTENSION_COUNT == 12, "the vault knows twelve two-part extensions");
const char* const kQzviTwoPartExtensions[12] = {
    qzbTwoPartExtensions[0], qzbTwoPartExtensions[1], qzbTwoPartExtensions[2],
    qzbTwoPartExtensions[3], qzbTwoPartExtensions[4], qzbTwoPartExtensions[5],
    qzbTwoPartExtensions[6], qzbTwoPartExtensions[7], qzbTwoPartExtensions[8],
    qzbTwoPartExtensions[9], qzbTwoPartExtensions[10], qzbTwoPartExtensions[11],
};

namespace {

// The leaf buffer holds one name component; the full-name buffer holds the
// entry as the platform returns it (the directory joined with the leaf), which
// can be as long as a path.
const std::size_t kLeafBufferSize = 256;
const std::size_t kFullNameBufferSize = NP_PATH_MAX + 1;

// Directory-open flags for the mode bits: always list with status and
// without following links, files only for bit 1, directories for bit 2 (both
// bits: every entry). Files and links together are filtered here, not by
// the platform.
int directoryOpenFlags(int mode) {
  int flags = NP_DIR_LIST | NP_DIR_STAT | NP_DIR_NOFOLLOW;
  const bool withLinks = (mode & QZVI_LIST_LINKS) != 0;
  if ((mode & QZVI_LIST_FILES) != 0 && !withLinks) flags |= NP_DIR_FILES;
  if ((mode & QZVI_LIST_DIRS) != 0) flags |= NP_DIR_DIRS;
  return flags;
}

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// The copy of `path` without one trailing separator.
QzbString dropOneTrailingSeparator(const QzbString& path) {
  const unsigned length = path.length();
  if (length > 0 && isSeparator(path.asCstr()[length - 1])) return path.left(length - 1);
  return path;
}

// True when `text` ends in `suffix`, ASCII letters compared without case.
bool endsWithNoCase(const std::string& text, const std::string& suffix) {
  if (suffix.size() > text.size()) return false;
  return QzbString(text.c_str() + (text.size() - suffix.size()))
             .compare(suffix.c_str(), false) == 0;
}

// An extension may not carry a separator or a control character (C0, DEL, or
// a C1 control, in UTF-8 0xC2 followed by 0x80 to 0x9F): the result of
// qzviGetNewValidFilename must stay one component of the folder that
// np_fio_fncode could have made.
bool isSafeExtension(const QzbString& extension) {
  const char* text = extension.asCstr();
  const unsigned length = extension.length();
  for (unsigned i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c < 0x20 || c == 0x7F || c == '/' || c == '\\') return false;
    if (c == 0xC2 && i + 1 < length) {
      const unsigned char next = static_cast<unsigned char>(text[i + 1]);
      if (next >= 0x80 && next <= 0x9F) return false;
    }
  }
  return true;
}

// The longest prefix of `text` that is at most `limit` bytes and does not end
// inside a UTF-8 sequence.
std::string cutAtCharacterBoundary(const std::string& text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

// The number an extension starts with, read as the C library's atoi would
// (leading digits only), clamped to the int range.
int leadingNumber(const char* text) {
  long long value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10 + (*text - '0');
    if (value > 0x7FFFFFFF) return 0x7FFFFFFF;
  }
  return static_cast<int>(value);
}

}  // namespace

// ---------------------------------------------------------------------------
// QzviFileList

QzviFileList::QzviFileList()
    : dir_(nullptr),
      fullName_(nullptr),
      leafName_(nullptr),
      isDir_(false),
      isLink_(false),
      hasEntry_(false),
      timestamp_(0),
      mode_(0),
      isVaultItem_(false) {}

QzviFileList::~QzviFileList() {
  np_dir_close(dir_);
  delete[] fullName_;
  delete[] leafName_;
}

bool QzviFileList::init(const QzbString& path, int mode, QzbString* error) {
  // A list may be opened again; the previous directory is closed first.
  np_dir_close(dir_);
  dir_ = nullptr;
  hasEntry_ = false;

  if (fullName_ == nullptr) fullName_ = new (std::nothrow) char[kFullNameBufferSize];
  if (leafName_ == nullptr) leafName_ = new (std::nothrow) char[kLeafBufferSize];
  if (fullName_ == nullptr || leafName_ == nullptr) {
    if (error != nullptr) *error = QzbString("Memory allocation failed", true);
    return false;
  }
  fullName_[0] = '\0';
  leafName_[0] = '\0';
  mode_ = mode;

  const int result = np_dir_open(path.asCstr(), directoryOpenFlags(mode), &dir_);
  if (result == NP_OK) return true;
  dir_ = nullptr;
  const char* format;
  switch (result) {
    case NP_ERR_DIR_NOT_FOUND:
      format = "Directory %S not found";
      break;
    case NP_ERR_NOT_A_DIRECTORY:
      format = "%S is not a directory";
      break;
    case NP_ERR_ACCESS:
      format = "Access to %S is denied";
      break;
    default:
      format = "Unknown error reading directory %S";
      break;
  }
  if (error != nullptr) *error = qzbStringFormat(format, &path);
  return false;
}

bool QzviFileList::next() {
  if (dir_ == nullptr) {
    hasEntry_ = false;
    return false;
  }
  for (;;) {
    NpDirEntry entry;
    if (np_dir_next_stat(dir_, fullName_, kFullNameBufferSize, &entry) != NP_OK) {
      hasEntry_ = false;
      fullName_[0] = '\0';
      leafName_[0] = '\0';
      return false;
    }
    np_fio_pparse(fullName_, nullptr, 0, leafName_, kLeafBufferSize);
    isDir_ = entry.type == NP_TYPE_DIRECTORY;
    isLink_ = entry.type == NP_TYPE_LINK;
    // Files and links: what is neither (a fifo, a device) is left out.
    if ((mode_ & QZVI_LIST_LINKS) != 0 && (mode_ & QZVI_LIST_FILES) != 0 &&
        (mode_ & QZVI_LIST_DIRS) == 0 && entry.type != NP_TYPE_FILE && !isLink_) {
      continue;
    }
    timestamp_ = entry.mtime;
    isVaultItem_ = isVaultFile(leafName_);
    hasEntry_ = true;
    if ((mode_ & QZVI_LIST_ONLY_VAULT) != 0 && !isVaultItem_) continue;
    if ((mode_ & QZVI_LIST_SKIP_VAULT) != 0 && isVaultItem_) continue;
    return true;
  }
}

QzbString QzviFileList::getName() const {
  return hasEntry_ ? QzbString(leafName_) : QzbString();
}

QzbString QzviFileList::getFullPathName() const {
  return hasEntry_ ? QzbString(fullName_) : QzbString();
}

bool QzviFileList::isDir() const { return hasEntry_ && isDir_; }

bool QzviFileList::isLink() const { return hasEntry_ && isLink_; }

bool QzviFileList::isVaultItem() const { return hasEntry_ && isVaultItem_; }

QzbDate QzviFileList::getTimestamp() const {
  return hasEntry_ ? qzviSeconds2QzbDate(timestamp_) : QzbDate();
}

int64_t QzviFileList::getTimestampLong() const { return hasEntry_ ? timestamp_ : 0; }

bool QzviFileList::isReadOnly() const {
  // A link is not probed through: that would follow it.
  if (!hasEntry_ || isLink_) return true;
  return np_fio_open(fullName_, NP_FIO_PROBE_WRITE, nullptr) != NP_OK;
}

bool QzviFileList::isVaultFile(const char* name) { return name != nullptr && name[0] == '.'; }

// ---------------------------------------------------------------------------
// File names

QzbString qzviGetNewValidFilename(const QzbString& name, const QzbString& extension,
                                  const QzbString& directory) {
  // The display name becomes one safe component: no separator, no control
  // character, no leading "." (which would hide it among the vault's files).
  char converted[NP_NAME_MAX + 1];
  if (np_fio_fncode(name.asCstr(), converted, sizeof converted) != NP_OK) return QzbString();
  std::string stem(converted);
  std::string suffix;
  if (!extension.isEmpty()) {
    if (!isSafeExtension(extension)) return QzbString();
    const std::string dotted = std::string(".") + extension.asCstr();
    // A name that already ends in the extension (any letter case) keeps its
    // own; the stem is what may be shortened below.
    if (endsWithNoCase(stem, dotted) && stem.size() > dotted.size()) {
      suffix = stem.substr(stem.size() - dotted.size());
      stem.resize(stem.size() - dotted.size());
    } else {
      suffix = dotted;
    }
  }

  for (unsigned long n = 0;; ++n) {
    const std::string prefix = n == 0 ? std::string() : std::to_string(n);
    // The whole name must fit one component; the stem gives way, at a
    // character boundary, and at least one byte of it must remain.
    const std::size_t fixed = prefix.size() + suffix.size();
    if (fixed >= NP_NAME_MAX) return QzbString();
    const std::string fitted = cutAtCharacterBoundary(stem, NP_NAME_MAX - fixed);
    if (fitted.empty()) return QzbString();
    const QzbString candidate = QzbString::fromStdString(prefix + fitted + suffix);

    const QzbString path = qzbConcatPath(directory, candidate);
    if (path.isNull()) return QzbString();
    const int result = np_fio_stat(path.asCstr(), nullptr);
    if (result == NP_OK) continue;
    if (result == NP_ERR_NOT_FOUND) return candidate;
    qzviDebugLog(qzbStringFormat("Stat on %s returned %d", path.asCstr(), result));
    return QzbString();
  }
}

QzbString qzviParseFileExt(const QzbString& name, QzbString* extension, bool simple) {
  int split = -1;
  if (!simple) {
    QzbString lowered = name;
    lowered.lowercase();
    const unsigned length = lowered.length();
    for (const char* entry : kQzviTwoPartExtensions) {
      // The entry with its leading dot must end the name.
      const unsigned entryLength = static_cast<unsigned>(std::strlen(entry)) + 1;
      if (entryLength > length) continue;
      const unsigned start = length - entryLength;
      if (lowered.asCstr()[start] == '.' &&
          std::strcmp(lowered.asCstr() + start + 1, entry) == 0) {
        split = static_cast<int>(start);
        break;
      }
    }
  }
  if (split < 0) split = name.rfind(".");
  if (split < 0) {
    if (extension != nullptr) *extension = QzbString("", true);
    return name;
  }
  if (extension != nullptr) *extension = name.mid(static_cast<unsigned>(split) + 1);
  return name.left(static_cast<unsigned>(split));
}

int qzviExtractVersion(const QzbString& name) {
  QzbString extension;
  qzviParseFileExt(name, &extension, true);
  if (extension.isEmpty() || !np_uchar_isdigit(extension.asCstr())) return -1;
  return leadingNumber(extension.asCstr());
}

bool qzviPathIsEqual(const QzbString& a, const QzbString& b) {
  return dropOneTrailingSeparator(a).compare(dropOneTrailingSeparator(b), false) == 0;
}

QzbString qzviStringTrailingSlash(const QzbString& path) {
  const unsigned length = path.length();
  if (length == 0 || !isSeparator(path.asCstr()[length - 1])) return path;
  // A root keeps its separator: a drive root ("C:\") and the POSIX root "/".
  if (length == 1) return path;
  if (path.asCstr()[length - 2] == ':') return path;
  return path.left(length - 1);
}

bool qzviFileExists(const QzbString& directory, const QzbString& name) {
  const QzbString path = qzbConcatPath(directory, name);
  if (path.isNull()) return false;
  return np_fio_stat(path.asCstr(), nullptr) != NP_ERR_NOT_FOUND;
}
