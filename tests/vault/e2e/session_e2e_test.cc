// A host's session through the public interface only (qzvault/qzvault.h): a
// vault with the "qzvmdtestmeta" plug-ins, a tree three levels deep whose
// display names need converting, attributes of several rows on folders and
// objects, listings, renames, a move and a deletion. What the library wrote
// is then read back from the ".v_fmd" files with SQLite itself.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "qzvault/qzvault.h"
#include "support/temp_dir.h"

namespace {

using qztest::TempDir;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

// Library objects end with release().
struct Release {
  template <typename T>
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
template <typename T>
using Owned = std::unique_ptr<T, Release>;
template <typename T>
Owned<T> own(T* object) {
  return Owned<T>(object);
}

using Cell = std::optional<std::string>;
using Row = std::vector<Cell>;
using Rows = std::vector<Row>;

// Reads and releases a list.
Rows take(QzvItemList* list) {
  Rows rows;
  if (list == nullptr) return rows;
  while (list->next()) {
    Row row;
    for (int c = 0; c < list->getNumCols(); ++c) {
      const QzbString value = list->getValue(c);
      row.push_back(value.isNull() ? Cell() : Cell(value.toStdString()));
    }
    rows.push_back(row);
  }
  list->release();
  return rows;
}

// Rows of a query on a database file, read with SQLite itself.
Rows query(const std::string& database, const std::string& sql) {
  Rows rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << "cannot open " << database;
    sqlite3_close(db);
    return rows;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << sql << ": " << sqlite3_errmsg(db);
  } else {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      Row row;
      for (int c = 0; c < sqlite3_column_count(statement); ++c) {
        const unsigned char* text = sqlite3_column_text(statement, c);
        row.push_back(text == nullptr ? Cell() : Cell(reinterpret_cast<const char*>(text)));
      }
      rows.push_back(row);
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return rows;
}

std::string fmd(const std::string& directory) { return directory + "/.v_fmd"; }

// The folder's own rows of user attributes (not the reserved stamps).
Rows folderAttributes(const std::string& directory) {
  return query(fmd(directory),
               "SELECT attr, seq, v0, v1 FROM v_attr WHERE fname IS NULL AND attr NOT LIKE '\\_%' "
               "ESCAPE '\\' ORDER BY attr, seq");
}

Rows folderNameRow(const std::string& directory) {
  return query(fmd(directory), "SELECT name FROM v_object WHERE fname IS NULL");
}

std::string currentUser(const std::string& directory) {
  const Rows rows =
      query(fmd(directory), "SELECT v0 FROM v_attr WHERE fname IS NULL AND attr = '_CREATOR'");
  return rows.size() == 1 && rows[0][0].has_value() ? *rows[0][0] : std::string();
}

// Start-up and shut-down once for the program, as a host does.
class LibraryEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(qzVaultStartup(), 0);
    setVaultPluginPath((std::string(QZ_TEST_PLUGIN_ROOT) + "/meta").c_str());
  }
  void TearDown() override { qzVaultShutdown(); }
};
const ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new LibraryEnvironment());

class SessionTest : public ::testing::Test {
 protected:
  SessionTest() : vault_(own(createVaultInstance(dir_.path().c_str()))) {}

  TempDir dir_;
  Owned<QzvVault> vault_;
};

