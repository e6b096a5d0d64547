// Statements with "?" parameters over a private in-memory database. A
// counting wrapper around the real connection shows which path a call took
// (select, exec or prepare) and can make a prepared query fail on demand.
#include "statements.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "item_list_impl.h"
#include "qzbase/date.h"
#include "support/log_capture.h"

namespace {

class CountingConnection;

class CountingStatement final : public SqliteStatement {
 public:
  CountingStatement(CountingConnection* owner, SqliteStatement* inner)
      : owner_(owner), inner_(inner) {}
  QzbString getErrorMessage() const override;
  void bindNull(int index) override { inner_->bindNull(index); }
  void bindText(int index, const QzbString& value) override { inner_->bindText(index, value); }
  void bindInt(int index, int64_t value) override { inner_->bindInt(index, value); }
  void bindDouble(int index, double value) override { inner_->bindDouble(index, value); }
  bool execute(int flags) override;
  void release() override;
  SqliteCursor* executeQuery() override;
  int getResultCode() const override { return inner_->getResultCode(); }
  void clearBindings() override { inner_->clearBindings(); }

 private:
  ~CountingStatement() override = default;
  CountingConnection* owner_;
  SqliteStatement* inner_;
  bool forcedFailure_ = false;
};

class CountingConnection final : public SqliteConnection {
 public:
  explicit CountingConnection(SqliteConnection* inner) : inner_(inner) {}

  int prepares = 0;
  int selects = 0;
  int execs = 0;
  int statementExecutes = 0;
  int statementQueries = 0;
  int statementReleases = 0;
  // Prepared statements then fail executeQuery() with this message.
  bool failQueries = false;

  QzbString getErrorMessage() const override { return inner_->getErrorMessage(); }
  void close(int flags) override {
    inner_->close(flags);
    delete this;
  }
  int getResultCode() const override { return inner_->getResultCode(); }
  bool exec(const QzbString& sql, int flags) override {
    ++execs;
    return inner_->exec(sql, flags);
  }
  bool isReadOnly() const override { return inner_->isReadOnly(); }
  SqliteCursor* select(const QzbString& sql) override {
    ++selects;
    return inner_->select(sql);
  }
  int64_t getLastInsertRowId() const override { return inner_->getLastInsertRowId(); }
  SqliteStatement* prepare(const QzbString& sql) override {
    ++prepares;
    SqliteStatement* statement = inner_->prepare(sql);
    return statement == nullptr ? nullptr : new CountingStatement(this, statement);
  }
  int getChanges() const override { return inner_->getChanges(); }
  QzbString getPath() const override { return inner_->getPath(); }
  void setBusyTimeout(int milliseconds) override { inner_->setBusyTimeout(milliseconds); }

 private:
  ~CountingConnection() override = default;
  SqliteConnection* inner_;
};

QzbString CountingStatement::getErrorMessage() const {
  return forcedFailure_ ? QzbString("forced query failure") : inner_->getErrorMessage();
}
bool CountingStatement::execute(int flags) {
  ++owner_->statementExecutes;
  return inner_->execute(flags);
}
void CountingStatement::release() {
  ++owner_->statementReleases;
  inner_->release();
  delete this;
}
SqliteCursor* CountingStatement::executeQuery() {
  ++owner_->statementQueries;
  if (owner_->failQueries) {
    forcedFailure_ = true;
    return nullptr;
  }
  return inner_->executeQuery();
}

struct ListReleaser {
  void operator()(QzvItemList* list) const {
    if (list != nullptr) list->release();
  }
};
using ListPtr = std::unique_ptr<QzvItemList, ListReleaser>;

const char kVaultLogger[] = "QZ.Repos.Vault";

// Events of the library's own logger (the base layer may log on its own).
size_t vaultEventCount(const qztest::LogCapture& log) {
  size_t n = 0;
  for (const auto& event : log.events()) n += event.logger == kVaultLogger ? 1 : 0;
  return n;
}

class StatementsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SqliteConnection* inner = createSqliteDatabase("", 0);
    ASSERT_NE(inner, nullptr) << getSqliteErrorMessage();
    db_ = new CountingConnection(inner);
    ASSERT_TRUE(db_->exec("CREATE TABLE t (x)", 0));
    ASSERT_TRUE(db_->exec("CREATE TABLE nn (x NOT NULL)", 0));
    ASSERT_TRUE(db_->exec("CREATE TABLE v_file (fname TEXT, tstamp INTEGER, type TEXT, name TEXT)", 0));
    ASSERT_TRUE(db_->exec("CREATE TABLE v_object (fname TEXT, name TEXT)", 0));
    db_->execs = 0;
  }
  void TearDown() override {
    if (db_ != nullptr) db_->close(0);
  }

  // Row count of a query through the library's own singleton.
  int count(const char* sql) {
    int n = -1;
    EXPECT_TRUE(qzviParamSingleton(db_, QzbString(sql), &n, 0));
    return n;
  }

  // typeof() and text of one bound value.
  std::pair<std::string, std::string> boundAs(const QzbDatavar* value) {
    ListPtr list(qzviParamSelect(db_, QzbString("SELECT typeof(?), ?"), 2, value, value));
    EXPECT_NE(list, nullptr);
    if (list == nullptr || !list->next()) return {"<none>", "<none>"};
    QzbString text = list->getValue(1);
    return {list->getValue(0).asCstr(), text.isNull() ? "<null>" : text.asCstr()};
  }

  CountingConnection* db_ = nullptr;
};

