// Finding and creating single resources: getResource, createResource, the
// resolver pass over every row read, getResourceForObject, and the resource
// factory that plug-ins use (getResource, getDataResource).
#include <string>

#include <gtest/gtest.h>

#include "qzbase/uri.h"
#include "impact_fixture.h"
#include "support/log_capture.h"

namespace {

using qztest::FakeObject;
using qztest::FakePlugin;
using qztest::FakeResolver;
using qztest::ImpactTest;
using qztest::RawStore;
using qztest::ResourcePtr;
using qztest::str;

struct ReleaseUri {
  void operator()(QzDataURI* uri) const {
    if (uri != nullptr) uri->release();
  }
};
using DataUriPtr = std::unique_ptr<QzDataURI, ReleaseUri>;

DataUriPtr dataUri(const char* type, const char* source, const char* catalog,
                   const char* schema, const char* table) {
  return DataUriPtr(createQzDataURI(QzbString(type), QzbString(source), QzbString(catalog),
                                    QzbString(schema), QzbString(table)));
}

// ---------------------------------------------------------------------------
// getResource and createResource

TEST_F(ImpactTest, CreateResourceStoresANewRow) {
  ResourcePtr created = make("orders.csv", "DataFile", "/feeds/orders.csv");
  ASSERT_NE(created, nullptr);
  EXPECT_EQ(str(created->getName()), "orders.csv");
  EXPECT_EQ(str(created->getResourceType()), "DataFile");
  EXPECT_EQ(str(created->getResourceIdentity()), "/feeds/orders.csv");
  EXPECT_EQ(str(created->getId()), "1");
  // Never analysed: mod_date is NULL and reads as the date of value 0.
  EXPECT_FALSE(created->getAnalysisDate().isNull());
  EXPECT_EQ(created->getAnalysisDate().asDouble(), 0.0);
  RawStore raw(storePath());
  EXPECT_EQ(raw.rows("SELECT * FROM v_imparcs"),
            (std::vector<std::string>{"1|orders.csv|/feeds/orders.csv|DataFile|NULL"}));
}

TEST_F(ImpactTest, CreatingTwiceGivesTheSameIdAndKeepsTheFirstName) {
  ResourcePtr first = make("first name", "File", "/v/x");
  ResourcePtr second = make("second name", "File", "/v/x");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(str(second->getId()), str(first->getId()));
  EXPECT_EQ(str(second->getName()), "first name");
  EXPECT_EQ(count("v_imparcs"), 1);
}

TEST_F(ImpactTest, GetResourceFindsByTypeAndExactIdentity) {
  make("x", "File", "/v/Case");
  EXPECT_EQ(analysis_->getResource(QzbString("File"), QzbString("/v/case")), nullptr);
  EXPECT_EQ(analysis_->getResource(QzbString("Table"), QzbString("/v/Case")), nullptr);
  EXPECT_EQ(analysis_->getResource(QzbString(), QzbString()), nullptr);
  ResourcePtr found(analysis_->getResource(QzbString("File"), QzbString("/v/Case")));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(str(found->getName()), "x");
  // Finding nothing is not an error.
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
}

TEST_F(ImpactTest, GetResourceReturnsTheLastOfSeveralMatchingRows) {
  createStore();
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES "
                       "(4, 'one', '/v/d', 'File'), (9, 'two', '/v/d', 'File')"));
  ResourcePtr found(analysis_->getResource(QzbString("File"), QzbString("/v/d")));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(str(found->getId()), "9");
}

TEST_F(ImpactTest, ResourceReadsItsAnalysisDateAndMacroFlagFromTheRow) {
  createStore();
  RawStore raw(storePath());
  ASSERT_TRUE(raw.exec("INSERT INTO v_imparcs (name, res_idty, res_type, mod_date) VALUES "
                       "('m', 'db:%%SRC%%/x', 'Database', '86400.25'),"
                       "('n', 'a%%b', 'File', 'not a number')"));
  ResourcePtr macro(analysis_->getResource(QzbString("Database"), QzbString("db:%%SRC%%/x")));
  ASSERT_NE(macro, nullptr);
  EXPECT_TRUE(macro->IsResourceIdentityMacroValue());
  EXPECT_EQ(macro->getAnalysisDate().asDouble(), 86400.25);
  ResourcePtr plain(analysis_->getResource(QzbString("File"), QzbString("a%%b")));
  ASSERT_NE(plain, nullptr);
  EXPECT_FALSE(plain->IsResourceIdentityMacroValue());  // one "%%" is no macro
  EXPECT_EQ(plain->getAnalysisDate().asDouble(), 0.0);
}

