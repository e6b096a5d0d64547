// Analyses one object and prints its lineage: what it uses, what else uses
// each of those, and what the ones named through configuration macros
// resolve to.
//
//   impact_host VAULT PLUGIN_DIR FOLDER FILE [KEY=VALUE ...]
//
// KEY=VALUE pairs set configuration options, the values of the %%KEY%%
// macros that resource identities may hold.
#include <qzvault/qzvault.h>

#include <cstdio>
#include <string>

namespace {

void printList(const char* heading, QzResourceList* list) {
  std::printf("%s\n", heading);
  while (list->next()) {
    QzResource* resource = list->getValue(0);  // owned by the list
    std::printf("  %s %s%s\n", resource->getResourceType().asCstr(),
                resource->getResourceIdentity().asCstr(),
                resource->IsResourceIdentityMacroValue() ? " (macro)" : "");
  }
}

bool report(QzvVault* vault, QzvObject* object) {
  // Records what the file uses, as its plug-in reports it; an unchanged file
  // that was analysed before is skipped.
  if (!object->analyzeImpact(nullptr)) {
    std::fprintf(stderr, "analyzeImpact failed: %s\n", object->getErrorMessage().asCstr());
    return false;
  }
  QzvImpactAnalysis* analysis = vault->getImpactAnalysis();
  QzResource* self = analysis->getResourceForObject(object);
  if (self == nullptr) {
    std::fprintf(stderr, "%s\n", analysis->getErrorMessage().asCstr());
    analysis->release();
    return false;
  }
  // The analysis recorded what the file names as the "dependents" of the
  // object's resource: getDependentResources answers what it uses, and
  // getUsedByResources what uses a resource. Queries never return null: a
  // failure is an empty list and a message.
  QzResourceList* used = analysis->getDependentResources(self, false);
  printList(("What " + self->getName().toStdString() + " uses:").c_str(), used);
  used->reset();
  while (used->next()) {
    QzResource* resource = used->getValue(0);
    const std::string identity = resource->getResourceIdentity().toStdString();
    QzResourceList* users = analysis->getUsedByResources(resource, false);
    printList(("What uses " + identity + ":").c_str(), users);
    users->release();
    if (resource->IsResourceIdentityMacroValue()) {
      // Substitutes the macros from the configuration and adds the resource
      // the result names (nothing when an option is not set).
      QzResourceList* resolved = analysis->getDependentResources(resource, false);
      printList(("What " + identity + " uses:").c_str(), resolved);
      resolved->release();
    }
  }
  used->release();
  self->release();
  analysis->release();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "usage: impact_host VAULT PLUGIN_DIR FOLDER FILE [KEY=VALUE ...]\n");
    return 2;
  }
  QzbConfigOptions* config = qzbGetConfigOptions(nullptr);
  for (int i = 5; i < argc; ++i) {
    const std::string setting = argv[i];
    const std::size_t equals = setting.find('=');
    if (equals == std::string::npos) continue;
    config->setOption(QzbString(setting.substr(0, equals).c_str()),
                      QzbString(setting.substr(equals + 1).c_str()));
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
  if (folder != nullptr) {
    const std::string path = folder->getPath().toStdString() + "/" + argv[4];
    if (QzvObject* object = folder->getChildObject(QzbString(path.c_str()))) {
      ok = report(vault, object);
      object->release();
    } else {
      std::fprintf(stderr, "%s\n", folder->getErrorMessage().asCstr());
    }
    folder->release();
  } else {
    std::fprintf(stderr, "%s\n", (root != nullptr ? root->getErrorMessage() : vault->getErrorMessage()).asCstr());
  }
  if (root != nullptr) root->release();
  vault->release();
  qzVaultShutdown();
  return ok ? 0 : 1;
}
