// QzvResourceFactoryImpl: handed to a metadata plug-in while one of its files
// is analysed; the plug-in creates the resources the file uses through it. The
// factory reports nothing itself: failures leave their text in the analysis
// object that made it.
#include "qzbase/uri.h"
#include "impact_analysis_impl.h"
#include "resource_impl.h"

namespace {

const char kDatabaseType[] = "Database";
const char kTableType[] = "Table";

}  // namespace

QzvResourceFactoryImpl::QzvResourceFactoryImpl(QzvImpactAnalysisImpl* analysis,
                                               const QzbString& pluginPath)
    : analysis_(analysis), pluginPath_(pluginPath), errorMessage_("", true) {}

QzvResourceFactoryImpl::~QzvResourceFactoryImpl() = default;

void QzvResourceFactoryImpl::release() { delete this; }

QzbString QzvResourceFactoryImpl::getErrorMessage() { return errorMessage_; }

QzResource* QzvResourceFactoryImpl::getResource(const QzbString& name, const QzbString& type,
                                                const QzbString& identity) {
  if (analysis_ == nullptr) return nullptr;
  QzResource* found = analysis_->getResource(type, identity);
  if (found != nullptr) return found;
  return analysis_->createResource(name, type, identity);
}

QzbString QzvResourceFactoryImpl::getPluginPath() { return pluginPath_; }

void QzvResourceFactoryImpl::registerResourceResolver(QzResourceResolver* resolver) {
  if (analysis_ != nullptr) analysis_->registerResourceResolver(resolver);
}

QzResourceResolver* QzvResourceFactoryImpl::getResourceResolver() {
  return analysis_ != nullptr ? analysis_->getResourceResolver() : nullptr;
}

QzResource* QzvResourceFactoryImpl::getDataResource(QzDataURI* uri) {
  if (uri == nullptr) return nullptr;
  const QzbString table = uri->getTablePart();
  QzResourceManager* manager = createQzResourceManager();
  if (manager == nullptr) return nullptr;

  QzbString identity;
  const char* type = nullptr;
  if (table.isEmpty()) {
    if (manager->makeDatabaseIdentity(uri->getPart(QZ_DATAURI_SOURCE_TYPE),
                                      uri->getPart(QZ_DATAURI_SOURCE_NAME), &identity)) {
      type = kDatabaseType;
    }
  } else if (manager->makeTableIdentity(uri->getPart(QZ_DATAURI_SOURCE_TYPE),
                                        uri->getPart(QZ_DATAURI_SOURCE_NAME),
                                        uri->getPart(QZ_DATAURI_CATALOG),
                                        uri->getPart(QZ_DATAURI_SCHEMA), table, &identity)) {
    type = kTableType;
  }
  manager->release();
  if (type == nullptr) return nullptr;
  // A database resource is named by the (empty) table part.
  return getResource(table, QzbString(type, true), identity);
}