// ---------------------------------------------------------------------------
// The resolver

TEST_F(ImpactTest, WithoutResolverEveryResourceIsResolvedWithoutLocation) {
  ResourcePtr file = make("f", "File", "/missing/file");
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(file->IsResolved());
  EXPECT_TRUE(file->getResourceLocation().isEmpty());
  // setResourceLocation reports false and changes nothing.
  QzvResourceImpl* resource = new QzvResourceImpl();
  EXPECT_FALSE(analysis_->setResourceLocation(resource));
  EXPECT_TRUE(resource->IsResolved());
  resource->release();
}

TEST_F(ImpactTest, TableStaysResolvedWhenTheResolverSaysNoButAFileDoesNot) {
  make("t", "Table", "db:pg/s///t");
  make("d", "Database", "db:pg/s");
  make("f", "File", "/v/f");
  FakeResolver resolver;
  resolver.answer = false;
  analysis_->registerResourceResolver(&resolver);
  ResourcePtr table(analysis_->getResource(QzbString("Table"), QzbString("db:pg/s///t")));
  ResourcePtr database(analysis_->getResource(QzbString("Database"), QzbString("db:pg/s")));
  ResourcePtr file(analysis_->getResource(QzbString("File"), QzbString("/v/f")));
  ASSERT_NE(table, nullptr);
  ASSERT_NE(database, nullptr);
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(table->IsResolved());
  EXPECT_TRUE(database->IsResolved());
  EXPECT_FALSE(file->IsResolved());
  EXPECT_EQ(resolver.lastIdentity, "/v/f");
}

TEST_F(ImpactTest, ResolverLocationAndNameAreTakenButNotStored) {
  make("old", "File", "/v/f");
  FakeResolver resolver;
  resolver.location = "/mnt/copy/f";
  resolver.newName = "better";
  analysis_->registerResourceResolver(&resolver);
  ResourcePtr file(analysis_->getResource(QzbString("File"), QzbString("/v/f")));
  ASSERT_NE(file, nullptr);
  EXPECT_TRUE(file->IsResolved());
  EXPECT_EQ(str(file->getResourceLocation()), "/mnt/copy/f");
  EXPECT_EQ(str(file->getName()), "better");
  RawStore raw(storePath());
  EXPECT_EQ(raw.rows("SELECT name FROM v_imparcs"), (std::vector<std::string>{"old"}));
}

// ---------------------------------------------------------------------------
// getResourceForObject

TEST_F(ImpactTest, ObjectWithoutExtensionOrPluginIsAFileKnownByItsPath) {
  FakeObject object("/srv/vault//Data\\README");
  ResourcePtr resource(analysis_->getResourceForObject(&object));
  ASSERT_NE(resource, nullptr) << str(analysis_->getErrorMessage());
  EXPECT_EQ(str(resource->getResourceType()), "File");
  EXPECT_EQ(str(resource->getResourceIdentity()), "/srv/vault/Data/README");
  EXPECT_EQ(str(resource->getName()), "README");
}

TEST_F(ImpactTest, ObjectTypeComesFromItsExtension) {
  FakeObject csv("/srv/vault/Data/orders.CSV");
  ResourcePtr data(analysis_->getResourceForObject(&csv));
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(str(data->getResourceType()), "DataFile");
  EXPECT_EQ(str(data->getName()), "orders.CSV");
  FakeObject job("/srv/vault/Jobs/load.job.def");
  ResourcePtr jobResource(analysis_->getResourceForObject(&job));
  ASSERT_NE(jobResource, nullptr);
  EXPECT_EQ(str(jobResource->getResourceType()), "Job");
  FakeObject unknown("/srv/vault/x.unknownext");
  ResourcePtr other(analysis_->getResourceForObject(&unknown));
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(str(other->getResourceType()), "File");
}

TEST_F(ImpactTest, ObjectHandledByAPluginTakesItsIdentityAndType) {
  FakePlugin plugin(".tst");
  QzvMetaDataPlugin* plugins[] = {&plugin};
  registry_.count = 1;
  registry_.plugins = plugins;
  FakeObject object("/srv/vault\\Jobs//a.tst");
  ResourcePtr resource(analysis_->getResourceForObject(&object));
  registry_.count = 0;
  registry_.plugins = nullptr;
  ASSERT_NE(resource, nullptr) << str(analysis_->getErrorMessage());
  EXPECT_EQ(plugin.lastIdentityPath, "/srv/vault/Jobs/a.tst");  // already normalised
  EXPECT_EQ(str(resource->getResourceIdentity()), "plugin:/srv/vault/Jobs/a.tst");
  EXPECT_EQ(str(resource->getResourceType()), "Job");
  EXPECT_EQ(str(resource->getName()), "a.tst");
}

