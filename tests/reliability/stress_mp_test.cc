// Eight processes each run a long random mix of changing tool commands on one
// folder at the same time: add, rm, rename, fsrename, version create, attr set
// (on the folder's shared attribute and on their own objects), lock and
// unlock. Each process keeps what its successful commands promise; afterwards
// every promise is checked against the vault: nothing a command reported done
// is lost, nothing it reported removed or renamed away is still there, no
// file or metadata row is left that no command accounts for, every database
// passes its integrity check and the vault check finds the vault sound.
//
// Each command runs in a process of its own, forked from the worker (the
// tool starts and ends the library once per run), with no plug-ins.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzvault/qzvault.h"
#include "run.h"
#include "support/operations/mutating_operations.h"
#include "support/operations/vault_fixture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using qztest::TempDir;

const int kWorkers = 8;

// Commands per worker: the full count in the normal build, fewer under the
// sanitizers, whose processes start several times slower.
int commandsPerWorker() {
  if (const char* count = std::getenv("QZ_STRESS_COMMANDS")) return std::atoi(count);
#ifdef QZ_TEST_SANITIZED
  return 120;
#else
  return 1000;
#endif
}

// The exit status of `body` run in a forked child, or 128 + signal.
int inChild(const std::function<int()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) _exit(body());
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool writeText(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  return static_cast<bool>(out);
}

// What one worker's successful commands promise about one of its objects.
struct Promised {
  std::string file;     // its file name in Hot
  std::string display;  // its display name
  std::string content;
  int versions = 0;
  std::string note;  // its attribute "Note", "" when never set
};

// One worker: `commands` random commands, each in its own process; what
// succeeded is written to `promisePath` for the parent to check.
class Worker {
 public:
  Worker(int index, const std::string& root, const std::string& plugins, const std::string& scratch)
      : index_(index), root_(root), plugins_(plugins), scratch_(scratch), random_(1000u + index) {}

  int run(int commands, const std::string& promisePath) {
    for (int step = 0; step < commands; ++step) runOne(step);
    std::ofstream out(promisePath, std::ios::trunc);
    out << "tried " << tried_ << "\nsucceeded " << succeeded_ << "\n";
    out << "row " << index_ << " " << (rowValue_.empty() ? "-" : rowValue_) << "\n";
    for (const auto& entry : objects_) {
      const Promised& object = entry.second;
      out << "object " << object.file << "\t" << object.display << "\t" << object.content << "\t"
          << object.versions << "\t" << (object.note.empty() ? "-" : object.note) << "\n";
    }
    for (const std::string& file : gone_) out << "gone " << file << "\n";
    out.close();
    return out ? 0 : 1;
  }

 private:
  bool tool(std::vector<std::string> args) {
    std::vector<std::string> full = {"--vault", root_, "--plugins", plugins_};
    full.insert(full.end(), args.begin(), args.end());
    ++tried_;
    const int status = inChild([&] { return qztest::runToolInProcess(full); });
    const bool ok = status == 0;
    if (ok) ++succeeded_;
    if (!ok) {
      std::ofstream failures(scratch_ + "/failures", std::ios::app);
      failures << status;
      for (const std::string& arg : args) failures << " " << arg;
      failures << "\n";
    }
    return ok;
  }

  std::string name(int step, const char* what) const {
    return "w" + std::to_string(index_) + "-" + std::to_string(step) + what;
  }

  // A random object of this worker's, or null when it has none.
  Promised* pick() {
    if (objects_.empty()) return nullptr;
    auto it = objects_.begin();
    std::advance(it, std::uniform_int_distribution<std::size_t>(0, objects_.size() - 1)(random_));
    return &it->second;
  }

