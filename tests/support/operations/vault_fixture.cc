#include "support/operations/vault_fixture.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "qzvault/qzvault.h"

namespace qztest {

namespace fs = std::filesystem;

const char kFixtureUuid[] = "0f8fad5b-d9cb-469f-a165-70867728950e";

const char kFixtureJobDefinition[] =
    "{\n"
    "  \"name\": \"Load orders\",\n"
    "  \"attributes\": [{\"name\": \"Owner\", \"rows\": [[\"data-team\"]]}],\n"
    "  \"uses\": [{\"type\": \"File\", \"path\": \"../Data/orders.csv\"}]\n"
    "}\n";

namespace {

bool writeText(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  return static_cast<bool>(out);
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

template <class T>
struct Releaser {
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
template <class T>
using Own = std::unique_ptr<T, Releaser<T>>;

// The steps of the standard vault, through the public interfaces. Returns 0,
// or the number of the step that failed.
int buildThroughLibrary(const std::string& root) {
  qzVaultStartup();
  setVaultPluginPath(buildPluginDirectory().c_str());
  Own<QzvVault> vault(createVaultInstance(root.c_str()));
  if (!vault) return 1;
  if (!vault->resetUUID(QzbString(kFixtureUuid))) return 2;
  Own<QzvFolder> top(vault->getRootFolder());
  if (!top) return 3;
  Own<QzvFolder> data(top->createFolder(QzbString("Data")));
  Own<QzvFolder> jobs(top->createFolder(QzbString("Jobs")));
  Own<QzvFolder> old(top->createFolder(QzbString("Old: stuff")));
  Own<QzvFolder> empty(top->createFolder(QzbString("Empty")));
  if (!data || !jobs || !old || !empty) return 4;

  const std::string dataPath = root + "/Data";
  if (!writeText(dataPath + "/orders.csv", "orders v1\n")) return 5;
  Own<QzvObject> orders(data->createObjectFromFile(QzbString("orders.csv"), QzbString("Orders")));
  if (!orders) return 6;
  // Two versions, then the current content.
  if (!orders->createVersion() || !writeText(dataPath + "/orders.csv", "orders v2\n")) return 7;
  if (!orders->createVersion() || !writeText(dataPath + "/orders.csv", "orders v3\n")) return 8;
  {
    Own<QzvAttribute> owner(orders->getAttribute(QzbString("Owner")));
    if (!owner) return 9;
    owner->setValue(0, 0, QzbString("data-team"));
    owner->setValue(0, 1, QzbString("ops"));
    if (!owner->commit()) return 10;
  }
  if (!writeText(dataPath + "/customers.csv", "customers v1\n")) return 11;
  Own<QzvObject> customers(
      data->createObjectFromFile(QzbString("customers.csv"), QzbString("Customers")));
  if (!customers || !customers->setLockedStatus(true)) return 12;
  if (!writeText(dataPath + "/notes.txt", "notes\n")) return 13;
  {
    Own<QzvAttribute> purpose(data->getAttribute(QzbString("Purpose")));
    if (!purpose) return 14;
    purpose->setValue(0, 0, QzbString("sales"));
    if (!purpose->commit()) return 15;
  }

  if (!writeText(root + "/Jobs/load.job.def", kFixtureJobDefinition)) return 16;
  Own<QzvObject> job(jobs->createObjectFromFile(QzbString("load.job.def"), QzbString("Load orders")));
  if (!job) return 17;
  if (!job->analyzeImpact(nullptr)) return 18;

  if (!writeText(old->getPath().toStdString() + "/old.txt", "old stuff\n")) return 19;
  if (!writeText(root + "/incoming.csv", "incoming\n")) return 20;

  // A listing caches what the plug-ins read.
  for (QzvFolder* folder : {top.get(), data.get(), jobs.get(), old.get()}) {
    Own<QzvItemList> list(folder->getObjectList(false));
    if (!list) return 21;
  }
  job.reset();
  customers.reset();
  orders.reset();
  empty.reset();
  old.reset();
  jobs.reset();
  data.reset();
  top.reset();
  vault.reset();
  qzVaultShutdown();
  return 0;
}

bool restampOrders(const std::string& databasePath) {
  sqlite3* db = nullptr;
  bool done = sqlite3_open_v2(databasePath.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
              sqlite3_exec(db,
                           "UPDATE v_attr SET v0 = 'a colleague' "
                           "WHERE fname = 'orders.csv' AND attr = '_MODIFIEDUSER'",
                           nullptr, nullptr, nullptr) == SQLITE_OK &&
              sqlite3_changes(db) == 1;
  sqlite3_close(db);
  return done;
}

bool isVaultName(const std::string& component) {
  return !component.empty() && component[0] == '.';
}

}  // namespace

std::string buildPluginDirectory() { return std::string(QZ_TEST_BINARY_ROOT) + "/plugins"; }

bool buildStandardVault(const std::string& root, std::string* error) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = fork();
  if (child < 0) {
    *error = "fork failed";
    return false;
  }
  if (child == 0) _exit(buildThroughLibrary(root));
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    *error = "the process that builds the standard vault died";
    return false;
  }
  if (WEXITSTATUS(status) != 0) {
    *error = "building the standard vault failed at step " + std::to_string(WEXITSTATUS(status));
    return false;
  }
  // Every stamp names the user who built the vault, the same user the
  // operations run as; re-stamping with an unchanged name leaves the store's
  // pages as they are, so Data/orders.csv is said to be last changed by a
  // colleague and a stamp by an operation really writes.
  if (!restampOrders(root + "/Data/.v_fmd")) {
    *error = "cannot give Data/orders.csv another modifying user";
    return false;
  }
  return true;
}

bool copyTree(const std::string& from, const std::string& to, std::string* error) {
  struct stat st;
  if (lstat(from.c_str(), &st) != 0) {
    *error = "cannot examine " + from;
    return false;
  }
  if (S_ISLNK(st.st_mode)) {
    std::vector<char> target(static_cast<std::size_t>(st.st_size) + 1, '\0');
    if (readlink(from.c_str(), target.data(), target.size()) < 0 ||
        symlink(target.data(), to.c_str()) != 0) {
      *error = "cannot copy the link " + from;
      return false;
    }
    return true;
  }
  if (S_ISDIR(st.st_mode)) {
    if (mkdir(to.c_str(), 0700) != 0) {
      *error = "cannot make " + to;
      return false;
    }
    std::error_code code;
    for (const fs::directory_entry& entry : fs::directory_iterator(from, code)) {
      if (!copyTree(entry.path().string(), to + "/" + entry.path().filename().string(), error)) {
        return false;
      }
    }
    if (code) {
      *error = "cannot list " + from;
      return false;
    }
  } else if (S_ISREG(st.st_mode)) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out << in.rdbuf();
    out.close();
    if (!out) {
      *error = "cannot copy " + from;
      return false;
    }
  } else {
    *error = "cannot copy the special file " + from;
    return false;
  }
  chmod(to.c_str(), st.st_mode & 07777);
  const struct timespec times[2] = {st.st_atim, st.st_mtim};
  utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW);
  return true;
}

