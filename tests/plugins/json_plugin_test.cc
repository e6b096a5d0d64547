// The shipped metadata plug-in module qzvmddefs.so, loaded from the build tree
// with dlopen as the library would load it and driven through every operation
// of its factory, plug-ins and metadata files. Dependencies are listed through
// a small resource factory and resource list written here, which record what
// the plug-in asks for.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/file_types.h"
#include "qzbase/platform.h"
#include "qzbase/uri.h"
#include "qzvault/plugin.h"
#include "qzvault/resource.h"
#include "support/log_capture.h"
#include "support/privileges.h"
#include "support/temp_dir.h"

namespace {

using qztest::readFile;
using qztest::TempDir;
using qztest::writeFile;

const char kLogger[] = "QZ.Plugin.Defs";

std::string modulePath() { return std::string(QZ_TEST_BINARY_ROOT) + "/plugins/qzvmddefs.so"; }

std::string str(const QzbString& text) { return std::string(text.asCstr(), text.length()); }

QzbString qzb(const std::string& text) { return QzbString::fromBytes(text.data(), text.size()); }

// The module stays loaded for the whole test process, as the library keeps
// plug-in libraries loaded until the process ends.
QzvCreateFactoryFunction entryFunction() {
  static QzvCreateFactoryFunction entry = [] {
    void* handle = dlopen(modulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return QzvCreateFactoryFunction(nullptr);
    return reinterpret_cast<QzvCreateFactoryFunction>(dlsym(handle, QZV_PLUGIN_ENTRY_NAME));
  }();
  return entry;
}

struct FileRelease {
  void operator()(QzvMetaDataFile* file) const { file->release(); }
};
using FilePtr = std::unique_ptr<QzvMetaDataFile, FileRelease>;

// ---------------------------------------------------------------------------
// A resource, resource list and factory that record what the plug-in does.

class FakeResource final : public QzResource {
 public:
  FakeResource(std::string name, std::string type, std::string identity, int* live)
      : name_(std::move(name)),
        type_(std::move(type)),
        identity_(std::move(identity)),
        live_(live) {
    if (live_ != nullptr) ++*live_;
  }
  ~FakeResource() override {
    if (live_ != nullptr) --*live_;
  }
  void release() override { delete this; }
  QzbString getId() override { return QzbString("1"); }
  QzbString getName() override { return qzb(name_); }
  QzbString getResourceType() override { return qzb(type_); }
  QzbString getResourceIdentity() override { return qzb(identity_); }
  int getDependencyType() override { return 0; }
  QzResourcePropertyList* getProperties() override { return nullptr; }
  QzbDate getAnalysisDate() override { return QzbDate(); }
  QzbString getResourceLocation() override { return QzbString(""); }
  bool IsResolved() override { return true; }
  bool IsResourceIdentityMacroValue() override { return identity_.find("%%") != std::string::npos; }

 private:
  std::string name_;
  std::string type_;
  std::string identity_;
  int* live_;
};

// What the list holds: copies of the resources given to setLastRowElement.
struct ListedResource {
  std::string name;
  std::string type;
  std::string identity;
  bool operator==(const ListedResource& other) const {
    return name == other.name && type == other.type && identity == other.identity;
  }
};

std::ostream& operator<<(std::ostream& out, const ListedResource& r) {
  return out << "{" << r.name << ", " << r.type << ", " << r.identity << "}";
}

class FakeResourceList final : public QzResourceList {
 public:
  ~FakeResourceList() {
    for (QzResource* resource : rows_) {
      if (resource != nullptr) resource->release();
    }
  }
  bool next() override {
    position_ = started_ ? position_ + 1 : 0;
    started_ = true;
    return position_ < rows_.size();
  }
  QzResource* getValue(int column) override {
    if (!started_ || column != 0 || position_ >= rows_.size()) return nullptr;
    return rows_[position_];
  }
  void release() override {}  // lives on the test's stack
  bool addRow() override {
    if (refuseRows) return false;
    rows_.push_back(nullptr);
    return true;
  }
  void setLastRowElement(int column, QzResource* resource) override {
    ++setCalls;
    lastColumn = column;
    if (rows_.empty() || resource == nullptr) return;
    if (rows_.back() != nullptr) rows_.back()->release();
    rows_.back() = new FakeResource(str(resource->getName()), str(resource->getResourceType()),
                                    str(resource->getResourceIdentity()), nullptr);
  }
  bool contains(QzResource* resource) override {
    for (QzResource* row : rows_) {
      if (row != nullptr &&
          str(row->getResourceIdentity()) == str(resource->getResourceIdentity())) {
        return true;
      }
    }
    return false;
  }
  bool reset() override {
    started_ = false;
    position_ = 0;
    return true;
  }

  std::vector<ListedResource> listed() const {
    std::vector<ListedResource> result;
    for (QzResource* row : rows_) {
      if (row == nullptr) {
        result.push_back({"<empty row>", "", ""});
      } else {
        result.push_back(
            {str(row->getName()), str(row->getResourceType()), str(row->getResourceIdentity())});
      }
    }
    return result;
  }

  bool refuseRows = false;
  int setCalls = 0;
  int lastColumn = -1;

 private:
  std::vector<QzResource*> rows_;
  bool started_ = false;
  std::size_t position_ = 0;
};

// One request the plug-in made of the factory.
struct FactoryCall {
  bool dataResource;  // getDataResource rather than getResource
  std::string name;   // getResource's arguments
  std::string type;
  std::string identity;
  std::string uri;  // getDataResource's URI in its text form
};

class FakeFactory final : public QzResourceFactory {
 public:
  void release() override {}
  QzbString getErrorMessage() override { return qzb(errorMessage); }
  QzResource* getResource(const QzbString& name, const QzbString& type,
                          const QzbString& identity) override {
    calls.push_back({false, str(name), str(type), str(identity), ""});
    return answer(str(name), str(type), str(identity));
  }
  QzbString getPluginPath() override { return QzbString(""); }
  void registerResourceResolver(QzResourceResolver*) override {}
  QzResourceResolver* getResourceResolver() override { return nullptr; }
  // Forms the identity with the base layer's resource manager, as the
  // library's factory does.
  QzResource* getDataResource(QzDataURI* uri) override {
    if (uri == nullptr) return nullptr;
    calls.push_back({true, "", "", "", str(uri->toString())});
    QzResourceManager* manager = createQzResourceManager();
    QzbString identity;
    const QzbString table = uri->getTablePart();
    std::string type;
    if (table.isEmpty()) {
      if (manager->makeDatabaseIdentity(uri->getPart(0), uri->getPart(1), &identity)) {
        type = "Database";
      }
    } else if (manager->makeTableIdentity(uri->getPart(0), uri->getPart(1), uri->getPart(2),
                                          uri->getPart(3), table, &identity)) {
      type = "Table";
    }
    manager->release();
    if (type.empty()) return nullptr;
    return answer(str(table), type, str(identity));
  }

  std::vector<FactoryCall> calls;
  int live = 0;        // resources handed out and not yet released
  int failAtCall = 0;  // the n-th request (1-based) answers null
  bool throwAtEveryCall = false;
  std::string errorMessage;

 private:
  QzResource* answer(const std::string& name, const std::string& type,
                     const std::string& identity) {
    if (throwAtEveryCall) throw std::runtime_error("factory failure");
    if (failAtCall != 0 && static_cast<int>(calls.size()) == failAtCall) return nullptr;
    return new FakeResource(name, type, identity, &live);
  }
};

// ---------------------------------------------------------------------------

class JsonPluginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(modulePath())) {
      GTEST_SKIP() << "the shipped plug-ins were not built (QZ_BUILD_PLUGINS=OFF)";
    }
    QzvCreateFactoryFunction entry = entryFunction();
    ASSERT_NE(entry, nullptr) << "cannot load " << modulePath() << ": " << dlerror();
    QzvMetaDataPluginFactory* factory = entry();
    ASSERT_NE(factory, nullptr);
    ASSERT_EQ(factory->getStatus(), 1);
    for (int i = 0; i < factory->getPluginCount(); ++i) {
      QzvMetaDataPlugin* plugin = factory->getPlugin(i);
      ASSERT_NE(plugin, nullptr) << "plug-in " << i;
      order_.push_back(str(plugin->getTypeName()));
      plugins_[order_.back()] = plugin;
    }
    factory->release();
  }

  void TearDown() override {
    for (auto& entry : plugins_) entry.second->release();
  }

  QzvMetaDataPlugin* plugin(const std::string& type) {
    auto found = plugins_.find(type);
    return found == plugins_.end() ? nullptr : found->second;
  }

  // Opens `path` with the Job plug-in (every plug-in reads the same format).
  FilePtr open(const std::string& path) { return FilePtr(plugins_.at("Job")->openFile(qzb(path))); }

  // Writes `content` to `name` in the test's directory and opens it.
  FilePtr openWritten(const std::string& name, const std::string& content) {
    writeFile(dir_.join(name), content);
    return open(dir_.join(name));
  }

  std::vector<std::string> entriesOf(const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  TempDir dir_;
  std::map<std::string, QzvMetaDataPlugin*> plugins_;
  std::vector<std::string> order_;
};

