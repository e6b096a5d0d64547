// QzvObjectImpl: bringing what the vault knows about a file's contents up to
// date. refreshMetadata re-reads the file's cached attributes; analyzeImpact
// records in the impact store the resources the file's plug-in says it uses,
// and stamps the analysis with the file's modification date so that an
// unchanged file is not analysed again.
#include <cstdint>
#include <new>

#include "cache_refresh.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "object_impl.h"
#include "plugin_registry.h"
#include "qzbase/path.h"
#include "qzbase/platform.h"
#include "qzvault/plugin.h"
#include "resource_impl.h"
#include "time_util.h"
#include "vault_context.h"

bool QzvObjectImpl::analyzeImpact(QzResourceResolver* resolver) {
  // A missing file or resource is reported by the result alone.
  NpStat status;
  if (np_fio_stat(fullPath_.asCstr(), &status) != NP_OK) return false;
  const QzbDate fileDate = qzviSeconds2QzbDate(status.mtime);

  QzvImpactAnalysisImpl* analysis = new (std::nothrow) QzvImpactAnalysisImpl(vault_);
  if (analysis == nullptr) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
    return false;
  }
  analysis->registerResourceResolver(resolver);
  QzResource* resource = analysis->getResourceForObject(this);
  if (resource == nullptr) {
    analysis->release();
    return false;
  }

  // Unchanged since the last analysis: the recorded date is the file's, and
  // the modification time less the status-change time, taken as unsigned
  // 64-bit, exceeds one second. (A file whose status changed after its last
  // write wraps around to a large value and counts as unchanged.)
  const QzbDate analysed = resource->getAnalysisDate();
  const uint64_t sinceStatusChange =
      static_cast<uint64_t>(status.mtime) - static_cast<uint64_t>(status.ctime);
  if (!analysed.isNull() && analysed == fileDate && sinceStatusChange > 1) {
    resource->release();
    analysis->release();
    return true;
  }

  QzvMetaDataFile* file = nullptr;
  QzvMetaDataPlugin* plugin = qzviFindMetaDataHandlerForFile(fullPath_, vault_->plugins());
  if (plugin != nullptr) file = plugin->openFile(fullPath_);
  const bool result = runAnalysis(file, analysis, resource, fileDate);
  if (file != nullptr) file->release();
  resource->release();
  analysis->release();
  return result;
}

bool QzvObjectImpl::runAnalysis(QzvMetaDataFile* file, QzvImpactAnalysisImpl* analysis,
                                QzResource* resource, const QzbDate& fileDate) {
  QzvResourceListImpl* dependencies = new (std::nothrow) QzvResourceListImpl();
  QzvResourceFactoryImpl* factory =
      new (std::nothrow) QzvResourceFactoryImpl(analysis, vault_->getPluginPath());
  if (dependencies == nullptr || factory == nullptr) {
    errorMessage_ = QzbString("Memory allocation failed", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
  } else if (file == nullptr) {
    // No plug-in reads the file: it is recorded as analysed, with no
    // dependencies.
    analysis->setAnalysisDate(resource, fileDate);
  } else if (file->listDependencies(dependencies, factory)) {
    dependencies->reset();
    if (!analysis->addDependentResources(resource, dependencies)) {
      errorMessage_ = analysis->getErrorMessage();
    }
    analysis->setAnalysisDate(resource, fileDate);
  } else {
    // The date stays unset, so that the file is analysed again next time.
    errorMessage_ = QzbString("Error analyzing dependencies from metadata file", true);
    QZVI_LOG_TEXT(vault_->logger(), QZLOG_ERROR, errorMessage_.asCstr());
  }
  if (factory != nullptr) factory->release();
  if (dependencies != nullptr) dependencies->release();
  // Failures are visible through getErrorMessage only.
  return true;
}

bool QzvObjectImpl::refreshMetadata() {
  QzbString message;
  if (qzviRefreshCachedFileAttributes(fullPath_, vault_->plugins(), &message, vault_->dbCache(),
                                      true)) {
    return true;
  }
  // Reported to the diagnostic log only; the object's message is not set.
  if (message.isEmpty()) {
    qzviDebugLog(qzbStringFormat(
        "Error refreshing cached file attributes for refreshMetadata() on object %s",
        fileName_.asCstr()));
  } else {
    qzviDebugLog(qzbStringFormat(
        "Error refreshing cached file attributes for refreshMetadata() on object %s: %s",
        fileName_.asCstr(), message.asCstr()));
  }
  return false;
}