  void runOne(int step) {
    const int roll = std::uniform_int_distribution<int>(0, 99)(random_);
    Promised* object = pick();
    if (object == nullptr || (roll < 20 && objects_.size() < 12)) {
      add(step);
    } else if (roll < 28) {
      if (tool({"rm", "Hot/" + object->file})) {
        gone_.insert(object->file);
        objects_.erase(object->file);
      }
    } else if (roll < 43) {
      const std::string value = name(step, "");
      if (tool({"attr", "set", "Hot", "Shared", value, "--row", std::to_string(index_)})) {
        rowValue_ = value;
      }
    } else if (roll < 55) {
      const std::string value = name(step, "-note");
      if (tool({"attr", "set", "Hot/" + object->file, "Note", value})) object->note = value;
    } else if (roll < 67) {
      if (tool({"version", "create", "Hot/" + object->file})) ++object->versions;
    } else if (roll < 77) {
      const std::string display = "Item " + name(step, "");
      if (tool({"rename", "Hot/" + object->file, display})) object->display = display;
    } else if (roll < 87) {
      const std::string file = name(step, ".txt");
      if (tool({"fsrename", "Hot/" + object->file, file})) {
        Promised moved = *object;
        gone_.insert(object->file);
        objects_.erase(object->file);
        moved.file = file;
        objects_[file] = moved;
      }
    } else if (roll < 94) {
      tool({"lock", "Hot/shared.csv"});
    } else {
      tool({"unlock", "Hot/shared.csv"});
    }
  }

  void add(int step) {
    const std::string file = name(step, ".txt");
    const std::string source = scratch_ + "/" + file;
    const std::string content = "content of " + file;  // one line, as the promises file holds it
    if (!writeText(source, content)) return;
    // Added without --name, the object's file keeps the source's name and
    // its display name is that name without the extension.
    Promised object;
    object.file = file;
    object.display = name(step, "");
    object.content = content;
    if (tool({"add", source, "Hot"})) objects_[file] = object;
    std::remove(source.c_str());
  }

  int index_;
  std::string root_;
  std::string plugins_;
  std::string scratch_;
  std::mt19937 random_;
  std::map<std::string, Promised> objects_;
  std::set<std::string> gone_;
  std::string rowValue_;
  int tried_ = 0;
  int succeeded_ = 0;
};

struct Promises {
  int tried = 0;
  int succeeded = 0;
  std::map<int, std::string> rows;  // "-" when never set
  std::map<std::string, Promised> objects;
  std::set<std::string> gone;
};

void readPromises(const std::string& path, Promises* promises) {
  std::istringstream lines(readText(path));
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    if (kind == "tried" || kind == "succeeded") {
      int count = 0;
      words >> count;
      (kind == "tried" ? promises->tried : promises->succeeded) += count;
    } else if (kind == "row") {
      int row = 0;
      std::string value;
      words >> row >> value;
      promises->rows[row] = value;
    } else if (kind == "gone") {
      std::string file;
      words >> file;
      promises->gone.insert(file);
    } else if (kind == "object") {
      std::string rest = line.substr(7);
      std::vector<std::string> fields;
      std::size_t at;
      while ((at = rest.find('\t')) != std::string::npos) {
        fields.push_back(rest.substr(0, at));
        rest = rest.substr(at + 1);
      }
      fields.push_back(rest);
      if (fields.size() != 5) continue;
      Promised object;
      object.file = fields[0];
      object.display = fields[1];
      object.content = fields[2];
      object.versions = std::atoi(fields[3].c_str());
      object.note = fields[4] == "-" ? "" : fields[4];
      promises->objects[object.file] = object;
    }
  }
}

