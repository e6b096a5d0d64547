// Loading of the "qzvmd*" metadata plug-ins and the process-wide registry that
// holds them. Unlocked on purpose: hosts call the entry points that build and
// free the registry from one thread, before any vault uses it.
#include "plugin_loader.h"

#include <cstddef>
#include <vector>

#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "debug_log.h"

namespace {

// Plug-ins compiled into the library, as creator functions; the array ends
// with a null entry. None are built in.
typedef QzvMetaDataPlugin* (*QzviStaticPluginCreator)();
const QzviStaticPluginCreator kStaticPluginCreators[] = {nullptr};

// The plug-in directory is listed for regular files, with their status.
const int kPluginDirectoryOpenFlags = NP_DIR_FILES | NP_DIR_STAT;  // 6
// Resolve every symbol at load time and keep them local to the plug-in.
const int kPluginLoadFlags = 4;
// The library-name maker writes at most this many bytes.
const std::size_t kLibraryNameLength = 64;
const unsigned kPrefixLength = 5;  // "qzvmd"

QzviPluginRegistry* g_registry = nullptr;
bool g_shutDown = false;

// Empty registries replaced by a later creation. Vaults made while they were
// current still point at them, so they stay alive until shut-down (the list
// itself is never destroyed, so that it stays reachable whatever the order of
// static destruction).
std::vector<QzviPluginRegistry*>* g_retired = nullptr;

// Handles of every plug-in library loaded. Libraries stay loaded for the life
// of the process (plug-in objects and code may be in use until the very end);
// their handles are kept here, never closed.
std::vector<NpDso*>* g_loadedLibraries = nullptr;

void keepLoaded(NpDso* library) {
  if (g_loadedLibraries == nullptr) g_loadedLibraries = new std::vector<NpDso*>();
  g_loadedLibraries->push_back(library);
}

void retire(QzviPluginRegistry* registry) {
  if (g_retired == nullptr) g_retired = new std::vector<QzviPluginRegistry*>();
  g_retired->push_back(registry);
}

int countStaticCreators() {
  int count = 0;
  while (kStaticPluginCreators[count] != nullptr) ++count;
  return count;
}

void setDirectoryError(int result, const QzbString& directory, QzbString* error) {
  switch (result) {
    case NP_ERR_DIR_NOT_FOUND:
      *error = QzbString("Plugin directory not found", true);
      break;
    case NP_ERR_NOT_A_DIRECTORY:
      *error = QzbString("Plugin directory specified is not a directory", true);
      break;
    case NP_ERR_ACCESS:
      *error = QzbString("Plugin directory access denied", true);
      break;
    default:
      *error = qzbStringFormat("Directory open on %s failed with error %d", directory.asCstr(),
                               result);
      break;
  }
}

// Loads one plug-in library and appends the plug-ins of a usable factory.
// Every plug-in file that yields nothing is also a warning with its reason,
// so that an operator sees why a file type is not understood.
void loadPluginLibrary(const char* path, const char* leaf, QzbString* error,
                       std::vector<QzvMetaDataPlugin*>* list) {
  QzLogger* logger = qzviVaultLogger();
  NpDso* library = nullptr;
  const int loaded = np_dso_load(path, kPluginLoadFlags, &library);
  if (loaded != 0) {
    error->append(qzbStringFormat("Plugin load failed on %s\n", path));
    QZVI_LOG(logger, QZLOG_WARN, "Plugin load failed on %s: %s", path, np_dso_error());
    if (loaded == NP_DSO_LOADED_UNUSABLE) np_dso_unload(library);
    return;
  }
  // From here on the library stays loaded, even when it yields nothing: code
  // of it may already be referenced (static constructors, atexit handlers).
  keepLoaded(library);
  void* symbol = np_dso_getsym(library, QZV_PLUGIN_ENTRY_NAME);
  if (symbol == nullptr) {
    QZVI_LOG(logger, QZLOG_WARN, "Plugin %s is not used: it has no entry point %s", path,
             QZV_PLUGIN_ENTRY_NAME);
    return;
  }
  QzvCreateFactoryFunction createFactory = reinterpret_cast<QzvCreateFactoryFunction>(symbol);
  QzvMetaDataPluginFactory* factory = createFactory();
  if (factory == nullptr) {
    QZVI_LOG(logger, QZLOG_WARN, "Plugin %s is not used: its entry point made no factory", path);
    return;
  }
  const int status = factory->getStatus();
  if (status == 1) {
    QZVI_LOG(logger, QZLOG_TRACE, "Loading vault plugin: %s", leaf);
    const int count = factory->getPluginCount();
    for (int index = 0; index < count; ++index) list->push_back(factory->getPlugin(index));
  } else {
    QZVI_LOG(logger, QZLOG_WARN, "Plugin %s is not used: its factory reports status %d", path,
             status);
  }
  factory->release();
}

// The directories of a plug-in path: the parts between ":" separators, in
// order (one empty directory for an empty path, so that it is reported).
std::vector<QzbString> pluginDirectories(const QzbString& path) {
  std::vector<QzbString> directories;
  const std::string text = path.toStdString();
  std::size_t start = 0;
  for (;;) {
    const std::size_t colon = text.find(QZVI_PLUGIN_PATH_SEPARATOR, start);
    const std::string part =
        text.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
    // Empty parts between separators ("a::b", a trailing ":") name nothing.
    if (!part.empty() || (directories.empty() && colon == std::string::npos)) {
      directories.push_back(QzbString::fromStdString(part));
    }
    if (colon == std::string::npos) break;
    start = colon + 1;
  }
  return directories;
}

}  // namespace

