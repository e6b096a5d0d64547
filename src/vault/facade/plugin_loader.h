// The process-wide registry of metadata plug-ins: loading the "qzvmd*" shared
// objects of the plug-in directory and freeing them at shut-down.
//
// Built by the first vault creation that reaches it, shared by every later
// vault while it holds at least one plug-in, and freed by qzVaultShutdown.
// Plug-in libraries are never unloaded. The registry is built before any vault
// exists and only read afterwards, so reads take no lock.
#ifndef QZVAULT_SRC_FACADE_PLUGIN_LOADER_H_
#define QZVAULT_SRC_FACADE_PLUGIN_LOADER_H_

#include <vector>

#include "plugin_registry.h"
#include "qzbase/string.h"
#include "qzvault/plugin.h"

// Separates the directories of a plug-in path ("BASE/PLUGIN_PATH" or
// setVaultPluginPath), which are read in order.
#define QZVI_PLUGIN_PATH_SEPARATOR ':'

// The registry of the process: the existing one when it holds plug-ins,
// otherwise a new one loaded from the directories of `directory` (separated by
// ":", read in order). Never null. `error` receives the reasons plug-ins could
// not be loaded (null when there were none); each reason is also logged at
// warning level, with the system's explanation.
QzviPluginRegistry* createMetaDataPlugins(const QzbString& directory, QzbString* error);
// Loads the "qzvmd*" shared objects of `directory` and appends their plug-ins
// to `list`. False (with the reason in *error) when the directory cannot be
// read.
bool registerDiskPlugins(const QzbString& directory, QzbString* error,
                         std::vector<QzvMetaDataPlugin*>* list);
// The process registry (null before the first creation and after shut-down).
QzviPluginRegistry* qzviProcessRegistry();
// qzVaultShutdown's part: releases every plug-in in order, frees the array and
// the registry. The library supports one start-up and shut-down per process;
// qzviPluginsShutDown() tells createVaultInstance that the registry is gone,
// so that a late call fails cleanly instead of touching freed memory.
void qzviShutdownPlugins();
bool qzviPluginsShutDown();

#endif  // QZVAULT_SRC_FACADE_PLUGIN_LOADER_H_
