// QzvImpactAnalysisImpl: the one object through which a vault's lineage store
// ".v_imd" (resources in v_imparcs, edges in v_impadeps) is read and written.
//
// The object holds no database between calls: every operation opens the store
// through the vault's database cache, works, and closes it. Writes run inside
// "BEGIN IMMEDIATE TRANSACTION" with a bounded retry while another writer
// holds the store. The error text of a failure survives later successes.
// Operations by concern:
//   impact_analysis_impl.cc  construction, store access, transactions
//   impact_resources.cc      rows to resources, resolution, look-up, creation
//   impact_graph.cc          edges and one-step queries
//   impact_macros.cc         "%%NAME%%" macros and dynamic dependencies
//   impact_cleanup.cc        removal, rename, analysis dates, no-op operations
#ifndef QZVAULT_SRC_IMPACT_IMPACT_ANALYSIS_IMPL_H_
#define QZVAULT_SRC_IMPACT_IMPACT_ANALYSIS_IMPL_H_

#include <cstdint>

#include "qzbase/datavar.h"
#include "qzbase/log.h"
#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "qzvault/impact.h"

class QzviVaultContext;
class QzvResourceImpl;
class QzvResourceListImpl;

class QzvImpactAnalysisImpl final : public QzvImpactAnalysis {
 public:
  // Never fails. `vault` is not owned and must outlive this object.
  explicit QzvImpactAnalysisImpl(QzviVaultContext* vault);

  // QzImpactAnalysis.
  void release() override;
  QzResourceList* getUsedByResources(QzResource* resource, bool recursive) override;
  QzResourceList* getDependentResources(QzResource* resource, bool recursive) override;
  QzResourceList* getDependentResourcesByType(QzResource* resource,
                                              const QzbString& type) override;
  QzResourceList* getResourcesByType(const QzbString& type) override;
  bool updateImpactAnalysis() override;
  bool removeUnusedResources() override;
  bool removeResources() override;
  QzResource* getResource(const QzbString& type, const QzbString& identity) override;
  bool addDependentResources(QzResource* used, QzResourceList* dependents) override;
  QzResourceList* createResourceList() override;
  QzResource* createResource(const QzbString& name, const QzbString& type,
                             const QzbString& identity) override;
  bool deleteResource(QzResource* resource) override;
  bool setAnalysisDate(QzResource* resource, const QzbDate& date) override;
  QzResourceList* getAllUniqueUsedResources() override;
  QzStringList* getResourceTypes() override;
  bool getLineageAsString(QzbString* first, QzbString* second, bool flag) override;
  QzResourceFactory* getDefaultResourceFactory() override;

  // QzvImpactAnalysis.
  QzbString getErrorMessage() override;
  QzResource* getResourceForObject(QzvObject* object) override;
  void registerResourceResolver(QzResourceResolver* resolver) override;
  bool removeDependentResources(QzResource* resource) override;
  bool renameResource(const QzbString& type, const QzbString& identity,
                      const QzbString& newName) override;
  bool removeResourceIfNotUsed(QzResource* resource) override;
  QzvLineage* getLineage() override;  // lineage_impl.cc
  bool substituteMacros(const QzbString& identity, QzbString* substituted) override;  // impact_macros.cc

  // Store access and transactions.
  bool getNextId(QzbDatavar* id);
  int getLastId(SqliteConnection* connection);
  // One attempt at a transaction (immediate or deferred); see the source.
  bool beginTransaction(SqliteConnection* connection, bool immediate, bool* busy,
                        QzbString* error);
  // An immediate transaction with the busy retry: at most four attempts, a
  // 5-second wait (and a level-2 notice) before each retry.
  bool startTransaction(SqliteConnection* connection, QzbString* error);

  // Resources.
  bool setResourceLocation(QzvResourceImpl* resource);
  // Graph.
  bool addDependentResourcesInternal(QzResource* used, QzResourceList* dependents,
                                     bool removeMissing);
  // Macros.
  bool containsMacroValue(const QzbString* text);
  bool replaceFirst(const QzbString* input, QzbString* output, long* missing);
  bool getSubst(const QzbString& input, QzbString* output);
  QzResource* getMacroResolvedResource(const QzbString& type, const QzbString& identity);
  bool addDynamicResourceDependencies(QzResource* resource);

  QzResourceResolver* getResourceResolver() const { return resolver_; }
  QzviVaultContext* vault() const { return vault_; }

 private:
  ~QzvImpactAnalysisImpl();  // the interfaces have no virtual destructor

  // Commits the transaction open on `store`; on failure keeps the store's
  // message, logs it and returns false.
  bool commitOrFail(SqliteConnection* store);
  // Runs `sql` (an UPDATE taking the new value, then the resource id) in a
  // transaction of its own. On failure the message is `failurePrefix`
  // followed by the store's message, and the transaction is rolled back.
  bool updateResourceRow(SqliteConnection* store, const char* sql, const char* failurePrefix,
                         const QzbDatavar& value, const QzbDatavar& id);

  QzviVaultContext* vault_;
  QzbString errorMessage_;
  QzResourceResolver* resolver_;
  QzLogger* logger_;
};

#endif  // QZVAULT_SRC_IMPACT_IMPACT_ANALYSIS_IMPL_H_
