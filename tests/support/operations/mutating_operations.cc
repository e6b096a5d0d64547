#include "support/operations/mutating_operations.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "qzvault/qzvault.h"
#include "run.h"
#include "support/operations/vault_fixture.h"

namespace qztest {

namespace {

template <class T>
struct Releaser {
  void operator()(T* object) const {
    if (object != nullptr) object->release();
  }
};
template <class T>
using Own = std::unique_ptr<T, Releaser<T>>;

// A host's view of the vault at `root`: the library started, the vault made,
// folders and objects by vault path. Ends nothing: the process ends instead.
class Host {
 public:
  explicit Host(const std::string& root) : root_(root) {
    qzVaultStartup();
    setVaultPluginPath(buildPluginDirectory().c_str());
    vault_.reset(createVaultInstance(root.c_str()));
    if (vault_) top_.reset(vault_->getRootFolder());
  }

  bool ok() const { return vault_ && top_; }
  QzvVault* vault() const { return vault_.get(); }
  QzvFolder* top() const { return top_.get(); }

  // A folder by vault path ("" for the root).
  Own<QzvFolder> folder(const std::string& path) const {
    if (!ok()) return nullptr;
    if (path.empty()) return Own<QzvFolder>(vault_->getRootFolder());
    return Own<QzvFolder>(top_->getChildFolder(QzbString(path.c_str())));
  }
  // An object by vault path.
  Own<QzvObject> object(const std::string& path) const {
    const std::size_t slash = path.rfind('/');
    Own<QzvFolder> parent = folder(slash == std::string::npos ? "" : path.substr(0, slash));
    if (!parent) return nullptr;
    return Own<QzvObject>(parent->getChildObject(QzbString((root_ + "/" + path).c_str())));
  }

