// Objects end to end, through the host interfaces only: a vault made by
// createVaultInstance over the "qzvmdtestmeta" plug-ins, a job and a report in
// two folders whose files name data files, a database, tables (one of them
// through a "%%NAME%%" configuration macro) and each other. Each object is
// analysed, the store is queried one step in both directions, and then the
// objects are renamed, moved and deleted; the impact store, the version files
// and the folders' ".v_fmd" rows (read with SQLite itself) must follow.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "qzvault/qzvault.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"
#include "vault_test_util.h"

namespace {

using qztest::Cell;
using qztest::own;
using qztest::Owned;
using qztest::Rows;
using qztest::S;
using qztest::TempDir;

using Identities = std::set<std::string>;

const char kOrdersTable[] = "db:postgresql/sales//public/orders";
const char kCustomersMacro[] = "db:postgresql/%%SALES_DSN%%//public/customers";
const char kCustomersTable[] = "db:postgresql/sales//public/customers";
const char kSalesDatabase[] = "db:postgresql/sales";

// "type identity" of every resource of a list (released).
Identities identities(QzResourceList* list) {
  Identities result;
  if (list == nullptr) return result;
  while (list->next()) {
    QzResource* resource = list->getValue(0);
    if (resource == nullptr) continue;
    result.insert(resource->getResourceType().toStdString() + " " +
                  resource->getResourceIdentity().toStdString());
  }
  list->release();
  return result;
}

class ObjectsEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    setVaultPluginPath(qztest::testMetaPluginDir().c_str());
    vault_ = own(createVaultInstance(dir_.path().c_str()));
    ASSERT_NE(vault_, nullptr) << getVaultCreateError();
    root_ = own(vault_->getRootFolder());
    ASSERT_NE(root_, nullptr) << vault_->getErrorMessage().asCstr();
    for (const char* name : {"Jobs", "Reports", "Archive"}) qztest::makeDirs(dir_.join(name));
    jobs_ = own(root_->getChildFolder(S("Jobs")));
    reports_ = own(root_->getChildFolder(S("Reports")));
    archive_ = own(root_->getChildFolder(S("Archive")));
    ASSERT_TRUE(jobs_ && reports_ && archive_) << root_->getErrorMessage().asCstr();
    jobsPath_ = jobs_->getPath().toStdString();
    reportsPath_ = reports_->getPath().toStdString();
    archivePath_ = archive_->getPath().toStdString();

    // The job reads a data file and the orders table, and names the sales
    // database; the report uses the same table, the customers table through
    // the macro, and the job itself.
    job_ = adopt(jobs_.get(), "load.job.def", "Nightly load",
                 "dep DataFile|orders.csv|/feeds/orders.csv\n"
                 "datadep postgresql|sales||public|orders\n"
                 "datadep postgresql|sales||public|\n");
    report_ = adopt(reports_.get(), "sales.rpt.def", "Sales report",
                    "datadep postgresql|sales||public|orders\n"
                    "datadep postgresql|%%SALES_DSN%%||public|customers\n"
                    "dep Job|load.job.def|" + jobsPath_ + "/load.job.def\n");
    notes_ = adopt(reports_.get(), "notes.txt", "Read me", "plain text");
    ASSERT_TRUE(job_ && report_ && notes_);
    analysis_ = own(vault_->getImpactAnalysis());
    ASSERT_NE(analysis_, nullptr);
  }
  void TearDown() override {
    analysis_.reset();
    job_.reset();
    report_.reset();
    notes_.reset();
    jobs_.reset();
    reports_.reset();
    archive_.reset();
    root_.reset();
    vault_.reset();
  }

  // Writes a file into `folder` and adopts it under `displayName`.
  Owned<QzvObject> adopt(QzvFolder* folder, const std::string& fileName,
                         const std::string& displayName, const std::string& content) {
    qztest::writeFile(folder->getPath().toStdString() + "/" + fileName, content);
    Owned<QzvObject> object = own(folder->createObjectFromFile(S(fileName), S(displayName)));
    EXPECT_NE(object, nullptr) << folder->getErrorMessage().asCstr();
    return object;
  }
  QzResource* stored(const std::string& type, const std::string& identity) {
    return analysis_->getResource(S(type), S(identity));
  }
  // Dependents / users of the stored resource (empty when it is not stored).
  Identities dependentsOf(const std::string& type, const std::string& identity) {
    Owned<QzResource> resource(stored(type, identity));
    if (!resource) return {};
    return identities(analysis_->getDependentResources(resource.get(), false));
  }
  Identities usersOf(const std::string& type, const std::string& identity) {
    Owned<QzResource> resource(stored(type, identity));
    if (!resource) return {};
    return identities(analysis_->getUsedByResources(resource.get(), false));
  }
  bool isStored(const std::string& type, const std::string& identity) {
    Owned<QzResource> resource(stored(type, identity));
    return resource != nullptr;
  }
  std::string jobPath() const { return jobsPath_ + "/load.job.def"; }
  std::string reportPath() const { return reportsPath_ + "/sales.rpt.def"; }
  Rows attrNames(const std::string& folder, const std::string& fileName) {
    return qztest::query(folder + "/.v_fmd", "SELECT DISTINCT attr FROM v_attr WHERE fname = " +
                                                 qztest::sqlText(fileName) + " ORDER BY attr");
  }
  Rows nameRows(const std::string& folder, const std::string& fileName) {
    return qztest::query(folder + "/.v_fmd",
                         "SELECT name FROM v_object WHERE fname = " + qztest::sqlText(fileName));
  }

  TempDir dir_;
  qztest::ScopedOption dsn_{"SALES_DSN", "sales"};
  Owned<QzvVault> vault_;
  Owned<QzvFolder> root_, jobs_, reports_, archive_;
  std::string jobsPath_, reportsPath_, archivePath_;
  Owned<QzvObject> job_, report_, notes_;
  Owned<QzvImpactAnalysis> analysis_;
};

