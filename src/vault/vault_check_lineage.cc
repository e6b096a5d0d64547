// The vault check's look at the lineage store ".v_imd": edges with an end
// that is not a stored resource (left by a resource deleted without its
// edges), and resources that no edge between stored resources reaches.
// Dangling edges are judged first, so that a resource whose only edges dangle
// counts as unused both when only reporting and after a repair.
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

struct Finding {
  int64_t key;
  std::string detail;
};

// Runs every statement of `sqls` once for each key, in one transaction. True
// on commit; otherwise rolled back with the reason in *error.
bool deleteByKey(SqliteConnection* db, const std::vector<const char*>& sqls,
                 const std::vector<Finding>& findings, std::string* error) {
  if (db->isReadOnly()) {
    *error = "the database is read only";
    return false;
  }
  if (!db->exec(QzbString("BEGIN IMMEDIATE TRANSACTION", true), 0)) {
    *error = db->getErrorMessage().toStdString();
    return false;
  }
  bool ok = true;
  for (const char* sql : sqls) {
    SqliteStatement* statement = db->prepare(QzbString(sql, true));
    if (statement == nullptr) {
      ok = false;
      break;
    }
    for (const Finding& finding : findings) {
      statement->bindInt(0, finding.key);
      if (!statement->execute(0)) {
        ok = false;
        break;
      }
    }
    statement->release();
    if (!ok) break;
  }
  if (ok && db->exec(QzbString("COMMIT TRANSACTION", true), 0)) return true;
  *error = db->getErrorMessage().toStdString();
  db->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
  return false;
}

void reportAll(const char* kind, const std::string& path, const std::vector<Finding>& findings,
               const std::vector<const char*>& sqls, const char* done, SqliteConnection* db,
               QzviCheckReport* report) {
  if (findings.empty()) return;
  bool repaired = false;
  std::string failure;
  if (report->repair()) repaired = deleteByKey(db, sqls, findings, &failure);
  for (const Finding& finding : findings) {
    std::string detail = finding.detail;
    if (repaired) {
      detail += done;
    } else if (report->repair()) {
      detail += "; not repaired: " + failure;
    }
    report->add(kind, path, detail, repaired);
  }
}

void readFailed(SqliteConnection* db, const std::string& path, QzviCheckReport* report) {
  report->add(QZV_CHECK_KIND_DAMAGED_DATABASE, path,
              "cannot read the lineage rows: " + db->getErrorMessage().toStdString(), false);
}

}  // namespace

void qzviCheckLineageStore(SqliteConnection* db, const std::string& path,
                           QzviCheckReport* report) {
  std::vector<Finding> dangling;
  SqliteCursor* rows = db->select(QzbString(kSelectDanglingEdges, true));
  if (rows == nullptr) {
    readFailed(db, path, report);
    return;
  }
  int step;
  while ((step = rows->next()) == 1) {
    const std::string user = rows->getText(1).toStdString();
    const std::string used = rows->getText(2).toStdString();
    std::string missing;
    if (rows->getInt(3) == 0) missing = user;
    if (rows->getInt(4) == 0 && used != user) missing += (missing.empty() ? "" : " and ") + used;
    dangling.push_back({rows->getInt64(0), "edge: resource " + user + " uses resource " + used +
                                               "; missing resource " + missing});
  }
  rows->release();
  if (step < 0) {
    readFailed(db, path, report);
    return;
  }
  reportAll(QZV_CHECK_KIND_DANGLING_EDGE, path, dangling, {kDeleteEdge}, "; edge deleted", db,
            report);

  std::vector<Finding> unused;
  rows = db->select(QzbString(kSelectUnusedResources, true));
  if (rows == nullptr) {
    readFailed(db, path, report);
    return;
  }
  while ((step = rows->next()) == 1) {
    unused.push_back({rows->getInt64(0), "resource " + rows->getText(0).toStdString() + " (" +
                                             rows->getText(1).toStdString() + " " +
                                             rows->getText(2).toStdString() +
                                             ") has no edge to or from another resource"});
  }
  rows->release();
  if (step < 0) {
    readFailed(db, path, report);
    return;
  }
  reportAll(QZV_CHECK_KIND_UNUSED_RESOURCE, path, unused, {kDeleteProperties, kDeleteResource},
            "; resource and its properties deleted", db, report);
}
