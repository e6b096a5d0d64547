// Content-changed notifications of a vault.
#include "content_events.h"

#include "qzbase/path.h"
#include "qzbase/uri.h"
#include "qzvault/vault.h"

void qzviFireContentChanged(QzvVault* vault, const QzbString& reference,
                            RepositoryObjectChangeType changeType,
                            const QzbString& secondReference) {
  if (vault == nullptr || reference.isEmpty()) return;
  RepositoryEventManager* manager = getRepositoryEventManager();
  // The UUID is read from the vault's metadata: not worth it for nobody.
  if (manager == nullptr || !manager->hasListeners()) return;
  manager->fireContentChanged(vault->getUUID(), reference, changeType, secondReference);
}

QzviChangeAnnouncer::QzviChangeAnnouncer(QzvVault* vault)
    : vault_(vault),
      manager_(vault != nullptr ? getRepositoryEventManager() : nullptr),
      haveUuid_(false) {}

void QzviChangeAnnouncer::announce(const QzbString& directory, const QzbString& name,
                                   RepositoryObjectChangeType changeType) {
  if (manager_ == nullptr || !manager_->hasListeners()) return;
  const QzbString reference = generateURIReferenceFromFilename(qzbConcatPath(directory, name));
  if (reference.isEmpty()) return;
  if (!haveUuid_) {
    uuid_ = vault_->getUUID();
    haveUuid_ = true;
  }
  manager_->fireContentChanged(uuid_, reference, changeType, QzbString());
}
