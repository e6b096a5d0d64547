// The vault's account of its metadata plug-ins: getPluginCount and
// getPluginInfo over a registry built by hand, and over none.
#include <string>

#include <gtest/gtest.h>

#include "qzvault/plugin.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vault_impl.h"

namespace {

using qztest::LogCapture;
using qztest::TempDir;

// A plug-in that only names itself; nothing else of it is called here.
class NamedPlugin final : public QzvMetaDataPlugin {
 public:
  NamedPlugin(const char* type, const char* description)
      : type_(type), description_(description) {}
  QzbString getDescription() override { return QzbString(description_); }
  void release() override {}
  QzbString getTypeName() override { return QzbString(type_); }
  bool canHandle(const QzbString&) override { return false; }
  QzvMetaDataFile* openFile(const QzbString&) override { return nullptr; }
  QzbString getResourceIdentity(const QzbString& path) override { return path; }
  QzbString getResourceType() override { return QzbString(type_); }

 private:
  const char* type_;
  const char* description_;
};

class ScopedVault {
 public:
  ScopedVault(const std::string& root, QzviPluginRegistry* plugins)
      : vault_(new QzvVaultImpl(QzbString(root.c_str()), plugins, QzbString("plugins"))) {}
  ~ScopedVault() { vault_->release(); }
  ScopedVault(const ScopedVault&) = delete;
  ScopedVault& operator=(const ScopedVault&) = delete;
  QzvVault* operator->() const { return vault_; }

 private:
  QzvVaultImpl* vault_;
};

TEST(VaultPlugins, DescribesEachPluginInRegistryOrder) {
  TempDir dir;
  NamedPlugin job("Job", "Job definitions 1.0");
  NamedPlugin report("Report", "Report definitions 1.0");
  QzvMetaDataPlugin* list[] = {&job, &report};
  QzviPluginRegistry registry;
  registry.count = 2;
  registry.plugins = list;
  ScopedVault vault(dir.path(), &registry);

  ASSERT_EQ(vault->getPluginCount(), 2);
  QzbString type;
  QzbString description;
  ASSERT_TRUE(vault->getPluginInfo(0, &type, &description));
  EXPECT_EQ(type.toStdString(), "Job");
  EXPECT_EQ(description.toStdString(), "Job definitions 1.0");
  ASSERT_TRUE(vault->getPluginInfo(1, &type, &description));
  EXPECT_EQ(type.toStdString(), "Report");
  EXPECT_EQ(description.toStdString(), "Report definitions 1.0");
}

TEST(VaultPlugins, NullOutputsAreSkipped) {
  TempDir dir;
  NamedPlugin job("Job", "Job definitions 1.0");
  QzvMetaDataPlugin* list[] = {&job};
  QzviPluginRegistry registry;
  registry.count = 1;
  registry.plugins = list;
  ScopedVault vault(dir.path(), &registry);

  QzbString description;
  ASSERT_TRUE(vault->getPluginInfo(0, nullptr, &description));
  EXPECT_EQ(description.toStdString(), "Job definitions 1.0");
  QzbString type;
  ASSERT_TRUE(vault->getPluginInfo(0, &type, nullptr));
  EXPECT_EQ(type.toStdString(), "Job");
}

TEST(VaultPlugins, IndexOutOfRangeFailsWithMessage) {
  TempDir dir;
  NamedPlugin job("Job", "Job definitions 1.0");
  QzvMetaDataPlugin* list[] = {&job};
  QzviPluginRegistry registry;
  registry.count = 1;
  registry.plugins = list;
  ScopedVault vault(dir.path(), &registry);
  LogCapture log;

  QzbString type("unchanged");
  EXPECT_FALSE(vault->getPluginInfo(1, &type, nullptr));
  EXPECT_EQ(type.toStdString(), "unchanged");
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Plugin index out of range");
  EXPECT_TRUE(log.contains("Plugin index out of range", QZLOG_ERROR, "QZ.Repos.Vault"))
      << log.dump();
  EXPECT_FALSE(vault->getPluginInfo(-1, &type, nullptr));
}

TEST(VaultPlugins, NoRegistryMeansNoPlugins) {
  TempDir dir;
  ScopedVault vault(dir.path(), nullptr);
  EXPECT_EQ(vault->getPluginCount(), 0);
  EXPECT_FALSE(vault->getPluginInfo(0, nullptr, nullptr));
  EXPECT_EQ(vault->getErrorMessage().toStdString(), "Plugin index out of range");
}

}  // namespace
