#include "session.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "file_names.h"
#include "qzbase/platform.h"
#include "output.h"
#include "qzbase/file_types.h"
#include "tool_error.h"
#include "vault_location.h"
#include "warnings.h"

namespace fs = std::filesystem;

namespace qzvtool {
namespace {

// How long a command waits for a folder lock that another process holds,
// unless the configuration says otherwise: the library's own default (three
// tries a second apart) is too short for commands that queue behind each
// other. The default is applied here, by trying again, rather than stored in
// the configuration, so that `config` lists only what someone set.
const char kLockWaitKey[] = "QZVLT/LOCK_WAIT_MS";
const std::chrono::milliseconds kDefaultLockWait(30000);
const char kBypassKey[] = "QZVLT/BYPASS";

}  // namespace

void applySettings(const std::vector<std::string>& settings) {
  QzbConfigOptions* config = qzbGetConfigOptions(nullptr);
  for (const std::string& setting : settings) {
    const std::size_t equals = setting.find('=');
    config->setOptionFrom(QzbString(setting.substr(0, equals).c_str()),
                          QzbString(setting.substr(equals + 1).c_str()), QzbString("--set", true));
  }
}

namespace {

// Takes the folder's lock. With a configured wait the library waits as
// configured; without one its own tries are repeated until the tool's
// default wait has passed. A folder this user cannot write is not waited
// for: its lock can never be taken.
bool lockWithDefaultWait(QzvFolder* folder, const std::string& directory) {
  if (folder->tranLock()) return true;
  QzbString configured;
  if (qzbGetConfigOptions(nullptr)->getOption(QzbString(kLockWaitKey, true), &configured, 0)) {
    return false;
  }
  if (np_fio_open(directory.c_str(), NP_FIO_PROBE_WRITE, nullptr) != NP_OK) return false;
  const auto deadline = std::chrono::steady_clock::now() + kDefaultLockWait;
  while (std::chrono::steady_clock::now() < deadline) {
    if (folder->tranLock()) return true;
  }
  return false;
}

}  // namespace

VaultSession::VaultSession(const GlobalOptions& options) {
  const VaultLocation location = locateVault(options);
  root_ = location.root;
  base_ = location.base;
  foundBy_ = location.how;
  open(options);
}

VaultSession::VaultSession(const GlobalOptions& options, const std::string& directory) {
  std::error_code error;
  const fs::file_status status = fs::status(directory, error);
  if (!fs::exists(status)) failUsage("no such directory: " + directory);
  if (!fs::is_directory(status)) failUsage("not a directory: " + directory);
  root_ = fs::canonical(directory, error).string();
  if (error) fail("cannot resolve " + directory + ": " + error.message());
  foundBy_ = "made here";
  open(options);
}

void VaultSession::open(const GlobalOptions& options) {
  applySettings(options.settings);
  if (options.logLevel > 0) {
    sink_.reset(new QzLogStreamSink(stderr));
    qzlogAddSink(sink_.get(), options.logLevel);
  }
  qzVaultStartup();
  started_ = true;
  try {
    // What the library warns about while it loads the plug-ins reaches the
    // operator; later warnings belong to the command's own failures.
    WarningPrinter warnings(kVaultLogger);
    pluginDirectory_ = applyPluginDirectory(options.plugins);
    vault_ = createVaultInstance(root_.c_str());
    if (vault_ == nullptr) {
      const std::string reason = getVaultCreateError();
      fail(reason.empty() ? "cannot open a vault on " + root_ : reason);
    }
    for (int index = 0; index < vault_->getPluginCount(); ++index) {
      QzbString type;
      QzbString description;
      if (vault_->getPluginInfo(index, &type, &description)) {
        plugins_.push_back(PluginInfo{text(type), text(description)});
      }
    }
  } catch (...) {
    end();
    throw;
  }
}

VaultSession::~VaultSession() { end(); }

void VaultSession::end() {
  if (vault_ != nullptr) vault_->release();
  vault_ = nullptr;
  if (started_) qzVaultShutdown();
  started_ = false;
  if (sink_) qzlogRemoveSink(sink_.get());
  sink_.reset();
}

std::string VaultSession::shown(const QzbString& fullPath) const {
  VaultPath path;
  if (vaultPathOf(root_, text(fullPath), &path)) return path.shown();
  return text(fullPath);
}

VaultSession::Kind VaultSession::kindOf(const VaultPath& path) const {
  std::error_code error;
  const fs::file_status status = fs::status(path.absolute, error);
  if (!fs::exists(status)) return Kind::kMissing;
  return fs::is_directory(status) ? Kind::kFolder : Kind::kObject;
}

Held<QzvFolder> VaultSession::openFolder(const VaultPath& path) {
  if (kindOf(path) == Kind::kObject) failUsage(path.shown() + " is an object, not a folder");
  Held<QzvFolder> root = hold(vault_->getRootFolder());
  if (!root) failWith(vault_->getErrorMessage(), "cannot open the vault's root folder");
  if (path.isRoot()) return root;
  Held<QzvFolder> folder = hold(root->getChildFolder(QzbString(path.relative.c_str())));
  if (!folder) failWith(root->getErrorMessage(), "cannot open folder " + path.shown());
  return folder;
}

Held<QzvObject> VaultSession::openObject(const VaultPath& path) {
  if (path.isRoot() || kindOf(path) == Kind::kFolder) {
    failUsage(path.shown() + " is a folder, not an object");
  }
  Held<QzvFolder> folder = openFolder(path.parent());
  Held<QzvObject> object = hold(folder->getChildObject(QzbString(path.absolute.c_str())));
  if (!object) failWith(folder->getErrorMessage(), "cannot open object " + path.shown());
  return object;
}

void VaultSession::requireStoredMetadata() const {
  QzbString bypass;
  if (qzbGetConfigOptions(nullptr)->getOption(QzbString(kBypassKey, true), &bypass, 0) &&
      !bypass.isEmpty()) {
    fail(std::string("the vault's metadata is kept in memory only in this run (") + kBypassKey +
         " is set): nothing would be stored, so nothing is changed");
  }
}

std::vector<Held<QzvFolder>> VaultSession::lockFolders(std::vector<VaultPath> paths) {
  requireStoredMetadata();
  std::sort(paths.begin(), paths.end(),
            [](const VaultPath& a, const VaultPath& b) { return a.relative < b.relative; });
  paths.erase(std::unique(paths.begin(), paths.end(),
                          [](const VaultPath& a, const VaultPath& b) {
                            return a.relative == b.relative;
                          }),
              paths.end());
  std::vector<Held<QzvFolder>> held;
  for (const VaultPath& path : paths) {
    Held<QzvFolder> folder = openFolder(path);
    if (!lockWithDefaultWait(folder.get(), path.absolute)) {
      // A folder this user cannot write cannot be changed either, and the
      // library's own refusal of the change says so better than the lock.
      if (np_fio_open(path.absolute.c_str(), NP_FIO_PROBE_WRITE, nullptr) != NP_OK) continue;
      failWith(folder->getErrorMessage(), "cannot lock folder " + path.shown());
    }
    held.push_back(std::move(folder));
  }
  return held;
}

std::string VaultSession::pluginTypeFor(const std::string& fileName) const {
  const std::string extension = splitFileName(fileName).extension;
  if (extension.empty()) return std::string();
  const std::string type = text(getTypeForFileExtension(QzbString(extension.c_str())));
  if (type.empty()) return std::string();
  for (const PluginInfo& plugin : plugins_) {
    if (plugin.typeName == type) return type;
  }
  return std::string();
}

void VaultSession::requireReadable(const VaultPath& object, const std::string& listedType) const {
  const std::string type = pluginTypeFor(object.leaf());
  if (type.empty() || !listedType.empty()) return;
  fail(object.shown() + ": the " + type + " plug-in cannot read this file (is it well-formed?)");
}

void VaultSession::requireReadable(const VaultPath& object) {
  if (pluginTypeFor(object.leaf()).empty()) return;
  Held<QzvFolder> folder = openFolder(object.parent());
  Held<QzvItemList> list = hold(folder->getObjectList(false));
  if (!list) failWith(folder->getErrorMessage(), "cannot list folder " + object.parent().shown());
  while (list->next()) {
    VaultPath listed;
    if (vaultPathOf(root_, text(list->getValue(1)), &listed) && listed.relative == object.relative) {
      requireReadable(object, text(list->getValue(2)));
      return;
    }
  }
}

}  // namespace qzvtool
