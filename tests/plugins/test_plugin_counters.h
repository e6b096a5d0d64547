// What the test plug-ins record, so that tests can check how the library
// drove them. Every test plug-in library exports
//
//     extern "C" QzTestPluginCounters* qztest_plugin_counters(void);
//
// which a test finds with dlopen(path, RTLD_NOW | RTLD_NOLOAD) and dlsym once
// the library has loaded the plug-in (the library never unloads plug-ins, so
// the counters stay readable until the process ends). Each library has its
// own counters.
#ifndef QZ_TESTS_PLUGINS_TEST_PLUGIN_COUNTERS_H_
#define QZ_TESTS_PLUGINS_TEST_PLUGIN_COUNTERS_H_

#define QZTEST_PLUGIN_COUNTERS_SYMBOL "qztest_plugin_counters"

struct QzTestPluginCounters {
  int factoriesCreated;   // calls of the entry function that returned a factory
  int factoryStatusCalls;
  int factoryPluginRequests;  // getPlugin calls
  int factoriesReleased;
  int pluginsReleased;    // plug-in release calls, over both plug-ins
  // Order in which the two plug-ins were released: 1 for the first release
  // call of the library, 2 for the second; 0 while not released.
  int releaseOrder[2];
  int canHandleCalls;
};

typedef QzTestPluginCounters* (*QzTestPluginCountersFunction)(void);

#endif  // QZ_TESTS_PLUGINS_TEST_PLUGIN_COUNTERS_H_
