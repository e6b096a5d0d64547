// The "qzvmdtestmeta" test plug-in that other tests build on: its file format
// and every operation of its plug-ins and files.
#include <dirent.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/uri.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"
#include "test_meta_plugin.h"

namespace {

using qztest::TempDir;

QzbString S(const std::string& text) { return QzbString::fromStdString(text); }

// ---------------------------------------------------------------------------
// Resources, a list and a factory just rich enough for listDependencies.

class FakeResource final : public QzResource {
 public:
  FakeResource(std::string name, std::string type, std::string identity, int* live)
      : name_(std::move(name)), type_(std::move(type)), identity_(std::move(identity)), live_(live) {
    if (live_ != nullptr) ++*live_;
  }
  void release() override {
    if (live_ != nullptr) --*live_;
    delete this;
  }
  QzbString getId() override { return S("0"); }
  QzbString getName() override { return S(name_); }
  QzbString getResourceType() override { return S(type_); }
  QzbString getResourceIdentity() override { return S(identity_); }
  int getDependencyType() override { return 0; }
  QzResourcePropertyList* getProperties() override { return nullptr; }
  QzbDate getAnalysisDate() override { return QzbDate(0.0); }
  QzbString getResourceLocation() override { return S(""); }
  bool IsResolved() override { return true; }
  bool IsResourceIdentityMacroValue() override { return identity_.find("%%") != std::string::npos; }

 private:
  std::string name_, type_, identity_;
  int* live_;
};

struct Row {
  std::string name, type, identity;
};

class FakeList final : public QzResourceList {
 public:
  bool next() override { return ++position_ < static_cast<int>(rows.size()); }
  QzResource* getValue(int) override { return nullptr; }
  void release() override {}
  bool addRow() override {
    if (refuseRows) return false;
    rows.push_back(Row());
    return true;
  }
  void setLastRowElement(int, QzResource* resource) override {
    rows.back() = Row{resource->getName().toStdString(), resource->getResourceType().toStdString(),
                      resource->getResourceIdentity().toStdString()};
  }
  bool contains(QzResource*) override { return false; }
  bool reset() override {
    position_ = -1;
    return true;
  }
  std::vector<Row> rows;
  bool refuseRows = false;

 private:
  int position_ = -1;
};

class FakeFactory final : public QzResourceFactory {
 public:
  void release() override {}
  QzbString getErrorMessage() override { return S(""); }
  QzResource* getResource(const QzbString& name, const QzbString& type,
                          const QzbString& identity) override {
    if (failAll) return nullptr;
    return new FakeResource(name.toStdString(), type.toStdString(), identity.toStdString(), &live);
  }
  QzbString getPluginPath() override { return S(""); }
  void registerResourceResolver(QzResourceResolver*) override {}
  QzResourceResolver* getResourceResolver() override { return nullptr; }
  QzResource* getDataResource(QzDataURI* uri) override {
    if (failAll || uri == nullptr) return nullptr;
    QzResourceManager* manager = createQzResourceManager();
    QzbString identity;
    const bool table = !uri->getTablePart().isEmpty();
    const bool made =
        table ? manager->makeTableIdentity(uri->getPart(0), uri->getPart(1), uri->getPart(2),
                                           uri->getPart(3), uri->getTablePart(), &identity)
              : manager->makeDatabaseIdentity(uri->getPart(0), uri->getPart(1), &identity);
    manager->release();
    if (!made) return nullptr;
    return new FakeResource(uri->getTablePart().toStdString(), table ? "Table" : "Database",
                            identity.toStdString(), &live);
  }
  int live = 0;  // resources handed out and not yet released
  bool failAll = false;
};

// Releases a metadata file at the end of a scope.
struct FileCloser {
  void operator()(QzvMetaDataFile* file) const {
    if (file != nullptr) file->release();
  }
};
using FilePtr = std::unique_ptr<QzvMetaDataFile, FileCloser>;

// The names in `directory` that begin with ".".
std::vector<std::string> dotNames(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && name[0] == '.') names.push_back(name);
  }
  closedir(dir);
  return names;
}

