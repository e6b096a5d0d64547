// What the "qzvmdtestmeta" test plug-in (test_meta_plugin.cc) records, so that
// tests can check how the library drove it: which files it opened, whether
// every opened file was released, how often it was asked about files. The
// library exports
//
//     extern "C" QzTestMetaCounters* qztest_meta_counters(void);
//
// which a test finds with dlopen(path, RTLD_NOW | RTLD_NOLOAD) and dlsym once
// the library has loaded the plug-in (see tests/vault/test_meta_plugin.h).
// The counters are atomic: the library may call plug-ins from several
// threads.
#ifndef QZ_TESTS_PLUGINS_TEST_META_COUNTERS_H_
#define QZ_TESTS_PLUGINS_TEST_META_COUNTERS_H_

#include <atomic>

#define QZTEST_META_COUNTERS_SYMBOL "qztest_meta_counters"

struct QzTestMetaCounters {
  std::atomic<int> canHandleCalls;
  std::atomic<int> openCalls;       // openFile calls, failed ones included
  std::atomic<int> filesOpened;     // openFile calls that returned a file
  std::atomic<int> filesReleased;   // QzvMetaDataFile::release calls
  std::atomic<int> dependencyLists; // listDependencies calls
  std::atomic<int> commits;         // commit calls that wrote the file
  std::atomic<int> saves;           // save calls that wrote the file
  std::atomic<int> pluginsReleased;

  void reset() {
    canHandleCalls = 0;
    openCalls = 0;
    filesOpened = 0;
    filesReleased = 0;
    dependencyLists = 0;
    commits = 0;
    saves = 0;
    pluginsReleased = 0;
  }
};

typedef QzTestMetaCounters* (*QzTestMetaCountersFunction)(void);

#endif  // QZ_TESTS_PLUGINS_TEST_META_COUNTERS_H_
