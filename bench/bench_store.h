// A vault over a new temporary directory and an impact analysis over it whose
// lineage store ".v_imd" exists (with its schema, and empty), for benchmarks
// that fill the store directly with SQLite before anything is timed. The
// directory goes with the object. Header only, as the bench programs share no
// library of the vault's internals. One thread at a time.
#ifndef QZ_BENCH_BENCH_STORE_H_
#define QZ_BENCH_BENCH_STORE_H_

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "qzbase/config.h"
#include "impact_analysis_impl.h"
#include "plugin_registry.h"
#include "vault_impl.h"

namespace qzbench {

class BenchStore {
 public:
  // The directory is named `prefix` and six random characters; aborts when it
  // cannot be made.
  explicit BenchStore(const char* prefix) {
    // A bypass in the configuration would keep every database in memory,
    // and the store would never reach the file that the benchmark fills.
    qzbGetConfigOptions(nullptr)->removeOption(QzbString("QZVLT/BYPASS", true));
    std::string pattern =
        (std::filesystem::temp_directory_path() / (std::string(prefix) + ".XXXXXX")).string();
    if (mkdtemp(&pattern[0]) == nullptr) abort();
    directory_ = pattern;
    vault_ = new QzvVaultImpl(QzbString(directory_.c_str()), &registry_, QzbString());
    analysis_ = new QzvImpactAnalysisImpl(vault_);
    // The first look-up creates the store with its schema.
    QzResource* none = analysis_->getResource(QzbString("File"), QzbString("none"));
    if (none != nullptr) none->release();
  }
  ~BenchStore() {
    analysis_->release();
    vault_->release();
    std::filesystem::remove_all(directory_);
  }
  BenchStore(const BenchStore&) = delete;
  BenchStore& operator=(const BenchStore&) = delete;

  // The store's file, for writing rows with SQLite.
  std::string storePath() const { return directory_ + "/.v_imd"; }
  QzvImpactAnalysisImpl* analysis() const { return analysis_; }

 private:
  std::string directory_;
  QzviPluginRegistry registry_;
  QzvVaultImpl* vault_ = nullptr;
  QzvImpactAnalysisImpl* analysis_ = nullptr;
};

}  // namespace qzbench

#endif  // QZ_BENCH_BENCH_STORE_H_
