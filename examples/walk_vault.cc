// Walks a vault: every folder and object below the root, with display names,
// file names and the type each object's plug-in reported.
//
//   walk_vault VAULT PLUGIN_DIR
#include <qzvault/qzvault.h>

#include <cstdio>
#include <string>

namespace {

// Lists the objects of `folder`, then walks its sub-folders. Every list and
// folder the library returns is released here.
bool walk(QzvFolder* folder, const std::string& indent) {
  QzvItemList* objects = folder->getObjectList(false);  // name, path, type, read-only
  if (objects == nullptr) {
    std::fprintf(stderr, "%s\n", folder->getErrorMessage().asCstr());
    return false;
  }
  while (objects->next()) {
    QzbString name;
    qzbParsePath(objects->getValue(1), &name);  // the file name
    const QzbString type = objects->getValue(2);
    std::printf("%s%s  \"%s\"  %s\n", indent.c_str(), name.asCstr(), objects->getValue(0).asCstr(),
                type.isNull() ? "-" : type.asCstr());
  }
  objects->release();

  QzvItemList* folders = folder->getFolderList();  // name, path
  if (folders == nullptr) {
    std::fprintf(stderr, "%s\n", folder->getErrorMessage().asCstr());
    return false;
  }
  bool ok = true;
  while (ok && folders->next()) {
    QzbString directory;
    qzbParsePath(folders->getValue(1), &directory);
    std::printf("%s%s/  \"%s\"\n", indent.c_str(), directory.asCstr(), folders->getValue(0).asCstr());
    QzvFolder* child = folder->getChildFolder(directory);
    if (child == nullptr) {
      std::fprintf(stderr, "%s\n", folder->getErrorMessage().asCstr());
      ok = false;
      break;
    }
    ok = walk(child, indent + "  ");
    child->release();
  }
  folders->release();
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: walk_vault VAULT PLUGIN_DIR\n");
    return 2;
  }
  qzVaultStartup();
  setVaultPluginPath(argv[2]);  // the configuration key BASE/PLUGIN_PATH wins when set
  QzvVault* vault = createVaultInstance(argv[1]);
  if (vault == nullptr) {
    std::fprintf(stderr, "cannot open %s: %s\n", argv[1], getVaultCreateError());
    qzVaultShutdown();
    return 1;
  }
  bool ok = false;
  if (QzvFolder* root = vault->getRootFolder()) {
    ok = walk(root, "");
    root->release();
  } else {
    std::fprintf(stderr, "%s\n", vault->getErrorMessage().asCstr());
  }
  vault->release();  // after everything obtained from it
  qzVaultShutdown();
  return ok ? 0 : 1;
}
