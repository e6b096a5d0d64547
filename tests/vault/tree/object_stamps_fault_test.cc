// Platform failures in an object's unlock (the permission change) and in the
// cache refresh that opens its attribute listing.
#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "platform_override.h"
#include "support/fault_platform.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {

using qztest::Cell;
using qztest::FaultPlatform;
using qztest::LogCapture;
using qztest::NpOp;
using qztest::Rows;

class ObjectStampFaults : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    add("plan.txt");
    addAttrRow("plan.txt", "Owner", 0, "ops");
  }
};

TEST_F(ObjectStampFaults, AFailedPermissionChangeIsReportedAndTheUnlockStands) {
  auto object = open("plan.txt");
  ASSERT_TRUE(object->setLockedStatus(true));
  LogCapture log;
  bool unlocked;
  {
    FaultPlatform faults;
    faults.failCall(NpOp::kFioChperm, 1, NP_ERR_IO);
    unlocked = object->setLockedStatus(false);
    EXPECT_EQ(faults.failuresInjected(NpOp::kFioChperm), 1);
  }
  EXPECT_TRUE(unlocked);
  EXPECT_TRUE(log.contains("File " + dir_.join("plan.txt") +
                               " error setting permissions on unlock: Input/output error",
                           5))
      << log.dump();
  bool locked = true;
  ASSERT_TRUE(object->getLockedStatus(&locked));
  EXPECT_FALSE(locked);
}

// np_fio_stat failing for one path as if it could not be examined (not as if
// it were missing, which would only clear the file's cache rows).
std::string g_unreadable;
int statExceptOne(const char* path, NpStat* status) {
  if (g_unreadable == path) return NP_ERR_ACCESS;
  return npDefaultPlatformOps()->fio_stat(path, status);
}

TEST_F(ObjectStampFaults, AFileTheRefreshCannotExamineStillListsBothDatabases) {
  auto object = open("plan.txt");
  LogCapture log;
  Rows rows;
  g_unreadable = dir_.join("plan.txt");
  NpPlatformOps ops = *npDefaultPlatformOps();
  ops.fio_stat = statExceptOne;
  {
    qztest::PlatformOverride override(ops);
    rows = qztest::takeList(object->getAttrList());
  }
  EXPECT_TRUE(log.contains("Error refreshing cached file attributes for getAttrList() on object "
                           "plan.txt: Cache failed to open file",
                           2))
      << log.dump();
  // The cache has nothing for the file yet; the stored row is listed.
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], Cell("Owner"));
}

}  // namespace
