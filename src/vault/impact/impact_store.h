// Helpers shared by the sources of QzvImpactAnalysisImpl: opening the lineage
// store ".v_imd" for one operation, turning rows of v_imparcs into resources,
// and the roll-back step of the write pattern. Internal; one thread at a time.
#ifndef QZVAULT_SRC_IMPACT_IMPACT_STORE_H_
#define QZVAULT_SRC_IMPACT_IMPACT_STORE_H_

#include "qzbase/log.h"
#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "qzvault/item_list.h"
#include "qzvault/resource.h"

class QzviVaultContext;
class QzvImpactAnalysisImpl;
class QzvResourceImpl;
class QzvResourceListImpl;

// The refusals of a read-only store. Most operations use the first; the
// operations that stamp analysis dates and rename resources the second.
#define QZVI_TEXT_DATA_READ_ONLY "Data file is read only"
#define QZVI_TEXT_IMPACT_READ_ONLY "Impact Analysis Metadata file is read only"
// A writing operation was handed a null resource.
#define QZVI_TEXT_NO_RESOURCE "No resource was given"

// The vault's ".v_imd", opened for one operation and closed on scope exit
// (through the vault's database cache, so an in-memory store stays open).
class QzviImpactStore {
 public:
  enum Status { kOpened, kOpenFailed, kReadOnly };

  explicit QzviImpactStore(QzviVaultContext* vault);
  ~QzviImpactStore();
  QzviImpactStore(const QzviImpactStore&) = delete;
  QzviImpactStore& operator=(const QzviImpactStore&) = delete;

  // Opens the store. kOpenFailed: *message gets the open's reason. kReadOnly
  // (only when `readOnlyText` is not null): the store was opened read-only, it
  // is closed again and *message gets `readOnlyText`. On kOpened *message is
  // left alone.
  Status open(const char* readOnlyText, QzbString* message);
  SqliteConnection* get() const { return connection_; }
  SqliteConnection* operator->() const { return connection_; }
  explicit operator bool() const { return connection_ != nullptr; }
  void close();

 private:
  QzviVaultContext* vault_;
  SqliteConnection* connection_;
};

// Releases an item list on scope exit. Declare it after the store it reads
// from, so that the list goes first.
class QzviItemListHolder {
 public:
  explicit QzviItemListHolder(QzvItemList* list) : list_(list) {}
  ~QzviItemListHolder() {
    if (list_ != nullptr) list_->release();
  }
  QzviItemListHolder(const QzviItemListHolder&) = delete;
  QzviItemListHolder& operator=(const QzviItemListHolder&) = delete;
  QzvItemList* get() const { return list_; }
  QzvItemList* operator->() const { return list_; }
  explicit operator bool() const { return list_ != nullptr; }

 private:
  QzvItemList* list_;
};

// A resource made from the current row of a "SELECT * FROM v_imparcs ..."
// query (id, name, res_idty, res_type, mod_date), passed through the analysis
// object's resolver and macro test. New, owned by the caller; null when memory
// runs out.
QzvResourceImpl* qzviResourceFromRow(QzvImpactAnalysisImpl* analysis, QzvItemList* rows);
// Appends a copy of a resource for every remaining row, in row order.
void qzviAppendResourceRows(QzvImpactAnalysisImpl* analysis, QzvItemList* rows,
                            QzvResourceListImpl* list);
// Appends a copy of `resource` (which stays the caller's) as a new row.
void qzviAppendResource(QzvResourceListImpl* list, QzResource* resource);
// Gives a store opened for writing the indexes its queries need beyond those
// of its schema, when it does not have them yet (impact_indexes.cc says which
// and why). A read-only store, or one that cannot take them now, is left as
// it is: its queries answer the same, only slower.
void qzviEnsureImpactIndexes(SqliteConnection* store);
// Executes "ROLLBACK TRANSACTION"; a failure is logged at level 5 and
// otherwise ignored.
void qzviRollback(SqliteConnection* connection, QzLogger* logger);

#endif  // QZVAULT_SRC_IMPACT_IMPACT_STORE_H_
