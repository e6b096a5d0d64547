// A small metadata plug-in library for the tests. One source, built several
// times with different definitions:
//   QZTEST_TAG            prefix of the plug-ins' type names ("pair" gives
//                         "pair.one" and "pair.two"), telling tests which
//                         library a registry entry came from
//   QZTEST_FACTORY_STATUS the factory's status (1, usable, by default)
//   QZTEST_NO_ENTRY       leave out the entry function
//   QZTEST_NULL_FACTORY   the entry function returns null
// The factory offers two plug-ins: index 0 handles "*.tst1", index 1 handles
// "*.tst2", and both claim "*.both". They do not open files (openFile gives
// null); the calls the library makes are counted in QzTestPluginCounters.
#include "qzvault/plugin.h"
#include "test_plugin_counters.h"

#ifndef QZTEST_TAG
#define QZTEST_TAG "test"
#endif
#ifndef QZTEST_FACTORY_STATUS
#define QZTEST_FACTORY_STATUS 1
#endif

#define QZTEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

QzTestPluginCounters g_counters = {};
int g_releaseSequence = 0;

class TestPlugin final : public QzvMetaDataPlugin {
 public:
  TestPlugin(int index, const char* ownSuffix) : index_(index), ownSuffix_(ownSuffix) {}

  QzbString getDescription() override { return QzbString("Test plug-in " QZTEST_TAG, true); }
  void release() override {
    ++g_counters.pluginsReleased;
    g_counters.releaseOrder[index_] = ++g_releaseSequence;
    delete this;
  }
  QzbString getTypeName() override {
    return QzbString(index_ == 0 ? QZTEST_TAG ".one" : QZTEST_TAG ".two", true);
  }
  bool canHandle(const QzbString& path) override {
    ++g_counters.canHandleCalls;
    return path.endsWith(ownSuffix_) || path.endsWith(".both");
  }
  QzvMetaDataFile* openFile(const QzbString&) override { return nullptr; }
  QzbString getResourceIdentity(const QzbString& path) override { return path; }
  QzbString getResourceType() override { return QzbString("TestFile", true); }

 private:
  ~TestPlugin() override = default;
  int index_;
  const char* ownSuffix_;
};

class TestFactory final : public QzvMetaDataPluginFactory {
 public:
  int getStatus() override {
    ++g_counters.factoryStatusCalls;
    return QZTEST_FACTORY_STATUS;
  }
  int getPluginCount() override { return 2; }
  QzvMetaDataPlugin* getPlugin(int index) override {
    ++g_counters.factoryPluginRequests;
    if (index == 0) return new TestPlugin(0, ".tst1");
    if (index == 1) return new TestPlugin(1, ".tst2");
    return nullptr;
  }
  void release() override {
    ++g_counters.factoriesReleased;
    delete this;
  }

 private:
  ~TestFactory() override = default;
};

}  // namespace

QZTEST_EXPORT QzTestPluginCounters* qztest_plugin_counters(void) { return &g_counters; }

#ifndef QZTEST_NO_ENTRY
QZTEST_EXPORT QzvMetaDataPluginFactory* qzv_create_factory10(void) {
#ifdef QZTEST_NULL_FACTORY
  return nullptr;
#else
  ++g_counters.factoriesCreated;
  return new TestFactory();
#endif
}
#endif