const char kJob[] = R"({
  "name": "Nightly load",
  "description": "kept as written",
  "attributes": [
    {"name": "Owner", "rows": [["data-team"]]},
    {"name": "Steps", "rows": [["1", "extract", 600], ["2", "load", true, null]]},
    {"name": "Retention", "readOnly": true, "rows": [["30", "days"]]},
    {"name": "Wide", "rows": [["c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7", "c8", "c9", "c10", "c11"]]},
    {"name": "Shaped", "columns": 4, "rows": []}
  ],
  "uses": []
}
)";

// ---------------------------------------------------------------------------
// Module, factory and plug-ins.

// The names of the defined dynamic symbols of `library`, from
// "nm -D --defined-only" (as the library's own exported-symbols test reads them).
bool definedDynamicSymbols(const std::string& library, std::set<std::string>* names) {
  const std::string command = "nm -D --defined-only '" + library + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return false;
  std::string output;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  if (pclose(pipe) != 0) {
    ADD_FAILURE() << command << " failed:\n" << output;
    return false;
  }
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);  // "<address> <type> <name>"
    std::string address, type, name;
    if (fields >> address >> type >> name) names->insert(name);
  }
  return true;
}

TEST_F(JsonPluginTest, ModuleExportsTheEntryFunctionOnly) {
  // The JSON library's and the C++ runtime's template code stays inside the
  // module, so that plug-ins built against other versions never meet.
  std::set<std::string> names;
  ASSERT_TRUE(definedDynamicSymbols(modulePath(), &names));
  EXPECT_EQ(names, std::set<std::string>{QZV_PLUGIN_ENTRY_NAME});
  EXPECT_EQ(
      std::filesystem::path(modulePath()).filename().string().rfind(QZV_PLUGIN_FILE_PREFIX, 0), 0u);
}

TEST_F(JsonPluginTest, FactoryOffersOnePluginPerKindInTableOrder) {
  const std::vector<std::string> expected = {"Job",           "Report",  "Schedule",
                                             "ReferenceData", "Mapping", "Query"};
  EXPECT_EQ(order_, expected);
  for (const std::string& type : expected) {
    QzvMetaDataPlugin* p = plugin(type);
    ASSERT_NE(p, nullptr) << type;
    EXPECT_EQ(str(p->getTypeName()), type);
    EXPECT_EQ(str(p->getResourceType()), type);
    EXPECT_EQ(str(p->getDescription()), type + " definitions and templates 1.0");
  }
}

TEST_F(JsonPluginTest, FactoryGivesNoPluginOutOfRange) {
  QzvMetaDataPluginFactory* factory = entryFunction()();
  ASSERT_NE(factory, nullptr);
  EXPECT_EQ(factory->getPluginCount(), 6);
  EXPECT_EQ(factory->getPlugin(-1), nullptr);
  EXPECT_EQ(factory->getPlugin(6), nullptr);
  // Plug-ins outlive the factory that made them.
  QzvMetaDataPlugin* survivor = factory->getPlugin(1);
  factory->release();
  ASSERT_NE(survivor, nullptr);
  EXPECT_EQ(str(survivor->getTypeName()), "Report");
  survivor->release();
}

TEST_F(JsonPluginTest, CanHandleByExtensionInAnyLetterCase) {
  QzvMetaDataPlugin* job = plugin("Job");
  ASSERT_NE(job, nullptr);
  EXPECT_TRUE(job->canHandle(qzb("/v/Jobs/load.job.def")));
  EXPECT_TRUE(job->canHandle(qzb("/v/Jobs/load.job.tpl")));
  EXPECT_TRUE(job->canHandle(qzb("/v/Jobs/LOAD.JOB.DEF")));
  EXPECT_TRUE(job->canHandle(qzb("/v/Jobs/load.Job.Tpl")));
  EXPECT_TRUE(job->canHandle(qzb("relative.job.def")));
  EXPECT_FALSE(plugin("Report")->canHandle(qzb("/v/Jobs/load.job.def")));
}

TEST_F(JsonPluginTest, CanHandleRefusesOtherNames) {
  QzvMetaDataPlugin* job = plugin("Job");
  ASSERT_NE(job, nullptr);
  EXPECT_FALSE(job->canHandle(qzb("/v/Jobs/job.def")));  // no base name before the kind
  EXPECT_FALSE(job->canHandle(qzb("/v/Jobs/loadjob.def")));
  EXPECT_FALSE(job->canHandle(qzb("/v/Jobs/load.job.def.bak")));
  EXPECT_FALSE(job->canHandle(qzb("/v/Jobs/load.def")));
  EXPECT_FALSE(job->canHandle(qzb("/v/Jobs/load.job")));
  EXPECT_FALSE(job->canHandle(qzb("/v/Data/orders.csv")));
  EXPECT_FALSE(job->canHandle(qzb("")));
  EXPECT_FALSE(job->canHandle(QzbString()));
}

TEST_F(JsonPluginTest, EachTwoPartExtensionIsClaimedByItsKindAlone) {
  for (const char* extension : qzbTwoPartExtensions) {
    const std::string type = str(getTypeForFileExtension(QzbString(extension)));
    for (std::string name : {std::string("x.") + extension, std::string("X.") + extension}) {
      if (name[0] == 'X') {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
      }
      for (const auto& entry : plugins_) {
        EXPECT_EQ(entry.second->canHandle(qzb("/v/" + name)), entry.first == type)
            << entry.first << " on " << name;
      }
    }
  }
}

