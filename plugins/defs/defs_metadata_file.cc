// One opened definition or template file.
#include "defs_metadata_file.h"

#include <exception>
#include <new>

#include "defs_dependencies.h"
#include "defs_file_io.h"
#include "defs_log.h"
#include "defs_paths.h"

namespace qzvmd_defs {
namespace {

QzbString toQzb(const std::string& text) { return QzbString::fromBytes(text.data(), text.size()); }

std::string fromQzb(const QzbString& text) { return std::string(text.asCstr(), text.length()); }

bool hasControlCharacter(const std::string& text) {
  for (unsigned char c : text) {
    if (c < 0x20 || c == 0x7F) return true;
  }
  return false;
}

}  // namespace

// Nothing may leave an interface operation as an exception: each body runs
// inside one of these, which logs what was caught and gives the fallback.
#define DEFS_GUARDED(operation, fallback, ...)                                                \
  try {                                                                                       \
    __VA_ARGS__                                                                               \
  } catch (const std::exception& error) {                                                     \
    DEFS_LOG(QZLOG_ERROR, "Unexpected failure in %s on \"%s\": %s", operation, path_.c_str(), \
             error.what());                                                                   \
  } catch (...) {                                                                             \
    DEFS_LOG(QZLOG_ERROR, "Unexpected failure in %s on \"%s\"", operation, path_.c_str());    \
  }                                                                                           \
  return fallback;

DefsMetaDataFileImpl::DefsMetaDataFileImpl(std::string path, DefsDocument document)
    : path_(std::move(path)), document_(std::move(document)) {}

DefsMetaDataFileImpl* DefsMetaDataFileImpl::open(const std::string& path, std::string* reason) {
  std::string text;
  if (!readWholeFile(path, &text, reason)) return nullptr;
  DefsDocument document;
  if (!document.parse(text, reason)) return nullptr;
  DefsMetaDataFileImpl* file = new (std::nothrow) DefsMetaDataFileImpl(path, std::move(document));
  if (file == nullptr) *reason = "out of memory";
  return file;
}

QzbString DefsMetaDataFileImpl::getPath() {
  DEFS_GUARDED("getPath", QzbString(), return toQzb(path_);)
}

void DefsMetaDataFileImpl::release() { delete this; }

bool DefsMetaDataFileImpl::getDisplayName(QzbString* name, int* flags) {
  if (flags != nullptr) *flags = 0;
  DEFS_GUARDED("getDisplayName", false, {
    std::string text;
    if (nameOffered_) {
      text = offeredName_;
    } else if (!document_.displayName(&text)) {
      return false;
    }
    if (name != nullptr) *name = toQzb(text);
    return true;
  })
}

int DefsMetaDataFileImpl::getAttributeCount() {
  return static_cast<int>(document_.attributes().size());
}

bool DefsMetaDataFileImpl::isModified() { return attributesModified_ || nameOffered_; }

DefsAttribute* DefsMetaDataFileImpl::attributeAt(int index) {
  auto& attributes = document_.attributes();
  if (index < 0 || static_cast<std::size_t>(index) >= attributes.size()) return nullptr;
  return &attributes[static_cast<std::size_t>(index)];
}

void DefsMetaDataFileImpl::getAttributeDescription(int index, int* rows, int* columns,
                                                   QzbString* name, int* readOnly) {
  try {
    const DefsAttribute* attribute = attributeAt(index);
    if (rows != nullptr) {
      *rows = attribute == nullptr ? 0 : static_cast<int>(attribute->rows.size());
    }
    if (columns != nullptr) *columns = attribute == nullptr ? 0 : attribute->columns;
    if (readOnly != nullptr) *readOnly = attribute != nullptr && attribute->readOnly ? 1 : 0;
    if (name != nullptr) *name = attribute == nullptr ? QzbString() : toQzb(attribute->name);
  } catch (...) {
    // Only the name's copy can fail (memory); the caller then sees no name.
    if (name != nullptr) *name = QzbString();
  }
}

QzbString DefsMetaDataFileImpl::getValue(int index, int row, int column) {
  DEFS_GUARDED("getValue", QzbString(), {
    const DefsAttribute* attribute = attributeAt(index);
    if (attribute == nullptr || row < 0 || column < 0) return QzbString();
    if (static_cast<std::size_t>(row) >= attribute->rows.size()) return QzbString();
    const auto& cells = attribute->rows[static_cast<std::size_t>(row)];
    if (static_cast<std::size_t>(column) >= cells.size()) return QzbString();
    std::string text;
    if (!cellText(cells[static_cast<std::size_t>(column)], &text)) return QzbString();
    return toQzb(text);
  })
}

bool DefsMetaDataFileImpl::setValue(int index, int row, int column, const QzbString& value) {
  DEFS_GUARDED("setValue", false, {
    DefsAttribute* attribute = attributeAt(index);
    if (attribute == nullptr || attribute->readOnly) return false;
    if (row < 0 || row >= kMaxRows || column < 0 || column >= kMaxColumns) return false;
    Json cell;  // null unless a text is given
    if (!value.isNull()) {
      std::string text = fromQzb(value);
      if (!isValidUtf8(text)) return false;  // a JSON file holds UTF-8 only
      cell = std::move(text);
    }
    auto& rows = attribute->rows;
    if (rows.size() <= static_cast<std::size_t>(row)) {
      rows.resize(static_cast<std::size_t>(row) + 1);
    }
    auto& cells = rows[static_cast<std::size_t>(row)];
    if (cells.size() <= static_cast<std::size_t>(column)) {
      cells.resize(static_cast<std::size_t>(column) + 1);
    }
    cells[static_cast<std::size_t>(column)] = std::move(cell);
    if (attribute->columns <= column) attribute->columns = column + 1;
    attributesModified_ = true;
    return true;
  })
}

void DefsMetaDataFileImpl::clear(int index) {
  try {
    DefsAttribute* attribute = attributeAt(index);
    if (attribute == nullptr || attribute->readOnly) return;
    attribute->rows.assign(1, std::vector<Json>());
    attributesModified_ = true;
  } catch (...) {
    DEFS_LOG(QZLOG_ERROR, "Unexpected failure in %s on \"%s\"", "clear", path_.c_str());
  }
}

bool DefsMetaDataFileImpl::write(bool includeOfferedName, const char* operation) {
  const bool withName = includeOfferedName && nameOffered_;
  Json root = document_.build(withName ? &offeredName_ : nullptr);
  std::string reason;
  if (!replaceFileAtomically(path_, DefsDocument::render(root), &reason)) {
    DEFS_LOG(QZLOG_ERROR, "%s of \"%s\" failed: %s", operation, path_.c_str(), reason.c_str());
    return false;
  }
  document_.adopt(std::move(root));
  attributesModified_ = false;
  if (withName) {
    nameOffered_ = false;
    offeredName_.clear();
  }
  return true;
}

bool DefsMetaDataFileImpl::commit() {
  DEFS_GUARDED("commit", false, return write(false, "Commit");)
}

bool DefsMetaDataFileImpl::offerName(const QzbString& name) {
  DEFS_GUARDED("offerName", false, {
    if (name.isEmpty()) return false;
    std::string text = fromQzb(name);
    if (!isValidUtf8(text) || hasControlCharacter(text)) return false;
    offeredName_ = std::move(text);
    nameOffered_ = true;
    return true;
  })
}

bool DefsMetaDataFileImpl::save() { DEFS_GUARDED("save", false, return write(true, "Save");) }

bool DefsMetaDataFileImpl::listDependencies(QzResourceList* dependencies,
                                            QzResourceFactory* factory) {
  DEFS_GUARDED("listDependencies", false, {
    std::string reason;
    const std::string directory = directoryOf(normaliseSeparators(path_));
    if (!appendDependencies(document_.uses(), directory, dependencies, factory, &reason)) {
      DEFS_LOG(QZLOG_ERROR, "Cannot list the resources used by \"%s\": %s", path_.c_str(),
               reason.c_str());
      return false;
    }
    return true;
  })
}

}  // namespace qzvmd_defs
