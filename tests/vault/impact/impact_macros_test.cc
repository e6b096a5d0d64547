// "%%NAME%%" configuration macros in resource identities: recognising them,
// substituting them (with the guard against a value that refers back to its
// own macro), the resource a substituted identity names, and the database
// link that a table gains the first time it is looked at.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "impact_fixture.h"
#include "support/log_capture.h"

namespace {

using qztest::ConfigKey;
using qztest::FakeResolver;
using qztest::identitiesOf;
using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::ResourceListPtr;
using qztest::ResourcePtr;
using qztest::str;
using Strings = std::vector<std::string>;

class MacroTest : public ImpactTest {
 protected:
  bool contains(const char* text) {
    QzbString value(text);
    return analysis_->containsMacroValue(&value);
  }
  // getSubst's result, or "<fails>".
  std::string subst(const char* text) {
    QzbString output;
    if (!analysis_->getSubst(QzbString(text), &output)) return "<fails>";
    return str(output);
  }
};

TEST_F(MacroTest, ContainsMacroValueNeedsTwoPairsOfMarks) {
  EXPECT_TRUE(contains("a%%X%%b"));
  EXPECT_FALSE(contains("a%%X"));
  EXPECT_TRUE(contains("%%%%"));
  EXPECT_FALSE(contains("%%%"));
  EXPECT_FALSE(contains("plain"));
  EXPECT_FALSE(contains(""));
  EXPECT_FALSE(analysis_->containsMacroValue(nullptr));
  QzbString null;
  EXPECT_FALSE(analysis_->containsMacroValue(&null));
}

TEST_F(MacroTest, ReplaceFirstReplacesTheLeftmostMacroOnly) {
  ConfigKey a("A", "1");
  QzbString input("x%%A%%y%%A%%z");
  QzbString output;
  long missing = 0;
  EXPECT_TRUE(analysis_->replaceFirst(&input, &output, &missing));
  EXPECT_EQ(str(output), "x1y%%A%%z");
  EXPECT_EQ(missing, 0);
}

TEST_F(MacroTest, ReplaceFirstDropsAnUnsetOptionAndFlagsIt) {
  QzbString input("before%%NOT_SET_ANYWHERE%%after");
  QzbString output;
  long missing = 0;
  EXPECT_TRUE(analysis_->replaceFirst(&input, &output, &missing));
  EXPECT_EQ(str(output), "beforeafter");
  EXPECT_EQ(missing, 1);
}

TEST_F(MacroTest, ReplaceFirstWithoutMacroLeavesEverythingAlone) {
  QzbString input("a%%b");
  QzbString output("untouched", true);
  long missing = 7;
  EXPECT_FALSE(analysis_->replaceFirst(&input, &output, &missing));
  EXPECT_EQ(str(output), "untouched");
  EXPECT_EQ(missing, 7);
}

TEST_F(MacroTest, SubstitutionFailsWhileAnyOptionIsUnset) {
  ConfigKey x("X", "db1");
  EXPECT_EQ(subst("conn=%%X%%;user=%%Y%%"), "<fails>");
  ConfigKey y("Y", "u");
  EXPECT_EQ(subst("conn=%%X%%;user=%%Y%%"), "conn=db1;user=u");
}

TEST_F(MacroTest, AValueHoldingAMacroIsExpandedInALaterPass) {
  ConfigKey x("X", "%%Y%%");
  ConfigKey y("Y", "v");
  EXPECT_EQ(subst("%%X%%"), "v");
}

TEST_F(MacroTest, TextWithoutMacroHasNoSubstitution) {
  EXPECT_EQ(subst("/plain/path"), "<fails>");
  EXPECT_EQ(subst("50%%"), "<fails>");
  EXPECT_EQ(subst(""), "<fails>");
}

TEST_F(MacroTest, EmptyMacroNameIsLookedUpAndIsNeverSet) {
  EXPECT_EQ(subst("a%%%%b"), "<fails>");
}

TEST_F(MacroTest, AnEmptyValueSubstitutesToNothing) {
  ConfigKey empty("EMPTY", "");
  EXPECT_EQ(subst("a%%EMPTY%%b"), "ab");
}

TEST_F(MacroTest, AValueThatRefersToItselfStopsAfterTheGuard) {
  ConfigKey loop("LOOP", "again %%LOOP%%");
  LogCapture log;
  EXPECT_EQ(subst("start %%LOOP%%"), "<fails>");
  EXPECT_TRUE(log.contains("Macro substitution of \"start %%LOOP%%\" stopped after 64 passes: "
                           "a configuration value refers back to a macro",
                           QZLOG_ERROR, "QZ.Repos.Vault.Lineage"))
      << log.dump();
}

TEST_F(MacroTest, TwoValuesReferringToEachOtherStopToo) {
  ConfigKey ping("PING", "%%PONG%%");
  ConfigKey pong("PONG", "%%PING%%");
  LogCapture log;
  EXPECT_EQ(subst("%%PING%%"), "<fails>");
  EXPECT_EQ(log.count("Macro substitution of \"%%PING%%\" stopped after 64 passes: "
                      "a configuration value refers back to a macro"),
            1)
      << log.dump();
}

TEST_F(MacroTest, SixtyFourPassesAreAllowedAndSixtyFiveAreNot) {
  // M1 -> M2 -> ... -> Mn -> "end": one pass per option.
  std::vector<std::unique_ptr<ConfigKey>> chain;
  auto build = [&chain](int length) {
    chain.clear();
    for (int index = 1; index <= length; ++index) {
      std::string key = "CHAIN" + std::to_string(index);
      std::string value =
          index == length ? std::string("end") : "%%CHAIN" + std::to_string(index + 1) + "%%";
      chain.push_back(std::make_unique<ConfigKey>(key.c_str(), value.c_str()));
    }
  };
  build(64);
  EXPECT_EQ(subst("%%CHAIN1%%"), "end");
  build(65);
  EXPECT_EQ(subst("%%CHAIN1%%"), "<fails>");
}

// ---------------------------------------------------------------------------
// getMacroResolvedResource

TEST_F(MacroTest, SubstituteMacrosGivesTheSubstitutedIdentityAndRecordsNothing) {
  ConfigKey dsn("SALES_DSN", "sales");
  ConfigKey schema("SCHEMA", "%%INNER%%");
  ConfigKey inner("INNER", "public");
  QzbString substituted("unchanged");
  // Through the host interface, as a host (the tool's export) calls it.
  QzvImpactAnalysis* host = analysis_;
  ASSERT_TRUE(host->substituteMacros(QzbString("db:postgresql/%%SALES_DSN%%//%%SCHEMA%%/orders"), &substituted));
  EXPECT_EQ(str(substituted), "db:postgresql/sales//public/orders");
  EXPECT_FALSE(qztest::pathExists(storePath()));  // the store was not even opened

  substituted = QzbString("unchanged");
  EXPECT_FALSE(host->substituteMacros(QzbString("db:postgresql/%%UNSET_OPTION%%"), &substituted));
  EXPECT_FALSE(host->substituteMacros(QzbString("/srv/feeds/orders.csv"), &substituted));
  EXPECT_EQ(str(substituted), "unchanged");
  EXPECT_FALSE(host->substituteMacros(QzbString("%%SALES_DSN%%"), nullptr));
  EXPECT_EQ(str(host->getErrorMessage()), "");
}

TEST_F(MacroTest, IdentityWithoutMacroResolvesToNothing) {
  EXPECT_EQ(analysis_->getMacroResolvedResource(QzbString("File"), QzbString("/v/a")), nullptr);
  EXPECT_EQ(analysis_->getMacroResolvedResource(QzbString("File"), QzbString("")), nullptr);
  EXPECT_FALSE(qztest::pathExists(storePath()));  // the store was not even opened
}

TEST_F(MacroTest, UnsetOptionResolvesToNothingWithoutAMessage) {
  EXPECT_EQ(analysis_->getMacroResolvedResource(QzbString("File"),
                                                QzbString("%%UNSET_OPTION%%/x.csv")),
            nullptr);
  EXPECT_EQ(str(analysis_->getErrorMessage()), "");
}

TEST_F(MacroTest, OptionWithAnEmptyValueResolvesToNothing) {
  ConfigKey empty("EMPTY", "");
  EXPECT_EQ(analysis_->getMacroResolvedResource(QzbString("File"), QzbString("%%EMPTY%%")),
            nullptr);
}

TEST_F(MacroTest, SubstitutedIdentityBecomesANewNamedResource) {
  ConfigKey dir("FEED_DIR", "/srv/feeds");
  ConfigKey type("DB_TYPE", "postgresql");
  ConfigKey dsn("SALES_DSN", "sales");
  struct Case {
    const char* type;
    const char* identity;
    const char* resolvedIdentity;
    const char* name;
  };
  const Case cases[] = {
      {"DataFile", "%%FEED_DIR%%/in/orders.csv", "/srv/feeds/in/orders.csv", "orders.csv"},
      {"File", "fileref:%%FEED_DIR%%/x.txt", "fileref:/srv/feeds/x.txt", "x.txt"},
      {"Database", "db:%%DB_TYPE%%/%%SALES_DSN%%", "db:postgresql/sales", "postgresql"},
      {"Table", "db:postgresql/%%SALES_DSN%%//public/orders",
       "db:postgresql/sales//public/orders", "orders"},
      {"File", "%%FEED_DIR%%/", "/srv/feeds/", "/srv/feeds/"},
      {"Table", "bad %%SALES_DSN%%", "bad sales", "RESOLVED MACRO RESOURCE"},
      {"Database", "%%FEED_DIR%%", "/srv/feeds", "RESOLVED MACRO RESOURCE"},
  };
  for (const Case& c : cases) {
    ResourcePtr resolved(
        analysis_->getMacroResolvedResource(QzbString(c.type), QzbString(c.identity)));
    ASSERT_NE(resolved, nullptr) << c.identity;
    EXPECT_EQ(str(resolved->getResourceType()), c.type) << c.identity;
    EXPECT_EQ(str(resolved->getResourceIdentity()), c.resolvedIdentity) << c.identity;
    EXPECT_EQ(str(resolved->getName()), c.name) << c.identity;
    EXPECT_FALSE(resolved->IsResourceIdentityMacroValue());
    // It is stored like any other resource.
    ResourcePtr stored(
        analysis_->getResource(QzbString(c.type), QzbString(c.resolvedIdentity)));
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(str(stored->getId()), str(resolved->getId()));
  }
}

TEST_F(MacroTest, AStoredResourceIsFoundRatherThanCreated) {
  ConfigKey dir("FEED_DIR", "/srv/feeds");
  ResourcePtr existing = make("known", "DataFile", "/srv/feeds/a.csv");
  ResourcePtr resolved(analysis_->getMacroResolvedResource(QzbString("DataFile"),
                                                           QzbString("%%FEED_DIR%%/a.csv")));
  ASSERT_NE(resolved, nullptr);
  EXPECT_EQ(str(resolved->getId()), str(existing->getId()));
  EXPECT_EQ(str(resolved->getName()), "known");
  EXPECT_EQ(count("v_imparcs"), 1);
}

TEST_F(MacroTest, AUriIsAskedOfTheResolverFirst) {
  ConfigKey host("HOST", "example.org");
  FakeResolver resolver;
  resolver.uriAnswerIdentity = "resolver's own";
  analysis_->registerResourceResolver(&resolver);
  ResourcePtr resolved(analysis_->getMacroResolvedResource(
      QzbString("File"), QzbString("https://%%HOST%%/data.csv")));
  ASSERT_NE(resolved, nullptr);
  EXPECT_EQ(resolver.lastUri, "https://example.org/data.csv");
  EXPECT_EQ(str(resolved->getResourceIdentity()), "resolver's own");
  EXPECT_FALSE(qztest::pathExists(storePath()));  // nothing stored

  // When the resolver does not know the URI, it is stored as a resource.
  resolver.uriAnswerIdentity.clear();
  ResourcePtr stored(analysis_->getMacroResolvedResource(
      QzbString("File"), QzbString("https://%%HOST%%/data.csv")));
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(str(stored->getResourceIdentity()), "https://example.org/data.csv");
  EXPECT_EQ(str(stored->getName()), "data.csv");
}

TEST_F(MacroTest, DependentsOfAMacroResourceIncludeItsResolvedResource) {
  ConfigKey dir("FEED_DIR", "/srv/feeds");
  ResourcePtr macro = make("in", "DataFile", "%%FEED_DIR%%/in.csv");
  ResourcePtr job = make("job", "Job", "/v/load.job.def");
  ASSERT_TRUE(macro->IsResourceIdentityMacroValue());
  ASSERT_TRUE(analysis_->addDependentResources(macro.get(), listOf({job.get()}).get()));
  ResourceListPtr dependents(analysis_->getDependentResources(macro.get(), false));
  // The recorded dependents first, then the resolved resource.
  EXPECT_EQ(identitiesOf(dependents.get()), (Strings{"/v/load.job.def", "/srv/feeds/in.csv"}));
  // The macro resource itself is unchanged.
  ResourcePtr reread(analysis_->getResource(QzbString("DataFile"),
                                            QzbString("%%FEED_DIR%%/in.csv")));
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(str(reread->getName()), "in");
}

// ---------------------------------------------------------------------------
// addDynamicResourceDependencies

TEST_F(MacroTest, TableSeenForTheFirstTimeGainsItsDatabase) {
  ResourcePtr database = make("", "Database", "db:postgresql/sales");
  ResourcePtr table = make("orders", "Table", "db:postgresql/sales/crm/public/orders");
  EXPECT_TRUE(analysis_->addDynamicResourceDependencies(table.get()));
  EXPECT_EQ(edges(),
            (Strings{"db:postgresql/sales>db:postgresql/sales/crm/public/orders"}));
  ResourcePtr reread(analysis_->getResource(QzbString("Table"), table->getResourceIdentity()));
  ASSERT_NE(reread, nullptr);
  EXPECT_NE(reread->getAnalysisDate().asDouble(), 0.0);
  // The table is now a resource that the database is a dependent of.
  ResourceListPtr dependents(analysis_->getDependentResources(reread.get(), false));
  EXPECT_EQ(identitiesOf(dependents.get()), (Strings{"db:postgresql/sales"}));
}

TEST_F(MacroTest, TableAlreadyAnalysedIsLeftAlone) {
  make("", "Database", "db:postgresql/sales");
  ResourcePtr table = make("orders", "Table", "db:postgresql/sales///orders");
  ASSERT_TRUE(analysis_->setAnalysisDate(table.get(), QzbDate(5000.0)));
  ResourcePtr analysed(analysis_->getResource(QzbString("Table"), table->getResourceIdentity()));
  ASSERT_NE(analysed, nullptr);
  EXPECT_TRUE(analysis_->addDynamicResourceDependencies(analysed.get()));
  EXPECT_EQ(count("v_impadeps"), 0);
  ResourcePtr reread(analysis_->getResource(QzbString("Table"), table->getResourceIdentity()));
  EXPECT_EQ(reread->getAnalysisDate().asDouble(), 5000.0);
}

TEST_F(MacroTest, FileKeepsAnAnalysisDateOfZero) {
  ResourcePtr file = make("f", "File", "/v/f");
  EXPECT_TRUE(analysis_->addDynamicResourceDependencies(file.get()));
  ResourcePtr reread(analysis_->getResource(QzbString("File"), QzbString("/v/f")));
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(reread->getAnalysisDate().asDouble(), 0.0);
  EXPECT_EQ(count("v_impadeps"), 0);
}

TEST_F(MacroTest, TableWithoutStoredDatabaseOrReadableIdentityIsOnlyStamped) {
  ResourcePtr table = make("t", "Table", "db:oracle/hr///staff");
  ResourcePtr odd = make("odd", "Table", "not a table identity");
  EXPECT_TRUE(analysis_->addDynamicResourceDependencies(table.get()));
  EXPECT_TRUE(analysis_->addDynamicResourceDependencies(odd.get()));
  EXPECT_EQ(count("v_imparcs"), 2);  // no database was created
  EXPECT_EQ(count("v_impadeps"), 0);
  ResourcePtr reread(analysis_->getResource(QzbString("Table"), QzbString("not a table identity")));
  EXPECT_NE(reread->getAnalysisDate().asDouble(), 0.0);
}

TEST_F(MacroTest, DynamicDependenciesOfNullFail) {
  EXPECT_FALSE(analysis_->addDynamicResourceDependencies(nullptr));
}

}  // namespace