TEST_F(ImpactTest, NullObjectOrObjectWithoutPathGivesNull) {
  EXPECT_EQ(analysis_->getResourceForObject(nullptr), nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
  qztest::LogCapture log;
  FakeObject pathless("");
  EXPECT_EQ(analysis_->getResourceForObject(&pathless), nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()), "Cannot take a file name from the object's path \"\"");
  FakeObject directory("/srv/vault/Data/");
  EXPECT_EQ(analysis_->getResourceForObject(&directory), nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()),
            "Cannot take a file name from the object's path \"/srv/vault/Data/\"");
  EXPECT_TRUE(log.contains(str(analysis_->getErrorMessage()), QZLOG_ERROR)) << log.dump();
  EXPECT_FALSE(qztest::pathExists(storePath()));  // refused before the store was opened
}

// ---------------------------------------------------------------------------
// The factory

TEST_F(ImpactTest, FactoryFindsOrCreates) {
  QzvResourceFactoryImpl* factory = new QzvResourceFactoryImpl(analysis_, QzbString("plugins"));
  EXPECT_EQ(str(factory->getPluginPath()), "plugins");
  EXPECT_EQ(str(factory->getErrorMessage()), "");
  ResourcePtr created(factory->getResource(QzbString("a"), QzbString("File"), QzbString("/a")));
  ASSERT_NE(created, nullptr);
  ResourcePtr again(factory->getResource(QzbString("b"), QzbString("File"), QzbString("/a")));
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(str(again->getId()), str(created->getId()));
  EXPECT_EQ(str(again->getName()), "a");
  EXPECT_EQ(count("v_imparcs"), 1);
  factory->release();
}

TEST_F(ImpactTest, FactoryPassesTheResolverThrough) {
  QzvResourceFactoryImpl* factory = new QzvResourceFactoryImpl(analysis_, QzbString());
  EXPECT_EQ(factory->getResourceResolver(), nullptr);
  FakeResolver resolver;
  factory->registerResourceResolver(&resolver);
  EXPECT_EQ(analysis_->getResourceResolver(), &resolver);
  EXPECT_EQ(factory->getResourceResolver(), &resolver);
  factory->release();
  // Releasing the factory leaves the analysis object alone.
  EXPECT_EQ(analysis_->getResourceResolver(), &resolver);
}

TEST_F(ImpactTest, FactoryMakesDatabaseAndTableResourcesFromDataUris) {
  QzvResourceFactoryImpl* factory = new QzvResourceFactoryImpl(analysis_, QzbString());
  EXPECT_EQ(factory->getDataResource(nullptr), nullptr);

  DataUriPtr database = dataUri("postgresql", "sales", "", "", "");
  ResourcePtr db(factory->getDataResource(database.get()));
  ASSERT_NE(db, nullptr) << str(analysis_->getErrorMessage());
  EXPECT_EQ(str(db->getResourceType()), "Database");
  EXPECT_EQ(str(db->getResourceIdentity()), "db:postgresql/sales");
  EXPECT_EQ(str(db->getName()), "");

  DataUriPtr table = dataUri("postgresql", "%%SALES_DSN%%", "crm", "public", "orders");
  ResourcePtr tb(factory->getDataResource(table.get()));
  ASSERT_NE(tb, nullptr);
  EXPECT_EQ(str(tb->getResourceType()), "Table");
  EXPECT_EQ(str(tb->getResourceIdentity()), "db:postgresql/%%SALES_DSN%%/crm/public/orders");
  EXPECT_EQ(str(tb->getName()), "orders");
  EXPECT_TRUE(tb->IsResourceIdentityMacroValue());

  // No source: neither a database nor a table identity can be made.
  DataUriPtr incomplete = dataUri("postgresql", "", "", "", "orders");
  EXPECT_EQ(factory->getDataResource(incomplete.get()), nullptr);
  EXPECT_EQ(count("v_imparcs"), 2);
  factory->release();
}

TEST_F(ImpactTest, CreateResourceListIsEmpty) {
  qztest::ResourceListPtr list(analysis_->createResourceList());
  ASSERT_NE(list, nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(), nullptr);
}

}  // namespace
