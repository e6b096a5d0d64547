// A minimal host of the installed library: starts it, reports its version
// through the base layer's string and shuts it down. Exit status 0 only when
// every build symbol agrees with getVaultVersion().
#include <qzvault/qzvault.h>

#include <cstdio>

int main() {
  if (qzVaultStartup() != 0) {
    std::fprintf(stderr, "qzVaultStartup failed\n");
    return 1;
  }
  // QzbString lives in libqzbase: using it checks that linking the vault
  // library alone also links the base layer.
  const QzbString version(getVaultVersion());
  std::printf("%s\n", version.asCstr());
  std::printf("version %s, build %d\n", qzx_build_version, qzx_build_number);

  int status = 0;
  if (version.compare(qzx_build_info) != 0) {
    std::fprintf(stderr, "getVaultVersion() and qzx_build_info differ\n");
    status = 1;
  }
  char expected[64];
  std::snprintf(expected, sizeof expected, "Vault Library version %s (build %d)",
                qzx_build_version, qzx_build_number);
  if (version.compare(expected) != 0) {
    std::fprintf(stderr, "the version text does not read \"%s\"\n", expected);
    status = 1;
  }
  qzVaultShutdown();
  return status;
}
