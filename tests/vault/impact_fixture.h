// Shared pieces of the impact-analysis tests: a vault over a temporary
// directory with an analysis object, direct SQLite access to its ".v_imd" for
// checking what was written, and small fakes of the host's interfaces (a
// resolver, an object, a metadata plug-in).
#ifndef QZ_TESTS_VAULT_IMPACT_FIXTURE_H_
#define QZ_TESTS_VAULT_IMPACT_FIXTURE_H_

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "qzvault/object.h"
#include "qzvault/plugin.h"
#include "impact_analysis_impl.h"
#include "plugin_registry.h"
#include "resource_impl.h"
#include "support/temp_dir.h"
#include "vault_impl.h"

namespace qztest {

inline std::string str(const QzbString& text) { return text.toStdString(); }

// Sets a configuration key for a scope and removes it afterwards.
class ConfigKey {
 public:
  ConfigKey(const char* key, const char* value) : key_(key) {
    qzbGetConfigOptions(nullptr)->setOption(key_, QzbString(value));
  }
  ~ConfigKey() { qzbGetConfigOptions(nullptr)->removeOption(key_); }
  ConfigKey(const ConfigKey&) = delete;
  ConfigKey& operator=(const ConfigKey&) = delete;

 private:
  QzbString key_;
};

// Ends anything with release().
struct Releaser {
  template <typename T>
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
using ResourcePtr = std::unique_ptr<QzResource, Releaser>;
using ResourceListPtr = std::unique_ptr<QzResourceList, Releaser>;
using StringListPtr = std::unique_ptr<QzStringList, Releaser>;

// The identities of a list's rows, read from its start. The list stays the
// caller's.
inline std::vector<std::string> identitiesOf(QzResourceList* list) {
  std::vector<std::string> identities;
  if (list == nullptr) return identities;
  list->reset();
  while (list->next()) {
    QzResource* resource = list->getValue(0);
    identities.push_back(resource != nullptr ? str(resource->getResourceIdentity()) : "<null>");
  }
  list->reset();
  return identities;
}

// A resolver whose answers a test sets; it records what it was asked.
class FakeResolver final : public QzResourceResolver {
 public:
  bool answer = true;
  std::string newName;
  std::string location;
  int calls = 0;
  std::string lastIdentity;
  // Resources handed out for URIs: the identity of a resource to return, or
  // empty for none.
  std::string uriAnswerIdentity;
  std::string lastUri;

  bool resolveResource(const QzbString& /*name*/, const QzbString& identity,
                       const QzbString& /*type*/, QzbString* outName,
                       QzbString* outLocation) override {
    ++calls;
    lastIdentity = str(identity);
    if (!newName.empty()) *outName = QzbString(newName.c_str());
    if (!location.empty()) *outLocation = QzbString(location.c_str());
    return answer;
  }
  QzResource* getResourceForURI(const QzbString& uri) override {
    lastUri = str(uri);
    if (uriAnswerIdentity.empty()) return nullptr;
    QzvResourceImpl* resource = new QzvResourceImpl();
    resource->setResourceIdentity(QzbString(uriAnswerIdentity.c_str()));
    resource->setResourceType(QzbString("URI", true));
    resource->setName(QzbString("from resolver", true));
    return resource;
  }
};

// A vault object reduced to its path: only getFileName(false) answers.
class FakeObject final : public QzvObject {
 public:
  explicit FakeObject(std::string path) : path_(std::move(path)) {}
  ~FakeObject() override = default;

  void release() override {}
  QzbString getErrorMessage() override { return QzbString(); }
  bool setLockedStatus(bool) override { return false; }
  bool getLockedStatus(bool*) override { return false; }
  bool createVersion() override { return false; }
  int getHighestVersion() override { return -1; }
  QzbString getVersionFileName(int, QzbDate*) override { return QzbString(); }
  bool rollbackVersion(int) override { return false; }
  QzbString getName() override { return QzbString(); }
  QzbString getFileName(bool nameOnly) override {
    return nameOnly ? QzbString() : QzbString(path_.c_str());
  }
  bool fileRename(const QzbString&) override { return false; }
  bool renameSelf(const QzbString&) override { return false; }
  bool moveSelf(const QzvFolder*) override { return false; }
  bool deleteSelf() override { return false; }
  QzvItemList* getAttrList() override { return nullptr; }
  QzvAttribute* getAttribute(const QzbString&) override { return nullptr; }
  QzbString getFileExtension() override { return QzbString(); }
  QzvFolder* getParentFolder() override { return nullptr; }
  bool setModifiedByUser(const QzbString&) override { return false; }
  bool analyzeImpact(QzResourceResolver*) override { return false; }
  bool refreshMetadata() override { return false; }

 private:
  std::string path_;
};

// A plug-in that claims files ending in `suffix`, names them "plugin:" + the
// path it is given, and reports the resource type "Job".
class FakePlugin final : public QzvMetaDataPlugin {
 public:
  explicit FakePlugin(std::string suffix) : suffix_(std::move(suffix)) {}
  ~FakePlugin() override = default;