 private:
  std::string root_;
  Own<QzvVault> vault_;
  Own<QzvFolder> top_;
};

bool writeText(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  return static_cast<bool>(out);
}

using HostBody = std::function<bool(Host&, const std::string& root)>;

MutatingOperation hostOperation(const std::string& name, HostBody body) {
  MutatingOperation operation;
  operation.name = name;
  operation.kind = MutatingOperation::Kind::kHost;
  operation.run = [body](const std::string& root) {
    Host host(root);
    return host.ok() && body(host, root);
  };
  return operation;
}

// A tool command; `args` may hold "{root}" for the vault's root and
// "{outside}" for a file outside the vault that the fixture does not have
// (made by the command's own preparation, `prepare`).
MutatingOperation toolOperation(const std::string& name, std::vector<std::string> args,
                                std::function<void(const std::string& root)> prepare = nullptr) {
  MutatingOperation operation;
  operation.name = name;
  operation.kind = MutatingOperation::Kind::kTool;
  operation.run = [args, prepare](const std::string& root) {
    if (prepare) prepare(root);
    std::vector<std::string> full = {"--vault", root, "--plugins", buildPluginDirectory()};
    for (std::string arg : args) {
      const std::string marker = "{outside}";
      const std::size_t at = arg.find(marker);
      if (at != std::string::npos) arg.replace(at, marker.size(), root + ".outside");
      full.push_back(arg);
    }
    return runToolInProcess(full) == 0;
  };
  return operation;
}

// The contents of the standard vault's orders object and versions.
const char kOrdersCurrent[] = "orders v3\n";
const char kOrdersV1[] = "orders v1\n";
const char kOrdersV2[] = "orders v2\n";

std::vector<MutatingOperation> makeCatalogue() {
  std::vector<MutatingOperation> all;
  const std::string orders = "Data/orders.csv";

  // --- Folders.
  all.push_back(hostOperation("folder.createFolder", [](Host& host, const std::string&) {
    Own<QzvFolder> made(host.top()->createFolder(QzbString("New folder")));
    return made != nullptr;
  }));
  all.push_back(hostOperation("folder.createFolder with a display name",
                              [](Host& host, const std::string&) {
                                Own<QzvFolder> made(host.top()->createFolder(QzbString("Q3: plans")));
                                return made != nullptr;
                              }));
  all.push_back(hostOperation("folder.createObject", [](Host& host, const std::string&) {
    Own<QzvFolder> data = host.folder("Data");
    if (!data) return false;
    Own<QzvObject> made(data->createObject(QzbString("new.csv"), QzbString("New")));
    return made != nullptr;
  }));
  all.push_back(hostOperation("folder.createObjectFromFile", [](Host& host, const std::string&) {
    Own<QzvObject> made(
        host.top()->createObjectFromFile(QzbString("incoming.csv"), QzbString("Incoming")));
    return made != nullptr;
  }));
  {
    MutatingOperation op = hostOperation("folder.fsRename", [](Host& host, const std::string&) {
      Own<QzvFolder> data = host.folder("Data");
      return data && data->fsRename(QzbString("Data2"));
    });
    for (const char* name : {"orders.csv", "customers.csv", "notes.txt"}) {
      op.mayMove["Data/" + std::string(name)] = {"Data2/" + std::string(name)};
    }
    all.push_back(op);
  }
  all.push_back(hostOperation("folder.renameSelf", [](Host& host, const std::string&) {
    Own<QzvFolder> data = host.folder("Data");
    return data && data->renameSelf(QzbString("Data store"));
  }));
  {
    MutatingOperation op = hostOperation("folder.moveSelf", [](Host& host, const std::string&) {
      Own<QzvFolder> old = host.folder("Old_ stuff");
      Own<QzvFolder> data = host.folder("Data");
      return old && data && old->moveSelf(data.get());
    });
    op.mayMove["Old_ stuff/old.txt"] = {"Data/Old_ stuff/old.txt"};
    all.push_back(op);
  }
  all.push_back(hostOperation("folder.deleteSelf", [](Host& host, const std::string&) {
    Own<QzvFolder> empty = host.folder("Empty");
    return empty && empty->deleteSelf();
  }));
  all.push_back(hostOperation("folder.attribute commit", [](Host& host, const std::string&) {
    Own<QzvFolder> data = host.folder("Data");
    if (!data) return false;
    Own<QzvAttribute> purpose(data->getAttribute(QzbString("Purpose")));
    if (!purpose) return false;
    purpose->setValue(1, 0, QzbString("reporting"));
    purpose->setValue(0, 1, QzbString("audit"));
    return purpose->commit();
  }));
  all.push_back(hostOperation("folder.tranLock and tranUnlock", [](Host& host, const std::string&) {
    Own<QzvFolder> data = host.folder("Data");
    if (!data || !data->tranLock()) return false;
    data->tranUnlock();
    return true;
  }));
  all.push_back(hostOperation("folder.getObjectList refresh", [](Host& host, const std::string& root) {
    // A changed and a new file make the listing rewrite the cache.
    if (!writeText(root + "/Data/notes.txt", "notes, longer now\n")) return false;
    if (!writeText(root + "/Data/fresh.csv", "fresh\n")) return false;
    Own<QzvFolder> data = host.folder("Data");
    if (!data) return false;
    Own<QzvItemList> list(data->getObjectList(true));
    return list != nullptr;
  }));
  all.back().mayDiscard = {"notes\n"};

  // --- Objects.
  all.push_back(hostOperation("object.lock", [orders](Host& host, const std::string&) {
    Own<QzvObject> object = host.object(orders);
    return object && object->setLockedStatus(true);
  }));
  all.push_back(hostOperation("object.unlock", [](Host& host, const std::string&) {
    Own<QzvObject> object = host.object("Data/customers.csv");
    return object && object->setLockedStatus(false);
  }));
  all.push_back(hostOperation("object.createVersion", [orders](Host& host, const std::string&) {
    Own<QzvObject> object = host.object(orders);
    return object && object->createVersion();
  }));
  all.push_back(hostOperation("object.createVersion and new content",
                              [orders](Host& host, const std::string& root) {
                                Own<QzvObject> object = host.object(orders);
                                return object && object->createVersion() &&
                                       writeText(root + "/" + orders, "orders v4\n");
                              }));
  {
    MutatingOperation op =
        hostOperation("object.rollbackVersion", [orders](Host& host, const std::string&) {
          Own<QzvObject> object = host.object(orders);
          return object && object->rollbackVersion(1);
        });
    op.mayDiscard = {kOrdersCurrent, kOrdersV2};
    all.push_back(op);
  }
  {
    MutatingOperation op = hostOperation("object.fileRename", [orders](Host& host, const std::string&) {
      Own<QzvObject> object = host.object(orders);
      return object && object->fileRename(QzbString("orders-2024.csv"));
    });
    op.mayMove[orders] = {"Data/orders-2024.csv"};
    all.push_back(op);
  }
  all.push_back(hostOperation("object.renameSelf", [orders](Host& host, const std::string&) {
    Own<QzvObject> object = host.object(orders);
    return object && object->renameSelf(QzbString("Orders 2024"));
  }));
  all.push_back(hostOperation("object.renameSelf of a definition",
                              [](Host& host, const std::string&) {
                                // The plug-in keeps the name in the file and rewrites it.
                                Own<QzvObject> object = host.object("Jobs/load.job.def");
                                return object && object->renameSelf(QzbString("Load all orders"));
                              }));
  all.back().mayDiscardFiles = {"Jobs/load.job.def"};  // rewritten with the new name
  {
    MutatingOperation op = hostOperation("object.moveSelf", [orders](Host& host, const std::string&) {
      Own<QzvObject> object = host.object(orders);
      Own<QzvFolder> target = host.folder("Old_ stuff");
      return object && target && object->moveSelf(target.get());
    });
    op.mayMove[orders] = {"Old_ stuff/orders.csv"};
    all.push_back(op);
  }
  {
    MutatingOperation op = hostOperation("object.deleteSelf", [orders](Host& host, const std::string&) {
      Own<QzvObject> object = host.object(orders);
      return object && object->deleteSelf();
    });
    op.mayDiscard = {kOrdersCurrent, kOrdersV1, kOrdersV2};
    op.mayMove[orders] = {};
    all.push_back(op);
  }
  all.push_back(hostOperation("object.setModifiedByUser", [orders](Host& host, const std::string&) {
    Own<QzvObject> object = host.object(orders);
    return object && object->setModifiedByUser(QzbString("someone"));
  }));
  all.push_back(hostOperation("object.attribute commit", [orders](Host& host, const std::string&) {
    Own<QzvObject> object = host.object(orders);
    if (!object) return false;
    Own<QzvAttribute> owner(object->getAttribute(QzbString("Owner")));
    if (!owner) return false;
    owner->setValue(0, 2, QzbString("finance"));
    return owner->commit();
  }));
  all.push_back(hostOperation("object.analyzeImpact", [](Host& host, const std::string& root) {
    // A changed definition is analysed again.
    if (!writeText(root + "/Jobs/load.job.def",
                   "{\"name\": \"Load orders\", \"uses\": [{\"type\": \"File\", \"path\": "
                   "\"../Data/customers.csv\"}]}\n")) {
      return false;
    }
    Own<QzvObject> object = host.object("Jobs/load.job.def");
    return object && object->analyzeImpact(nullptr);
  }));
  all.back().mayDiscardFiles = {"Jobs/load.job.def"};
  all.push_back(hostOperation("object.refreshMetadata", [](Host& host, const std::string& root) {
    if (!writeText(root + "/Data/notes.txt", "notes, refreshed\n")) return false;
    Own<QzvObject> object = host.object("Data/notes.txt");
    return object && object->refreshMetadata();
  }));
  all.back().mayDiscard = {"notes\n"};

  // --- The vault and its lineage store.
  all.push_back(hostOperation("vault.resetUUID", [](Host& host, const std::string&) {
    return host.vault()->resetUUID(QzbString("7c9e6679-7425-40de-944b-e07fc1f90ae7"));
  }));
  all.push_back(hostOperation("impact.removeResources", [](Host& host, const std::string&) {
    Own<QzvImpactAnalysis> analysis(host.vault()->getImpactAnalysis());
    return analysis && analysis->removeResources();
  }));
  all.push_back(hostOperation("vault check with repair", [](Host& host, const std::string& root) {
    // Something to repair: metadata rows of a file that is gone.
    if (std::remove((root + "/Data/customers.csv").c_str()) != 0) return false;
    Own<QzvVaultCheck> check(host.vault()->getVaultCheck());
    if (!check) return false;
    Own<QzvItemList> findings(check->check(true));
    return findings != nullptr;
  }));
  all.back().mayDiscard = {"customers v1\n"};
  all.back().mayMove["Data/customers.csv"] = {};

  // --- Tool commands.
  all.push_back(toolOperation("tool init --uuid", {"init", "--uuid", "7c9e6679-7425-40de-944b-e07fc1f90ae7"}));
  all.push_back(toolOperation("tool mkdir", {"mkdir", "Data/Q3: plans"}));
  all.push_back(toolOperation("tool rmdir", {"rmdir", "Empty"}));
  all.push_back(toolOperation("tool rename folder", {"rename", "Data", "Data store"}));
  all.push_back(toolOperation("tool rename object", {"rename", orders, "Orders 2024"}));
  {
    MutatingOperation op = toolOperation("tool fsrename folder", {"fsrename", "Data", "Data2"});
    for (const char* name : {"orders.csv", "customers.csv", "notes.txt"}) {
      op.mayMove["Data/" + std::string(name)] = {"Data2/" + std::string(name)};
    }
    all.push_back(op);
  }
  {
    MutatingOperation op = toolOperation("tool fsrename object", {"fsrename", orders, "orders-2024.csv"});
    op.mayMove[orders] = {"Data/orders-2024.csv"};
    all.push_back(op);
  }
  {
    MutatingOperation op = toolOperation("tool mv object", {"mv", orders, "Old_ stuff"});
    op.mayMove[orders] = {"Old_ stuff/orders.csv"};
    all.push_back(op);
  }
  {
    MutatingOperation op = toolOperation("tool mv folder", {"mv", "Old_ stuff", "Data"});
    op.mayMove["Old_ stuff/old.txt"] = {"Data/Old_ stuff/old.txt"};
    all.push_back(op);
  }
  all.push_back(toolOperation("tool add", {"add", "{outside}/report.csv", "Data"},
                              [](const std::string& root) {
                                const std::string outside = root + ".outside";
                                ::mkdir(outside.c_str(), 0700);
                                writeText(outside + "/report.csv", "report\n");
                              }));
  {
    MutatingOperation op = toolOperation("tool rm", {"rm", orders});
    op.mayDiscard = {kOrdersCurrent, kOrdersV1, kOrdersV2};
    op.mayMove[orders] = {};
    all.push_back(op);
  }
  all.push_back(toolOperation("tool attr set", {"attr", "set", orders, "Owner", "finance", "--row", "2"}));
  all.push_back(toolOperation("tool attr set folder", {"attr", "set", "Data", "Purpose", "audit"}));
  all.push_back(toolOperation("tool attr clear", {"attr", "clear", orders, "Owner"}));
  all.push_back(toolOperation("tool version create", {"version", "create", orders}));
  all.push_back(toolOperation("tool version create --from", {"version", "create", orders, "--from",
                                                             "{outside}/orders.csv"},
                              [](const std::string& root) {
                                const std::string outside = root + ".outside";
                                ::mkdir(outside.c_str(), 0700);
                                writeText(outside + "/orders.csv", "orders v4\n");
                              }));
  {
    MutatingOperation op = toolOperation("tool version rollback", {"version", "rollback", orders, "1"});
    op.mayDiscard = {kOrdersCurrent, kOrdersV2};
    all.push_back(op);
  }
  all.push_back(toolOperation("tool lock", {"lock", orders}));
  all.push_back(toolOperation("tool unlock", {"unlock", "Data/customers.csv"}));
  all.push_back(toolOperation("tool analyze", {"analyze"}));
  all.push_back(toolOperation("tool check --repair", {"check", "--repair"},
                              [](const std::string& root) {
                                std::remove((root + "/Data/customers.csv").c_str());
                              }));
  all.back().mayDiscard = {"customers v1\n"};
  all.back().mayMove["Data/customers.csv"] = {};
  return all;
}

}  // namespace

const std::vector<MutatingOperation>& mutatingOperations() {
  static const std::vector<MutatingOperation> catalogue = makeCatalogue();
  return catalogue;
}

const MutatingOperation* findOperation(const std::string& name) {
  for (const MutatingOperation& operation : mutatingOperations()) {
    if (operation.name == name) return &operation;
  }
  return nullptr;
}

int runToolInProcess(const std::vector<std::string>& args) {
  // The tool's output is not wanted here: what it did is judged on disk.
  std::fflush(stdout);
  std::fflush(stderr);
  const int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (devNull >= 0) {
    dup2(devNull, STDOUT_FILENO);
    dup2(devNull, STDERR_FILENO);
    close(devNull);
  }
  std::vector<std::string> words = {"qzvault"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  return qzvtool::runCommandLine(static_cast<int>(words.size()), argv.data());
}

}  // namespace qztest