class TestMetaPluginTest : public ::testing::Test {
 protected:
  FilePtr open(const std::string& name, const std::string& content) {
    qztest::writeFile(dir_.join(name), content);
    return FilePtr(plugins_.plugin(0)->openFile(S(dir_.join(name))));
  }
  FilePtr reopen(const std::string& name) {
    return FilePtr(plugins_.plugin(0)->openFile(S(dir_.join(name))));
  }

  TempDir dir_;
  qztest::TestMetaRegistry plugins_;
};

TEST_F(TestMetaPluginTest, ThreePluginsByExtension) {
  ASSERT_EQ(plugins_.get()->count, 3);
  EXPECT_EQ(plugins_.plugin(0)->getTypeName().toStdString(), "TestMeta");
  EXPECT_EQ(plugins_.plugin(1)->getTypeName().toStdString(), "TestJob");
  EXPECT_EQ(plugins_.plugin(2)->getTypeName().toStdString(), "TestReport");
  EXPECT_EQ(plugins_.plugin(0)->getResourceType().toStdString(), "TestMeta");
  EXPECT_EQ(plugins_.plugin(1)->getResourceType().toStdString(), "Job");
  EXPECT_EQ(plugins_.plugin(2)->getResourceType().toStdString(), "Report");
  EXPECT_EQ(plugins_.plugin(1)->getDescription().toStdString(), "Test metadata files 1.0 (TestJob)");

  EXPECT_TRUE(plugins_.plugin(0)->canHandle(S("/v/a.tmeta")));
  EXPECT_TRUE(plugins_.plugin(0)->canHandle(S("/v/A.TMETA")));
  EXPECT_FALSE(plugins_.plugin(0)->canHandle(S("/v/a.tmeta.txt")));
  EXPECT_TRUE(plugins_.plugin(1)->canHandle(S("/v/load.Job.Def")));
  EXPECT_FALSE(plugins_.plugin(1)->canHandle(S("/v/load.rpt.def")));
  EXPECT_TRUE(plugins_.plugin(2)->canHandle(S("/v/sales.rpt.def")));
  EXPECT_FALSE(plugins_.plugin(2)->canHandle(S("/v/sales.txt")));
  EXPECT_EQ(plugins_.plugin(0)->getResourceIdentity(S("/v/a.tmeta")).toStdString(), "/v/a.tmeta");
}

TEST_F(TestMetaPluginTest, NameAndAttributes) {
  FilePtr file = open("a.tmeta",
                      "# a comment\n"
                      "name Daily sales load\n"
                      "attr Owner 0 0 alice\n"
                      "attr Steps 1 2 load it \n"
                      "attr Steps 0 0\n"
                      "readonly Owner\n");
  ASSERT_TRUE(file);
  EXPECT_EQ(file->getPath().toStdString(), dir_.join("a.tmeta"));
  QzbString name;
  int flags = -1;
  ASSERT_TRUE(file->getDisplayName(&name, &flags));
  EXPECT_EQ(name.toStdString(), "Daily sales load");
  EXPECT_EQ(flags, 0);

  ASSERT_EQ(file->getAttributeCount(), 2);
  int rows = -1, columns = -1, readOnly = -1;
  QzbString attribute;
  file->getAttributeDescription(0, &rows, &columns, &attribute, &readOnly);
  EXPECT_EQ(attribute.toStdString(), "Owner");
  EXPECT_EQ(rows, 1);
  EXPECT_EQ(columns, 1);
  EXPECT_EQ(readOnly, 1);
  file->getAttributeDescription(1, &rows, &columns, &attribute, &readOnly);
  EXPECT_EQ(attribute.toStdString(), "Steps");
  EXPECT_EQ(rows, 2);
  EXPECT_EQ(columns, 3);
  EXPECT_EQ(readOnly, 0);
  EXPECT_EQ(file->getValue(0, 0, 0).toStdString(), "alice");
  EXPECT_EQ(file->getValue(1, 1, 2).toStdString(), "load it ");
  EXPECT_EQ(file->getValue(1, 0, 0).toStdString(), "");
  EXPECT_FALSE(file->getValue(1, 0, 0).isNull());
  EXPECT_TRUE(file->getValue(1, 0, 1).isNull());  // never set
  EXPECT_TRUE(file->getValue(2, 0, 0).isNull());  // no such attribute
  EXPECT_FALSE(file->isModified());

  file->getAttributeDescription(7, &rows, &columns, &attribute, &readOnly);
  EXPECT_EQ(rows, 0);
  EXPECT_EQ(columns, 0);
  EXPECT_TRUE(attribute.isNull());
  file->getAttributeDescription(0, nullptr, nullptr, nullptr, nullptr);  // all optional
}