// The names of the files (fname) that Hot's folder metadata has rows for.
std::set<std::string> namesWithRows(const std::string& database, std::string* error) {
  std::set<std::string> names;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    *error = "cannot open " + database;
    sqlite3_close(db);
    return names;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT DISTINCT fname FROM v_attr WHERE fname IS NOT NULL", -1, &statement,
                         nullptr) != SQLITE_OK) {
    *error = sqlite3_errmsg(db);
  } else {
    while (sqlite3_step(statement) == SQLITE_ROW) {
      names.insert(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return names;
}

// What the library says about the objects and the shared attribute, read in
// a child (the library is started once per process) and written to a file:
// "object FILE\tDISPLAY\tVERSIONS\tNOTE", "row N VALUE", "lockers N".
std::string libraryView(const std::string& root, const std::string& plugins,
                        const std::set<std::string>& files, const std::string& scratch) {
  const std::string viewPath = scratch + "/view";
  inChild([&] {
    qzVaultStartup();
    setVaultPluginPath(plugins.c_str());
    QzvVault* vault = createVaultInstance(root.c_str());
    if (vault == nullptr) return 1;
    QzvFolder* top = vault->getRootFolder();
    QzvFolder* hot = top != nullptr ? top->getChildFolder(QzbString("Hot")) : nullptr;
    if (hot == nullptr) return 2;
    std::ofstream out(viewPath, std::ios::trunc);
    for (const std::string& file : files) {
      QzvObject* object = hot->getChildObject(QzbString((root + "/Hot/" + file).c_str()));
      if (object == nullptr) {
        out << "object " << file << "\t(cannot be opened)\t0\t-\n";
        continue;
      }
      std::string note = "-";
      if (QzvAttribute* attribute = object->getAttribute(QzbString("Note"))) {
        note = attribute->getValue(0, 0).toStdString();
        if (note.empty()) note = "-";
        attribute->release();
      }
      out << "object " << file << "\t" << object->getName().toStdString() << "\t"
          << object->getHighestVersion() << "\t" << note << "\n";
      object->release();
    }
    if (QzvAttribute* shared = hot->getAttribute(QzbString("Shared"))) {
      for (int row = 0; row < kWorkers; ++row) {
        const std::string value = shared->getValue(0, row).toStdString();
        out << "row " << row << " " << (value.empty() ? "-" : value) << "\n";
      }
      shared->release();
    }
    QzvObject* locked = hot->getChildObject(QzbString((root + "/Hot/shared.csv").c_str()));
    if (locked != nullptr) {
      // A stored attribute always has a row; an unlocked object's is empty.
      QzvAttribute* lockers = locked->getAttribute(QzbString("_LOCKEDUSER"));
      int rows = 0;
      if (lockers != nullptr) {
        for (int row = 0; row < lockers->numRows(); ++row) {
          if (!lockers->getValue(0, row).isEmpty()) ++rows;
        }
        lockers->release();
      }
      out << "lockers " << rows << "\n";
      locked->release();
    }
    out.close();
    return 0;
  });
  return readText(viewPath);
}

TEST(StressTest, EightProcessesMixingCommandsOnOneFolderLoseNothing) {
  TempDir dir;
  const std::string root = dir.join("vault");
  const std::string plugins = dir.join("no-plugins");
  const std::string scratch = dir.join("scratch");
  ASSERT_EQ(0, ::mkdir(root.c_str(), 0700));
  ASSERT_EQ(0, ::mkdir(plugins.c_str(), 0700));
  ASSERT_EQ(0, ::mkdir(scratch.c_str(), 0700));
  const std::vector<std::string> common = {"--vault", root, "--plugins", plugins};
  auto toolOnce = [&](std::vector<std::string> args) {
    std::vector<std::string> full = common;
    full.insert(full.end(), args.begin(), args.end());
    return inChild([&] { return qztest::runToolInProcess(full); });
  };
  ASSERT_EQ(0, toolOnce({"init"}));
  ASSERT_EQ(0, toolOnce({"mkdir", "Hot"}));
  ASSERT_TRUE(writeText(scratch + "/shared.csv", "shared\n"));
  ASSERT_EQ(0, toolOnce({"add", scratch + "/shared.csv", "Hot"}));

  const int commands = commandsPerWorker();
  std::vector<pid_t> workers;
  for (int index = 0; index < kWorkers; ++index) {
    const std::string own = scratch + "/w" + std::to_string(index);
    ASSERT_EQ(0, ::mkdir(own.c_str(), 0700));
    std::fflush(stdout);
    const pid_t worker = fork();
    ASSERT_GE(worker, 0);
    if (worker == 0) _exit(Worker(index, root, plugins, own).run(commands, own + "/promises"));
    workers.push_back(worker);
  }
  for (pid_t worker : workers) {
    int status = 0;
    ASSERT_EQ(worker, waitpid(worker, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a worker died";
  }

  Promises promises;
  for (int index = 0; index < kWorkers; ++index) {
    readPromises(scratch + "/w" + std::to_string(index) + "/promises", &promises);
  }
  std::cout << "stress: " << kWorkers << " processes, " << promises.tried << " commands, "
            << promises.succeeded << " succeeded\n";
  // Which commands failed (exit status and words), for whoever reads the log.
  std::map<std::string, int> failed;
  for (int index = 0; index < kWorkers; ++index) {
    std::istringstream lines(readText(scratch + "/w" + std::to_string(index) + "/failures"));
    std::string failure;
    while (std::getline(lines, failure)) {
      std::istringstream words(failure);
      std::string status, command;
      words >> status >> command;
      ++failed["exit " + status + ": " + command];
    }
  }
  for (const auto& entry : failed) std::cout << "  failed " << entry.second << " times: " << entry.first << "\n";
  EXPECT_EQ(promises.tried, kWorkers * commands);
  // Commands wait for the folder lock rather than fail; a few may still
  // fail for reasons of their own (an unlock of another's lock is refused),
  // but most must succeed or the test proves little.
  EXPECT_GE(promises.succeeded * 10, promises.tried * 9);

  // Files: every promised object has its file with its content; nothing else
  // but the shared object is in the folder.
  std::set<std::string> present;
  for (const fs::directory_entry& entry : fs::directory_iterator(root + "/Hot")) {
    const std::string leaf = entry.path().filename().string();
    if (leaf[0] != '.') present.insert(leaf);
  }
  std::set<std::string> expected = {"shared.csv"};
  for (const auto& entry : promises.objects) expected.insert(entry.first);
  for (const std::string& file : expected) {
    EXPECT_EQ(present.count(file), 1u) << "lost: " << file;
  }
  for (const std::string& file : present) {
    EXPECT_EQ(expected.count(file), 1u) << "phantom: " << file << (promises.gone.count(file) != 0 ? " (reported removed or renamed away)" : " (never reported added)");
  }
  for (const auto& entry : promises.objects) {
    EXPECT_EQ(readText(root + "/Hot/" + entry.first), entry.second.content) << entry.first;
    EXPECT_EQ(promises.gone.count(entry.first), 0u) << entry.first << " is both kept and gone";
  }

  // Metadata rows: only for objects that exist.
  std::string error;
  const std::set<std::string> withRows = namesWithRows(root + "/Hot/.v_fmd", &error);
  ASSERT_TRUE(error.empty()) << error;
  for (const std::string& file : withRows) {
    EXPECT_EQ(expected.count(file), 1u) << "rows left for " << file;
  }

  // What the library reads back: names, versions, notes, the shared rows.
  std::map<std::string, std::string> view;
  std::istringstream viewLines(libraryView(root, plugins, expected, scratch));
  std::string line;
  while (std::getline(viewLines, line)) {
    const std::size_t tab = line.find('\t');
    const std::string key = tab == std::string::npos ? line.substr(0, line.rfind(' ')) : line.substr(0, tab);
    view[key] = line;
  }
  for (const auto& entry : promises.objects) {
    const Promised& object = entry.second;
    const std::string want = "object " + object.file + "\t" + object.display + "\t" +
                             std::to_string(object.versions) + "\t" +
                             (object.note.empty() ? "-" : object.note);
    EXPECT_EQ(view["object " + object.file], want);
  }
  for (const auto& row : promises.rows) {
    const std::string key = "row " + std::to_string(row.first);
    EXPECT_EQ(view[key], key + " " + row.second);
  }
  // Of lockers racing for the shared object at most one ever held it.
  ASSERT_EQ(view.count("lockers"), 1u);
  EXPECT_LE(std::atoi(view["lockers"].substr(8).c_str()), 1) << view["lockers"];

  // Every database is sound and the vault check finds nothing to repair.
  for (const std::string& database : qztest::databasePaths(root)) {
    EXPECT_EQ(qztest::databaseIntegrity(root + "/" + database), "ok") << database;
  }
  const std::string report = scratch + "/check";
  const int checked = inChild([&] {
    // The check's report, kept for the failure message.
    const int out = ::open(report.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (out < 0) return 120;
    std::vector<std::string> words = {"qzvault", "--vault", root, "--plugins", plugins, "check"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    argv.push_back(nullptr);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    return qzvtool::runCommandLine(static_cast<int>(words.size()), argv.data());
  });
  EXPECT_EQ(0, checked) << "the vault check found damage:\n" << readText(report);
}

}  // namespace
