// QzvFileAttributeImpl: an attribute that lives inside the file and is read and
// written by the metadata plug-in that handles the file's type. Every call is
// forwarded to the plug-in's metadata file, which this object owns.
#include "attribute_impl.h"
#include "plugin_registry.h"
#include "qzbase/path.h"
#include "qzvault/plugin.h"
#include "vault_context.h"

QzvFileAttributeImpl::QzvFileAttributeImpl()
    : index_(-1), readOnly_(false), rowCount_(0), columnCount_(0), file_(nullptr) {}

QzvFileAttributeImpl::~QzvFileAttributeImpl() {
  if (file_ != nullptr) file_->release();
}

bool QzvFileAttributeImpl::init(QzviVaultContext* vault, const QzbString& folderPath,
                                const QzbString& fileName, const QzbString& name) {
  // A failure here leaves no message: the caller falls back to the stored
  // attribute of the same name.
  const QzbString fullPath = qzbConcatPath(folderPath, fileName);
  if (fullPath.isNull()) return false;
  QzvMetaDataPlugin* plugin = qzviFindMetaDataHandlerForFile(fullPath, vault->plugins());
  if (plugin == nullptr) return false;
  QzvMetaDataFile* file = plugin->openFile(fullPath);
  if (file == nullptr) return false;

  index_ = -1;
  const int count = file->getAttributeCount();
  for (int i = 0; i < count; ++i) {
    QzbString described;
    int readOnly = 0;
    file->getAttributeDescription(i, &rowCount_, &columnCount_, &described, &readOnly);
    readOnly_ = readOnly != 0;
    if (described.compare(name, true) == 0) {
      index_ = i;
      break;
    }
  }
  if (index_ < 0) {
    file->release();
    return false;
  }
  if (file_ != nullptr) file_->release();
  file_ = file;
  name_ = name;
  return true;
}

void QzvFileAttributeImpl::release() { delete this; }

QzbString QzvFileAttributeImpl::getErrorMessage() { return errorMessage_; }

QzbString QzvFileAttributeImpl::getName() { return name_; }

bool QzvFileAttributeImpl::isReadOnly() { return readOnly_; }

// An object whose init failed has no metadata file; every call on it is then
// harmless (null values, no rows, nothing written).
QzbString QzvFileAttributeImpl::getSingletonValue() {
  if (file_ == nullptr) return QzbString();
  return file_->getValue(index_, 0, 0);
}

int QzvFileAttributeImpl::numRows() { return rowCount_; }

QzbString QzvFileAttributeImpl::getValue(int column, int row) {
  if (static_cast<unsigned>(column) >= QZVI_ATTR_COLUMNS) return QzbString();
  if (row < 0 || row >= rowCount_ || file_ == nullptr) return QzbString();
  return file_->getValue(index_, row, column);
}

// The row count is the metadata file's. It is asked for again after a change,
// so that rows added by setValue (or dropped by clear) read back at once.
void QzvFileAttributeImpl::clear() {
  if (file_ == nullptr) return;
  file_->clear(index_);
  file_->getAttributeDescription(index_, &rowCount_, &columnCount_, nullptr, nullptr);
}

void QzvFileAttributeImpl::setValue(int column, int row, const QzbString& value) {
  if (row < 0 || static_cast<unsigned>(column) >= QZVI_ATTR_COLUMNS || file_ == nullptr) return;
  // The library's bound holds whatever a plug-in would accept.
  if (row >= QZV_ATTR_MAX_ROWS) {
    refusedRow_ = row;
    return;
  }
  if (file_->setValue(index_, row, column, value)) {
    file_->getAttributeDescription(index_, &rowCount_, &columnCount_, nullptr, nullptr);
  }
}

bool QzvFileAttributeImpl::commit() {
  if (refusedRow_ >= 0) {
    errorMessage_ = qzviAttrRowLimitMessage(refusedRow_);
    refusedRow_ = -1;
    return false;
  }
  return file_ != nullptr && file_->commit();
}