std::map<std::string, std::string> userContent(const std::string& root) {
  std::map<std::string, std::string> content;
  std::error_code code;
  const auto options = fs::directory_options::skip_permission_denied;
  for (auto it = fs::recursive_directory_iterator(root, options, code);
       !code && it != fs::recursive_directory_iterator(); it.increment(code)) {
    const fs::path relative = it->path().lexically_relative(root);
    if (!it->is_regular_file(code) || it->is_symlink(code)) continue;
    // An object, or a file kept in a version or quarantine directory.
    bool inVaultDirectory = false;
    bool kept = false;
    bool hidden = false;
    std::vector<std::string> parts;
    for (const fs::path& part : relative) parts.push_back(part.string());
    for (std::size_t i = 0; i < parts.size(); ++i) {
      const bool last = i + 1 == parts.size();
      if (!isVaultName(parts[i])) continue;
      if (!last && (parts[i] == ".v_ver" || parts[i] == ".v_quarantine")) {
        kept = true;
      } else if (last) {
        hidden = true;
      } else {
        inVaultDirectory = true;
      }
    }
    if (hidden || (inVaultDirectory && !kept)) continue;
    content[relative.string()] = readText(it->path().string());
  }
  return content;
}

std::set<std::string> objectPaths(const std::string& root) {
  std::set<std::string> paths;
  for (const auto& entry : userContent(root)) {
    bool inVault = false;
    for (const fs::path& part : fs::path(entry.first)) inVault = inVault || isVaultName(part.string());
    if (!inVault) paths.insert(entry.first);
  }
  return paths;
}

std::set<std::string> databasePaths(const std::string& root) {
  std::set<std::string> paths;
  std::error_code code;
  for (auto it = fs::recursive_directory_iterator(root, code);
       !code && it != fs::recursive_directory_iterator(); it.increment(code)) {
    const std::string leaf = it->path().filename().string();
    if (leaf == ".v_fmd" || leaf == ".v_cmd" || leaf == ".v_imd") {
      paths.insert(it->path().lexically_relative(root).string());
    }
    // The vault's own directories hold no databases of their own.
    if (it->is_directory(code) && isVaultName(leaf)) it.disable_recursion_pending();
  }
  return paths;
}

std::string databaseIntegrity(const std::string& path) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    const std::string message = db != nullptr ? sqlite3_errmsg(db) : "cannot open";
    sqlite3_close(db);
    return "cannot be opened: " + message;
  }
  sqlite3_busy_timeout(db, 5000);
  sqlite3_stmt* statement = nullptr;
  std::string verdict;
  if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) != SQLITE_OK) {
    verdict = sqlite3_errmsg(db);
  } else {
    int step;
    while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
      const char* line = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
      if (!verdict.empty()) verdict += "; ";
      verdict += line != nullptr ? line : "";
    }
    if (step != SQLITE_DONE) verdict = sqlite3_errmsg(db);
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return verdict;
}

}  // namespace qztest
