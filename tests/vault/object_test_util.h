// Helpers shared by the tests of an object's versions, locks, attributes,
// renames, moves, deletion and analysis: a vault over a temporary directory
// (optionally with the "qzvmdtestmeta" plug-ins), objects opened the way a
// folder opens them, and readers of the rows the library wrote, taken with
// SQLite itself.
#ifndef QZ_TESTS_VAULT_OBJECT_TEST_UTIL_H_
#define QZ_TESTS_VAULT_OBJECT_TEST_UTIL_H_

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "time_util.h"
#include "vault_test_util.h"

namespace qztest {

inline std::string currentUser() { return getCurrentUserName().toStdString(); }

// The object for an existing file, as QzvFolder::getChildObject makes it;
// null (with a test failure) when init fails.
inline Owned<QzvObjectImpl> openObject(QzvVaultImpl* vault, const std::string& path) {
  Owned<QzvObjectImpl> object(new QzvObjectImpl());
  if (!object->init(S(path), vault)) {
    ADD_FAILURE() << "init " << path << ": " << object->getErrorMessage().asCstr();
    return nullptr;
  }
  return object;
}

// The names in a directory, sorted; empty when it does not exist.
inline std::vector<std::string> listDirectory(const std::string& path) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// A folder (the vault's root) with a fixed-metadata database, and helpers to
// put files and rows into it. With `withPlugins` the vault has the test
// plug-ins (*.tmeta, *.job.def, *.rpt.def).
class ObjectTest : public ::testing::Test {
 protected:
  explicit ObjectTest(bool withPlugins = false)
      : plugins_(withPlugins ? new TestMetaRegistry() : nullptr),
        vault_(dir_.path(), plugins_ ? plugins_->get() : nullptr) {}

  // Writes `content` into the folder's file `fileName`; returns its path.
  std::string add(const std::string& fileName, const std::string& content = "content") {
    writeFile(dir_.join(fileName), content);
    return dir_.join(fileName);
  }
  // The folder's ".v_fmd" (made with its schema when missing).
  std::string fmd() { return fixedDb(vault_.get(), dir_.path()); }
  std::string fmdOf(const std::string& directory) { return fixedDb(vault_.get(), directory); }
  // Adds a name row and an attribute row to ".v_fmd".
  void addNameRow(const std::string& fileName, const std::string& displayName) {
    execute(fmd(), "INSERT INTO v_object (fname, name) VALUES (" + sqlText(fileName) + ", " +
                       sqlText(displayName) + ")");
  }
  void addAttrRow(const std::string& fileName, const std::string& attribute, int seq,
                  const std::string& v0, const std::string& v9 = "") {
    execute(fmd(), "INSERT INTO v_attr (fname, attr, seq, v0, v9) VALUES (" + sqlText(fileName) +
                       ", " + sqlText(attribute) + ", " + std::to_string(seq) + ", " +
                       sqlText(v0) + ", " + (v9.empty() ? "NULL" : sqlText(v9)) + ")");
  }
  // (attr, seq, v0) of the file's rows in `database`, by attr and seq.
  Rows attrRows(const std::string& database, const std::string& fileName) {
    return query(database, "SELECT attr, seq, v0 FROM v_attr WHERE fname = " + sqlText(fileName) +
                               " ORDER BY attr, seq");
  }
  Rows nameRows(const std::string& database, const std::string& fileName) {
    return query(database, "SELECT name FROM v_object WHERE fname = " + sqlText(fileName));
  }
  Owned<QzvObjectImpl> open(const std::string& fileName) {
    return openObject(vault_.get(), dir_.join(fileName));
  }
  std::string versionDir() const { return dir_.join(".v_ver"); }
  // Writes version `number` of `fileName`, making ".v_ver" when needed.
  void writeVersion(const std::string& fileName, int number, const std::string& content) {
    makeDirs(versionDir());
    writeFile(version(fileName, number), content);
  }
  std::string version(const std::string& fileName, int number) const {
    return versionDir() + "/" + fileName + "." + std::to_string(number);
  }

  TempDir dir_;
  std::unique_ptr<TestMetaRegistry> plugins_;
  ScopedVault vault_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_OBJECT_TEST_UTIL_H_