QzviPluginRegistry* createMetaDataPlugins(const QzbString& directory, QzbString* error) {
  QzbString localError;
  if (error == nullptr) error = &localError;
  if (g_registry != nullptr && g_registry->count > 0) return g_registry;

  if (g_registry != nullptr) retire(g_registry);
  g_registry = new QzviPluginRegistry();

  const int staticCount = countStaticCreators();
  g_registry->count = staticCount;

  error->setNull(true);
  // Several directories are read in the order given; the plug-ins of an
  // earlier one come first in the registry, and so win a file that two claim.
  std::vector<QzvMetaDataPlugin*> diskPlugins;
  for (const QzbString& part : pluginDirectories(directory)) {
    QzbString partError;
    partError.setNull(true);
    if (!registerDiskPlugins(part, &partError, &diskPlugins)) {
      QZVI_LOG(qzviVaultLogger(), QZLOG_WARN, "Cannot read plugin directory %s: %s",
               part.isEmpty() ? "\"\"" : part.asCstr(), partError.asCstr());
    }
    if (!partError.isNull()) {
      if (error->isNull()) {
        *error = partError;
      } else {
        // One reason per line, as the load failures are.
        if (!error->isEmpty() && error->right(1).compare("\n", true) != 0) error->append("\n");
        error->append(partError);
      }
    }
  }
  g_registry->count += static_cast<int>(diskPlugins.size());

  if (g_registry->count > 0) {
    g_registry->plugins = new QzvMetaDataPlugin*[g_registry->count];
    int next = 0;
    for (int index = 0; index < staticCount; ++index) {
      g_registry->plugins[next++] = kStaticPluginCreators[index]();
    }
    for (QzvMetaDataPlugin* plugin : diskPlugins) g_registry->plugins[next++] = plugin;
  }
  return g_registry;
}

bool registerDiskPlugins(const QzbString& directory, QzbString* error,
                         std::vector<QzvMetaDataPlugin*>* list) {
  QzbString localError;
  if (error == nullptr) error = &localError;
  std::vector<QzvMetaDataPlugin*> localList;
  if (list == nullptr) list = &localList;

  NpDir* handle = nullptr;
  const int opened = np_dir_open(directory.asCstr(), kPluginDirectoryOpenFlags, &handle);
  if (opened != 0) {
    setDirectoryError(opened, directory, error);
    return false;
  }

  const std::size_t bufferLength = static_cast<std::size_t>(np_dir_pathlen()) + 1;
  std::vector<char> entryPath(bufferLength);
  std::vector<char> leaf(bufferLength);
  char libraryName[kLibraryNameLength];
  while (np_dir_next(handle, entryPath.data(), entryPath.size()) == 0) {
    leaf[0] = '\0';
    np_fio_pparse(entryPath.data(), nullptr, 0, leaf.data(), leaf.size());
    if (np_dso_mklname(leaf.data(), libraryName, sizeof libraryName) != 0) continue;
    const QzbString leafName(leaf.data());
    if (leafName.mid(0, kPrefixLength).compare(QZV_PLUGIN_FILE_PREFIX, false) != 0) continue;
    loadPluginLibrary(entryPath.data(), leaf.data(), error, list);
  }
  np_dir_close(handle);
  return true;
}

QzviPluginRegistry* qzviProcessRegistry() { return g_registry; }

void qzviShutdownPlugins() {
  g_shutDown = true;
  if (g_retired != nullptr) {
    for (QzviPluginRegistry* retired : *g_retired) {
      delete[] retired->plugins;
      delete retired;
    }
    delete g_retired;
    g_retired = nullptr;
  }
  if (g_registry == nullptr) return;
  for (int index = 0; index < g_registry->count; ++index) {
    QzvMetaDataPlugin* plugin = g_registry->plugins[index];
    if (plugin != nullptr) plugin->release();
  }
  delete[] g_registry->plugins;
  g_registry->plugins = nullptr;
  delete g_registry;
  // Cleared rather than left dangling; g_shutDown makes a later vault creation
  // fail with a clear error instead of building a registry nobody frees.
  g_registry = nullptr;
}

bool qzviPluginsShutDown() { return g_shutDown; }