TEST_F(JsonPluginTest, CanHandleDoesNotReadTheFile) {
  // Neither present nor a document: the name alone decides.
  EXPECT_TRUE(plugin("Query")->canHandle(qzb(dir_.join("missing.qry.def"))));
  writeFile(dir_.join("garbage.qry.tpl"), "not json");
  EXPECT_TRUE(plugin("Query")->canHandle(qzb(dir_.join("garbage.qry.tpl"))));
}

TEST_F(JsonPluginTest, ResourceIdentityIsTheNormalisedPath) {
  QzvMetaDataPlugin* job = plugin("Job");
  EXPECT_EQ(str(job->getResourceIdentity(qzb("/srv/vault/Jobs/Definitions/a.job.def"))),
            "/srv/vault/Jobs/Definitions/a.job.def");
  EXPECT_EQ(str(job->getResourceIdentity(qzb("/srv/vault//Jobs\\a.job.def"))),
            "/srv/vault/Jobs/a.job.def");
  EXPECT_TRUE(job->getResourceIdentity(QzbString()).isNull());
}

// ---------------------------------------------------------------------------
// Opening files.

TEST_F(JsonPluginTest, OpenFileOfMissingFileGivesNullAndLogsWhy) {
  qztest::LogCapture log;
  const std::string path = dir_.join("missing.job.def");
  EXPECT_EQ(open(path), nullptr);
  EXPECT_TRUE(log.contains("Cannot open \"" + path + "\": " + np_fio_errdesc(NP_ERR_NOT_FOUND),
                           QZLOG_DEBUG, kLogger))
      << log.dump();
  EXPECT_EQ(plugin("Job")->openFile(QzbString()), nullptr);
  EXPECT_EQ(plugin("Job")->openFile(QzbString("")), nullptr);
}

TEST_F(JsonPluginTest, OpenFileOfInvalidJsonGivesNull) {
  const std::vector<std::string> texts = {"",
                                          "   ",
                                          "{",
                                          "not json",
                                          R"({"name": })",
                                          R"({"name": "a"} trailing)",
                                          R"({"name": "a",})",
                                          "{\"name\": \"\xC3\x28\"}",  // malformed UTF-8
                                          // a number beyond any double, once found by fuzzing
                                          R"({"name": "a", "size": 333.3333e2800})"};
  for (std::size_t i = 0; i < texts.size(); ++i) {
    qztest::LogCapture log;
    const std::string name = "bad" + std::to_string(i) + ".job.def";
    EXPECT_EQ(openWritten(name, texts[i]), nullptr) << texts[i];
    EXPECT_TRUE(
        log.containsFragment("Cannot open \"" + dir_.join(name) + "\": not a JSON document: "))
        << log.dump();
  }
}

TEST_F(JsonPluginTest, OpenFileOfMalformedDocumentGivesNullWithTheReason) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"[1, 2]", "the document is not a JSON object"},
      {R"("text")", "the document is not a JSON object"},
      {R"({"name": 5})", "\"name\" is not a text"},
      {R"({"attributes": {}})", "\"attributes\" is not an array"},
      {R"({"attributes": [5]})", "attributes[0] is not an object"},
      {R"({"attributes": [{"rows": []}]})", "attributes[0] has no name"},
      {R"({"attributes": [{"name": ""}]})", "attributes[0] has no name"},
      {R"({"attributes": [{"name": "_CREATOR"}]})",
       "attribute \"_CREATOR\": names beginning with \"_\" are reserved"},
      {R"({"attributes": [{"name": "A"}, {"name": "A"}]})", "attribute \"A\" appears twice"},
      {R"({"attributes": [{"name": "A", "readOnly": "yes"}]})",
       "attribute \"A\": \"readOnly\" is not true or false"},
      {R"({"attributes": [{"name": "A", "columns": -1}]})",
       "attribute \"A\": \"columns\" is not a count from 0 to 256"},
      {R"({"attributes": [{"name": "A", "columns": 257}]})",
       "attribute \"A\": \"columns\" is not a count from 0 to 256"},
      {R"({"attributes": [{"name": "A", "columns": 2.5}]})",
       "attribute \"A\": \"columns\" is not a count from 0 to 256"},
      {R"({"attributes": [{"name": "A", "rows": "x"}]})",
       "attribute \"A\": \"rows\" is not an array of rows"},
      {R"({"attributes": [{"name": "A", "rows": ["x"]}]})",
       "attribute \"A\": \"rows\" is not an array of rows"},
      {R"({"attributes": [{"name": "A", "rows": [[{"v": 1}]]}]})",
       "attribute \"A\": a value is not a text, number, true, false or null"},
      {R"({"attributes": [{"name": "A", "rows": [[[1]]]}]})",
       "attribute \"A\": a value is not a text, number, true, false or null"},
      {R"({"uses": {}})", "\"uses\" is not an array"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    qztest::LogCapture log;
    const std::string name = "malformed" + std::to_string(i) + ".job.def";
    EXPECT_EQ(openWritten(name, cases[i].first), nullptr) << cases[i].first;
    EXPECT_TRUE(log.contains("Cannot open \"" + dir_.join(name) + "\": " + cases[i].second,
                             QZLOG_DEBUG, kLogger))
        << cases[i].first << "\n"
        << log.dump();
  }
}

TEST_F(JsonPluginTest, OpenFileOfMinimalDocumentsSucceeds) {
  FilePtr empty = openWritten("empty.job.def", "{}");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->getAttributeCount(), 0);
  QzbString name;
  EXPECT_FALSE(empty->getDisplayName(&name, nullptr));
  FilePtr noRows = openWritten("norows.job.def", R"({"attributes": [{"name": "A"}]})");
  ASSERT_NE(noRows, nullptr);
  int rows = -1, columns = -1;
  noRows->getAttributeDescription(0, &rows, &columns, nullptr, nullptr);
  EXPECT_EQ(rows, 0);
  EXPECT_EQ(columns, 0);
}

TEST_F(JsonPluginTest, OpenFileOfDirectoryGivesNull) {
  qztest::makeDirs(dir_.join("folder.job.def"));
  qztest::LogCapture log;
  EXPECT_EQ(open(dir_.join("folder.job.def")), nullptr);
  EXPECT_TRUE(
      log.contains("Cannot open \"" + dir_.join("folder.job.def") + "\": not a regular file"))
      << log.dump();
}

TEST_F(JsonPluginTest, OpenFileOfOversizedFileGivesNull) {
  const std::string path = dir_.join("huge.job.def");
  writeFile(path, "{}");
  std::filesystem::resize_file(path, 16u * 1024u * 1024u + 1u);  // sparse: nothing is written
  qztest::LogCapture log;
  EXPECT_EQ(open(path), nullptr);
  EXPECT_TRUE(log.contains("Cannot open \"" + path + "\": larger than 16777216 bytes"))
      << log.dump();
}

TEST_F(JsonPluginTest, OpenFileOfUnreadableFileGivesNull) {
  // Root reads any file, so the check runs in a child that became nobody.
  const std::string path = dir_.join("secret.job.def");
  writeFile(path, kJob);
  ASSERT_EQ(chmod(path.c_str(), 0200), 0);
  qztest::makeReachable(dir_.path());
  QzvMetaDataPlugin* job = plugin("Job");
  const int result = qztest::runAsNobody([&]() -> int {
    QzvMetaDataFile* file = job->openFile(qzb(path));
    if (file != nullptr) {
      file->release();
      return 1;
    }
    return 0;
  });
  EXPECT_EQ(result, 0);
  FilePtr asRoot = open(path);  // the same file is a valid document
  EXPECT_NE(asRoot, nullptr);
}

