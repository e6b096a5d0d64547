#include "output_file.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

#include "tool_error.h"
#include "vault_paths.h"

namespace fs = std::filesystem;

namespace qzvtool {

void checkOutputTarget(const std::string& root, const std::string& target) {
  if (isStdout(target)) return;
  std::error_code error;
  const fs::path absolute = fs::weakly_canonical(fs::absolute(target, error), error);
  if (error) return;  // the write reports what is wrong with the path
  VaultPath path;
  if (!vaultPathOf(root, absolute.string(), &path)) return;
  for (const fs::path& component : fs::path(path.relative)) {
    const std::string part = component.string();
    if (!part.empty() && part[0] == '.') {
      failUsage("--output " + target + " names one of the vault's own files (names beginning with \".\")");
    }
  }
}

void writeOutput(const std::string& target, const std::string& content) {
  if (isStdout(target)) {
    std::cout << content;
    std::cout.flush();
    if (!std::cout) fail("cannot write the output on stdout");
    return;
  }
  const std::string temporary = target + ".tmp-" + std::to_string(getpid());
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out) {
      std::remove(temporary.c_str());
      fail("cannot write " + target);
    }
  }
  std::error_code error;
  fs::rename(temporary, target, error);
  if (error) {
    std::remove(temporary.c_str());
    fail("cannot write " + target + ": " + error.message());
  }
}

}  // namespace qzvtool
