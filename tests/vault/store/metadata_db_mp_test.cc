// Several processes open the same missing database at the same moment: every
// one of them must get the one complete database, and what each writes must
// be in the file afterwards (no process may be left with a file that another
// replaced).
#include "metadata_db.h"

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzbase/config.h"
#include "support/temp_dir.h"

namespace {

const int kProcesses = 8;
const int kRounds = 6;

const char kSchemaQuery[] = "SELECT sql FROM sqlite_master ORDER BY rowid";

const std::vector<std::string> kFixedSchema = {
    "CREATE TABLE v_ver(version INTEGER)",
    "CREATE TABLE v_attr (fname text, attr text, seq integer, v0, v1, v2, v3, v4, v5, v6, v7, v8, v9)",
    "CREATE INDEX v_attr_fname ON v_attr(fname)",
    "CREATE INDEX v_attr_seq ON v_attr(seq)",
    "CREATE INDEX v_attr_attr ON v_attr(attr)",
    "CREATE TABLE v_symlink (fname TEXT, name TEXT)",
    "CREATE TABLE v_object (fname TEXT, name TEXT)",
    "CREATE INDEX v_object_fname ON v_object(fname)",
};

std::vector<std::string> column0(SqliteConnection* connection, const char* sql) {
  std::vector<std::string> rows;
  SqliteCursor* cursor = connection->select(QzbString(sql));
  if (cursor == nullptr) return {"<select failed>"};
  while (cursor->next() == 1) rows.push_back(cursor->getText(0).toStdString());
  cursor->release();
  return rows;
}

// Exit codes of a child, so that the parent can say what went wrong.
enum ChildExit {
  kChildOk = 0,
  kChildBarrier = 10,
  kChildOpen = 11,
  kChildSchema = 12,
  kChildVersion = 13,
  kChildWrite = 14,
};

// One child: waits for the start signal, opens the database, checks it and
// writes a row of its own.
int childMain(const std::string& directory, int id, int startFd) {
  char go;
  if (read(startFd, &go, 1) != 0) return kChildBarrier;  // released when the pipe closes
  MemDBCache cache;
  QzbString error;
  SqliteConnection* connection = qzviOpenDB(QzbString(directory.c_str()), ".v_fmd", &error, cache);
  if (connection == nullptr) return kChildOpen;
  int result = kChildOk;
  if (column0(connection, kSchemaQuery) != kFixedSchema) {
    result = kChildSchema;
  } else if (column0(connection, "SELECT version FROM v_ver") != std::vector<std::string>{"1"}) {
    result = kChildVersion;
  } else {
    connection->setBusyTimeout(30000);
    const std::string insert =
        "INSERT INTO v_object (fname, name) VALUES ('child" + std::to_string(id) + "', 'x')";
    if (!connection->exec(QzbString(insert.c_str()), 0)) result = kChildWrite;
  }
  qzviCloseDB(connection, cache);
  return result;
}

std::vector<std::string> queryFile(const std::string& path, const char* sql) {
  std::vector<std::string> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK) {
      while (sqlite3_step(statement) == SQLITE_ROW) {
        const unsigned char* text = sqlite3_column_text(statement, 0);
        rows.push_back(text != nullptr ? reinterpret_cast<const char*>(text) : "<null>");
      }
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return rows;
}

TEST(MetadataDbMultiProcessTest, ProcessesRacingToCreateTheSameDatabaseShareOneCompleteFile) {
  qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS"));
  qztest::TempDir dir;
  for (int round = 0; round < kRounds; ++round) {
    const std::string directory = dir.join("folder" + std::to_string(round));
    qztest::makeDirs(directory);
    int start[2];
    ASSERT_EQ(pipe(start), 0);
    std::vector<pid_t> children;
    for (int id = 0; id < kProcesses; ++id) {
      pid_t child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        close(start[1]);
        _exit(childMain(directory, id, start[0]));
      }
      children.push_back(child);
    }
    close(start[0]);
    close(start[1]);  // every child starts now
    for (pid_t child : children) {
      int status = 0;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      EXPECT_TRUE(WIFEXITED(status)) << "round " << round << ": child died, status " << status;
      EXPECT_EQ(WEXITSTATUS(status), kChildOk) << "round " << round;
    }

    const std::string path = directory + "/.v_fmd";
    EXPECT_EQ(queryFile(path, kSchemaQuery), kFixedSchema) << "round " << round;
    EXPECT_EQ(queryFile(path, "SELECT version FROM v_ver"), std::vector<std::string>{"1"});
    std::vector<std::string> writers = queryFile(path, "SELECT fname FROM v_object ORDER BY fname");
    std::vector<std::string> expected;
    for (int id = 0; id < kProcesses; ++id) expected.push_back("child" + std::to_string(id));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(writers, expected) << "round " << round << ": every process wrote to the one file";

    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names, std::vector<std::string>{".v_fmd"})
        << "round " << round << ": no temporary file stays behind";
  }
}

}  // namespace