// ---------------------------------------------------------------------------
// Path, name and attributes.

TEST_F(JsonPluginTest, GetPathIsThePathAsOpened) {
  writeFile(dir_.join("a.job.def"), kJob);
  const std::string asGiven = dir_.path() + "//a.job.def";
  FilePtr file = open(asGiven);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(str(file->getPath()), asGiven);
}

TEST_F(JsonPluginTest, DisplayNameComesFromTheDocument) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  QzbString name;
  int flags = 7;
  EXPECT_TRUE(file->getDisplayName(&name, &flags));
  EXPECT_EQ(str(name), "Nightly load");
  EXPECT_EQ(flags, 0);
  EXPECT_TRUE(file->getDisplayName(&name, nullptr));
}

TEST_F(JsonPluginTest, DisplayNameMissingOrEmptyIsNone) {
  FilePtr missing = openWritten("a.job.def", R"({"attributes": []})");
  FilePtr empty = openWritten("b.job.def", R"({"name": ""})");
  ASSERT_NE(missing, nullptr);
  ASSERT_NE(empty, nullptr);
  QzbString name("untouched");
  int flags = 7;
  EXPECT_FALSE(missing->getDisplayName(&name, &flags));
  EXPECT_EQ(flags, 0);
  EXPECT_FALSE(empty->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "untouched");
}

TEST_F(JsonPluginTest, AttributesAreDescribedAsWritten) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->getAttributeCount(), 5);
  struct Expected {
    const char* name;
    int rows;
    int columns;
    int readOnly;
  };
  const Expected expected[] = {{"Owner", 1, 1, 0},
                               {"Steps", 2, 4, 0},
                               {"Retention", 1, 2, 1},
                               {"Wide", 1, 12, 0},
                               {"Shaped", 0, 4, 0}};
  for (int i = 0; i < 5; ++i) {
    int rows = -1, columns = -1, readOnly = -1;
    QzbString name;
    file->getAttributeDescription(i, &rows, &columns, &name, &readOnly);
    EXPECT_EQ(str(name), expected[i].name);
    EXPECT_EQ(rows, expected[i].rows) << expected[i].name;
    EXPECT_EQ(columns, expected[i].columns) << expected[i].name;
    EXPECT_EQ(readOnly, expected[i].readOnly) << expected[i].name;
  }
  // Any out pointer may be null.
  file->getAttributeDescription(1, nullptr, nullptr, nullptr, nullptr);
}

TEST_F(JsonPluginTest, AttributeDescriptionOutOfRangeIsEmpty) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  for (int index : {-1, 5, 1000}) {
    int rows = -1, columns = -1, readOnly = -1;
    QzbString name("x");
    file->getAttributeDescription(index, &rows, &columns, &name, &readOnly);
    EXPECT_EQ(rows, 0);
    EXPECT_EQ(columns, 0);
    EXPECT_TRUE(name.isNull());
    EXPECT_EQ(readOnly, 0);
  }
}

TEST_F(JsonPluginTest, MoreThanTenColumnsAreReportedInFull) {
  // The library keeps ten columns of a plug-in attribute; the plug-in reports
  // what the file holds and serves every column.
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  int columns = 0;
  file->getAttributeDescription(3, nullptr, &columns, nullptr, nullptr);
  EXPECT_EQ(columns, 12);
  EXPECT_EQ(str(file->getValue(3, 0, 9)), "c9");
  EXPECT_EQ(str(file->getValue(3, 0, 10)), "c10");
  EXPECT_EQ(str(file->getValue(3, 0, 11)), "c11");
  EXPECT_TRUE(file->getValue(3, 0, 12).isNull());
}

TEST_F(JsonPluginTest, ValuesReadAsText) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(str(file->getValue(0, 0, 0)), "data-team");
  EXPECT_EQ(str(file->getValue(1, 0, 2)), "600");   // a number reads as its JSON text
  EXPECT_EQ(str(file->getValue(1, 1, 2)), "true");  // so does a truth value
  EXPECT_TRUE(file->getValue(1, 1, 3).isNull());    // null is a null string
  EXPECT_TRUE(file->getValue(1, 0, 3).isNull());    // beyond a short row
  EXPECT_TRUE(file->getValue(1, 2, 0).isNull());    // beyond the last row
  EXPECT_TRUE(file->getValue(1, -1, 0).isNull());
  EXPECT_TRUE(file->getValue(1, 0, -1).isNull());
  EXPECT_TRUE(file->getValue(-1, 0, 0).isNull());
  EXPECT_TRUE(file->getValue(5, 0, 0).isNull());
  EXPECT_TRUE(file->getValue(4, 0, 0).isNull());  // an attribute without rows
}

TEST_F(JsonPluginTest, EmptyTextIsNotNull) {
  FilePtr file = openWritten("a.job.def", R"({"attributes": [{"name": "A", "rows": [[""]]}]})");
  ASSERT_NE(file, nullptr);
  const QzbString value = file->getValue(0, 0, 0);
  EXPECT_FALSE(value.isNull());
  EXPECT_EQ(str(value), "");
}

// ---------------------------------------------------------------------------
// Changing attributes.

TEST_F(JsonPluginTest, SetValueRefusedForReadOnlyAttributeAndInvalidPositions) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  EXPECT_FALSE(file->setValue(2, 0, 0, qzb("60")));  // read-only
  EXPECT_EQ(str(file->getValue(2, 0, 0)), "30");
  EXPECT_FALSE(file->setValue(-1, 0, 0, qzb("x")));
  EXPECT_FALSE(file->setValue(5, 0, 0, qzb("x")));
  EXPECT_FALSE(file->setValue(0, -1, 0, qzb("x")));
  EXPECT_FALSE(file->setValue(0, 0, -1, qzb("x")));
  EXPECT_FALSE(file->setValue(0, 100000, 0, qzb("x")));    // rows stop at 100000
  EXPECT_FALSE(file->setValue(0, 0, 256, qzb("x")));       // columns stop at 256
  EXPECT_FALSE(file->setValue(0, 0, 0, qzb("\xC3\x28")));  // not UTF-8
  EXPECT_FALSE(file->isModified());
  EXPECT_TRUE(file->setValue(0, 99999, 255, qzb("corner")));
  EXPECT_EQ(str(file->getValue(0, 99999, 255)), "corner");
}

TEST_F(JsonPluginTest, SetValueAddsRowsAndColumnsAsNeeded) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(file->setValue(0, 3, 2, qzb("far")));
  int rows = 0, columns = 0;
  file->getAttributeDescription(0, &rows, &columns, nullptr, nullptr);
  EXPECT_EQ(rows, 4);
  EXPECT_EQ(columns, 3);
  EXPECT_EQ(str(file->getValue(0, 3, 2)), "far");
  EXPECT_TRUE(file->getValue(0, 2, 0).isNull());
  EXPECT_EQ(str(file->getValue(0, 0, 0)), "data-team");
  EXPECT_TRUE(file->setValue(0, 0, 0, QzbString()));  // a null value
  EXPECT_TRUE(file->getValue(0, 0, 0).isNull());
}