TEST_F(TestMetaPluginTest, WindowsLineEndsAndEmptyName) {
  FilePtr file = open("a.tmeta", "name \r\nattr A 0 0 x\r\n");
  ASSERT_TRUE(file);
  QzbString name("stale");
  ASSERT_TRUE(file->getDisplayName(&name, nullptr));
  EXPECT_EQ(name.toStdString(), "");
  EXPECT_EQ(file->getValue(0, 0, 0).toStdString(), "x");
}

TEST_F(TestMetaPluginTest, FileWithoutName) {
  FilePtr file = open("a.tmeta", "attr A 0 0 x\n");
  ASSERT_TRUE(file);
  QzbString name;
  EXPECT_FALSE(file->getDisplayName(&name, nullptr));
}

TEST_F(TestMetaPluginTest, UnreadableFiles) {
  EXPECT_EQ(plugins_.plugin(0)->openFile(S(dir_.join("missing.tmeta"))), nullptr);
  EXPECT_FALSE(open("a.tmeta", "name x\nfail open\n"));
  EXPECT_FALSE(open("b.tmeta", "attr A x 0 v\n"));
  EXPECT_FALSE(open("c.tmeta", "attr A 0 1000 v\n"));
  EXPECT_FALSE(open("d.tmeta", "attr A 0\n"));
  EXPECT_FALSE(open("e.tmeta", "dep Only|two\n"));
  EXPECT_FALSE(open("f.tmeta", "datadep a|b|c|d\n"));
  EXPECT_FALSE(open("g.tmeta", "fail everything\n"));
  EXPECT_FALSE(open("h.tmeta", "attribute A 1\n"));
  EXPECT_TRUE(open("i.tmeta", "unknown keyword is fine\n\n# and comments\n"));
  QzTestMetaCounters* counters = plugins_.counters();
  ASSERT_NE(counters, nullptr);
  EXPECT_EQ(counters->openCalls.load(), 10);
  EXPECT_EQ(counters->filesOpened.load(), 1);
}

TEST_F(TestMetaPluginTest, SetValueAndCommit) {
  FilePtr file = open("a.tmeta",
                      "name Kept name\n# kept comment\ndep DataFile|in.csv|/in.csv\n"
                      "attr A 0 0 one\nreadonly R\nattr R 0 0 fixed\n");
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->setValue(0, 2, 11, S("twelfth column")));
  EXPECT_TRUE(file->setValue(0, 0, 0, S("changed")));
  EXPECT_FALSE(file->setValue(1, 0, 0, S("read-only")));
  EXPECT_FALSE(file->setValue(5, 0, 0, S("no attribute")));
  EXPECT_FALSE(file->setValue(0, -1, 0, S("bad row")));
  EXPECT_FALSE(file->setValue(0, 0, 1000, S("bad column")));
  EXPECT_FALSE(file->setValue(0, 0, 0, S("two\nlines")));
  EXPECT_TRUE(file->isModified());
  ASSERT_TRUE(file->offerName(S("Offered, not saved")));
  ASSERT_TRUE(file->commit());
  file.reset();

  FilePtr again = reopen("a.tmeta");
  ASSERT_TRUE(again);
  QzbString name;
  ASSERT_TRUE(again->getDisplayName(&name, nullptr));
  EXPECT_EQ(name.toStdString(), "Kept name");  // commit writes attributes only
  int rows = 0, columns = 0;
  again->getAttributeDescription(0, &rows, &columns, nullptr, nullptr);
  EXPECT_EQ(rows, 3);
  EXPECT_EQ(columns, 12);
  EXPECT_EQ(again->getValue(0, 0, 0).toStdString(), "changed");
  EXPECT_EQ(again->getValue(0, 2, 11).toStdString(), "twelfth column");
  int readOnly = 0;
  again->getAttributeDescription(1, nullptr, nullptr, nullptr, &readOnly);
  EXPECT_EQ(readOnly, 1);
  const std::string text = qztest::readFile(dir_.join("a.tmeta"));
  EXPECT_NE(text.find("# kept comment\n"), std::string::npos) << text;
  EXPECT_NE(text.find("dep DataFile|in.csv|/in.csv\n"), std::string::npos) << text;
  EXPECT_TRUE(dotNames(dir_.path()).empty()) << "a temporary file was left behind";
}

