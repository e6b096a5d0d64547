// A temporary directory for one test, removed with everything in it when the
// object goes out of scope (permissions are restored first, so that read-only
// files and folders made by the test do not survive it).
#ifndef QZ_TESTS_SUPPORT_TEMP_DIR_H_
#define QZ_TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

namespace qztest {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The directory's absolute path, without a trailing separator.
  const std::string& path() const { return path_; }
  // path() + "/" + relative.
  std::string join(const std::string& relative) const;

 private:
  std::string path_;
};

// Small file helpers for tests (abort the test on failure through gtest).
void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);
bool pathExists(const std::string& path);
void makeDirs(const std::string& path);
// Sets the modification (and access) time of `path` to `seconds`.
void setMtime(const std::string& path, long long seconds);
long long getMtime(const std::string& path);
// Removes a tree, restoring permissions first; no error when it is missing.
void removeTree(const std::string& path);

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_TEMP_DIR_H_
