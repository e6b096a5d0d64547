// Works on one object: locks it, sets an attribute, keeps a version before
// rewriting the file, lists the versions, and unlocks it.
//
//   object_host VAULT PLUGIN_DIR FOLDER FILE
//
// FOLDER is relative to the vault's root ("Data"), FILE a file in it.
#include <qzvault/qzvault.h>

#include <cstdio>
#include <string>

namespace {

// Prints the failing object's reason and returns false, for `return fail(x)`.
template <class T>
bool fail(T* failed, const char* what) {
  std::fprintf(stderr, "%s: %s\n", what, failed->getErrorMessage().asCstr());
  return false;
}

bool work(QzvObject* object) {
  // An advisory lock in the name of the user running this program.
  if (!object->setLockedStatus(true)) return fail(object, "lock");

  // Attributes are tables of rows of ten columns; note column, then row.
  QzvAttribute* reviewed = object->getAttribute(QzbString("Reviewed"));
  if (reviewed == nullptr) return fail(object, "getAttribute");
  reviewed->setValue(0, 0, QzbString("yes"));
  reviewed->setValue(1, 0, QzbString("object_host"));
  const bool committed = reviewed->commit();  // written whole, in one transaction
  if (!committed) fail(reviewed, "commit");
  reviewed->release();
  if (!committed) return false;

  // createVersion moves the file aside as the next version; the host then
  // writes the new content to the object's path.
  if (!object->createVersion()) return fail(object, "createVersion");
  const QzbString path = object->getFileName(false);
  if (FILE* file = std::fopen(path.asCstr(), "w")) {
    std::fputs("rewritten by object_host\n", file);
    std::fclose(file);
  }
  const int highest = object->getHighestVersion();
  for (int version = 1; version <= highest; ++version) {
    QzbDate date;
    if (!object->getVersionFileName(version, &date).isNull()) {
      std::printf("version %d of %s: %s\n", version, object->getName().asCstr(), date.asString().asCstr());
    }
  }

  bool locked = false;
  if (object->getLockedStatus(&locked)) std::printf("locked: %s\n", locked ? "yes" : "no");
  // Unlocking removes the lock and makes the file read-only.
  if (!object->setLockedStatus(false)) return fail(object, "unlock");
  if (object->getLockedStatus(&locked)) std::printf("locked: %s\n", locked ? "yes" : "no");
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: object_host VAULT PLUGIN_DIR FOLDER FILE\n");
    return 2;
  }
  qzVaultStartup();
  setVaultPluginPath(argv[2]);
  QzvVault* vault = createVaultInstance(argv[1]);
  if (vault == nullptr) {
    std::fprintf(stderr, "cannot open %s: %s\n", argv[1], getVaultCreateError());
    qzVaultShutdown();
    return 1;
  }
  bool ok = false;
  QzvFolder* root = vault->getRootFolder();
  QzvFolder* folder = root != nullptr ? root->getChildFolder(QzbString(argv[3])) : nullptr;
  if (folder == nullptr) {
    std::fprintf(stderr, "%s\n", (root != nullptr ? root->getErrorMessage() : vault->getErrorMessage()).asCstr());
  } else {
    // getChildObject takes the file's full path, not a name.
    const std::string path = folder->getPath().toStdString() + "/" + argv[4];
    if (QzvObject* object = folder->getChildObject(QzbString(path.c_str()))) {
      ok = work(object);
      object->release();
    } else {
      std::fprintf(stderr, "%s\n", folder->getErrorMessage().asCstr());
    }
    folder->release();
  }
  if (root != nullptr) root->release();
  vault->release();
  qzVaultShutdown();
  return ok ? 0 : 1;
}