TEST_F(TestMetaPluginTest, SettingANullValueRemovesTheCell) {
  FilePtr file = open("a.tmeta", "attr A 0 0 one\nattr A 0 1 two\n");
  ASSERT_TRUE(file);
  ASSERT_TRUE(file->setValue(0, 0, 1, QzbString()));
  EXPECT_TRUE(file->getValue(0, 0, 1).isNull());
  ASSERT_TRUE(file->commit());
  file.reset();
  FilePtr again = reopen("a.tmeta");
  int columns = 0;
  again->getAttributeDescription(0, nullptr, &columns, nullptr, nullptr);
  EXPECT_EQ(columns, 2);  // the declared width survives
  EXPECT_TRUE(again->getValue(0, 0, 1).isNull());
}

TEST_F(TestMetaPluginTest, ClearLeavesOneEmptyRow) {
  FilePtr file = open("a.tmeta", "attr A 0 0 x\nattr A 3 1 y\nreadonly R\nattr R 0 0 z\n");
  ASSERT_TRUE(file);
  file->clear(0);
  file->clear(1);  // read-only: left alone
  file->clear(9);  // no such attribute: nothing
  int rows = 0;
  file->getAttributeDescription(0, &rows, nullptr, nullptr, nullptr);
  EXPECT_EQ(rows, 1);
  EXPECT_TRUE(file->getValue(0, 0, 0).isNull());
  EXPECT_EQ(file->getValue(1, 0, 0).toStdString(), "z");
  ASSERT_TRUE(file->commit());
  file.reset();
  FilePtr again = reopen("a.tmeta");
  ASSERT_EQ(again->getAttributeCount(), 2);
  again->getAttributeDescription(0, &rows, nullptr, nullptr, nullptr);
  EXPECT_EQ(rows, 1);
}

TEST_F(TestMetaPluginTest, OfferNameAndSave) {
  FilePtr file = open("a.tmeta", "name Old\nattr A 0 0 x\n");
  ASSERT_TRUE(file);
  EXPECT_FALSE(file->offerName(S("two\nlines")));
  EXPECT_FALSE(file->offerName(QzbString()));
  ASSERT_TRUE(file->offerName(S("New name")));
  EXPECT_TRUE(file->isModified());
  QzbString name;
  ASSERT_TRUE(file->getDisplayName(&name, nullptr));
  EXPECT_EQ(name.toStdString(), "Old");  // in memory until saved
  ASSERT_TRUE(file->save());
  EXPECT_FALSE(file->isModified());
  ASSERT_TRUE(file->getDisplayName(&name, nullptr));
  EXPECT_EQ(name.toStdString(), "New name");
  file.reset();
  FilePtr again = reopen("a.tmeta");
  ASSERT_TRUE(again->getDisplayName(&name, nullptr));
  EXPECT_EQ(name.toStdString(), "New name");
  EXPECT_EQ(again->getValue(0, 0, 0).toStdString(), "x");
  EXPECT_TRUE(dotNames(dir_.path()).empty());
}

TEST_F(TestMetaPluginTest, FileWithoutNameGetsOneBySave) {
  FilePtr file = open("a.tmeta", "attr A 0 0 x\n");
  ASSERT_TRUE(file->offerName(S("Given")));
  ASSERT_TRUE(file->save());
  EXPECT_EQ(qztest::readFile(dir_.join("a.tmeta")).rfind("name Given\n", 0), 0u);
}

TEST_F(TestMetaPluginTest, FailureLines) {
  const std::string content = "name N\nfail name\nfail save\nfail commit\nattr A 0 0 x\n";
  FilePtr file = open("a.tmeta", content);
  ASSERT_TRUE(file);
  EXPECT_FALSE(file->offerName(S("Other")));
  ASSERT_TRUE(file->setValue(0, 0, 0, S("y")));
  EXPECT_FALSE(file->commit());
  EXPECT_FALSE(file->save());
  EXPECT_EQ(qztest::readFile(dir_.join("a.tmeta")), content);
}