// A variant whose type is none of the bindable ones. The variant cannot be
// given such a type through its interface, so the type field (the first
// member) is overwritten; the test is skipped if that layout does not hold.
class UnsupportedValue {
 public:
  UnsupportedValue() : value_(1) {
    const int bogus = 7;
    static_assert(sizeof(QzbDatavarType) == sizeof(int), "enum size");
    std::memcpy(static_cast<void*>(&value_), &bogus, sizeof bogus);
  }
  bool forged() const { return static_cast<int>(value_.type()) == 7; }
  const QzbDatavar* get() const { return &value_; }

 private:
  QzbDatavar value_;
};

// ---------------------------------------------------------------------------
// Count 0: straight to select or exec.

TEST_F(StatementsTest, SelectWithCountZeroNeverPrepares) {
  ListPtr list(qzviParamSelect(db_, QzbString("SELECT 1, 'a'"), 0));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(db_->prepares, 0);
  EXPECT_EQ(db_->selects, 1);
  EXPECT_EQ(list->getNumCols(), 2);
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "1");
  EXPECT_STREQ(list->getValue(1).asCstr(), "a");
  EXPECT_FALSE(list->next());
}

TEST_F(StatementsTest, ExecWithCountZeroNeverPrepares) {
  EXPECT_TRUE(qzviParamExec(db_, QzbString("INSERT INTO t VALUES (5)"), 0));
  EXPECT_EQ(db_->prepares, 0);
  EXPECT_EQ(db_->execs, 1);
  EXPECT_EQ(count("SELECT count(*) FROM t WHERE x = 5"), 1);
}

TEST_F(StatementsTest, SingletonWithCountZeroNeverPrepares) {
  int result = 0;
  EXPECT_TRUE(qzviParamSingleton(db_, QzbString("SELECT 41 + 1"), &result, 0));
  EXPECT_EQ(result, 42);
  EXPECT_EQ(db_->prepares, 0);
  EXPECT_EQ(db_->selects, 1);
}

TEST_F(StatementsTest, ParametersArePreparedAndBoundInPlaceholderOrder) {
  QzbDatavar first(QzbString("b"));
  QzbDatavar second(2);
  EXPECT_TRUE(qzviParamExec(db_, QzbString("INSERT INTO v_object (fname, name) VALUES (?, ?)"), 2,
                            &first, &second));
  EXPECT_EQ(db_->prepares, 1);
  EXPECT_EQ(db_->statementReleases, 1);
  EXPECT_EQ(count("SELECT count(*) FROM v_object WHERE fname = 'b' AND name = 2"), 1);
}

// ---------------------------------------------------------------------------
// Binding.

