// QzvImpactAnalysisImpl: "%%NAME%%" configuration macros in resource
// identities, the resources their substituted identities name, and the
// database a table resource is linked to the first time it is looked at.
//
// A macro is the text between the first "%%" of a string and the next "%%"
// after it; the name is looked up as a key of the process's default
// configuration. Substitution replaces the leftmost macro per pass, so a
// value that holds a macro is expanded in a later pass. A value that leads
// back to its own macro would never finish: substitution gives up after
// kMaxMacroPasses passes (docs/impact-analysis.md).
#include "qzbase/config.h"
#include "qzbase/uri.h"
#include "debug_log.h"
#include "impact_analysis_impl.h"
#include "impact_store.h"
#include "resource_impl.h"

namespace {

const char kMacroMark[] = "%%";
const unsigned kMacroMarkLength = 2;
// More passes than any sensible identity needs (one per macro, nested values
// included); reaching it means a value refers back to itself.
const int kMaxMacroPasses = 64;
const char kResolvedMacroName[] = "RESOLVED MACRO RESOURCE";
const char kDatabaseType[] = "Database";
const char kTableType[] = "Table";

// Finds the first macro of `text`: the offsets of its opening and closing
// marks. False when there is none.
bool findMacro(const QzbString& text, int* open, int* close) {
  const int first = text.find(kMacroMark, 0);
  if (first < 0) return false;
  const int second = text.find(kMacroMark, static_cast<unsigned>(first) + kMacroMarkLength);
  if (second < 0) return false;
  *open = first;
  *close = second;
  return true;
}

// The display name of a resource made for a substituted identity.
QzbString nameForResolvedIdentity(const QzbString& type, const QzbString& identity) {
  QzbString name(kResolvedMacroName, true);
  QzResourceManager* manager = createQzResourceManager();
  if (manager == nullptr) return name;
  QzbString part;
  if (type.compare(kDatabaseType, true) == 0) {
    QzbString sourceType;
    if (manager->parseDatabaseIdentity(identity, &sourceType, nullptr)) name = sourceType;
  } else if (type.compare(kTableType, true) == 0) {
    if (manager->parseTableIdentity(identity, nullptr, nullptr, nullptr, nullptr, &part)) {
      name = part;
    }
  } else if (manager->parseFileReference(identity, nullptr, &part)) {
    name = part;
  } else if (getComponentsFromFilesystemPath(identity, nullptr, nullptr, &part)) {
    name = part;
  } else {
    name = identity;
  }
  manager->release();
  return name;
}

}  // namespace

bool QzvImpactAnalysisImpl::containsMacroValue(const QzbString* text) {
  if (text == nullptr) return false;
  int open = 0;
  int close = 0;
  return findMacro(*text, &open, &close);
}

bool QzvImpactAnalysisImpl::replaceFirst(const QzbString* input, QzbString* output,
                                         long* missing) {
  if (input == nullptr || output == nullptr) return false;
  int open = 0;
  int close = 0;
  if (!findMacro(*input, &open, &close)) return false;
  const unsigned nameStart = static_cast<unsigned>(open) + kMacroMarkLength;
  const QzbString name = input->mid(nameStart, close - static_cast<int>(nameStart));
  QzbString value;
  if (!qzbGetConfigOptions("")->getOption(name, &value, 0)) value.setNull();
  if (value.isNull() && missing != nullptr) *missing = 1;

  // An option that is not set is replaced by nothing.
  QzbString result = input->left(static_cast<unsigned>(open));
  if (result.isNull()) result.setNull(false);
  result.append(value);
  result.append(input->mid(static_cast<unsigned>(close) + kMacroMarkLength));
  *output = result;
  return true;
}

bool QzvImpactAnalysisImpl::getSubst(const QzbString& input, QzbString* output) {
  if (output == nullptr) return false;
  long missing = 0;
  // A text without macros has no substitution.
  if (!replaceFirst(&input, output, &missing)) return false;
  for (int passes = 1;; ++passes) {
    const QzbString work = *output;
    if (missing != 0) return false;
    if (!containsMacroValue(&work)) return true;
    if (passes >= kMaxMacroPasses) {
      QZVI_LOG(logger_, QZLOG_ERROR,
               "Macro substitution of \"%S\" stopped after %d passes: a configuration value "
               "refers back to a macro",
               &input, kMaxMacroPasses);
      return false;
    }
    replaceFirst(&work, output, &missing);
  }
}

bool QzvImpactAnalysisImpl::substituteMacros(const QzbString& identity, QzbString* substituted) {
  if (substituted == nullptr) return false;
  QzbString result;
  if (!getSubst(identity, &result)) return false;
  *substituted = result;
  return true;
}

QzResource* QzvImpactAnalysisImpl::getMacroResolvedResource(const QzbString& type,
                                                            const QzbString& identity) {
  if (identity.isEmpty()) return nullptr;
  QzbString substituted;
  // An option that is not set is not reported: there is simply no resource.
  if (!getSubst(identity, &substituted) || substituted.isEmpty()) return nullptr;

  // A URI is the host's to resolve.
  QzURI* uri = getURIFromURIString(substituted);
  if (uri != nullptr) {
    uri->release();
    if (resolver_ != nullptr) {
      QzResource* forUri = resolver_->getResourceForURI(substituted);
      if (forUri != nullptr) return forUri;
    }
  }
  QzResource* stored = getResource(type, substituted);
  if (stored != nullptr) return stored;
  return createResource(nameForResolvedIdentity(type, substituted), type, substituted);
}

bool QzvImpactAnalysisImpl::addDynamicResourceDependencies(QzResource* resource) {
  if (resource == nullptr) return false;
  // Analysed before: left alone until removeDependentResources clears the date.
  if (resource->getAnalysisDate().asDouble() != 0.0) return true;

  QzvResourceListImpl* found = new (std::nothrow) QzvResourceListImpl();
  if (found == nullptr) return false;
  // Only tables have links of their own.
  if (resource->getResourceType().compare(kTableType, true) != 0) {
    found->release();
    return true;
  }
  const QzbString identity = resource->getResourceIdentity();
  QzResourceManager* manager = identity.isEmpty() ? nullptr : createQzResourceManager();
  if (manager != nullptr) {
    QzbString sourceType;
    QzbString sourceName;
    QzbString databaseIdentity;
    if (manager->parseTableIdentity(identity, &sourceType, &sourceName, nullptr, nullptr,
                                    nullptr) &&
        !sourceType.isEmpty() &&
        manager->makeDatabaseIdentity(sourceType, sourceName, &databaseIdentity)) {
      // A database that is not stored yet is not created here.
      QzResource* database = getResource(QzbString(kDatabaseType, true), databaseIdentity);
      if (database != nullptr) {
        qzviAppendResource(found, database);
        database->release();
      }
    }
    manager->release();
  }
  // The database becomes a dependent of the table; no recorded edge goes.
  const bool linked = addDependentResourcesInternal(resource, found, false);
  found->release();
  if (!linked) return false;

  QzbDate now;
  now.currentDate(false);
  return setAnalysisDate(resource, now);
}
