// The in-memory item list and the item list over an open query.
#include "item_list_impl.h"

#include <cassert>
#include <new>
#include <stdexcept>
#include <utility>

namespace {

// A column's text read as a 32-bit signed number and widened with its sign,
// so that "-1" comes back with every bit set; text that is not a number
// gives what asInt gives for it (0).
unsigned long widenedInt(const QzbString& text) {
  return static_cast<unsigned long>(static_cast<long>(text.asInt()));
}

}  // namespace

// ---------------------------------------------------------------------------
// QzvItemListImpl

QzvItemListImpl::QzvItemListImpl() : QzvItemListImpl(0) {}

QzvItemListImpl::QzvItemListImpl(int columns)
    : columns_(columns < 0 ? 0 : columns), started_(false), rows_(0), current_(0) {}

bool QzvItemListImpl::copyList(QzvItemList* source) {
  if (source == nullptr) return false;
  const int columns = source->getNumCols();
  // The rows are stored flat, so rows already held fix the width; the library
  // copies into new lists only.
  if (rows_ != 0 && columns != columns_) return false;
  columns_ = columns < 0 ? 0 : columns;
  while (source->next()) {
    if (!addRow()) return false;
    for (int column = 0; column < columns_; ++column) {
      setLastRowElement(column, source->getValue(column));
    }
  }
  started_ = false;
  current_ = 0;
  return true;
}

bool QzvItemListImpl::addRow() {
  try {
    cells_.resize(cells_.size() + static_cast<std::size_t>(columns_));
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  ++rows_;
  return true;
}

void QzvItemListImpl::setLastRowElement(int column, const QzbString& value) {
  if (rows_ == 0) return;
  assert(column >= 0 && column < columns_);
  if (column < 0 || column >= columns_) return;  // never written outside the row
  cells_[(rows_ - 1) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)] = value;
}

void QzvItemListImpl::setLastRowElement(int column, QzbString&& value) {
  if (rows_ == 0) return;
  assert(column >= 0 && column < columns_);
  if (column < 0 || column >= columns_) return;
  cells_[(rows_ - 1) * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)] =
      std::move(value);
}

std::size_t QzvItemListImpl::rowCount() const { return rows_; }

bool QzvItemListImpl::next() {
  if (!started_) {
    started_ = true;
    current_ = 0;
  } else if (current_ < rows_) {
    ++current_;
  }
  return current_ < rows_;
}

int QzvItemListImpl::getNumCols() { return columns_; }

QzbString QzvItemListImpl::getValue(int column) {
  if (!started_ || current_ >= rows_ || column < 0 || column >= columns_) return QzbString();
  return cells_[current_ * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)];
}

unsigned long QzvItemListImpl::getValueUlong(int column) {
  if (!started_ || current_ >= rows_ || column < 0 || column >= columns_) return 0;
  return widenedInt(
      cells_[current_ * static_cast<std::size_t>(columns_) + static_cast<std::size_t>(column)]);
}

void QzvItemListImpl::release() { delete this; }

// ---------------------------------------------------------------------------
// QzvItemListCursorImpl

QzvItemListCursorImpl::QzvItemListCursorImpl(SqliteStatement* statement, SqliteCursor* cursor)
    : cursor_(cursor), statement_(statement), ended_(false) {}

QzvItemListCursorImpl::QzvItemListCursorImpl(SqliteCursor* cursor)
    : QzvItemListCursorImpl(nullptr, cursor) {}

bool QzvItemListCursorImpl::next() {
  if (ended_ || cursor_ == nullptr) return false;
  if (cursor_->next() == 1) return true;
  ended_ = true;  // the end, or an error: either way the iteration is over
  return false;
}

int QzvItemListCursorImpl::getNumCols() {
  return cursor_ != nullptr ? cursor_->getColumnCount() : 0;
}

QzbString QzvItemListCursorImpl::getValue(int column) {
  return cursor_ != nullptr ? cursor_->getText(column) : QzbString();
}

unsigned long QzvItemListCursorImpl::getValueUlong(int column) {
  return cursor_ != nullptr ? widenedInt(cursor_->getText(column)) : 0;
}

void QzvItemListCursorImpl::release() {
  if (cursor_ != nullptr) cursor_->release();
  if (statement_ != nullptr) statement_->release();
  delete this;
}
