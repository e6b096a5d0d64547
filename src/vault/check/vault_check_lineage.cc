// The vault check's look at the lineage store ".v_imd": edges with an end
// that is not a stored resource (left by a resource deleted without its
// edges), and resources that no edge between stored resources reaches.
// Dangling edges are judged first, so that a resource whose only edges dangle
// counts as unused both when only reporting and after a repair.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qzbase/sqlite.h"
#include "vault_check.h"

namespace {

const char kSelectDanglingEdges[] =
    "SELECT d.rowid, d.res_id, d.res_used,"
    " EXISTS (SELECT 1 FROM v_imparcs WHERE id = d.res_id),"
    " EXISTS (SELECT 1 FROM v_imparcs WHERE id = d.res_used)"
    " FROM v_impadeps d"
    " WHERE NOT EXISTS (SELECT 1 FROM v_imparcs WHERE id = d.res_id)"
    " OR NOT EXISTS (SELECT 1 FROM v_imparcs WHERE id = d.res_used)"
    " ORDER BY d.rowid";
const char kDeleteEdge[] = "DELETE FROM v_impadeps WHERE rowid = ?";
// Resources with no edge to or from another stored resource (an edge of a
// resource to itself counts: it is recorded use).
const char kSelectUnusedResources[] =
    "SELECT r.id, r.res_type, r.res_idty FROM v_imparcs r"
    " WHERE NOT EXISTS (SELECT 1 FROM v_impadeps d JOIN v_imparcs u ON u.id = d.res_used"
    "                   WHERE d.res_id = r.id)"
    " AND NOT EXISTS (SELECT 1 FROM v_impadeps d JOIN v_imparcs u ON u.id = d.res_id"
    "                 WHERE d.res_used = r.id)"
    " ORDER BY r.id";
const char kDeleteResource[] = "DELETE FROM v_imparcs WHERE id = ?";
const char kDeleteProperties[] = "DELETE FROM v_impaprop WHERE res_id = ?";

void readFailed(const std::string& path, const std::string& error, QzviCheckReport* report) {
  report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path, "cannot read the lineage rows: " + error,
              false);
}

}  // namespace

void qzviCheckLineageStore(SqliteConnection* db, const std::string& path,
                           QzviCheckReport* report) {
  std::string error;
  std::vector<QzviCheckStale> dangling;
  std::vector<int64_t> edgeKeys;
  const auto danglingEdge = [&](SqliteCursor* rows) {
    const std::string user = rows->getText(1).toStdString();
    const std::string used = rows->getText(2).toStdString();
    std::string missing;
    if (rows->getInt(3) == 0) missing = user;
    if (rows->getInt(4) == 0 && used != user) missing += (missing.empty() ? "" : " and ") + used;
    dangling.push_back({path, "edge: resource " + user + " uses resource " + used +
                                  "; missing resource " + missing});
    edgeKeys.push_back(rows->getInt64(0));
  };
  if (!qzviCheckSelect(db, kSelectDanglingEdges, danglingEdge, &error)) {
    readFailed(path, error, report);
    return;
  }
  qzviCheckReportRows(db, QZV_CHECK_KIND_DANGLING_EDGE, dangling, {kDeleteEdge},
                      [&](SqliteStatement* statement, std::size_t index) {
                        statement->bindInt(0, edgeKeys[index]);
                      },
                      "; edge deleted", report);

  std::vector<QzviCheckStale> unused;
  std::vector<int64_t> resourceKeys;
  const auto unusedResource = [&](SqliteCursor* rows) {
    unused.push_back({path, "resource " + rows->getText(0).toStdString() + " (" +
                                rows->getText(1).toStdString() + " " +
                                rows->getText(2).toStdString() +
                                ") has no edge to or from another resource"});
    resourceKeys.push_back(rows->getInt64(0));
  };
  if (!qzviCheckSelect(db, kSelectUnusedResources, unusedResource, &error)) {
    readFailed(path, error, report);
    return;
  }
  qzviCheckReportRows(db, QZV_CHECK_KIND_UNUSED_RESOURCE, unused,
                      {kDeleteProperties, kDeleteResource},
                      [&](SqliteStatement* statement, std::size_t index) {
                        statement->bindInt(0, resourceKeys[index]);
                      },
                      "; resource and its properties deleted", report);
}
