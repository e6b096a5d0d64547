// One opened definition or template file (QzvMetaDataFile): its display name
// and attributes in memory, written back by commit() and save(), and the
// resources it uses, listed through the library's resource factory.
//
// Every operation catches whatever is thrown inside it (the JSON library,
// memory) and reports failure in the interface's own way.
//
// Thread safety: one object is used by one thread at a time; distinct objects
// (also of the same file) may be used from several threads at once.
#ifndef QZVMD_DEFS_METADATA_FILE_H_
#define QZVMD_DEFS_METADATA_FILE_H_

#include <string>

#include "defs_document.h"
#include "qzvault/plugin.h"

namespace qzvmd_defs {

class DefsMetaDataFileImpl final : public QzvMetaDataFile {
 public:
  // Reads and checks the file at `path`. Returns a new object owned by the
  // caller (ended with release()), or null with a one-line *reason when the
  // file is unreadable or not a valid document.
  static DefsMetaDataFileImpl* open(const std::string& path, std::string* reason);

  QzbString getPath() override;
  void release() override;
  bool getDisplayName(QzbString* name, int* flags) override;
  int getAttributeCount() override;
  bool isModified() override;
  void getAttributeDescription(int index, int* rows, int* columns, QzbString* name,
                               int* readOnly) override;
  QzbString getValue(int index, int row, int column) override;
  bool setValue(int index, int row, int column, const QzbString& value) override;
  void clear(int index) override;
  bool commit() override;
  bool offerName(const QzbString& name) override;
  bool save() override;
  bool listDependencies(QzResourceList* dependencies, QzResourceFactory* factory) override;

  DefsMetaDataFileImpl(const DefsMetaDataFileImpl&) = delete;
  DefsMetaDataFileImpl& operator=(const DefsMetaDataFileImpl&) = delete;

 private:
  DefsMetaDataFileImpl(std::string path, DefsDocument document);
  ~DefsMetaDataFileImpl() override = default;

  DefsAttribute* attributeAt(int index);
  // Writes the document with the in-memory attributes and, when
  // `includeOfferedName`, the offered name.
  bool write(bool includeOfferedName, const char* operation);

  std::string path_;
  DefsDocument document_;
  bool attributesModified_ = false;
  bool nameOffered_ = false;
  std::string offeredName_;
};

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_METADATA_FILE_H_
