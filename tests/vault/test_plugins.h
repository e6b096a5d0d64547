// Where the test plug-ins are (tests/plugins/CMakeLists.txt describes each
// scenario directory) and how a test reads what they recorded.
#ifndef QZ_TESTS_VAULT_TEST_PLUGINS_H_
#define QZ_TESTS_VAULT_TEST_PLUGINS_H_

#include <dlfcn.h>

#include <string>

#include "plugins/test_plugin_counters.h"

namespace qztest {

inline std::string testPluginDir(const std::string& scenario) {
  return std::string(QZ_TEST_PLUGIN_ROOT) + "/" + scenario;
}

inline std::string testPluginPath(const std::string& scenario, const std::string& file) {
  return testPluginDir(scenario) + "/" + file;
}

// True when the library at `path` is loaded in this process (never loads it).
inline bool isLibraryLoaded(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);  // gives back the reference RTLD_NOLOAD took
  return true;
}

// The counters of the loaded test plug-in library at `path`, or null when it
// is not loaded. They stay valid: plug-in libraries are never unloaded.
inline QzTestPluginCounters* testPluginCounters(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return nullptr;
  void* symbol = dlsym(handle, QZTEST_PLUGIN_COUNTERS_SYMBOL);
  dlclose(handle);
  if (symbol == nullptr) return nullptr;
  return reinterpret_cast<QzTestPluginCountersFunction>(symbol)();
}

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_TEST_PLUGINS_H_
