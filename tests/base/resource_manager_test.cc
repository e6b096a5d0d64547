// The resource manager: database, table and file-reference identities.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "qzbase/uri.h"

namespace {

struct ManagerReleaser {
  void operator()(QzResourceManager* manager) const { manager->release(); }
};
using ManagerPtr = std::unique_ptr<QzResourceManager, ManagerReleaser>;

class ResourceManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    manager_.reset(createQzResourceManager());
    ASSERT_NE(manager_, nullptr);
  }

  // The five parts read back from a table identity, or "FAILED: <message>".
  std::string tableParts(const QzbString& identity) {
    QzbString type, source, catalog, schema, table;
    if (!manager_->parseTableIdentity(identity, &type, &source, &catalog, &schema, &table)) {
      return "FAILED: " + manager_->getErrorMessage().toStdString();
    }
    return type.toStdString() + "|" + source.toStdString() + "|" + catalog.toStdString() + "|" +
           schema.toStdString() + "|" + table.toStdString();
  }

  ManagerPtr manager_;
};

TEST_F(ResourceManagerTest, NewManagerHasNoError) {
  EXPECT_FALSE(manager_->getErrorMessage().isNull());
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "");
}

// ---------------------------------------------------------------------------
// Databases

TEST_F(ResourceManagerTest, DatabaseIdentityRoundTrip) {
  QzbString identity;
  ASSERT_TRUE(manager_->makeDatabaseIdentity("postgresql", "sales", &identity));
  EXPECT_STREQ(identity.asCstr(), "db:postgresql/sales");
  QzbString type, source;
  ASSERT_TRUE(manager_->parseDatabaseIdentity(identity, &type, &source));
  EXPECT_STREQ(type.asCstr(), "postgresql");
  EXPECT_STREQ(source.asCstr(), "sales");
}

TEST_F(ResourceManagerTest, DatabaseIdentityCarriesMacrosUnchanged) {
  QzbString identity;
  ASSERT_TRUE(manager_->makeDatabaseIdentity("postgresql", "%%SALES_DSN%%", &identity));
  EXPECT_STREQ(identity.asCstr(), "db:postgresql/%%SALES_DSN%%");
  QzbString type, source;
  ASSERT_TRUE(manager_->parseDatabaseIdentity("db:%%DB_KIND%%/%%SALES_DSN%%", &type, &source));
  EXPECT_STREQ(type.asCstr(), "%%DB_KIND%%");
  EXPECT_STREQ(source.asCstr(), "%%SALES_DSN%%");
}

TEST_F(ResourceManagerTest, DatabaseFileNameAsSourceIsEscaped) {
  QzbString identity;
  ASSERT_TRUE(manager_->makeDatabaseIdentity("sqlite", "/srv/data/inventory.db", &identity));
  EXPECT_STREQ(identity.asCstr(), "db:sqlite/%2Fsrv%2Fdata%2Finventory.db");
  QzbString source;
  ASSERT_TRUE(manager_->parseDatabaseIdentity(identity, nullptr, &source));
  EXPECT_STREQ(source.asCstr(), "/srv/data/inventory.db");
}

TEST_F(ResourceManagerTest, MalformedDatabaseIdentitiesAreRefused) {
  struct Case {
    const char* text;
    const char* message;
  } cases[] = {
      {"", "Database identity is null or empty"},
      {"pg/sales", "Database identity must begin with \"db:\""},
      {"DB:pg/sales", "Database identity must begin with \"db:\""},
      {"/srv/sales.db", "Database identity must begin with \"db:\""},
      {"fileref:/d/x", "Database identity must begin with \"db:\""},
      {"db:", "Database identity must have two parts: data-source type and name"},
      {"db:pg", "Database identity must have two parts: data-source type and name"},
      {"db:pg/sales/x", "Database identity must have two parts: data-source type and name"},
      {"db:pg/s/c/s/t", "Database identity must have two parts: data-source type and name"},
      {"db:/sales", "Data-source type is empty"},
      {"db:pg/", "Data-source name is empty"},
      {"db:pg/sa\tles", "Identity holds a control character"},
  };
  for (const Case& c : cases) {
    QzbString type("keep"), source("keep");
    EXPECT_FALSE(manager_->parseDatabaseIdentity(c.text, &type, &source)) << c.text;
    EXPECT_STREQ(manager_->getErrorMessage().asCstr(), c.message) << c.text;
    EXPECT_STREQ(type.asCstr(), "keep");
    EXPECT_STREQ(source.asCstr(), "keep");
  }
  EXPECT_FALSE(manager_->parseDatabaseIdentity(QzbString(), nullptr, nullptr));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Database identity is null or empty");
}

