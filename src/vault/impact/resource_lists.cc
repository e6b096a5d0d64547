// The three lists of the lineage store: resources, resource properties and
// strings. They iterate alike: next() on a list that has not started moves to
// the first row, later calls move one row on until past the last, and a value
// asked for off a row is a null string or a null resource.
#include <algorithm>
#include <new>

#include "resource_impl.h"

namespace {

// The position of a list that has not been placed on any row yet.
constexpr std::size_t kNoRow = static_cast<std::size_t>(-1);

// The common step of next(): first row when not started, else one row on
// (never further than one past the last). True while on a row.
bool stepForward(bool* started, std::size_t* current, std::size_t rows) {
  if (!*started) {
    *started = true;
    *current = 0;
  } else if (*current < rows) {
    ++*current;
  }
  return *current < rows;
}

}  // namespace

// ---------------------------------------------------------------------------
// QzvResourceListImpl

QzvResourceListImpl::QzvResourceListImpl() : columns_(1), started_(false), current_(kNoRow) {}

QzvResourceListImpl::~QzvResourceListImpl() {
  for (QzvResourceImpl* resource : rows_) resource->release();
}

void QzvResourceListImpl::release() { delete this; }

bool QzvResourceListImpl::next() { return stepForward(&started_, &current_, rows_.size()); }

QzResource* QzvResourceListImpl::getValue(int column) {
  if (current_ >= rows_.size()) return nullptr;
  if (column < 0 || static_cast<unsigned>(column) >= columns_) return nullptr;
  return rows_[current_];
}

bool QzvResourceListImpl::addRow() {
  QzvResourceImpl* resource = new (std::nothrow) QzvResourceImpl();
  if (resource == nullptr) return false;
  try {
    rows_.push_back(resource);
  } catch (const std::bad_alloc&) {
    resource->release();
    return false;
  }
  return true;
}

void QzvResourceListImpl::setLastRowElement(int /*column*/, QzResource* resource) {
  // A row holds one resource, so every column names it.
  if (rows_.empty() || resource == nullptr) return;
  rows_.back()->copyFrom(resource);
}

bool QzvResourceListImpl::contains(QzResource* resource) {
  if (resource == nullptr) return false;
  const QzbString identity = resource->getResourceIdentity();
  // The list's own position is the cursor: it ends one row past the match (or
  // past the last row), and the started flag is left alone.
  current_ = 0;
  while (current_ < rows_.size()) {
    const bool match = rows_[current_]->getResourceIdentity().compare(identity, true) == 0;
    ++current_;
    if (match) return true;
  }
  return false;
}

bool QzvResourceListImpl::reset() {
  started_ = false;
  current_ = 0;
  return true;
}

bool QzvResourceListImpl::copyList(QzResourceList* source) {
  if (source == nullptr) return false;
  source->reset();
  bool ok = true;
  while (source->next()) {
    if (!addRow()) {
      ok = false;
      break;
    }
    setLastRowElement(0, source->getValue(0));
  }
  started_ = false;
  current_ = kNoRow;
  return ok;
}

// ---------------------------------------------------------------------------
// QzvResourcePropertyListImpl

QzvResourcePropertyListImpl::QzvResourcePropertyListImpl() : started_(false), current_(kNoRow) {}

QzvResourcePropertyListImpl::~QzvResourcePropertyListImpl() = default;

void QzvResourcePropertyListImpl::release() { delete this; }

bool QzvResourcePropertyListImpl::next() {
  return stepForward(&started_, &current_, elements_.size());
}

QzbString QzvResourcePropertyListImpl::getKey() {
  return current_ < elements_.size() ? elements_[current_].key : QzbString();
}

QzbString QzvResourcePropertyListImpl::getValue() {
  return current_ < elements_.size() ? elements_[current_].value : QzbString();
}

bool QzvResourcePropertyListImpl::addRow() {
  try {
    elements_.push_back(Element());
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void QzvResourcePropertyListImpl::setLastRow(const QzbString& key, const QzbString& value) {
  if (elements_.empty()) return;
  elements_.back().key = key;
  elements_.back().value = value;
}

bool QzvResourcePropertyListImpl::copyList(QzResourcePropertyList* source) {
  if (source == nullptr) return false;
  // The source is read from where it stands, not from its start.
  bool ok = true;
  while (source->next()) {
    if (!addRow()) {
      ok = false;
      break;
    }
    setLastRow(source->getKey(), source->getValue());
  }
  started_ = false;
  current_ = kNoRow;
  return ok;
}

// ---------------------------------------------------------------------------
// QzStringListImpl

QzStringListImpl::QzStringListImpl() : columns_(0), started_(false), current_(kNoRow) {}

QzStringListImpl::QzStringListImpl(int columns)
    // A negative count would ask for billions of strings per row.
    : columns_(columns > 0 ? static_cast<unsigned>(columns) : 0u),
      started_(false),
      current_(kNoRow) {}

QzStringListImpl::~QzStringListImpl() = default;

void QzStringListImpl::release() { delete this; }

bool QzStringListImpl::next() { return stepForward(&started_, &current_, rows_.size()); }

int QzStringListImpl::getNumCols() { return static_cast<int>(columns_); }

QzbString QzStringListImpl::getValue(int column) {
  if (current_ >= rows_.size()) return QzbString();
  if (column < 0 || static_cast<unsigned>(column) >= columns_) return QzbString();
  const std::vector<QzbString>& row = rows_[current_];
  // Rows added before copyList changed the column count may be shorter.
  if (static_cast<std::size_t>(column) >= row.size()) return QzbString();
  return row[static_cast<std::size_t>(column)];
}

QzbString QzStringListImpl::getValue() { return getValue(0); }

int QzStringListImpl::length() { return static_cast<int>(rows_.size()); }

bool QzStringListImpl::addRow() {
  try {
    rows_.emplace_back(std::max(columns_, 1u));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void QzStringListImpl::setLastRowElement(int column, const QzbString& value) {
  if (rows_.empty() || column < 0) return;
  std::vector<QzbString>& row = rows_.back();
  // Callers pass valid columns; the row's own size still bounds the write.
  if (static_cast<std::size_t>(column) >= row.size()) return;
  row[static_cast<std::size_t>(column)] = value;
}

bool QzStringListImpl::copyList(QzStringList* source) {
  if (source == nullptr) return false;
  const int columns = source->getNumCols();
  columns_ = columns > 0 ? static_cast<unsigned>(columns) : 0u;
  bool ok = true;
  while (source->next()) {
    if (!addRow()) {
      ok = false;
      break;
    }
    for (int column = 0; column < columns; ++column) {
      setLastRowElement(column, source->getValue(column));
    }
  }
  started_ = false;
  current_ = kNoRow;
  return ok;
}
