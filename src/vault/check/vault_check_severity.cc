// How much each kind of finding of the vault check matters. Damage stays
// wrong until it is repaired, and fails a check; a note is what normal use
// leaves behind, harmless, and fails a check only when the caller is strict.
// A new kind of finding is added here, or it counts as damage.
#include <cstring>

#include "vault_check.h"

namespace {

struct Severity {
  const char* kind;
  const char* severity;
};

const Severity kSeverities[] = {
    {QZV_CHECK_KIND_DAMAGED_DATABASE, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_NOT_A_DATABASE, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_ORPHAN_METADATA, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_STALE_CACHE, QZV_CHECK_SEVERITY_NOTE},
    {QZV_CHECK_KIND_OUTDATED_CACHE, QZV_CHECK_SEVERITY_NOTE},
    {QZV_CHECK_KIND_UNREADABLE_FOLDER, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_STALE_LOCK, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_ORPHAN_VERSION, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_MISSING_OBJECT, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_REFUSED_FILE, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_UNRECOVERED_JOURNAL, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_DANGLING_EDGE, QZV_CHECK_SEVERITY_DAMAGE},
    {QZV_CHECK_KIND_UNUSED_RESOURCE, QZV_CHECK_SEVERITY_NOTE},
};

}  // namespace

const char* qzviCheckSeverity(const char* kind) {
  for (const Severity& entry : kSeverities) {
    if (std::strcmp(entry.kind, kind) == 0) return entry.severity;
  }
  return QZV_CHECK_SEVERITY_DAMAGE;
}