TEST_F(JsonPluginTest, CommitWritesAttributesThroughTheFile) {
  const std::string path = dir_.join("a.job.def");
  {
    FilePtr file = openWritten("a.job.def", kJob);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(file->setValue(0, 0, 0, qzb("platform-team")));
    ASSERT_TRUE(file->setValue(1, 2, 1, qzb("verify \"totals\"")));
    ASSERT_TRUE(file->setValue(1, 1, 3, qzb("caf\xC3\xA9")));
    EXPECT_TRUE(file->isModified());
    ASSERT_TRUE(file->commit());
    EXPECT_FALSE(file->isModified());
  }
  FilePtr again = open(path);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(str(again->getValue(0, 0, 0)), "platform-team");
  EXPECT_EQ(str(again->getValue(1, 2, 1)), "verify \"totals\"");
  EXPECT_EQ(str(again->getValue(1, 1, 3)), "caf\xC3\xA9");
  int rows = 0;
  again->getAttributeDescription(1, &rows, nullptr, nullptr, nullptr);
  EXPECT_EQ(rows, 3);
  QzbString name;
  ASSERT_TRUE(again->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "Nightly load");
  // What the plug-in does not change stays as written: other keys, their
  // order, numbers and truth values of untouched cells.
  const std::string text = readFile(path);
  EXPECT_NE(text.find("\"description\": \"kept as written\""), std::string::npos) << text;
  EXPECT_LT(text.find("\"name\""), text.find("\"description\""));
  EXPECT_LT(text.find("\"description\""), text.find("\"attributes\""));
  EXPECT_LT(text.find("\"attributes\""), text.find("\"uses\""));
  EXPECT_NE(text.find("600"), std::string::npos);
  EXPECT_EQ(text.find("\"600\""), std::string::npos);
  EXPECT_NE(text.find("true"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
}

TEST_F(JsonPluginTest, ClearLeavesOneEmptyRowAndCommitsIt) {
  const std::string path = dir_.join("a.job.def");
  {
    FilePtr file = openWritten("a.job.def", kJob);
    ASSERT_NE(file, nullptr);
    file->clear(1);
    int rows = 0, columns = 0;
    file->getAttributeDescription(1, &rows, &columns, nullptr, nullptr);
    EXPECT_EQ(rows, 1);
    EXPECT_EQ(columns, 4);  // the attribute keeps its shape
    EXPECT_TRUE(file->getValue(1, 0, 0).isNull());
    EXPECT_TRUE(file->isModified());
    ASSERT_TRUE(file->commit());
  }
  FilePtr again = open(path);
  ASSERT_NE(again, nullptr);
  int rows = 0, columns = 0;
  again->getAttributeDescription(1, &rows, &columns, nullptr, nullptr);
  EXPECT_EQ(rows, 1);
  EXPECT_EQ(columns, 4);
  EXPECT_TRUE(again->getValue(1, 0, 0).isNull());
  EXPECT_EQ(str(again->getValue(0, 0, 0)), "data-team");  // other attributes untouched
}

TEST_F(JsonPluginTest, ClearIgnoresReadOnlyAttributeAndInvalidIndex) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  file->clear(2);
  file->clear(-1);
  file->clear(5);
  EXPECT_FALSE(file->isModified());
  EXPECT_EQ(str(file->getValue(2, 0, 1)), "days");
}

TEST_F(JsonPluginTest, ChangesNotCommittedAreDiscardedOnRelease) {
  const std::string path = dir_.join("a.job.def");
  {
    FilePtr file = openWritten("a.job.def", kJob);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(file->setValue(0, 0, 0, qzb("changed")));
  }
  EXPECT_EQ(readFile(path), kJob);
}

// ---------------------------------------------------------------------------
// Names and saving.

TEST_F(JsonPluginTest, OfferNameRefusesEmptyNullAndControlCharacters) {
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  EXPECT_FALSE(file->offerName(QzbString()));
  EXPECT_FALSE(file->offerName(qzb("")));
  EXPECT_FALSE(file->offerName(qzb("two\nlines")));
  EXPECT_FALSE(file->offerName(qzb("tab\there")));
  EXPECT_FALSE(file->offerName(qzb("\xFF\xFE")));
  EXPECT_FALSE(file->isModified());
  EXPECT_TRUE(file->offerName(qzb("Nachtlauf f\xC3\xBCr Verk\xC3\xA4ufe")));
  EXPECT_TRUE(file->isModified());
  QzbString name;
  ASSERT_TRUE(file->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "Nachtlauf f\xC3\xBCr Verk\xC3\xA4ufe");
}

TEST_F(JsonPluginTest, SaveWritesTheOfferedNameAndAttributes) {
  const std::string path = dir_.join("a.job.def");
  {
    FilePtr file = openWritten("a.job.def", kJob);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(file->offerName(qzb("Morning load")));
    ASSERT_TRUE(file->setValue(0, 0, 0, qzb("ops")));
    ASSERT_TRUE(file->save());
    EXPECT_FALSE(file->isModified());
  }
  FilePtr again = open(path);
  ASSERT_NE(again, nullptr);
  QzbString name;
  ASSERT_TRUE(again->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "Morning load");
  EXPECT_EQ(str(again->getValue(0, 0, 0)), "ops");
}

TEST_F(JsonPluginTest, CommitKeepsTheOfferedNameForSave) {
  const std::string path = dir_.join("a.job.def");
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  ASSERT_TRUE(file->offerName(qzb("Renamed")));
  ASSERT_TRUE(file->setValue(0, 0, 0, qzb("ops")));
  ASSERT_TRUE(file->commit());
  EXPECT_TRUE(file->isModified());  // the name is still only in memory
  {
    FilePtr reader = open(path);
    ASSERT_NE(reader, nullptr);
    QzbString name;
    ASSERT_TRUE(reader->getDisplayName(&name, nullptr));
    EXPECT_EQ(str(name), "Nightly load");
    EXPECT_EQ(str(reader->getValue(0, 0, 0)), "ops");
  }
  ASSERT_TRUE(file->save());
  EXPECT_FALSE(file->isModified());
  FilePtr reader = open(path);
  ASSERT_NE(reader, nullptr);
  QzbString name;
  ASSERT_TRUE(reader->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "Renamed");
}

TEST_F(JsonPluginTest, SaveReplacesTheFileAndLeavesNoTemporaryFile) {
  const std::string path = dir_.join("a.job.def");
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  struct stat before {};
  ASSERT_EQ(stat(path.c_str(), &before), 0);
  ASSERT_TRUE(file->offerName(qzb("Replaced")));
  ASSERT_TRUE(file->save());
  struct stat after {};
  ASSERT_EQ(stat(path.c_str(), &after), 0);
  // A new file took the old one's name: the old content was never rewritten
  // in place.
  EXPECT_NE(before.st_ino, after.st_ino);
  EXPECT_EQ(entriesOf(dir_.path()), std::vector<std::string>{"a.job.def"});
  ASSERT_TRUE(file->commit());
  ASSERT_TRUE(file->save());
  EXPECT_EQ(entriesOf(dir_.path()), std::vector<std::string>{"a.job.def"});
}

TEST_F(JsonPluginTest, SaveKeepsThePermissions) {
  const std::string path = dir_.join("a.job.def");
  for (mode_t mode : {0640, 0604, 0755, 0600}) {
    writeFile(path, kJob);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    FilePtr file = open(path);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(file->offerName(qzb("Kept")));
    ASSERT_TRUE(file->save());
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, mode);
  }
}