TEST_F(StatementsTest, NullDatavarAndNullPointerBindSqlNull) {
  QzbDatavar null;
  EXPECT_EQ(boundAs(&null), (std::pair<std::string, std::string>{"null", "<null>"}));
  EXPECT_EQ(boundAs(nullptr), (std::pair<std::string, std::string>{"null", "<null>"}));
  EXPECT_TRUE(qzviParamExec(db_, QzbString("INSERT INTO t VALUES (?)"), 1, &null));
  EXPECT_EQ(count("SELECT count(*) FROM t WHERE x IS NULL"), 1);
}

TEST_F(StatementsTest, EachValueTypeBindsAsItsSqlType) {
  QzbDatavar int32(-7);
  EXPECT_EQ(boundAs(&int32), (std::pair<std::string, std::string>{"integer", "-7"}));
  QzbDatavar text(QzbString("abc"));
  EXPECT_EQ(boundAs(&text), (std::pair<std::string, std::string>{"text", "abc"}));
  QzbDatavar empty(QzbString(""));
  EXPECT_EQ(boundAs(&empty), (std::pair<std::string, std::string>{"text", ""}));
  QzbDatavar real(2.5);
  EXPECT_EQ(boundAs(&real), (std::pair<std::string, std::string>{"real", "2.5"}));
}

TEST_F(StatementsTest, SixtyFourBitIntegersBindWhole) {
  QzbDatavar big(1LL << 40);
  EXPECT_EQ(boundAs(&big), (std::pair<std::string, std::string>{"integer", "1099511627776"}));
  QzbDatavar negative(-(1LL << 40) - 3);
  EXPECT_EQ(boundAs(&negative), (std::pair<std::string, std::string>{"integer", "-1099511627779"}));
}

TEST_F(StatementsTest, DateBindsAsItsNumericValue) {
  QzbDate date;
  ASSERT_TRUE(date.assign(2021, 6, 30, 12, 34, 56, 0));
  QzbDatavar value(date);
  auto bound = boundAs(&value);
  EXPECT_EQ(bound.first, "real");
  EXPECT_DOUBLE_EQ(QzbString(bound.second.c_str()).asDouble(), date.asDouble());
}

TEST_F(StatementsTest, SetParmReportsWhetherTheValueCouldBeBound) {
  SqliteStatement* statement = db_->prepare(QzbString("SELECT typeof(?)"));
  ASSERT_NE(statement, nullptr);
  QzbDatavar text(QzbString("x"));
  EXPECT_TRUE(setParm(statement, &text, 0));
  SqliteCursor* cursor = statement->executeQuery();
  ASSERT_NE(cursor, nullptr);
  ASSERT_EQ(cursor->next(), 1);
  EXPECT_STREQ(cursor->getText(0).asCstr(), "text");
  cursor->release();

  UnsupportedValue unsupported;
  if (unsupported.forged()) {
    EXPECT_FALSE(setParm(statement, unsupported.get(), 0));
  }
  statement->release();
  if (!unsupported.forged()) GTEST_SKIP() << "cannot forge an unsupported variant type here";
}

TEST_F(StatementsTest, UnsupportedValueTypeFailsBeforeExecution) {
  UnsupportedValue unsupported;
  if (!unsupported.forged()) GTEST_SKIP() << "cannot forge an unsupported variant type here";
  QzbDatavar good(1);
  EXPECT_FALSE(qzviParamExec(db_, QzbString("INSERT INTO t VALUES (?)"), 1, unsupported.get()));
  EXPECT_FALSE(qzviParamExec(db_, QzbString("INSERT INTO t (x) SELECT ? UNION ALL SELECT ?"), 2,
                             &good, unsupported.get()));
  EXPECT_EQ(db_->statementExecutes, 0);
  EXPECT_EQ(qzviParamSelect(db_, QzbString("SELECT ?"), 1, unsupported.get()), nullptr);
  int result = 99;
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELECT ?"), &result, 1, unsupported.get()));
  EXPECT_EQ(result, 99);
  EXPECT_EQ(db_->statementQueries, 0);
  EXPECT_EQ(db_->prepares, 4);
  EXPECT_EQ(db_->statementReleases, 4) << "abandoned statements are not leaked";
  EXPECT_EQ(count("SELECT count(*) FROM t"), 0);
}

