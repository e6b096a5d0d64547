// A definition file that its plug-in cannot read (broken JSON) in a vault:
// browsing still works, and every command that needs the plug-in says in one
// line which file it could not read, exits 1 and changes nothing.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::readFile;
using qztest::TempDir;
using qztool::expectOneLineError;
using qztool::runOn;
using qztool::ToolResult;

const char kBroken[] = "{ \"name\": \"Broken job\", \"attributes\": [";
const char kCannotRead[] =
    "Jobs/broken.job.def: the Job plug-in cannot read this file (is it well-formed?)";

class MalformedDefinitionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    vault_ = dir_.join("vault");
    qztool::initVault(vault_);
    ASSERT_EQ(runOn(vault_, {"mkdir", "Jobs"}).status, 0);
    // Placed by hand, as a careless editor or a crashed writer would leave it.
    qztool::writeText(vault_ + "/Jobs/broken.job.def", kBroken);
  }

  // Runs `args`, expects the one-line failure about the broken file, and
  // that neither the file nor anything else a user sees has changed.
  void expectRefusedWithoutChange(const std::vector<std::string>& args) {
    const auto before = qztool::userEntries(qztool::snapshot(vault_));
    const ToolResult result = runOn(vault_, args);
    expectOneLineError(result, 1, kCannotRead);
    EXPECT_EQ(qztool::userEntries(qztool::snapshot(vault_)), before);
    EXPECT_EQ(readFile(vault_ + "/Jobs/broken.job.def"), kBroken);
  }

  TempDir dir_;
  std::string vault_;
};

TEST_F(MalformedDefinitionTest, ListingShowsTheFileUnderItsFileName) {
  const ToolResult result = runOn(vault_, {"ls", "Jobs", "--json"});
  ASSERT_EQ(result.status, 0) << result.describe();
  const nlohmann::json objects = result.json()["objects"];
  ASSERT_EQ(objects.size(), 1u);
  EXPECT_EQ(objects[0]["name"], "broken");
  EXPECT_EQ(objects[0]["file"], "broken.job.def");
  // No plug-in read it, so it has no type.
  EXPECT_TRUE(objects[0]["type"].is_null());
}

TEST_F(MalformedDefinitionTest, AttributeListingIsRefused) {
  expectRefusedWithoutChange({"attr", "list", "Jobs/broken.job.def"});
}

TEST_F(MalformedDefinitionTest, RenameIsRefused) {
  expectRefusedWithoutChange({"rename", "Jobs/broken.job.def", "Fixed job"});
}

TEST_F(MalformedDefinitionTest, AnalysisOfTheFileIsRefused) {
  expectRefusedWithoutChange({"analyze", "Jobs/broken.job.def"});
}

TEST_F(MalformedDefinitionTest, AnalysisOfTheFolderNamesTheFileAndCounts) {
  qztool::writeText(vault_ + "/Jobs/readme.txt", "plain text, no plug-in\n");
  const ToolResult result = runOn(vault_, {"analyze", "Jobs"});
  EXPECT_EQ(result.status, 1) << result.describe();
  EXPECT_EQ(result.out, "Analysed 1 object\n");
  EXPECT_EQ(result.err, std::string("qzvault: ") + kCannotRead +
                            "\nqzvault: 1 of 2 objects could not be analysed\n");
  EXPECT_EQ(readFile(vault_ + "/Jobs/broken.job.def"), kBroken);
}

}  // namespace