TEST_F(ResourceManagerTest, DatabaseIdentityNeedsTypeAndSource) {
  QzbString identity("keep");
  EXPECT_FALSE(manager_->makeDatabaseIdentity("", "sales", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Data-source type is empty");
  EXPECT_FALSE(manager_->makeDatabaseIdentity("pg", QzbString(), &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Data-source name is empty");
  EXPECT_FALSE(manager_->makeDatabaseIdentity("pg", "a\nb", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Identity holds a control character");
  EXPECT_FALSE(manager_->makeDatabaseIdentity("pg", "sales", nullptr));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "No place given for the database identity");
  EXPECT_STREQ(identity.asCstr(), "keep");
}

TEST_F(ResourceManagerTest, ErrorStaysUntilTheNextFailure) {
  QzbString identity;
  EXPECT_FALSE(manager_->makeDatabaseIdentity("", "x", &identity));
  EXPECT_TRUE(manager_->makeDatabaseIdentity("pg", "x", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Data-source type is empty");
}

// ---------------------------------------------------------------------------
// Tables

TEST_F(ResourceManagerTest, TableIdentityRoundTrip) {
  QzbString identity;
  ASSERT_TRUE(
      manager_->makeTableIdentity("postgresql", "sales", "crm", "public", "orders", &identity));
  EXPECT_STREQ(identity.asCstr(), "db:postgresql/sales/crm/public/orders");
  EXPECT_EQ(tableParts(identity), "postgresql|sales|crm|public|orders");
}

TEST_F(ResourceManagerTest, TableIdentityAllowsEmptyCatalogAndSchema) {
  QzbString identity;
  ASSERT_TRUE(manager_->makeTableIdentity("sqlite", "inventory", QzbString(), "", "items",
                                          &identity));
  EXPECT_STREQ(identity.asCstr(), "db:sqlite/inventory///items");
  EXPECT_EQ(tableParts(identity), "sqlite|inventory|||items");
  QzbString catalog, schema;
  ASSERT_TRUE(
      manager_->parseTableIdentity(identity, nullptr, nullptr, &catalog, &schema, nullptr));
  EXPECT_FALSE(catalog.isNull());
  EXPECT_TRUE(catalog.isEmpty());
  EXPECT_FALSE(schema.isNull());
}

TEST_F(ResourceManagerTest, TableIdentityCarriesMacrosUnchanged) {
  QzbString identity;
  ASSERT_TRUE(manager_->makeTableIdentity("postgresql", "%%SALES_DSN%%", "", "%%SCHEMA%%",
                                          "orders_%%YEAR%%", &identity));
  EXPECT_STREQ(identity.asCstr(), "db:postgresql/%%SALES_DSN%%//%%SCHEMA%%/orders_%%YEAR%%");
  EXPECT_EQ(tableParts(identity), "postgresql|%%SALES_DSN%%||%%SCHEMA%%|orders_%%YEAR%%");
}

TEST_F(ResourceManagerTest, TableAndDatabaseIdentitiesCannotBeConfused) {
  QzbString database, table;
  ASSERT_TRUE(manager_->makeDatabaseIdentity("pg", "sales", &database));
  ASSERT_TRUE(manager_->makeTableIdentity("pg", "sales", "c", "s", "t", &table));
  EXPECT_FALSE(manager_->parseTableIdentity(database, nullptr, nullptr, nullptr, nullptr,
                                            nullptr));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(),
               "Table identity must have five parts: data-source type and name, catalog, "
               "schema and table");
  EXPECT_FALSE(manager_->parseDatabaseIdentity(table, nullptr, nullptr));
  EXPECT_FALSE(manager_->parseFileReference(table, nullptr, nullptr));
  EXPECT_FALSE(manager_->parseFileReference(database, nullptr, nullptr));
  // A slash inside a part does not add a part.
  QzbString slashy;
  ASSERT_TRUE(manager_->makeDatabaseIdentity("pg/x", "a/b/c", &slashy));
  EXPECT_FALSE(manager_->parseTableIdentity(slashy, nullptr, nullptr, nullptr, nullptr,
                                            nullptr));
  QzbString type, source;
  ASSERT_TRUE(manager_->parseDatabaseIdentity(slashy, &type, &source));
  EXPECT_STREQ(type.asCstr(), "pg/x");
  EXPECT_STREQ(source.asCstr(), "a/b/c");
}

TEST_F(ResourceManagerTest, TableIdentityNeedsTypeSourceAndTable) {
  QzbString identity("keep");
  EXPECT_FALSE(manager_->makeTableIdentity("pg", "s", "c", "s", "", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Table name is empty");
  EXPECT_FALSE(manager_->makeTableIdentity("", "s", "c", "s", "t", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Data-source type is empty");
  EXPECT_FALSE(manager_->makeTableIdentity("pg", "", "c", "s", "t", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Data-source name is empty");
  EXPECT_FALSE(manager_->makeTableIdentity("pg", "s", "c\x7f", "s", "t", &identity));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "Identity holds a control character");
  EXPECT_FALSE(manager_->makeTableIdentity("pg", "s", "c", "s", "t", nullptr));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "No place given for the table identity");
  EXPECT_STREQ(identity.asCstr(), "keep");
}

TEST_F(ResourceManagerTest, MalformedTableIdentitiesAreRefused) {
  EXPECT_EQ(tableParts(""), "FAILED: Table identity is null or empty");
  EXPECT_EQ(tableParts(QzbString()), "FAILED: Table identity is null or empty");
  EXPECT_EQ(tableParts("table:pg/s/c/s/t"), "FAILED: Table identity must begin with \"db:\"");
  EXPECT_EQ(tableParts("db:pg/s/c/s"),
            "FAILED: Table identity must have five parts: data-source type and name, "
            "catalog, schema and table");
  EXPECT_EQ(tableParts("db:pg/s/c/s/t/u"),
            "FAILED: Table identity must have five parts: data-source type and name, "
            "catalog, schema and table");
  EXPECT_EQ(tableParts("db:pg/s/c/s/"), "FAILED: Table name is empty");
  EXPECT_EQ(tableParts("db:/s/c/s/t"), "FAILED: Data-source type is empty");
  EXPECT_EQ(tableParts("db:pg//c/s/t"), "FAILED: Data-source name is empty");
  EXPECT_EQ(tableParts(QzbString::fromBytes("db:pg/s/c/s/t\0", 14)),
            "FAILED: Identity holds a control character");
}

TEST_F(ResourceManagerTest, AwkwardPartsRoundTrip) {
  const char* awkward[] = {"%",   "%%",   "%%%", "%/",  "/%",    "%%/", "%2F",
                           "%25", "%%%%", "//",  "a%b", "%%%2F", "x%",  "\xC3\xA9 \"'"};
  for (const char* part : awkward) {
    QzbString identity;
    ASSERT_TRUE(manager_->makeTableIdentity(part, part, part, part, part, &identity)) << part;
    const std::string p(part);
    EXPECT_EQ(tableParts(identity), p + "|" + p + "|" + p + "|" + p + "|" + p) << part;
    QzbString database;
    ASSERT_TRUE(manager_->makeDatabaseIdentity(part, part, &database));
    QzbString type, source;
    ASSERT_TRUE(manager_->parseDatabaseIdentity(database, &type, &source));
    EXPECT_STREQ(type.asCstr(), part);
    EXPECT_STREQ(source.asCstr(), part);
  }
}

// ---------------------------------------------------------------------------
// Data-source references turned into identities, as the library's factory does.

TEST_F(ResourceManagerTest, IdentitiesFromADataSourceReference) {
  QzDataURI* uri = createQzDataURI("postgresql", "%%SALES_DSN%%", "", "public", "orders");
  ASSERT_NE(uri, nullptr);
  QzbString database, table;
  ASSERT_TRUE(manager_->makeDatabaseIdentity(uri->getPart(0), uri->getPart(1), &database));
  ASSERT_TRUE(manager_->makeTableIdentity(uri->getPart(0), uri->getPart(1), uri->getPart(2),
                                          uri->getPart(3), uri->getTablePart(), &table));
  uri->release();
  EXPECT_STREQ(database.asCstr(), "db:postgresql/%%SALES_DSN%%");
  EXPECT_STREQ(table.asCstr(), "db:postgresql/%%SALES_DSN%%//public/orders");
}

// ---------------------------------------------------------------------------
// File references

TEST_F(ResourceManagerTest, FileReferenceRoundTrip) {
  QzbString reference;
  ASSERT_TRUE(manager_->makeFileReference("/srv/in", "sales.csv", &reference));
  EXPECT_STREQ(reference.asCstr(), "fileref:/srv/in/sales.csv");
  QzbString directory, name;
  ASSERT_TRUE(manager_->parseFileReference(reference, &directory, &name));
  EXPECT_STREQ(directory.asCstr(), "/srv/in");
  EXPECT_STREQ(name.asCstr(), "sales.csv");
}

TEST_F(ResourceManagerTest, FileReferenceCarriesMacrosUnchanged) {
  QzbString reference;
  ASSERT_TRUE(manager_->makeFileReference("%%DATA_DIR%%/in", "%%FEED%%.csv", &reference));
  EXPECT_STREQ(reference.asCstr(), "fileref:%%DATA_DIR%%/in/%%FEED%%.csv");
  QzbString directory, name;
  ASSERT_TRUE(manager_->parseFileReference(reference, &directory, &name));
  EXPECT_STREQ(directory.asCstr(), "%%DATA_DIR%%/in");
  EXPECT_STREQ(name.asCstr(), "%%FEED%%.csv");
}

TEST_F(ResourceManagerTest, FileReferenceDirectoriesOfEveryShape) {
  struct Case {
    const char* directory;
    const char* name;
    const char* text;
  } cases[] = {
      {"", "x.csv", "fileref:/x.csv"},
      {"/", "x.csv", "fileref://x.csv"},
      {"/d/", "x.csv", "fileref:/d//x.csv"},
      {"C:\\data", "x.csv", "fileref:C:\\data/x.csv"},
      {"rel/dir", "a\\b", "fileref:rel/dir/a\\b"},
      {"/d", "%", "fileref:/d/%"},
  };
  for (const Case& c : cases) {
    QzbString reference;
    ASSERT_TRUE(manager_->makeFileReference(c.directory, c.name, &reference)) << c.text;
    EXPECT_STREQ(reference.asCstr(), c.text);
    QzbString directory("keep"), name("keep");
    ASSERT_TRUE(manager_->parseFileReference(reference, &directory, &name)) << c.text;
    EXPECT_STREQ(directory.asCstr(), c.directory);
    EXPECT_STREQ(name.asCstr(), c.name);
  }
  QzbString reference;
  ASSERT_TRUE(manager_->makeFileReference(QzbString(), "x", &reference));
  EXPECT_STREQ(reference.asCstr(), "fileref:/x");
}

TEST_F(ResourceManagerTest, FileReferenceNeedsAPlainFileName) {
  QzbString reference("keep");
  EXPECT_FALSE(manager_->makeFileReference("/d", "", &reference));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "File name is empty");
  EXPECT_FALSE(manager_->makeFileReference("/d", QzbString(), &reference));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "File name is empty");
  EXPECT_FALSE(manager_->makeFileReference("/d", "a/b", &reference));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "File name holds \"/\"");
  EXPECT_FALSE(manager_->makeFileReference("/d\n", "x", &reference));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "File reference holds a control character");
  EXPECT_FALSE(manager_->makeFileReference("/d", "x", nullptr));
  EXPECT_STREQ(manager_->getErrorMessage().asCstr(), "No place given for the file reference");
  EXPECT_STREQ(reference.asCstr(), "keep");
}

TEST_F(ResourceManagerTest, MalformedFileReferencesAreRefused) {
  struct Case {
    const char* text;
    const char* message;
  } cases[] = {
      {"", "File reference is null or empty"},
      {"/srv/in/sales.csv", "File reference must begin with \"fileref:\""},
      {"FILEREF:/d/x", "File reference must begin with \"fileref:\""},
      {"file:///d/x", "File reference must begin with \"fileref:\""},
      {"db:pg/sales", "File reference must begin with \"fileref:\""},
      {"fileref:", "File reference must hold \"/\" between directory and file name"},
      {"fileref:x.csv", "File reference must hold \"/\" between directory and file name"},
      {"fileref:/d/", "File name is empty"},
      {"fileref:/", "File name is empty"},
      {"fileref:/d/x\r", "File reference holds a control character"},
  };
  for (const Case& c : cases) {
    QzbString directory("keep"), name("keep");
    EXPECT_FALSE(manager_->parseFileReference(c.text, &directory, &name)) << c.text;
    EXPECT_STREQ(manager_->getErrorMessage().asCstr(), c.message) << c.text;
    EXPECT_STREQ(directory.asCstr(), "keep");
    EXPECT_STREQ(name.asCstr(), "keep");
  }
  EXPECT_FALSE(manager_->parseFileReference(QzbString(), nullptr, nullptr));
}

// ---------------------------------------------------------------------------
// Hostile inputs

TEST_F(ResourceManagerTest, VeryLongIdentities) {
  const std::string longPart(1 << 20, 'n');
  QzbString identity;
  ASSERT_TRUE(manager_->makeTableIdentity("pg", longPart.c_str(), longPart.c_str(), "",
                                          (longPart + "/").c_str(), &identity));
  QzbString table;
  ASSERT_TRUE(manager_->parseTableIdentity(identity, nullptr, nullptr, nullptr, nullptr, &table));
  EXPECT_EQ(table.length(), longPart.size() + 1);

  const std::string manySlashes = "db:" + std::string(1 << 16, '/');
  EXPECT_FALSE(manager_->parseDatabaseIdentity(manySlashes.c_str(), nullptr, nullptr));
  EXPECT_FALSE(
      manager_->parseTableIdentity(manySlashes.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
  const std::string manyPercents = "db:pg/" + std::string(1 << 16, '%');
  QzbString source;
  ASSERT_TRUE(manager_->parseDatabaseIdentity(manyPercents.c_str(), nullptr, &source));
  EXPECT_EQ(source.length(), 1u << 16);

  QzbString reference;
  ASSERT_TRUE(manager_->makeFileReference(longPart.c_str(), longPart.c_str(), &reference));
  QzbString name;
  ASSERT_TRUE(manager_->parseFileReference(reference, nullptr, &name));
  EXPECT_EQ(name.length(), longPart.size());
}

TEST_F(ResourceManagerTest, EveryControlCharacterIsRefused) {
  for (int byte = 0; byte < 0x20; ++byte) {
    const char raw[] = {'a', static_cast<char>(byte), 'b'};
    const QzbString part = QzbString::fromBytes(raw, 3);
    QzbString out;
    EXPECT_FALSE(manager_->makeDatabaseIdentity("pg", part, &out)) << byte;
    EXPECT_FALSE(manager_->makeTableIdentity("pg", "s", "", part, "t", &out)) << byte;
    EXPECT_FALSE(manager_->makeFileReference("/d", part, &out)) << byte;
    std::string text = "db:pg/" + std::string(raw, 3);
    EXPECT_FALSE(manager_->parseDatabaseIdentity(
        QzbString::fromBytes(text.data(), text.size()), nullptr, nullptr))
        << byte;
  }
}

}  // namespace
