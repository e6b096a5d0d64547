// The two attribute implementations: rows stored in a folder's ".v_fmd"
// (QzvAttributeImpl) and an attribute that a plug-in reads out of the file
// itself (QzvFileAttributeImpl).
#ifndef QZVAULT_SRC_TREE_ATTRIBUTE_IMPL_H_
#define QZVAULT_SRC_TREE_ATTRIBUTE_IMPL_H_

#include <vector>

#include "qzbase/string.h"
#include "qzvault/attribute.h"

class QzviVaultContext;
class QzvMetaDataFile;

#define QZVI_ATTR_COLUMNS 10

// The message of a commit after a setValue beyond QZV_ATTR_MAX_ROWS.
QzbString qzviAttrRowLimitMessage(int row);

// One row of an attribute: ten values.
struct AttrRow {
  QzbString values[QZVI_ATTR_COLUMNS];
  // Makes all ten values null.
  void clear();
};

class QzvAttributeImpl final : public QzvAttribute {
 public:
  QzvAttributeImpl();
  // Loads the rows of attribute `name` of the object `fileName` (null for the
  // folder itself) from the ".v_fmd" of `folderPath`.
  bool init(QzviVaultContext* vault, const QzbString& folderPath, const QzbString& fileName,
            const QzbString& name);

  void release() override;
  QzbString getErrorMessage() override;
  QzbString getName() override;
  bool isReadOnly() override;
  QzbString getSingletonValue() override;
  int numRows() override;
  QzbString getValue(int column, int row) override;
  void clear() override;
  void setValue(int column, int row, const QzbString& value) override;
  bool commit() override;

 private:
  ~QzvAttributeImpl() override;

  QzbString errorMessage_;
  QzbString name_;
  QzbString fileName_;
  QzbString folderPath_;
  QzviVaultContext* vault_;
  std::vector<AttrRow> rows_;
  // The row of a refused setValue (beyond QZV_ATTR_MAX_ROWS), reported by the
  // next commit; -1 when there is none.
  int refusedRow_ = -1;
};

class QzvFileAttributeImpl final : public QzvAttribute {
 public:
  QzvFileAttributeImpl();
  // True when the file's plug-in opens it and reports an attribute `name`.
  bool init(QzviVaultContext* vault, const QzbString& folderPath, const QzbString& fileName,
            const QzbString& name);

  void release() override;
  QzbString getErrorMessage() override;
  QzbString getName() override;
  bool isReadOnly() override;
  QzbString getSingletonValue() override;
  int numRows() override;
  QzbString getValue(int column, int row) override;
  void clear() override;
  void setValue(int column, int row, const QzbString& value) override;
  bool commit() override;

 private:
  ~QzvFileAttributeImpl() override;

  QzbString errorMessage_;
  QzbString name_;
  int index_;
  bool readOnly_;
  int rowCount_;
  int columnCount_;
  QzvMetaDataFile* file_;
  int refusedRow_ = -1;  // as in QzvAttributeImpl
};

#endif  // QZVAULT_SRC_TREE_ATTRIBUTE_IMPL_H_
