// The registry of metadata plug-ins, as the store and everything above it read
// it: which plug-ins there are, in order, and which one handles a file.
//
// The process-wide registry is built and freed by the facade
// (facade/plugin_loader.h) before any vault exists and after the last one is
// gone; vaults only read it, so reads take no lock.
#ifndef QZVAULT_SRC_STORE_PLUGIN_REGISTRY_H_
#define QZVAULT_SRC_STORE_PLUGIN_REGISTRY_H_

#include "qzbase/string.h"
#include "qzvault/plugin.h"

struct QzviPluginRegistry {
  int count = 0;
  // Static plug-ins first (none are built in), then disk plug-ins in load order.
  QzvMetaDataPlugin** plugins = nullptr;
};

int getMetaDataPluginCount(const QzviPluginRegistry* registry);
// No bounds check.
QzvMetaDataPlugin* getMetaDataPlugin(const QzviPluginRegistry* registry, int index);
// The first plug-in (in registry order) that can handle `path`, or null.
QzvMetaDataPlugin* qzviFindMetaDataHandlerForFile(const QzbString& path,
                                                  const QzviPluginRegistry* registry);

#endif  // QZVAULT_SRC_STORE_PLUGIN_REGISTRY_H_
