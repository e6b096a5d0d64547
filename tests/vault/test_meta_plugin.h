// The "qzvmdtestmeta" test plug-in (tests/plugins/test_meta_plugin.cc, which
// documents its file format) loaded into a registry of the test's own, and
// small helpers to write its files.
//
//   qztest::TestMetaRegistry plugins;            // loads the plug-ins
//   qzviRefreshCachedAttributes(dir, plugins.get(), &error, cache, nullptr);
//   plugins.counters()->filesOpened              // what the library did
//
// The registry is not the process registry of createMetaDataPlugins: each
// TestMetaRegistry gets plug-in objects of its own from the factory and
// releases them when it goes out of scope, so tests stay independent.
#ifndef QZ_TESTS_VAULT_TEST_META_PLUGIN_H_
#define QZ_TESTS_VAULT_TEST_META_PLUGIN_H_

#include <dlfcn.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "plugin_loader.h"
#include "plugins/test_meta_counters.h"
#include "qzbase/string.h"

namespace qztest {

// The directory that holds qzvmdtestmeta.so and nothing else.
inline std::string testMetaPluginDir() { return std::string(QZ_TEST_PLUGIN_ROOT) + "/meta"; }
inline std::string testMetaPluginPath() { return testMetaPluginDir() + "/qzvmdtestmeta.so"; }

class TestMetaRegistry {
 public:
  TestMetaRegistry() {
    QzbString error;
    loaded_ = registerDiskPlugins(QzbString(testMetaPluginDir().c_str()), &error, &plugins_);
    EXPECT_TRUE(loaded_) << error.asCstr();
    EXPECT_EQ(plugins_.size(), 3u) << "plug-in load errors: " << error.asCstr();
    registry_.count = static_cast<int>(plugins_.size());
    registry_.plugins = plugins_.empty() ? nullptr : plugins_.data();
    if (counters() != nullptr) counters()->reset();
  }
  ~TestMetaRegistry() {
    for (QzvMetaDataPlugin* plugin : plugins_) plugin->release();
  }
  TestMetaRegistry(const TestMetaRegistry&) = delete;
  TestMetaRegistry& operator=(const TestMetaRegistry&) = delete;

  const QzviPluginRegistry* get() const { return &registry_; }
  // Plug-in `index`: 0 "TestMeta" (*.tmeta), 1 "TestJob" (*.job.def),
  // 2 "TestReport" (*.rpt.def).
  QzvMetaDataPlugin* plugin(int index) const { return plugins_.at(static_cast<std::size_t>(index)); }

  // The plug-in library's counters (reset when this registry was made).
  static QzTestMetaCounters* counters() {
    void* handle = dlopen(testMetaPluginPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle == nullptr) return nullptr;
    void* symbol = dlsym(handle, QZTEST_META_COUNTERS_SYMBOL);
    dlclose(handle);
    if (symbol == nullptr) return nullptr;
    return reinterpret_cast<QzTestMetaCountersFunction>(symbol)();
  }

 private:
  bool loaded_ = false;
  std::vector<QzvMetaDataPlugin*> plugins_;
  QzviPluginRegistry registry_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_TEST_META_PLUGIN_H_
