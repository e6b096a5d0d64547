#include "support/temp_dir.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace qztest {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string base = fs::temp_directory_path().string();
  std::string pattern = base + "/qzvault-test-XXXXXX";
  char* made = mkdtemp(&pattern[0]);
  if (made == nullptr) {
    ADD_FAILURE() << "mkdtemp failed";
    path_ = base;
    return;
  }
  path_ = made;
}

TempDir::~TempDir() { removeTree(path_); }

std::string TempDir::join(const std::string& relative) const { return path_ + "/" + relative; }

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out.good()) << "cannot write " << path;
  out << content;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

bool pathExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void makeDirs(const std::string& path) {
  std::error_code ec;
  fs::create_directories(path, ec);
  ASSERT_FALSE(ec) << "cannot create " << path << ": " << ec.message();
}

void setMtime(const std::string& path, long long seconds) {
  struct timeval times[2];
  times[0].tv_sec = static_cast<time_t>(seconds);
  times[0].tv_usec = 0;
  times[1] = times[0];
  ASSERT_EQ(0, utimes(path.c_str(), times)) << "utimes " << path;
}

long long getMtime(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  return static_cast<long long>(st.st_mtime);
}

void removeTree(const std::string& path) {
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(path, ec))) return;
  // Restore write and search permissions so that the tree can be removed.
  for (auto it = fs::recursive_directory_iterator(
           path, fs::directory_options::skip_permission_denied, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path, ec);
}

}  // namespace qztest
