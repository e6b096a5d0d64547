#include "vault_status.h"

#include <sys/stat.h>

#include <map>

#include "impact_report.h"
#include "iso_date.h"
#include "lineage_graph.h"
#include "listing.h"
#include "qzvault/entry.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// When each analysed object was last analysed, by full path: read from the
// store without recording anything (an object never analysed is absent).
std::map<std::string, QzbDate> analysisDates(VaultSession& session) {
  std::map<std::string, QzbDate> dates;
  Held<QzvImpactAnalysis> analysis(session.vault()->getImpactAnalysis());
  if (!analysis) failWith(session.vault()->getErrorMessage(), "cannot open the impact-analysis store");
  for (const LineageNode& node : wholeLineage(analysis.get()).nodes) {
    const QzbDate& date = node.resource.analysed;
    if (!date.isNull() && date.asDouble() != 0.0) dates[node.resource.identity] = date;
  }
  return dates;
}

std::string lockHolder(QzvObject* object) {
  Held<QzvAttribute> owner = hold(object->getAttribute(QzbString("_LOCKEDUSER", true)));
  return owner ? text(owner->getSingletonValue()) : std::string();
}

void lookAt(VaultSession& session, const ObjectEntry& entry, const std::map<std::string, QzbDate>& analysed,
            VaultStatus* status) {
  ++status->objects;
  Held<QzvObject> object = session.openObject(entry.path);
  // The library will not say whether an object in a folder the user cannot
  // write is locked; its lock is then read from the attribute that records
  // the holder, which is what the library itself looks at.
  bool locked = false;
  const std::string holder = lockHolder(object.get());
  if (!object->getLockedStatus(&locked)) locked = !holder.empty();
  if (locked) {
    status->findings.push_back({"locked", entry.path.shown(), holder.empty() ? "by an unknown user" : "by " + holder});
  }
  if (entry.readOnly) status->findings.push_back({"read-only", entry.path.shown(), "you cannot write it"});
  const auto found = analysed.find(entry.path.absolute);
  struct stat file;
  if (found != analysed.end() && stat(entry.path.absolute.c_str(), &file) == 0 &&
      qzvSeconds2QzbDate(static_cast<unsigned long>(file.st_mtime)) != found->second) {
    status->findings.push_back(
        {"changed", entry.path.shown(), "changed since its analysis of " + isoDateTime(found->second)});
  }
}

void walk(VaultSession& session, const VaultPath& path, bool recursive, const std::map<std::string, QzbDate>& analysed,
          VaultStatus* status) {
  Held<QzvFolder> folder = session.openFolder(path);
  const FolderContents contents = listFolder(session, folder.get(), path, true);
  folder.reset();
  for (const ObjectEntry& entry : contents.objects) lookAt(session, entry, analysed, status);
  if (!recursive) return;
  for (const FolderEntry& child : contents.folders) walk(session, child.path, true, analysed, status);
}

// Stale lock files, from the vault check (which reads only when it is not
// asked to repair), within `path` (and below it when `recursive`).
void staleLocks(VaultSession& session, const VaultPath& path, bool recursive, VaultStatus* status) {
  Held<QzvVaultCheck> check(session.vault()->getVaultCheck());
  if (!check) failWith(session.vault()->getErrorMessage(), "cannot check the vault's lock files");
  Held<QzvItemList> findings(check->check(false));
  if (!findings) failWith(check->getErrorMessage(), "cannot check the vault's lock files");
  while (findings->next()) {
    if (text(findings->getValue(QZV_CHECK_COL_KIND)) != QZV_CHECK_KIND_STALE_LOCK) continue;
    VaultPath lock;
    if (!vaultPathOf(session.root(), text(findings->getValue(QZV_CHECK_COL_PATH)), &lock)) continue;
    const VaultPath folder = lock.parent();
    const bool inside = recursive ? (path.isRoot() || folder.relative == path.relative ||
                                     folder.relative.compare(0, path.relative.size() + 1, path.relative + "/") == 0)
                                  : folder.relative == path.relative;
    if (!inside) continue;
    status->findings.push_back({"stale-lock", lock.shown(), text(findings->getValue(QZV_CHECK_COL_DETAIL))});
  }
}

}  // namespace

VaultStatus vaultStatus(VaultSession& session, const VaultPath& path, bool recursive) {
  VaultStatus status;
  const std::map<std::string, QzbDate> analysed = analysisDates(session);
  walk(session, path, recursive, analysed, &status);
  staleLocks(session, path, recursive, &status);
  return status;
}

}  // namespace qzvtool
