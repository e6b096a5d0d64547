// The exported entry points and the process-wide state they keep: the last
// creation error, the plug-in path set by hand and whether a plug-in path was
// ever given. Unlocked: hosts call the entry points from one thread.
#include <cstring>
#include <new>

#include "qzbase/config.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "qzvault/entry.h"
#include "debug_log.h"
#include "plugin_loader.h"
#include "vault_impl.h"

namespace {

const std::size_t kBufferSize = 512;

char g_createError[kBufferSize] = "";
// May hold kBufferSize bytes without a terminator (a path of 512 bytes or
// more is cut there); always read with pluginPathFromBuffer.
char g_pluginPath[kBufferSize] = "";
// Set by setVaultPluginPath and whenever the configuration supplies a plug-in
// path; never cleared, so that once a path was found, later creations go
// ahead even when the key has since been removed.
unsigned char g_pluginPathSet = 0;

void setCreateError(const char* text) {
  const std::size_t length = strnlen(text, kBufferSize - 1);
  std::memcpy(g_createError, text, length);
  g_createError[length] = '\0';
}

// Sets the creation error and writes it to the diagnostic log.
void failCreation(const char* text) {
  setCreateError(text);
  qzviDebugLog(QzbString(text, true));
}

QzbString pluginPathFromBuffer() {
  return QzbString::fromBytes(g_pluginPath, strnlen(g_pluginPath, kBufferSize));
}

QzvVault* createVault(const char* rootPath) {
  QzbString pluginError;
  pluginError.setNull(false);
  g_createError[0] = '\0';

  if (qzviPluginsShutDown()) {
    failCreation("The vault library has been shut down");
    return nullptr;
  }
  if (rootPath == nullptr) return nullptr;

  // Only an existence test: a missing root or one that is not a directory
  // leaves the creation error empty.
  NpDir* directory = nullptr;
  if (np_dir_open(rootPath, 0, &directory) != 0) return nullptr;
  np_dir_close(directory);

  QzbString pluginPath;
  QzbConfigOptions* options = qzbGetConfigOptions(nullptr);
  if (options->getOption(QzbString("BASE/PLUGIN_PATH", true), &pluginPath, 0)) {
    qzviDebugLog(qzbStringFormat("Loading vault plugins from path: %S", &pluginPath));
    g_pluginPathSet = 1;
  } else {
    qzviDebugLog(QzbString("Unable to load plugin path from config options.", true));
    pluginPath = pluginPathFromBuffer();
  }
  if (g_pluginPathSet == 0) {
    failCreation("No plugin path was specified");
    return nullptr;
  }

  QzviPluginRegistry* registry = createMetaDataPlugins(pluginPath, &pluginError);
  if (!pluginError.isEmpty()) qzviDebugLog(pluginError);
  if (registry == nullptr) {
    failCreation("Failed to create metadata plugins");
    return nullptr;
  }
  QzvVaultImpl* vault = new QzvVaultImpl(QzbString(rootPath), registry, pluginPath);
  vault->warnIfShared();
  return vault;
}

}  // namespace

extern "C" {

int qzVaultStartup(void) {
  QZVI_LOG(qzlogGetLogger(QZVI_LOGGER_VAULT), QZLOG_TRACE, "Startup of Vault");
  return 0;
}

void qzVaultShutdown(void) {
  QZVI_LOG(qzlogGetLogger(QZVI_LOGGER_VAULT), QZLOG_TRACE, "Shutdown of Vault");
  qzviShutdownPlugins();
}

QzvVault* createVaultInstance(const char* rootPath) {
  // Nothing may be thrown across the C boundary; the only thing that can
  // throw here is running out of memory.
  try {
    return createVault(rootPath);
  } catch (const std::bad_alloc&) {
    setCreateError("Out of memory");
    return nullptr;
  }
}

const char* getVaultVersion(void) { return qzx_build_info; }

const char* getVaultCreateError(void) { return g_createError; }

void setVaultPluginPath(const char* path) {
  if (path == nullptr) path = "";
  // A path of 512 bytes or more is kept cut at 512 bytes, without a
  // terminator; readers bound it with strnlen.
  const std::size_t length = strnlen(path, kBufferSize);
  std::memcpy(g_pluginPath, path, length);
  if (length < kBufferSize) g_pluginPath[length] = '\0';
  g_pluginPathSet = 1;
}

}  // extern "C"
