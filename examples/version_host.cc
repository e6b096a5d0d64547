// The smallest host of the vault library: starts the library, prints its
// version and shuts it down. A real host would create vaults between start-up
// and shut-down (createVaultInstance) and release each one before the end.
#include <qzvault/qzvault.h>

#include <cstdio>

int main() {
  qzVaultStartup();
  std::printf("%s\n", getVaultVersion());
  std::printf("Library version: %s\n", qzx_build_version);
  qzVaultShutdown();
  return 0;
}
