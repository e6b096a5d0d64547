// The tool's reading of a path given on the command line (resolveVaultPath):
// whatever the text, the path it gives lies inside the vault's root, through
// symbolic links too, never names one of the vault's own files (no component
// beginning with "."), and is made of plain components; anything else is a
// usage error (exit status 2), never a failure of another kind.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "tool_error.h"
#include "vault_paths.h"

namespace fs = std::filesystem;

namespace {

// A vault in the scratch directory: folders, an object, the vault's own
// files, and links that stay inside or lead out.
const std::string& vaultRoot() {
  static const std::string root = [] {
    const std::string base = qzfuzz::scratchDirectory();
    const std::string vault = base + "/vault";
    fs::create_directories(vault + "/Data/Sub");
    fs::create_directories(base + "/outside");
    fs::create_directories(vault + "/.v_ver");
    for (const char* file : {"/.v_fmd", "/Data/orders.csv", "/Data/.v_cmd"}) {
      FILE* made = std::fopen((vault + file).c_str(), "w");
      if (made != nullptr) std::fclose(made);
    }
    symlink("Data/Sub", (vault + "/inside-link").c_str());
    symlink("../outside", (vault + "/outside-link").c_str());
    symlink("/", (vault + "/Data/root-link").c_str());
    symlink("loop", (vault + "/loop").c_str());
    return fs::canonical(vault).string();
  }();
  return root;
}

bool inside(const fs::path& root, const fs::path& path) {
  auto r = root.begin();
  auto p = path.begin();
  for (; r != root.end(); ++r, ++p) {
    if (p == path.end() || *r != *p) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string argument = qzfuzz::cText(std::string(reinterpret_cast<const char*>(data), size));
  const std::string& root = vaultRoot();
  qzvtool::VaultPath path;
  try {
    path = qzvtool::resolveVaultPath(root, argument);
  } catch (const qzvtool::ToolError& error) {
    FUZZ_CHECK(error.exitStatus() == qzvtool::kExitUsage, error.what());
    return 0;
  }
  FUZZ_CHECK(path.absolute == (path.relative.empty() ? root : root + "/" + path.relative),
             argument + " gave " + path.absolute);
  if (!path.relative.empty()) {
    for (const fs::path& part : fs::path(path.relative)) {
      const std::string text = part.string();
      FUZZ_CHECK(!text.empty() && text != "." && text != ".." && text[0] != '.',
                 argument + " gave " + path.relative);
    }
  }
  FUZZ_CHECK(inside(root, fs::path(path.absolute).lexically_normal()), argument + " gave " + path.absolute);
  std::error_code error;
  const fs::path resolved = fs::weakly_canonical(path.absolute, error);
  FUZZ_CHECK(!error && inside(root, resolved), argument + " leads to " + resolved.string());
  return 0;
}
