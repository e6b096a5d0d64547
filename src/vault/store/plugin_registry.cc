// Reading the plug-in registry: counting, indexing and choosing the plug-in
// that handles a file.
#include "plugin_registry.h"

int getMetaDataPluginCount(const QzviPluginRegistry* registry) {
  return registry == nullptr ? 0 : registry->count;
}

QzvMetaDataPlugin* getMetaDataPlugin(const QzviPluginRegistry* registry, int index) {
  if (registry == nullptr || registry->plugins == nullptr) return nullptr;
  return registry->plugins[index];
}

QzvMetaDataPlugin* qzviFindMetaDataHandlerForFile(const QzbString& path,
                                                  const QzviPluginRegistry* registry) {
  const int count = getMetaDataPluginCount(registry);
  for (int index = 0; index < count; ++index) {
    QzvMetaDataPlugin* plugin = getMetaDataPlugin(registry, index);
    if (plugin != nullptr && plugin->canHandle(path)) return plugin;
  }
  return nullptr;
}
