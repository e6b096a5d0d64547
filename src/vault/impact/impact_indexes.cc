// The indexes the lineage store's queries need beyond those its schema makes.
//
// The schema indexes each column of v_imparcs and v_impadeps on its own. A
// look-up by type and identity can then only use one of them, and SQLite
// takes the type index: every resource of the type is read to find one. Walks
// of the graph step from an id to the ids at the other end of its edges; with
// one-column indexes each step reads the edge row from the table as well. So
// the store gets three indexes of two columns each:
//
//   v_imparcs_type_idnty     (res_type, res_idty)   look-up by type and identity
//   v_impadeps_used_res_id   (res_used, res_id)     what uses a resource
//   v_impadeps_res_id_used   (res_id, res_used)     what a resource uses
//
// The last two cover their queries: a walk reads the index alone.
//
// Rules they follow, so that stores of any age keep working together:
//   - every store gets them the first time it is opened for writing, whether
//     the library created it a moment ago or an older release did years ago;
//   - the tables are never touched: their definitions stay exactly as the
//     schema makes them, and nothing is dropped;
//   - a store opened read-only is used as it is; its queries give the same
//     answers without the indexes, only slower;
//   - a reader that does not know them (an older release, or SQLite's own
//     tool) is unaffected: an index changes no query's answer.
#include "impact_store.h"

#include "debug_log.h"

namespace {

const int kIndexCount = 3;

const char kCountIndexes[] =
    "SELECT count(*) FROM sqlite_master WHERE type = 'index' AND name IN "
    "('v_imparcs_type_idnty', 'v_impadeps_used_res_id', 'v_impadeps_res_id_used')";
const char kCreateIndexes[] =
    "BEGIN IMMEDIATE TRANSACTION;"
    "CREATE INDEX IF NOT EXISTS v_imparcs_type_idnty ON v_imparcs(res_type, res_idty);"
    "CREATE INDEX IF NOT EXISTS v_impadeps_used_res_id ON v_impadeps(res_used, res_id);"
    "CREATE INDEX IF NOT EXISTS v_impadeps_res_id_used ON v_impadeps(res_id, res_used);"
    "COMMIT TRANSACTION";

// The number of the indexes above that the store has; -1 when it cannot be
// read.
int indexesPresent(SqliteConnection* store) {
  SqliteCursor* count = store->select(QzbString(kCountIndexes, true));
  if (count == nullptr) return -1;
  const int present = count->next() == 1 ? count->getInt(0) : -1;
  count->release();
  return present;
}

}  // namespace

void qzviEnsureImpactIndexes(SqliteConnection* store) {
  if (store == nullptr || store->isReadOnly()) return;
  const int present = indexesPresent(store);
  if (present == kIndexCount || present < 0) return;
  // A store whose tables are missing (not made by this library) or another
  // writer holding the store for longer than the busy timeout: the indexes
  // wait for a later open, and the operation goes on without them.
  if (!store->exec(QzbString(kCreateIndexes, true), 0)) {
    const QzbString message = store->getErrorMessage();
    store->exec(QzbString("ROLLBACK TRANSACTION", true), 0);
    QZVI_LOG(qzviLineageLogger(), QZLOG_DEBUG,
             "The lineage store's query indexes were not added this time: %s", message.asCstr());
  }
}
