// Crash safety of every mutating operation: each operation of the catalogue
// (tests/support/operations) is killed before each of its calls that change
// the file system, on a fresh copy of the standard vault, and the vault is
// judged after each crash (crash_sweep.h): no content lost, every database
// sound, and the vault check with repair leaves it clean with every object
// in its place. One test per operation; the report line of each is printed
// for docs/reliability.md.
#include <cctype>
#include <cstdlib>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "support/operations/crash_sweep.h"
#include "support/operations/mutating_operations.h"

namespace {

using qztest::CrashSweepReport;
using qztest::MutatingOperation;

// Every crash point in the normal build; the sanitizer build (several times
// slower) tries every 8th point (QZ_CRASH_STRIDE sets another), the first and
// the last included, to stay within the time CI gives the sweeps.
int crashStride() {
  if (const char* stride = std::getenv("QZ_CRASH_STRIDE")) return std::atoi(stride);
#ifdef QZ_TEST_SANITIZED
  return 8;
#else
  return 1;
#endif
}

class OperationCrashTest : public ::testing::TestWithParam<std::string> {};

TEST_P(OperationCrashTest, NoCrashPointLosesContentOrLeavesTheVaultUnrepaired) {
  const MutatingOperation* operation = qztest::findOperation(GetParam());
  ASSERT_NE(operation, nullptr);
  std::string error;
  const std::string templateRoot = qztest::standardVaultTemplate(&error);
  ASSERT_FALSE(templateRoot.empty()) << error;

  qztest::CrashSweepOptions options;
  options.stride = crashStride();
  const CrashSweepReport report = qztest::runCrashSweep(*operation, templateRoot, options);
  std::cout << "crash sweep: " << report.operation << ": " << report.everyCall << " calls, "
            << report.crashPoints << " crash points, " << report.pointsTried << " tried, "
            << report.pointsViolated << " violated\n";
  EXPECT_TRUE(report.undisturbedSucceeded) << "the operation fails even when nothing stops it";
  EXPECT_GT(report.pointsTried, 0);
  EXPECT_EQ(report.pointsViolated, 0);
  for (const std::string& violation : report.violations) ADD_FAILURE() << violation;
}

std::vector<std::string> operationNames() {
  std::vector<std::string> names;
  for (const MutatingOperation& operation : qztest::mutatingOperations()) {
    names.push_back(operation.name);
  }
  return names;
}

std::string testName(const ::testing::TestParamInfo<std::string>& info) {
  std::string name;
  for (char c : info.param) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Catalogue, OperationCrashTest, ::testing::ValuesIn(operationNames()),
                         testName);

}  // namespace
