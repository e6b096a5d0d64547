// The value classes of the lineage store: resources, the lists they are handed
// out in, and the factory through which plug-ins create resources while a
// file is analysed.
#ifndef QZVAULT_SRC_IMPACT_RESOURCE_IMPL_H_
#define QZVAULT_SRC_IMPACT_RESOURCE_IMPL_H_

#include <cstddef>
#include <vector>

#include "qzbase/date.h"
#include "qzbase/string.h"
#include "qzvault/resource.h"

class QzvImpactAnalysisImpl;
class QzvResourcePropertyListImpl;

class QzvResourceImpl final : public QzResource {
 public:
  QzvResourceImpl();

  void release() override;
  QzbString getId() override;
  QzbString getName() override;
  QzbString getResourceType() override;
  QzbString getResourceIdentity() override;
  int getDependencyType() override;
  QzResourcePropertyList* getProperties() override;
  QzbDate getAnalysisDate() override;
  QzbString getResourceLocation() override;
  bool IsResolved() override;
  bool IsResourceIdentityMacroValue() override;

  void setId(const QzbString& id) { id_ = id; }
  void setName(const QzbString& name) { name_ = name; }
  void setResourceType(const QzbString& type) { type_ = type; }
  void setResourceIdentity(const QzbString& identity) { identity_ = identity; }
  void setAnalysisDate(const QzbDate& date) { analysisDate_ = date; }
  void setResourceLocation(const QzbString& location) { location_ = location; }
  void setResolved(bool resolved) { resolved_ = resolved; }
  void setMacroIdentity(bool macro) { macroIdentity_ = macro; }
  // Copies id, analysis date, name, identity, type, location and the two flags
  // from any resource, through its accessors.
  void copyFrom(QzResource* source);

 private:
  ~QzvResourceImpl() override;

  QzbString type_;
  QzbString identity_;
  QzbString location_;
  QzbString name_;
  QzbString id_;
  QzbDate analysisDate_;
  int dependencyType_;
  bool resolved_;
  bool macroIdentity_;
};

class QzvResourceListImpl final : public QzResourceList {
 public:
  QzvResourceListImpl();

  bool next() override;
  QzResource* getValue(int column = 0) override;
  void release() override;
  bool addRow() override;
  void setLastRowElement(int column, QzResource* resource) override;
  bool contains(QzResource* resource) override;
  bool reset() override;

  // Copies every row of `source` (reset first); ends before its first row.
  bool copyList(QzResourceList* source);
  std::size_t rowCount() const { return rows_.size(); }

 private:
  ~QzvResourceListImpl();

  unsigned columns_;
  bool started_;
  std::vector<QzvResourceImpl*> rows_;  // one resource per row, owned
  std::size_t current_;
};

class QzvResourcePropertyListImpl final : public QzResourcePropertyList {
 public:
  QzvResourcePropertyListImpl();
  ~QzvResourcePropertyListImpl() override;

  bool next() override;
  QzbString getKey() override;
  QzbString getValue() override;
  void release() override;
  bool addRow() override;
  void setLastRow(const QzbString& key, const QzbString& value) override;

  bool copyList(QzResourcePropertyList* source);

 private:
  struct Element {
    QzbString key;
    QzbString value;
  };
  bool started_;
  std::vector<Element> elements_;
  std::size_t current_;
};

class QzStringListImpl final : public QzStringList {
 public:
  QzStringListImpl();  // 0 columns
  explicit QzStringListImpl(int columns);
  ~QzStringListImpl() override;

  bool next() override;
  int getNumCols() override;
  QzbString getValue(int column) override;
  QzbString getValue() override;
  void release() override;
  int length() override;

  bool addRow();
  void setLastRowElement(int column, const QzbString& value);
  bool copyList(QzStringList* source);

 private:
  unsigned columns_;
  bool started_;
  // Each row has room for max(columns, 1) strings, so that element 0 can be set
  // on a list of 0 columns.
  std::vector<std::vector<QzbString>> rows_;
  std::size_t current_;
};

class QzvResourceFactoryImpl final : public QzResourceFactory {
 public:
  // `analysis` is not owned.
  QzvResourceFactoryImpl(QzvImpactAnalysisImpl* analysis, const QzbString& pluginPath);
  ~QzvResourceFactoryImpl() override;

  void release() override;
  QzbString getErrorMessage() override;
  QzResource* getResource(const QzbString& name, const QzbString& type,
                          const QzbString& identity) override;
  QzbString getPluginPath() override;
  void registerResourceResolver(QzResourceResolver* resolver) override;
  QzResourceResolver* getResourceResolver() override;
  QzResource* getDataResource(QzDataURI* uri) override;

 private:
  QzvImpactAnalysisImpl* analysis_;
  QzbString pluginPath_;
  QzbString errorMessage_;
};

#endif  // QZVAULT_SRC_IMPACT_RESOURCE_IMPL_H_
