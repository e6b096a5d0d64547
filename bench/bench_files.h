// Files and directories for the benchmarks: a temporary directory that goes
// with its object, folders of small files, and removing a database with its
// journal. One thread at a time.
#ifndef QZ_BENCH_BENCH_FILES_H_
#define QZ_BENCH_BENCH_FILES_H_

#include <string>

namespace qzbench {

// A new directory under the system's temporary directory, named `prefix` and
// six random characters; removed with everything in it when the object goes.
// Aborts the program when it cannot be made.
class TempDir {
 public:
  explicit TempDir(const char* prefix);
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Writes `count` small files "<prefix>NNNNNN.<extension>" (numbered from 0)
// into `directory`, in an order that does not follow the names, so that a
// listing does not return them sorted. False when a file cannot be written.
bool makeFiles(const std::string& directory, long count, const char* prefix,
               const char* extension);
// Removes a database file and its rollback journal, if there are any.
void removeDatabase(const std::string& path);
// Removes a directory tree; true when it is gone.
bool removeTree(const std::string& path);

}  // namespace qzbench

#endif  // QZ_BENCH_BENCH_FILES_H_
