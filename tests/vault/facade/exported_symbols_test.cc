// libqzvault.so exports exactly its entry points, its build symbols and
// qzvSeconds2QzbDate, under their plain C names; everything else stays
// hidden. tests/plugins/CMakeLists.txt makes the test targets build the shared
// library first.
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string sharedLibraryPath() {
  return std::string(QZ_TEST_BINARY_ROOT) + "/src/vault/libqzvault.so";
}

// The names of the defined dynamic symbols, from "nm -D --defined-only".
bool definedDynamicSymbols(const std::string& library, std::set<std::string>* names) {
  const std::string command = "nm -D --defined-only '" + library + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return false;
  std::string output;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  const int status = pclose(pipe);
  if (status != 0) {
    ADD_FAILURE() << command << " failed:\n" << output;
    return false;
  }
  std::istringstream lines(output);
  std::string line;
  while (std::getline(lines, line)) {
    // "<address> <type> <name>"
    std::istringstream fields(line);
    std::string address, type, name;
    if (fields >> address >> type >> name) names->insert(name);
  }
  return true;
}

TEST(ExportedSymbols, SharedLibraryExportsExactlyTheEntryPointsAndBuildSymbols) {
  std::set<std::string> names;
  ASSERT_TRUE(definedDynamicSymbols(sharedLibraryPath(), &names));
  const std::set<std::string> expected = {
      "qzVaultStartup",      "qzVaultShutdown",    "createVaultInstance",
      "getVaultVersion",     "getVaultCreateError", "setVaultPluginPath",
      "qzx_build_version",   "qzx_build_info",     "qzx_build_number",
      "qzvSeconds2QzbDate"};
  EXPECT_EQ(names, expected);
}

}  // namespace