TEST_F(ObjectsEndToEnd, AnalysisRecordsWhatEachFileUsesAndBothDirectionsCanBeAsked) {
  ASSERT_TRUE(job_->analyzeImpact(nullptr)) << job_->getErrorMessage().asCstr();
  ASSERT_TRUE(report_->analyzeImpact(nullptr)) << report_->getErrorMessage().asCstr();
  ASSERT_TRUE(notes_->analyzeImpact(nullptr)) << notes_->getErrorMessage().asCstr();

  // What each object's file named.
  EXPECT_EQ(dependentsOf("Job", jobPath()),
            (Identities{"DataFile /feeds/orders.csv", std::string("Table ") + kOrdersTable,
                        std::string("Database ") + kSalesDatabase}));
  EXPECT_EQ(dependentsOf("Report", reportPath()),
            (Identities{std::string("Table ") + kOrdersTable,
                        std::string("Table ") + kCustomersMacro, "Job " + jobPath()}));
  // The other direction: who named the shared table, the data file and the job.
  EXPECT_EQ(usersOf("Table", kOrdersTable),
            (Identities{"Job " + jobPath(), "Report " + reportPath()}));
  EXPECT_EQ(usersOf("DataFile", "/feeds/orders.csv"), (Identities{"Job " + jobPath()}));
  EXPECT_EQ(usersOf("Job", jobPath()), (Identities{"Report " + reportPath()}));
  // The macro table leads to the table it names under the configuration.
  EXPECT_EQ(dependentsOf("Table", kCustomersMacro),
            (Identities{std::string("Table ") + kCustomersTable}));
  // A plain file is recorded (with the type of its extension) as analysed,
  // using nothing.
  const std::string notesPath = reportsPath_ + "/notes.txt";
  Owned<QzResource> notes(stored("DataFile", notesPath));
  ASSERT_NE(notes, nullptr) << analysis_->getErrorMessage().asCstr();
  EXPECT_NE(notes->getAnalysisDate().asDouble(), 0.0);
  EXPECT_TRUE(dependentsOf("DataFile", notesPath).empty());
}

