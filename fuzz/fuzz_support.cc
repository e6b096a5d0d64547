#include "fuzz_support.h"

#include <cstdlib>
#include <filesystem>
#include <string>

namespace qzfuzz {
namespace {

std::string* g_scratch = nullptr;

void removeScratch() {
  std::error_code ignored;
  if (g_scratch != nullptr) std::filesystem::remove_all(*g_scratch, ignored);
}

}  // namespace

std::string scratchDirectory() {
  if (g_scratch == nullptr) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/qzfuzz.XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    g_scratch = new std::string(pattern);
    // libFuzzer ends a timed run through exit(); the directory goes with it.
    std::atexit(removeScratch);
  }
  return *g_scratch;
}

}  // namespace qzfuzz