TEST_F(JsonPluginTest, SaveInReadOnlyDirectoryLeavesTheOriginalIntact) {
  // Root writes into any directory, so the save runs in a child that became
  // nobody; the file itself is writable by everybody, the directory is not.
  const std::string folder = dir_.join("locked");
  const std::string path = folder + "/a.job.def";
  qztest::makeDirs(folder);
  writeFile(path, kJob);
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  ASSERT_EQ(chmod(folder.c_str(), 0555), 0);
  qztest::makeReachable(dir_.path());
  QzvMetaDataPlugin* job = plugin("Job");
  const int result = qztest::runAsNobody([&]() -> int {
    qztest::LogCapture log;
    QzvMetaDataFile* file = job->openFile(qzb(path));
    if (file == nullptr) return 1;
    int code = 0;
    if (!file->offerName(qzb("Never written"))) code = 2;
    if (code == 0 && !file->setValue(0, 0, 0, qzb("x"))) code = 3;
    if (code == 0 && file->save()) code = 4;
    if (code == 0 && !file->isModified()) code = 5;  // the changes are still pending
    if (code == 0 && file->commit()) code = 6;
    if (code == 0 && !log.contains("Save of \"" + path +
                                       "\" failed: cannot create a temporary file beside it: " +
                                       np_fio_errdesc(NP_ERR_ACCESS),
                                   QZLOG_ERROR, kLogger)) {
      code = 7;
    }
    if (code == 0 && !log.contains("Commit of \"" + path +
                                   "\" failed: cannot create a temporary file beside it: " +
                                   np_fio_errdesc(NP_ERR_ACCESS))) {
      code = 8;
    }
    file->release();
    return code;
  });
  ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(readFile(path), kJob);
  EXPECT_EQ(entriesOf(folder), std::vector<std::string>{"a.job.def"});
}

TEST_F(JsonPluginTest, SaveOfRemovedFileWritesItAgain) {
  const std::string path = dir_.join("a.job.def");
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_TRUE(file->offerName(qzb("Back again")));
  ASSERT_TRUE(file->save());
  FilePtr again = open(path);
  ASSERT_NE(again, nullptr);
  QzbString name;
  ASSERT_TRUE(again->getDisplayName(&name, nullptr));
  EXPECT_EQ(str(name), "Back again");
  EXPECT_EQ(again->getAttributeCount(), 5);
}

TEST_F(JsonPluginTest, SaveWithoutChangesRewritesTheSameDocument) {
  const std::string path = dir_.join("a.job.def");
  FilePtr file = openWritten("a.job.def", kJob);
  ASSERT_NE(file, nullptr);
  ASSERT_TRUE(file->save());
  FilePtr again = open(path);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(again->getAttributeCount(), 5);
  EXPECT_EQ(str(again->getValue(3, 0, 11)), "c11");
  EXPECT_EQ(str(again->getValue(1, 0, 2)), "600");
  int columns = 0;
  again->getAttributeDescription(4, nullptr, &columns, nullptr, nullptr);
  EXPECT_EQ(columns, 4);
}

// ---------------------------------------------------------------------------
// Dependencies.

const char kUses[] = R"({
  "name": "Uses everything",
  "uses": [
    {"type": "File", "path": "/srv/feeds/in/orders.csv"},
    {"type": "File", "path": "../Data\\customers.csv"},
    {"type": "File", "path": "./notes"},
    {"type": "Script", "path": "/srv/scripts/load.sh", "name": "Loader"},
    {"type": "File", "path": "../Mappings/orders.map.def"},
    {"type": "File", "directory": "%%FEED_DIR%%", "fileName": "crm.csv"},
    {"type": "DataFile", "fileName": "local.dat"},
    {"type": "Database", "identity": "db:postgresql/%%SALES_DSN%%"},
    {"type": "Table", "identity": "db:postgresql/sales//public/orders"},
    {"type": "Job", "identity": "/srv/other-vault/Jobs/x.job.def"},
    {"type": "Database", "source": {"type": "postgresql", "name": "warehouse"}},
    {"type": "Table", "source": {"type": "sqlite", "name": "/srv/db/inventory.db", "table": "items"}},
    {"type": "Table", "source": {"type": "postgresql", "name": "%%SALES_DSN%%", "catalog": "crm", "schema": "public", "table": "customers"}}
  ]
}
)";

TEST_F(JsonPluginTest, ListDependenciesMakesEveryResourceThroughTheFactory) {
  qztest::makeDirs(dir_.join("Jobs"));
  writeFile(dir_.join("Jobs/a.job.def"), kUses);
  FilePtr file = open(dir_.join("Jobs/a.job.def"));
  ASSERT_NE(file, nullptr);
  FakeFactory factory;
  FakeResourceList list;
  ASSERT_TRUE(file->listDependencies(&list, &factory));
  const std::string root = dir_.path();
  const std::vector<ListedResource> expected = {
      {"orders.csv", "DataFile", "/srv/feeds/in/orders.csv"},
      {"customers.csv", "DataFile", root + "/Data/customers.csv"},
      {"notes", "File", root + "/Jobs/notes"},
      {"Loader", "Script", "/srv/scripts/load.sh"},
      {"orders.map.def", "Mapping", root + "/Mappings/orders.map.def"},
      {"crm.csv", "DataFile", "fileref:%%FEED_DIR%%/crm.csv"},
      {"local.dat", "DataFile", "fileref:" + root + "/Jobs/local.dat"},
      {"", "Database", "db:postgresql/%%SALES_DSN%%"},
      {"orders", "Table", "db:postgresql/sales//public/orders"},
      {"x.job.def", "Job", "/srv/other-vault/Jobs/x.job.def"},
      {"", "Database", "db:postgresql/warehouse"},
      {"items", "Table", "db:sqlite/%2Fsrv%2Fdb%2Finventory.db///items"},
      {"customers", "Table", "db:postgresql/%%SALES_DSN%%/crm/public/customers"},
  };
  EXPECT_EQ(list.listed(), expected);
  EXPECT_EQ(list.lastColumn, 0);
  // Files, objects and identities go to getResource, data sources to
  // getDataResource.
  ASSERT_EQ(factory.calls.size(), expected.size());
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_FALSE(factory.calls[i].dataResource) << i;
    EXPECT_EQ(factory.calls[i].name, expected[i].name);
    EXPECT_EQ(factory.calls[i].type, expected[i].type);
    EXPECT_EQ(factory.calls[i].identity, expected[i].identity);
  }
  EXPECT_TRUE(factory.calls[10].dataResource);
  EXPECT_EQ(factory.calls[10].uri, "datasource://postgresql/warehouse");
  EXPECT_EQ(factory.calls[11].uri, "datasource://sqlite/%2Fsrv%2Fdb%2Finventory.db///items");
  EXPECT_EQ(factory.calls[12].uri, "datasource://postgresql/%%SALES_DSN%%/crm/public/customers");
  // Everything the factory handed out was released by the plug-in.
  EXPECT_EQ(factory.live, 0);
}

