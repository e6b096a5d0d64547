// The plug-ins of qzvmddefs.so: one per kind of the vault's file family
// (docs/file-types.md), each handling the kind's definitions and templates,
// and the factory that the entry function qzv_create_factory10 returns.
//
// Thread safety: plug-ins hold only constant data and may be called from
// several threads at once.
#ifndef QZVMD_DEFS_PLUGIN_H_
#define QZVMD_DEFS_PLUGIN_H_

#include <string>
#include <vector>

#include "qzvault/plugin.h"

namespace qzvmd_defs {

// One kind: its resource type ("Job") and its two-part extensions ("job.def",
// "job.tpl"), taken from the base layer's table of file types.
struct DefsKind {
  std::string resourceType;
  std::vector<std::string> extensions;
};

// The kinds in the order of the base layer's table: Job, Report, Schedule,
// ReferenceData, Mapping, Query.
const std::vector<DefsKind>& defsKinds();

class DefsPluginImpl final : public QzvMetaDataPlugin {
 public:
  explicit DefsPluginImpl(const DefsKind& kind) : kind_(kind) {}

  // "<type> definitions and templates 1.0".
  QzbString getDescription() override;
  void release() override;
  // The kind's resource type ("Job"), also stored as the cached file type.
  QzbString getTypeName() override;
  // True when the path's leaf ends in "." and one of the kind's extensions,
  // in any letter case; the file is not opened.
  bool canHandle(const QzbString& path) override;
  // A new DefsMetaDataFileImpl owned by the caller, or null (reason logged at
  // level 2) when the file is unreadable or not a valid document.
  QzvMetaDataFile* openFile(const QzbString& path) override;
  // The path with "/" separators (the library passes it so already).
  QzbString getResourceIdentity(const QzbString& path) override;
  QzbString getResourceType() override;

 private:
  ~DefsPluginImpl() override = default;
  const DefsKind& kind_;
};

class DefsPluginFactoryImpl final : public QzvMetaDataPluginFactory {
 public:
  int getStatus() override;
  int getPluginCount() override;
  // A new plug-in for kind `index`, owned by the caller; null out of range.
  QzvMetaDataPlugin* getPlugin(int index) override;
  void release() override;

 private:
  ~DefsPluginFactoryImpl() override = default;
};

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_PLUGIN_H_