TEST_F(ObjectsEndToEnd, RenameMoveAndDeleteCarryTheStoreVersionsAndMetadataAlong) {
  ASSERT_TRUE(job_->analyzeImpact(nullptr));
  ASSERT_TRUE(report_->analyzeImpact(nullptr));
  ASSERT_TRUE(notes_->analyzeImpact(nullptr));

  // Versions of the job and the notes.
  ASSERT_TRUE(job_->createVersion()) << job_->getErrorMessage().asCstr();
  qztest::writeFile(jobPath(), "dep DataFile|stock.csv|/feeds/stock.csv\n");
  ASSERT_TRUE(notes_->createVersion());
  qztest::writeFile(reportsPath_ + "/notes.txt", "second text");
  ASSERT_TRUE(notes_->createVersion());
  qztest::writeFile(reportsPath_ + "/notes.txt", "third text");

  // Rename the job's file. Its own dependencies are withdrawn; the resource
  // stays while the report still names it, and the rename goes on regardless.
  ASSERT_TRUE(job_->fileRename(S("load2.job.def"))) << job_->getErrorMessage().asCstr();
  EXPECT_EQ(job_->getErrorMessage().toStdString(),
            "The resource could not be deleted.  It is still a dependency.");
  EXPECT_TRUE(dependentsOf("Job", jobPath()).empty());
  EXPECT_EQ(usersOf("Job", jobPath()), (Identities{"Report " + reportPath()}));
  const std::string renamedJob = jobsPath_ + "/load2.job.def";
  EXPECT_EQ(job_->getFileName(false).toStdString(), renamedJob);
  EXPECT_EQ(job_->getName().toStdString(), "Nightly load");
  EXPECT_TRUE(qztest::pathExists(jobsPath_ + "/.v_ver/load2.job.def.1"));
  EXPECT_FALSE(qztest::pathExists(jobsPath_ + "/.v_ver/load.job.def.1"));
  EXPECT_EQ(job_->getHighestVersion(), 1);
  EXPECT_EQ(attrNames(jobsPath_, "load2.job.def"),
            (Rows{{Cell("_CREATOR")}, {Cell("_MODIFIEDUSER")}}));
  EXPECT_TRUE(attrNames(jobsPath_, "load.job.def").empty());
  // Analysed afresh under the new name, from the new content.
  ASSERT_TRUE(job_->analyzeImpact(nullptr));
  EXPECT_EQ(dependentsOf("Job", renamedJob), (Identities{"DataFile /feeds/stock.csv"}));

  // Move the report and the notes into the archive.
  ASSERT_TRUE(report_->moveSelf(archive_.get())) << report_->getErrorMessage().asCstr();
  ASSERT_TRUE(notes_->moveSelf(archive_.get())) << notes_->getErrorMessage().asCstr();
  EXPECT_FALSE(isStored("Report", reportPath()));
  // With the report gone nothing uses the old job resource or the tables
  // only the report named: the clean-up removed them.
  EXPECT_FALSE(isStored("Job", jobPath()));
  EXPECT_FALSE(isStored("Table", kCustomersMacro));
  EXPECT_EQ(qztest::readFile(archivePath_ + "/notes.txt"), "third text");
  EXPECT_EQ(qztest::readFile(archivePath_ + "/.v_ver/notes.txt.1"), "plain text");
  EXPECT_EQ(qztest::readFile(archivePath_ + "/.v_ver/notes.txt.2"), "second text");
  EXPECT_FALSE(qztest::pathExists(reportsPath_ + "/.v_ver/notes.txt.1"));
  EXPECT_EQ(nameRows(archivePath_, "notes.txt"), (Rows{{Cell("Read me")}}));
  EXPECT_TRUE(nameRows(reportsPath_, "notes.txt").empty());
  EXPECT_EQ(attrNames(archivePath_, "sales.rpt.def"),
            (Rows{{Cell("_CREATOR")}, {Cell("_MODIFIEDUSER")}}));
  EXPECT_TRUE(attrNames(reportsPath_, "sales.rpt.def").empty());
  // Obtained afresh from the archive, the moved objects analyse there.
  Owned<QzvObject> report = own(archive_->getChildObject(S(archivePath_ + "/sales.rpt.def")));
  ASSERT_NE(report, nullptr) << archive_->getErrorMessage().asCstr();
  EXPECT_EQ(report->getName().toStdString(), "Sales report");  // kept in the file
  ASSERT_TRUE(report->analyzeImpact(nullptr));
  EXPECT_EQ(usersOf("Table", kOrdersTable),
            (Identities{"Report " + archivePath_ + "/sales.rpt.def"}));
  Owned<QzvObject> notes = own(archive_->getChildObject(S(archivePath_ + "/notes.txt")));
  ASSERT_NE(notes, nullptr);
  EXPECT_EQ(notes->getName().toStdString(), "Read me");
  EXPECT_EQ(notes->getHighestVersion(), 2);

  // Delete the job: its file, rows, versions and resources go.
  ASSERT_TRUE(job_->deleteSelf()) << job_->getErrorMessage().asCstr();
  EXPECT_FALSE(qztest::pathExists(renamedJob));
  EXPECT_FALSE(qztest::pathExists(jobsPath_ + "/.v_ver/load2.job.def.1"));
  EXPECT_TRUE(attrNames(jobsPath_, "load2.job.def").empty());
  EXPECT_FALSE(isStored("Job", renamedJob));
  EXPECT_FALSE(isStored("DataFile", "/feeds/stock.csv"));
  EXPECT_TRUE(isStored("Table", kOrdersTable));  // still named by the report
  Owned<QzvItemList> left = own(jobs_->getObjectList(false));
  ASSERT_NE(left, nullptr);
  EXPECT_TRUE(qztest::readList(left.get()).empty());
}

}  // namespace