TEST_F(JsonPluginTest, ListDependenciesFoldsDotsButNotThroughMacros) {
  qztest::makeDirs(dir_.join("a/b"));
  writeFile(dir_.join("a/b/x.job.def"), R"({"uses": [
    {"type": "File", "path": "../../../../../../../top.csv"},
    {"type": "File", "path": "%%DIR%%/../up.csv"},
    {"type": "File", "path": "/srv/./x/../y.csv"},
    {"type": "File", "path": "C:\\feeds\\..\\in\\z.csv"},
    {"type": "File", "path": "sub//./w.csv"}
  ]})");
  FilePtr file = open(dir_.join("a/b/x.job.def"));
  ASSERT_NE(file, nullptr);
  FakeFactory factory;
  FakeResourceList list;
  ASSERT_TRUE(file->listDependencies(&list, &factory));
  const std::vector<ListedResource> expected = {
      {"top.csv", "DataFile", "/top.csv"},
      {"up.csv", "DataFile", "%%DIR%%/../up.csv"},
      {"y.csv", "DataFile", "/srv/y.csv"},
      {"z.csv", "DataFile", "C:/in/z.csv"},
      {"w.csv", "DataFile", dir_.path() + "/a/b/sub/w.csv"},
  };
  EXPECT_EQ(list.listed(), expected);
  EXPECT_EQ(factory.live, 0);
}

TEST_F(JsonPluginTest, ListDependenciesListsEachResourceOnce) {
  qztest::makeDirs(dir_.join("Jobs"));
  writeFile(dir_.join("Jobs/a.job.def"), R"({"uses": [
    {"type": "File", "path": "../Data/orders.csv"},
    {"type": "File", "path": "../Jobs/../Data/orders.csv"},
    {"type": "Table", "source": {"type": "postgresql", "name": "sales", "schema": "public", "table": "t"}},
    {"type": "Table", "identity": "db:postgresql/sales//public/t"}
  ]})");
  FilePtr file = open(dir_.join("Jobs/a.job.def"));
  ASSERT_NE(file, nullptr);
  FakeFactory factory;
  FakeResourceList list;
  ASSERT_TRUE(file->listDependencies(&list, &factory));
  const std::vector<ListedResource> expected = {
      {"orders.csv", "DataFile", dir_.path() + "/Data/orders.csv"},
      {"t", "Table", "db:postgresql/sales//public/t"},
  };
  EXPECT_EQ(list.listed(), expected);
  EXPECT_EQ(factory.calls.size(), 4u);
  EXPECT_EQ(factory.live, 0);
}

TEST_F(JsonPluginTest, ListDependenciesOfDocumentWithoutUsesListsNothing) {
  for (const char* text : {"{}", R"({"uses": []})"}) {
    FilePtr file = openWritten("a.job.def", text);
    ASSERT_NE(file, nullptr);
    FakeFactory factory;
    FakeResourceList list;
    EXPECT_TRUE(file->listDependencies(&list, &factory));
    EXPECT_TRUE(list.listed().empty());
    EXPECT_TRUE(factory.calls.empty());
  }
}

TEST_F(JsonPluginTest, ListDependenciesRefusesMalformedEntriesBeforeMakingAnything) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"(5)", "uses[1] is not an object"},
      {R"({"path": "x.csv"})", "uses[1] has no type"},
      {R"({"type": "", "path": "x.csv"})", "uses[1] has no type"},
      {R"({"type": 3, "path": "x.csv"})", "uses[1] has no type"},
      {R"({"type": "File", "name": 3, "path": "x.csv"})", "uses[1]: \"name\" is not a text"},
      {R"({"type": "File"})",
       "uses[1] needs exactly one of \"path\", \"fileName\", \"identity\" and \"source\""},
      {R"({"type": "File", "path": "a.csv", "identity": "b"})",
       "uses[1] needs exactly one of \"path\", \"fileName\", \"identity\" and \"source\""},
      {R"({"type": "File", "path": ""})", "uses[1]: \"path\" is not a file path"},
      {R"({"type": "File", "path": 7})", "uses[1]: \"path\" is not a file path"},
      {R"({"type": "File", "path": "/srv/dir/"})", "uses[1]: \"path\" ends in a separator"},
      {R"({"type": "File", "path": "/.."})", "uses[1]: \"path\" names no file"},
      {R"({"type": "File", "fileName": "a/b.csv"})", "uses[1]: \"fileName\" is not a file name"},
      {R"({"type": "File", "fileName": ""})", "uses[1]: \"fileName\" is not a file name"},
      {R"({"type": "File", "fileName": "b.csv", "directory": 1})",
       "uses[1]: \"directory\" is not a text"},
      {R"({"type": "Job", "identity": ""})", "uses[1]: \"identity\" is not a text"},
      {R"({"type": "Table", "source": "x"})", "uses[1]: \"source\" is not an object"},
      {R"({"type": "Table", "source": {"type": "pg", "name": 5, "table": "t"}})",
       "uses[1]: \"source\" member \"name\" is not a text"},
      {R"({"type": "Table", "source": {"type": "pg", "table": "t"}})",
       "uses[1]: \"source\" needs a \"type\" and a \"name\""},
      {R"({"type": "Table", "source": {"type": "pg", "name": "s"}})",
       "uses[1]: a \"Table\" source needs a \"table\""},
      {R"({"type": "Database", "source": {"type": "pg", "name": "s", "table": "t"}})",
       "uses[1]: a \"Database\" source has no \"table\""},
      {R"({"type": "DataFile", "source": {"type": "pg", "name": "s"}})",
       "uses[1]: a \"source\" names a \"Database\" or a \"Table\""},
      {R"({"type": "Table", "name": "n", "source": {"type": "pg", "name": "s", "table": "t"}})",
       "uses[1]: a data source is named by its table; \"name\" is not allowed"},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::string name = "u" + std::to_string(i) + ".job.def";
    FilePtr file = openWritten(
        name, R"({"uses": [{"type": "File", "path": "/srv/ok.csv"}, )" + cases[i].first + "]}");
    ASSERT_NE(file, nullptr) << cases[i].first;
    qztest::LogCapture log;
    FakeFactory factory;
    FakeResourceList list;
    EXPECT_FALSE(file->listDependencies(&list, &factory)) << cases[i].first;
    EXPECT_TRUE(factory.calls.empty()) << cases[i].first;  // not even the valid first entry
    EXPECT_TRUE(list.listed().empty());
    EXPECT_TRUE(log.contains(
        "Cannot list the resources used by \"" + dir_.join(name) + "\": " + cases[i].second,
        QZLOG_ERROR, kLogger))
        << cases[i].first << "\n"
        << log.dump();
  }
}

TEST_F(JsonPluginTest, ListDependenciesRefusesIdentitiesOfTheWrongForm) {
  // A database or table must carry an identity of its own form; the text comes
  // from the base layer's resource manager.
  for (const char* entry : {R"({"type": "Database", "identity": "/srv/not-a-db"})",
                            R"({"type": "Table", "identity": "db:postgresql/sales"})",
                            R"({"type": "File", "fileName": "x\u0001.csv"})"}) {
    FilePtr file = openWritten("a.job.def", std::string(R"({"uses": [)") + entry + "]}");
    ASSERT_NE(file, nullptr);
    qztest::LogCapture log;
    FakeFactory factory;
    FakeResourceList list;
    EXPECT_FALSE(file->listDependencies(&list, &factory)) << entry;
    EXPECT_TRUE(factory.calls.empty());
    EXPECT_TRUE(log.containsFragment("Cannot list the resources used by \"" +
                                     dir_.join("a.job.def") + "\": uses[0]: "))
        << log.dump();
  }
}

