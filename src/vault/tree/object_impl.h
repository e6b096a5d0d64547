// QzvObjectImpl: one file of a vault folder.
//
// An object caches its names (folder path, file name, full path, display
// name); after another process renames the file it reports the old names until
// it is made afresh. Its operations are spread over several sources:
//   object_impl.cc        construction, identity, the three initialisations
//   object_stamps.cc      setModifiedByUser, locks, attribute listing
//   object_rename.cc      renameSelf, fileRename, moveSelf, deleteSelf and the
//                         version-path helpers
//   object_versions.cc    numbered versions and roll-back
//   object_analysis.cc    analyzeImpact, runAnalysis, refreshMetadata
#ifndef QZVAULT_SRC_TREE_OBJECT_IMPL_H_
#define QZVAULT_SRC_TREE_OBJECT_IMPL_H_

#include "qzbase/date.h"
#include "qzbase/string.h"
#include "qzvault/object.h"

class QzviVaultContext;
class QzvImpactAnalysisImpl;
class QzvMetaDataFile;
class QzResource;

class QzvObjectImpl final : public QzvObject {
 public:
  QzvObjectImpl();

  // An existing file; false ("File %s is inaccessible" to the debug log) when
  // it cannot be examined.
  bool init(const QzbString& fullPath, QzviVaultContext* vault);
  // A file the caller has written into `folderPath`: stamps the creator and
  // records `displayName` through renameSelf. When the naming fails (a display
  // name the folder already has), the file name's rows are put back as they
  // were before.
  bool initNewFromFile(const QzbString& fileName, const QzbString& displayName,
                       QzviVaultContext* vault, const QzbString& folderPath);
  // A new object whose file the caller writes afterwards.
  bool initNew(const QzbString& fileName, const QzbString& displayName, QzviVaultContext* vault,
               const QzbString& folderPath);

  // QzvObject.
  void release() override;
  QzbString getErrorMessage() override;
  bool setLockedStatus(bool lock) override;
  bool getLockedStatus(bool* locked) override;
  bool createVersion() override;
  int getHighestVersion() override;
  QzbString getVersionFileName(int version, QzbDate* date) override;
  bool rollbackVersion(int version) override;
  QzbString getName() override;
  QzbString getFileName(bool nameOnly) override;
  bool fileRename(const QzbString& newFileName) override;
  bool renameSelf(const QzbString& newName) override;
  bool moveSelf(const QzvFolder* destination) override;
  bool deleteSelf() override;
  QzvItemList* getAttrList() override;
  QzvAttribute* getAttribute(const QzbString& name) override;
  QzbString getFileExtension() override;
  QzvFolder* getParentFolder() override;
  bool setModifiedByUser(const QzbString& user) override;
  bool analyzeImpact(QzResourceResolver* resolver) override;
  bool refreshMetadata() override;

  // Hands what `file` (may be null) lists to the impact store as the
  // dependencies of `resource`, and stamps the analysis date. Always true;
  // failures are left in the error message.
  bool runAnalysis(QzvMetaDataFile* file, QzvImpactAnalysisImpl* analysis, QzResource* resource,
                   const QzbDate& fileDate);

  QzviVaultContext* vault() const { return vault_; }
  const QzbString& folderPath() const { return folderPath_; }
  void setErrorMessage(const QzbString& message) { errorMessage_ = message; }

 private:
  ~QzvObjectImpl() override;

  // Withdraws the object from the impact store before a rename, move or
  // delete; failures are recorded and logged but never stop the operation.
  void withdrawFromImpactAnalysis();

  QzbString folderPath_;
  QzbString fileName_;
  QzbString fullPath_;
  QzbString displayName_;
  QzviVaultContext* vault_;
  QzbString errorMessage_;
};

// The path of a version file after its object is renamed to `newFileName`, or
// a null string when `versionPath` is not a numbered version file.
QzbString replVerFile(const QzbString& versionPath, const QzbString& newFileName);
// The path of a version file after its object moves to `newDirectory`.
QzbString replVerPath(const QzbString& versionPath, const QzbString& newDirectory);

#endif  // QZVAULT_SRC_TREE_OBJECT_IMPL_H_