// ---------------------------------------------------------------------------
// Results.

TEST_F(StatementsTest, SingletonWithoutRowsReturnsFalseAndLeavesTheResult) {
  int result = 12345;
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELECT x FROM t"), &result, 0));
  EXPECT_EQ(result, 12345);
  QzbDatavar name(QzbString("nobody"));
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELECT x FROM t WHERE x = ?"), &result, 1, &name));
  EXPECT_EQ(result, 12345);
  EXPECT_EQ(db_->statementReleases, 1);
}

TEST_F(StatementsTest, SingletonCountsOfDisplayNames) {
  ASSERT_TRUE(db_->exec("INSERT INTO v_object VALUES ('a.job', 'Daily'), ('b.job', 'Daily'), "
                        "('c.rpt', 'Daily')", 0));
  QzbDatavar name(QzbString("Daily"));
  QzbDatavar pattern(QzbString("%.job"));
  int result = -1;
  EXPECT_TRUE(qzviParamSingleton(db_, QzbString("SELECT count(*) FROM v_object WHERE name=?"),
                                 &result, 1, &name));
  EXPECT_EQ(result, 3);
  EXPECT_TRUE(qzviParamSingleton(
      db_, QzbString("SELECT count(*) FROM v_object WHERE name=? AND fname LIKE ?"), &result, 2,
      &name, &pattern));
  EXPECT_EQ(result, 2);
  EXPECT_EQ(db_->statementReleases, 2);
}

TEST_F(StatementsTest, SelectWithoutRowsGivesAnEmptyListNotNull) {
  ListPtr plain(qzviParamSelect(db_, QzbString("SELECT x FROM t"), 0));
  ASSERT_NE(plain, nullptr);
  EXPECT_FALSE(plain->next());
  QzbDatavar name(QzbString("missing"));
  ListPtr bound(qzviParamSelect(db_, QzbString("SELECT tstamp FROM v_file WHERE fname  = ? "), 1,
                                &name));
  ASSERT_NE(bound, nullptr);
  EXPECT_EQ(bound->getNumCols(), 1);
  EXPECT_FALSE(bound->next());
  EXPECT_FALSE(bound->next());
}

TEST_F(StatementsTest, SelectWithParametersReturnsTheRowsAndOwnsTheStatement) {
  ASSERT_TRUE(db_->exec("INSERT INTO v_file VALUES ('a.job', 1700000000, 'job', 'A'), "
                        "('b.job', -1, 'job', 'B')", 0));
  QzbDatavar name(QzbString("b.job"));
  QzvItemList* list =
      qzviParamSelect(db_, QzbString("SELECT tstamp FROM v_file WHERE fname  = ? "), 1, &name);
  ASSERT_NE(list, nullptr);
  ASSERT_TRUE(list->next());
  EXPECT_STREQ(list->getValue(0).asCstr(), "-1");
  EXPECT_EQ(list->getValueUlong(0), static_cast<unsigned long>(-1L));
  EXPECT_FALSE(list->next());
  EXPECT_EQ(db_->statementReleases, 0) << "the list holds the statement";
  list->release();
  EXPECT_EQ(db_->statementReleases, 1);
}

// ---------------------------------------------------------------------------
// Failures and their debug texts.

TEST_F(StatementsTest, PrepareFailureIsLoggedByAllThree) {
  qztest::LogCapture log;
  QzbDatavar value(1);
  int result = 5;
  EXPECT_EQ(qzviParamSelect(db_, QzbString("SELECT x FROM no_such_table WHERE x = ?"), 1, &value),
            nullptr);
  std::string expected = "prepare failed: " + db_->getErrorMessage().toStdString();
  EXPECT_NE(expected, "prepare failed: ");
  EXPECT_TRUE(log.contains(expected, QZLOG_DEBUG, kVaultLogger)) << log.dump();
  EXPECT_FALSE(qzviParamExec(db_, QzbString("INSERT INTO no_such_table VALUES (?)"), 1, &value));
  EXPECT_TRUE(log.contains("prepare failed: " + db_->getErrorMessage().toStdString(), QZLOG_DEBUG,
                           kVaultLogger))
      << log.dump();
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELEKT ?"), &result, 1, &value));
  EXPECT_TRUE(log.contains("prepare failed: " + db_->getErrorMessage().toStdString(), QZLOG_DEBUG,
                           kVaultLogger))
      << log.dump();
  EXPECT_EQ(result, 5);
  EXPECT_EQ(vaultEventCount(log), 3u) << log.dump();
}