TEST_F(JsonPluginTest, ListDependenciesFailsWhenTheFactoryMakesNothing) {
  FilePtr file = openWritten("a.job.def", kUses);
  ASSERT_NE(file, nullptr);
  for (int failing : {1, 11}) {
    qztest::LogCapture log;
    FakeFactory factory;
    factory.failAtCall = failing;
    factory.errorMessage = "store is busy";
    FakeResourceList list;
    EXPECT_FALSE(file->listDependencies(&list, &factory));
    EXPECT_EQ(factory.calls.size(), static_cast<std::size_t>(failing));
    EXPECT_EQ(factory.live, 0);
    EXPECT_EQ(list.listed().size(), static_cast<std::size_t>(failing - 1));
    const std::string what = failing == 1 ? "DataFile \"/srv/feeds/in/orders.csv\""
                                          : "Database \"datasource://postgresql/warehouse\"";
    EXPECT_TRUE(log.contains("Cannot list the resources used by \"" + dir_.join("a.job.def") +
                             "\": the resource factory made no resource for " + what +
                             ": store is busy"))
        << log.dump();
  }
}

TEST_F(JsonPluginTest, ListDependenciesFailsWhenTheListCannotGrow) {
  FilePtr file = openWritten("a.job.def", kUses);
  ASSERT_NE(file, nullptr);
  FakeFactory factory;
  FakeResourceList list;
  list.refuseRows = true;
  EXPECT_FALSE(file->listDependencies(&list, &factory));
  EXPECT_EQ(factory.live, 0);
  EXPECT_EQ(list.setCalls, 0);
}

TEST_F(JsonPluginTest, ListDependenciesNeedsAListAndAFactory) {
  FilePtr file = openWritten("a.job.def", kUses);
  ASSERT_NE(file, nullptr);
  FakeFactory factory;
  FakeResourceList list;
  EXPECT_FALSE(file->listDependencies(nullptr, &factory));
  EXPECT_FALSE(file->listDependencies(&list, nullptr));
  EXPECT_TRUE(factory.calls.empty());
}

TEST_F(JsonPluginTest, ExceptionsFromTheFactoryDoNotLeaveThePlugin) {
  FilePtr file = openWritten("a.job.def", kUses);
  ASSERT_NE(file, nullptr);
  qztest::LogCapture log;
  FakeFactory factory;
  factory.throwAtEveryCall = true;
  FakeResourceList list;
  EXPECT_FALSE(file->listDependencies(&list, &factory));
  EXPECT_TRUE(log.contains("Unexpected failure in listDependencies on \"" + dir_.join("a.job.def") +
                               "\": factory failure",
                           QZLOG_ERROR, kLogger))
      << log.dump();
  // The file is still usable.
  EXPECT_EQ(file->getAttributeCount(), 0);
}

// ---------------------------------------------------------------------------
// Samples and threads.

TEST_F(JsonPluginTest, EverySampleDefinitionOpensAndListsItsResources) {
  const std::string samples = std::string(QZ_TEST_SOURCE_ROOT) + "/plugins/defs/samples";
  int definitions = 0;
  int dataFiles = 0;
  std::vector<ListedResource> all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(samples)) {
    if (!entry.is_regular_file()) continue;
    const std::string path = entry.path().string();
    std::vector<QzvMetaDataPlugin*> handlers;
    for (const auto& p : plugins_) {
      if (p.second->canHandle(qzb(path))) handlers.push_back(p.second);
    }
    if (handlers.empty()) {
      EXPECT_EQ(entry.path().extension().string(), ".csv") << path;
      ++dataFiles;
      continue;
    }
    ASSERT_EQ(handlers.size(), 1u) << path;
    ++definitions;
    FilePtr file(handlers[0]->openFile(qzb(path)));
    ASSERT_NE(file, nullptr) << path;
    QzbString name;
    EXPECT_TRUE(file->getDisplayName(&name, nullptr)) << path;
    EXPECT_GT(file->getAttributeCount(), 0) << path;
    FakeFactory factory;
    FakeResourceList list;
    ASSERT_TRUE(file->listDependencies(&list, &factory)) << path;
    EXPECT_FALSE(list.listed().empty()) << path;
    EXPECT_EQ(factory.live, 0);
    for (const ListedResource& r : list.listed()) all.push_back(r);
    // A file named by a sample lies in the sample tree, so the demo vault is
    // complete.
    for (const ListedResource& r : list.listed()) {
      if (r.identity.rfind(samples, 0) == 0) {
        EXPECT_TRUE(std::filesystem::exists(r.identity)) << path << " uses " << r.identity;
      }
    }
  }
  EXPECT_GE(definitions, 8);
  EXPECT_GE(dataFiles, 3);
  auto uses = [&](const std::string& type, const std::string& identity) {
    return std::any_of(all.begin(), all.end(), [&](const ListedResource& r) {
      return r.type == type && r.identity == identity;
    });
  };
  EXPECT_TRUE(uses("Database", "db:postgresql/%%SALES_DSN%%"));
  EXPECT_TRUE(uses("Table", "db:postgresql/%%SALES_DSN%%//public/orders"));
  EXPECT_TRUE(uses("DataFile", samples + "/Data/orders.csv"));
  EXPECT_TRUE(uses("Job", samples + "/Jobs/Definitions/nightly-sales-load.job.def"));
  EXPECT_TRUE(uses("Query", samples + "/Queries/top-customers.qry.def"));
  EXPECT_TRUE(uses("Mapping", samples + "/Mappings/orders-to-sales.map.def"));
}

TEST_F(JsonPluginTest, DistinctFilesMayBeUsedFromSeveralThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20;
  for (int t = 0; t < kThreads; ++t) {
    writeFile(dir_.join("t" + std::to_string(t) + ".job.def"), kUses);
  }
  QzvMetaDataPlugin* job = plugin("Job");
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const std::string path = dir_.join("t" + std::to_string(t) + ".job.def");
      for (int round = 0; round < kRounds; ++round) {
        QzvMetaDataFile* file = job->openFile(qzb(path));
        if (file == nullptr) {
          ++failures;
          return;
        }
        const std::string name = "thread " + std::to_string(t) + " round " + std::to_string(round);
        FakeFactory factory;
        FakeResourceList list;
        if (!file->offerName(qzb(name)) || !file->save() ||
            !file->listDependencies(&list, &factory) || list.listed().size() != 13u) {
          ++failures;
        }
        file->release();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
  for (int t = 0; t < kThreads; ++t) {
    FilePtr file = open(dir_.join("t" + std::to_string(t) + ".job.def"));
    ASSERT_NE(file, nullptr);
    QzbString name;
    ASSERT_TRUE(file->getDisplayName(&name, nullptr));
    EXPECT_EQ(str(name), "thread " + std::to_string(t) + " round " + std::to_string(kRounds - 1));
  }
  EXPECT_EQ(entriesOf(dir_.path()).size(), static_cast<std::size_t>(kThreads));
}

}  // namespace