TEST_F(SessionTest, BuildListRenameMoveAndDeleteATree) {
  ASSERT_NE(vault_, nullptr) << getVaultCreateError();
  auto root = own(vault_->getRootFolder());
  ASSERT_NE(root, nullptr) << vault_->getErrorMessage().asCstr();

  // A tree three levels deep; every display name needs converting.
  auto finance = own(root->createFolder(S("Finance: 2024")));
  ASSERT_NE(finance, nullptr) << root->getErrorMessage().asCstr();
  auto plans = own(finance->createFolder(S("Q1/Q2 plans")));
  ASSERT_NE(plans, nullptr) << finance->getErrorMessage().asCstr();
  auto drafts = own(plans->createFolder(S(".drafts")));
  ASSERT_NE(drafts, nullptr) << plans->getErrorMessage().asCstr();
  const std::string financePath = dir_.join("Finance_ 2024");
  const std::string plansPath = financePath + "/Q1_Q2 plans";
  EXPECT_EQ(finance->getPath().toStdString(), financePath);
  EXPECT_EQ(plans->getPath().toStdString(), plansPath);
  EXPECT_EQ(drafts->getPath().toStdString(), plansPath + "/_drafts");
  EXPECT_EQ(finance->getName().toStdString(), "Finance: 2024");
  EXPECT_EQ(plans->getName().toStdString(), "Q1/Q2 plans");
  EXPECT_EQ(drafts->getName().toStdString(), ".drafts");
  EXPECT_EQ(take(finance->getFolderList()), (Rows{{"Q1/Q2 plans", plansPath}}));

  // Attributes of several rows on two folders.
  {
    auto reviewers = own(finance->getAttribute(S("Reviewers")));
    ASSERT_NE(reviewers, nullptr) << finance->getErrorMessage().asCstr();
    reviewers->setValue(0, 0, S("alice"));
    reviewers->setValue(1, 0, S("lead"));
    reviewers->setValue(0, 1, S("bob"));
    reviewers->setValue(1, 1, S("deputy"));
    ASSERT_TRUE(reviewers->commit()) << reviewers->getErrorMessage().asCstr();
    auto budget = own(plans->getAttribute(S("Budget")));
    ASSERT_NE(budget, nullptr);
    for (int row = 0; row < 3; ++row) budget->setValue(0, row, S(std::to_string(1000 * (row + 1))));
    ASSERT_TRUE(budget->commit()) << budget->getErrorMessage().asCstr();
  }
  {
    auto reviewers = own(finance->getAttribute(S("Reviewers")));
    ASSERT_NE(reviewers, nullptr);
    EXPECT_EQ(reviewers->numRows(), 2);
    EXPECT_EQ(reviewers->getValue(0, 1).toStdString(), "bob");
    EXPECT_EQ(reviewers->getValue(1, 1).toStdString(), "deputy");
  }
  Rows listed = take(finance->getAttrList());
  Rows userRows;
  bool hasCreator = false;
  for (const Row& row : listed) {
    ASSERT_EQ(row.size(), 12u);
    if (row[0] == Cell("_CREATOR")) hasCreator = true;
    if (row[0].has_value() && (*row[0])[0] != '_')
      userRows.push_back({row[0], row[1], row[2], row[3]});
  }
  EXPECT_TRUE(hasCreator);
  EXPECT_EQ(userRows,
            (Rows{{"Reviewers", "0", "alice", "lead"}, {"Reviewers", "1", "bob", "deputy"}}));

  // Objects: one adopted from a file the host wrote, whose plug-in keeps its
  // name and attributes in the file, and one registered before its file.
  QzbString fullPath;
  QzbString fileName;
  ASSERT_TRUE(plans->getFilenameForNewObject(S("Budget: draft"), S("tmeta"), &fullPath, &fileName))
      << plans->getErrorMessage().asCstr();
  EXPECT_EQ(fileName.toStdString(), "Budget_ draft.tmeta");
  qztest::writeFile(fullPath.toStdString(),
                    "attr Owner 0 0 carol\nattr Owner 1 0 dave\nattr Region 0 0 north\n");
  auto budgetObject = own(plans->createObjectFromFile(fileName, S("Budget: draft")));
  ASSERT_NE(budgetObject, nullptr) << plans->getErrorMessage().asCstr();
  EXPECT_EQ(budgetObject->getName().toStdString(), "Budget: draft");
  auto notes = own(plans->createObject(S("notes.txt"), S("Meeting notes")));
  ASSERT_NE(notes, nullptr) << plans->getErrorMessage().asCstr();
  qztest::writeFile(notes->getFileName(false).toStdString(), "minutes\n");

  const Rows owners = take(plans->getObjectAttrList(QzbString(), S("Owner")));
  ASSERT_EQ(owners.size(), 2u);
  EXPECT_EQ(owners[0][0], Cell("Budget_ draft.tmeta"));
  EXPECT_EQ(owners[0][1], Cell("Budget: draft"));
  EXPECT_EQ(owners[0][4], Cell("carol"));
  EXPECT_EQ(owners[1][3], Cell("1"));
  EXPECT_EQ(owners[1][4], Cell("dave"));
  const Rows objects = take(plans->getObjectList(false));
  std::vector<std::string> names;
  for (const Row& row : objects) names.push_back(row[0].value_or("<null>"));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"Budget: draft", "Meeting notes"}));

  // A display-name rename, a directory rename and a move.
  ASSERT_TRUE(plans->renameSelf(S("H1 plans"))) << plans->getErrorMessage().asCstr();
  EXPECT_EQ(plans->getName().toStdString(), "H1 plans");
  EXPECT_EQ(plans->getPath().toStdString(), plansPath);
  ASSERT_TRUE(drafts->fsRename(S("archive"))) << drafts->getErrorMessage().asCstr();
  EXPECT_EQ(drafts->getName().toStdString(), ".drafts");
  ASSERT_TRUE(drafts->moveSelf(finance.get())) << drafts->getErrorMessage().asCstr();
  const std::string archivePath = financePath + "/archive";
  EXPECT_EQ(drafts->getPath().toStdString(), archivePath);
  EXPECT_FALSE(qztest::pathExists(plansPath + "/_drafts"));
  EXPECT_FALSE(qztest::pathExists(plansPath + "/archive"));

  // A folder that holds objects is not deleted; an emptied one is.
  EXPECT_FALSE(plans->deleteSelf());
  EXPECT_EQ(plans->getErrorMessage().toStdString(), "Can't delete a non-empty folder");
  auto temp = own(finance->createFolder(S("Scratch")));
  ASSERT_NE(temp, nullptr);
  auto scratchChild = own(temp->createFolder(S("inner")));
  ASSERT_NE(scratchChild, nullptr);
  EXPECT_FALSE(temp->deleteSelf());
  ASSERT_TRUE(scratchChild->deleteSelf()) << scratchChild->getErrorMessage().asCstr();
  ASSERT_TRUE(temp->deleteSelf()) << temp->getErrorMessage().asCstr();
  EXPECT_FALSE(qztest::pathExists(financePath + "/Scratch"));

  // What the library wrote, read with SQLite itself.
  EXPECT_EQ(folderNameRow(financePath), (Rows{{"Finance: 2024"}}));
  EXPECT_EQ(folderAttributes(financePath),
            (Rows{{"Reviewers", "0", "alice", "lead"}, {"Reviewers", "1", "bob", "deputy"}}));
  EXPECT_EQ(folderNameRow(plansPath), (Rows{{"H1 plans"}}));
  EXPECT_EQ(folderAttributes(plansPath), (Rows{{"Budget", "0", "1000", std::nullopt},
                                               {"Budget", "1", "2000", std::nullopt},
                                               {"Budget", "2", "3000", std::nullopt}}));
  EXPECT_EQ(folderNameRow(archivePath), (Rows{{".drafts"}}));
  const std::string user = currentUser(archivePath);
  EXPECT_FALSE(user.empty());
  for (const std::string& path : {financePath, plansPath, archivePath}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(query(fmd(path),
                    "SELECT v0 FROM v_attr WHERE fname IS NULL AND attr IN "
                    "('_CREATOR', '_MODIFIEDUSER') ORDER BY attr"),
              (Rows{{user}, {user}}));
    EXPECT_EQ(query(fmd(path),
                    "SELECT count(*) FROM v_attr WHERE fname IS NULL AND attr = "
                    "'_MODIFIEDDATE'"),
              (Rows{{"1"}}));
  }
  // The object registered before its file has its name row; the adopted
  // one's name lives in its file.
  EXPECT_EQ(query(fmd(plansPath), "SELECT fname, name FROM v_object WHERE fname IS NOT NULL"),
            (Rows{{"notes.txt", "Meeting notes"}}));
  std::ifstream adopted(fullPath.toStdString());
  std::stringstream content;
  content << adopted.rdbuf();
  EXPECT_NE(content.str().find("name Budget: draft"), std::string::npos) << content.str();
}