TEST_F(StatementsTest, SelectFailureWithoutParametersLogsTheConnectionMessage) {
  qztest::LogCapture log;
  EXPECT_EQ(qzviParamSelect(db_, QzbString("SELECT * FROM no_such_table"), 0), nullptr);
  const std::string message = db_->getErrorMessage().toStdString();
  EXPECT_FALSE(message.empty());
  EXPECT_TRUE(log.contains("select failed: " + message, QZLOG_DEBUG, kVaultLogger)) << log.dump();
  int result = 3;
  log.clear();
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELECT * FROM no_such_table"), &result, 0));
  EXPECT_TRUE(log.contains("select failed: " + db_->getErrorMessage().toStdString(), QZLOG_DEBUG,
                           kVaultLogger))
      << log.dump();
  EXPECT_EQ(result, 3);
  EXPECT_EQ(db_->prepares, 0);
}

TEST_F(StatementsTest, QueryFailureWithParametersLogsTheStatementMessage) {
  qztest::LogCapture log;
  db_->failQueries = true;
  QzbDatavar value(1);
  EXPECT_EQ(qzviParamSelect(db_, QzbString("SELECT ?"), 1, &value), nullptr);
  EXPECT_TRUE(log.contains("select failed: forced query failure", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
  EXPECT_EQ(db_->statementReleases, 1);
  log.clear();
  int result = 8;
  EXPECT_FALSE(qzviParamSingleton(db_, QzbString("SELECT ?"), &result, 1, &value));
  EXPECT_TRUE(log.contains("select failed: forced query failure", QZLOG_DEBUG, kVaultLogger))
      << log.dump();
  EXPECT_EQ(result, 8);
  EXPECT_EQ(db_->statementReleases, 2);
}

TEST_F(StatementsTest, ExecFailureIsLoggedWithTheConnectionMessage) {
  qztest::LogCapture log;
  EXPECT_FALSE(qzviParamExec(db_, QzbString("INSERT INTO no_such_table VALUES (1)"), 0));
  const std::string plain = db_->getErrorMessage().toStdString();
  EXPECT_FALSE(plain.empty());
  EXPECT_TRUE(log.contains("exec failed: " + plain, QZLOG_DEBUG, kVaultLogger)) << log.dump();

  log.clear();
  QzbDatavar null;
  EXPECT_FALSE(qzviParamExec(db_, QzbString("INSERT INTO nn VALUES (?)"), 1, &null));
  const std::string bound = db_->getErrorMessage().toStdString();
  EXPECT_NE(bound.find("NOT NULL"), std::string::npos) << bound;
  EXPECT_TRUE(log.contains("exec failed: " + bound, QZLOG_DEBUG, kVaultLogger)) << log.dump();
  EXPECT_EQ(db_->statementExecutes, 1);
  EXPECT_EQ(db_->statementReleases, 1);
  EXPECT_EQ(count("SELECT count(*) FROM nn"), 0);
}

TEST_F(StatementsTest, SuccessfulCallsLogNothing) {
  qztest::LogCapture log;
  QzbDatavar value(4);
  int result = 0;
  EXPECT_TRUE(qzviParamExec(db_, QzbString("INSERT INTO t VALUES (?)"), 1, &value));
  EXPECT_TRUE(qzviParamSingleton(db_, QzbString("SELECT x FROM t WHERE x = ?"), &result, 1, &value));
  EXPECT_EQ(result, 4);
  ListPtr list(qzviParamSelect(db_, QzbString("SELECT x FROM t"), 0));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(vaultEventCount(log), 0u) << log.dump();
}

}  // namespace
