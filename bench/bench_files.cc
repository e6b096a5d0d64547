#include "bench_files.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <numeric>
#include <system_error>

namespace qzbench {

TempDir::TempDir(const char* prefix) {
  std::string pattern =
      (std::filesystem::temp_directory_path() / (std::string(prefix) + ".XXXXXX")).string();
  if (mkdtemp(&pattern[0]) == nullptr) {
    std::perror("mkdtemp");
    abort();
  }
  path_ = pattern;
}

TempDir::~TempDir() { removeTree(path_); }

bool makeFiles(const std::string& directory, long count, const char* prefix,
               const char* extension) {
  // A stride that is prime to `count` visits every number once, out of order.
  long stride = 7919;
  while (count > 1 && std::gcd(stride, count) != 1) stride += 2;
  for (long step = 0; step < count; ++step) {
    const long number = (step * stride) % count;
    char name[64];
    std::snprintf(name, sizeof name, "/%s%06ld.%s", prefix, number, extension);
    FILE* file = std::fopen((directory + name).c_str(), "w");
    if (file == nullptr) {
      std::perror("fopen");
      return false;
    }
    std::fputs("benchmark data\n", file);
    if (std::fclose(file) != 0) return false;
  }
  return true;
}

void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
}

bool removeTree(const std::string& path) {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
  return !std::filesystem::exists(path, ignored);
}

}  // namespace qzbench