TEST_F(SessionTest, StoredAttributesOfSeveralRowsOnAnObject) {
  ASSERT_NE(vault_, nullptr) << getVaultCreateError();
  auto root = own(vault_->getRootFolder());
  ASSERT_NE(root, nullptr);
  auto folder = own(root->createFolder(S("Jobs: nightly")));
  ASSERT_NE(folder, nullptr) << root->getErrorMessage().asCstr();
  auto job = own(folder->createObject(S("load.txt"), S("Nightly load")));
  ASSERT_NE(job, nullptr) << folder->getErrorMessage().asCstr();
  qztest::writeFile(job->getFileName(false).toStdString(), "load everything\n");

  auto steps = own(job->getAttribute(S("Steps")));
  if (steps == nullptr && job->getErrorMessage().toStdString() == "Not implemented yet") {
    GTEST_SKIP() << "objects do not hand out attributes in this build yet";
  }
  ASSERT_NE(steps, nullptr) << job->getErrorMessage().asCstr();
  steps->setValue(0, 0, S("extract"));
  steps->setValue(0, 1, S("transform"));
  steps->setValue(0, 2, S("load"));
  steps->setValue(1, 2, S("after midnight"));
  ASSERT_TRUE(steps->commit()) << steps->getErrorMessage().asCstr();

  const std::string path = dir_.join("Jobs_ nightly");
  const Rows listed = take(folder->getObjectAttrList(S("load.txt"), S("Steps")));
  ASSERT_EQ(listed.size(), 3u);
  EXPECT_EQ(listed[0][1], Cell("Nightly load"));
  EXPECT_EQ(listed[2][4], Cell("load"));
  EXPECT_EQ(listed[2][5], Cell("after midnight"));
  EXPECT_EQ(query(fmd(path),
                  "SELECT seq, v0, v1 FROM v_attr WHERE fname = 'load.txt' AND "
                  "attr = 'Steps' ORDER BY seq"),
            (Rows{{"0", "extract", std::nullopt},
                  {"1", "transform", std::nullopt},
                  {"2", "load", "after midnight"}}));
}

}  // namespace
