// Installs a platform operation table for the scope of a test: usually the
// default table with one or two entries replaced (a clock, a user name, a
// mutex creation or a library load that fails).
#ifndef QZ_TESTS_VAULT_PLATFORM_OVERRIDE_H_
#define QZ_TESTS_VAULT_PLATFORM_OVERRIDE_H_

#include "qzbase/platform.h"

namespace qztest {

class PlatformOverride {
 public:
  explicit PlatformOverride(const NpPlatformOps& ops) : ops_(ops) {
    previous_ = npSetPlatformOps(&ops_);
  }
  ~PlatformOverride() { npSetPlatformOps(previous_); }
  PlatformOverride(const PlatformOverride&) = delete;
  PlatformOverride& operator=(const PlatformOverride&) = delete;

 private:
  NpPlatformOps ops_;
  const NpPlatformOps* previous_;
};

}  // namespace qztest

#endif  // QZ_TESTS_VAULT_PLATFORM_OVERRIDE_H_