TEST_F(TestMetaPluginTest, FailedRenameLeavesTheOriginalAndNoTemporaryFile) {
  const std::string content = "name Old\n";
  FilePtr file = open("a.tmeta", content);
  ASSERT_TRUE(file->offerName(S("New")));
  {
    qztest::FaultPlatform faults;
    faults.failCall(qztest::NpOp::kFioRename, 1, NP_ERR_IO);
    EXPECT_FALSE(file->save());
  }
  EXPECT_EQ(qztest::readFile(dir_.join("a.tmeta")), content);
  EXPECT_TRUE(dotNames(dir_.path()).empty());
  EXPECT_TRUE(file->isModified());
  EXPECT_TRUE(file->save());  // and it can be tried again
}

TEST_F(TestMetaPluginTest, ListDependencies) {
  FilePtr file = open("a.tmeta",
                      "dep DataFile|orders.csv|/srv/feeds/in/orders.csv\n"
                      "datadep postgresql|%%SALES_DSN%%||public|orders\n"
                      "datadep sqlite|/srv/db/inventory.db|||\n"
                      "fileref DataFile|%%FEED_DIR%%|orders.csv\n");
  ASSERT_TRUE(file);
  FakeList list;
  FakeFactory factory;
  ASSERT_TRUE(file->listDependencies(&list, &factory));
  ASSERT_EQ(list.rows.size(), 4u);
  EXPECT_EQ(list.rows[0].name, "orders.csv");
  EXPECT_EQ(list.rows[0].type, "DataFile");
  EXPECT_EQ(list.rows[0].identity, "/srv/feeds/in/orders.csv");
  EXPECT_EQ(list.rows[1].type, "Table");
  EXPECT_EQ(list.rows[1].name, "orders");
  EXPECT_EQ(list.rows[1].identity, "db:postgresql/%%SALES_DSN%%//public/orders");
  EXPECT_EQ(list.rows[2].type, "Database");
  EXPECT_EQ(list.rows[2].identity, "db:sqlite/%2Fsrv%2Fdb%2Finventory.db");
  EXPECT_EQ(list.rows[3].name, "orders.csv");
  EXPECT_EQ(list.rows[3].identity, "fileref:%%FEED_DIR%%/orders.csv");
  EXPECT_EQ(factory.live, 0) << "the plug-in must release what the factory made";
}

TEST_F(TestMetaPluginTest, ListDependenciesFailures) {
  FakeFactory factory;
  {
    FilePtr file = open("a.tmeta", "dep A|b|c\nfail dependencies\n");
    FakeList list;
    EXPECT_FALSE(file->listDependencies(&list, &factory));
    EXPECT_TRUE(list.rows.empty());
  }
  {
    FilePtr file = open("b.tmeta", "dep A|b|c\n");
    FakeList list;
    factory.failAll = true;
    EXPECT_FALSE(file->listDependencies(&list, &factory));
    factory.failAll = false;
    list.refuseRows = true;
    EXPECT_FALSE(file->listDependencies(&list, &factory));
    EXPECT_FALSE(file->listDependencies(nullptr, &factory));
    EXPECT_FALSE(file->listDependencies(&list, nullptr));
  }
  {
    FilePtr file = open("c.tmeta", "fileref DataFile|dir|\n");  // a reference needs a name
    FakeList list;
    EXPECT_FALSE(file->listDependencies(&list, &factory));
  }
  EXPECT_EQ(factory.live, 0);
}

TEST_F(TestMetaPluginTest, NoDependencies) {
  FilePtr file = open("a.tmeta", "name x\n");
  FakeList list;
  FakeFactory factory;
  EXPECT_TRUE(file->listDependencies(&list, &factory));
  EXPECT_TRUE(list.rows.empty());
}

TEST_F(TestMetaPluginTest, CountersFollowOpenAndRelease) {
  QzTestMetaCounters* counters = plugins_.counters();
  ASSERT_NE(counters, nullptr);
  counters->reset();
  {
    FilePtr a = open("a.tmeta", "name a\n");
    FilePtr b = open("b.tmeta", "name b\n");
    EXPECT_EQ(counters->filesOpened.load(), 2);
    EXPECT_EQ(counters->filesReleased.load(), 0);
  }
  EXPECT_EQ(counters->filesReleased.load(), 2);
}

}  // namespace