  std::string lastIdentityPath;

  QzbString getDescription() override { return QzbString("fake", true); }
  void release() override {}
  QzbString getTypeName() override { return QzbString("fake", true); }
  bool canHandle(const QzbString& path) override { return path.endsWith(suffix_.c_str()); }
  QzvMetaDataFile* openFile(const QzbString&) override { return nullptr; }
  QzbString getResourceIdentity(const QzbString& path) override {
    lastIdentityPath = str(path);
    QzbString identity("plugin:", true);
    identity.append(path);
    return identity;
  }
  QzbString getResourceType() override { return QzbString("Job", true); }

 private:
  std::string suffix_;
};

// Runs SQL on a vault's ".v_imd" through a connection of its own.
class RawStore {
 public:
  explicit RawStore(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
      ADD_FAILURE() << "cannot open " << path;
      sqlite3_close(db_);
      db_ = nullptr;
    }
  }
  ~RawStore() {
    if (db_ != nullptr) sqlite3_close(db_);
  }
  RawStore(const RawStore&) = delete;
  RawStore& operator=(const RawStore&) = delete;

  sqlite3* handle() const { return db_; }
  bool exec(const std::string& sql) {
    char* message = nullptr;
    int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
      lastError_ = message != nullptr ? message : "";
      sqlite3_free(message);
    }
    return rc == SQLITE_OK;
  }
  // Column 0 of the first row as an integer (-1 when there is no row).
  long long scalar(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    long long value = -1;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      value = sqlite3_column_int64(statement, 0);
    }
    sqlite3_finalize(statement);
    return value;
  }
  // Every row as its columns joined by "|" (NULL written "NULL").
  std::vector<std::string> rows(const std::string& sql) {
    std::vector<std::string> result;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
      ADD_FAILURE() << sqlite3_errmsg(db_) << " in " << sql;
      return result;
    }
    while (sqlite3_step(statement) == SQLITE_ROW) {
      std::string row;
      for (int column = 0; column < sqlite3_column_count(statement); ++column) {
        if (column > 0) row += "|";
        const unsigned char* text = sqlite3_column_text(statement, column);
        row += text != nullptr ? reinterpret_cast<const char*>(text) : "NULL";
      }
      result.push_back(row);
    }
    sqlite3_finalize(statement);
    return result;
  }
  const std::string& lastError() const { return lastError_; }

 private:
  sqlite3* db_ = nullptr;
  std::string lastError_;
};

// A vault over a temporary directory with one analysis object. SQLite's own
// busy wait is switched off so that nothing in these tests waits on a lock
// unless a test means it to, and the in-memory bypass is off.
class ImpactTest : public ::testing::Test {
 protected:
  ImpactTest()
      : busyTimeout_("BASE/SQLITE_BUSY_TIMEOUT_MS", "0"),
        vault_(new QzvVaultImpl(QzbString(dir_.path().c_str()), &registry_,
                                QzbString("plugin-dir", true))),
        analysis_(new QzvImpactAnalysisImpl(vault_)) {
    qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS", true));
  }
  ~ImpactTest() override {
    analysis_->release();
    vault_->release();
  }

  std::string storePath() const { return dir_.join(".v_imd"); }
  // Makes the library create ".v_imd" (a look-up that finds nothing), for
  // tests that write rows into it directly.
  void createStore() {
    QzResource* none = analysis_->getResource(QzbString("none", true), QzbString("none", true));
    EXPECT_EQ(none, nullptr);
    ASSERT_TRUE(pathExists(storePath()));
  }

  // A stored resource (created when absent); the test fails when it cannot be.
  ResourcePtr make(const char* name, const char* type, const char* identity) {
    ResourcePtr resource(analysis_->createResource(QzbString(name), QzbString(type),
                                                   QzbString(identity)));
    EXPECT_NE(resource, nullptr) << str(analysis_->getErrorMessage());
    return resource;
  }
  // A new list holding copies of `resources`.
  ResourceListPtr listOf(std::initializer_list<QzResource*> resources) {
    ResourceListPtr list(analysis_->createResourceList());
    for (QzResource* resource : resources) {
      list->addRow();
      list->setLastRowElement(0, resource);
    }
    return list;
  }
  // The recorded edges as "res_id>res_used" texts of identities, in row order.
  std::vector<std::string> edges() {
    RawStore raw(storePath());
    return raw.rows(
        "SELECT a.res_idty || '>' || b.res_idty FROM v_impadeps d "
        "LEFT JOIN v_imparcs a ON a.id = d.res_id LEFT JOIN v_imparcs b ON b.id = d.res_used "
        "ORDER BY d.rowid");
  }
  long long count(const std::string& table) {
    RawStore raw(storePath());
    return raw.scalar("SELECT COUNT(*) FROM " + table);
  }

  TempDir dir_;
  ConfigKey busyTimeout_;
  QzviPluginRegistry registry_;
  QzvVaultImpl* vault_;
  QzvImpactAnalysisImpl* analysis_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_IMPACT_FIXTURE_H_
