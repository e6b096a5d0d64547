// The vault's account of the metadata plug-ins it uses, for hosts that show
// what a vault can read (the command-line tool's `info`). The registry is
// built before the vault exists and only read afterwards, so no lock is taken.
#include "debug_log.h"
#include "plugin_registry.h"
#include "vault_impl.h"

namespace {
const char kPluginIndexOutOfRange[] = "Plugin index out of range";
}  // namespace

int QzvVaultImpl::getPluginCount() { return getMetaDataPluginCount(plugins()); }

bool QzvVaultImpl::getPluginInfo(int index, QzbString* typeName, QzbString* description) {
  QzvMetaDataPlugin* plugin = nullptr;
  if (index >= 0 && index < getMetaDataPluginCount(plugins())) {
    plugin = getMetaDataPlugin(plugins(), index);
  }
  if (plugin == nullptr) {
    setErrorMessage(QzbString(kPluginIndexOutOfRange, true));
    QZVI_LOG(logger(), QZLOG_ERROR, "%s", kPluginIndexOutOfRange);
    return false;
  }
  if (typeName != nullptr) *typeName = plugin->getTypeName();
  if (description != nullptr) *description = plugin->getDescription();
  return true;
}
