// Announcing content changes of a vault to the repository event manager.
//
// QzviChangeAnnouncer serves a refresh that announces many files: it asks the
// vault for its UUID at most once, and only when a listener is registered, and
// builds a file's URI reference only then, so that announcing costs nothing
// while nobody listens. qzviFireContentChanged announces one
// ready reference.
//
// Thread safety: an announcer is used from one thread.
#ifndef QZVAULT_SRC_STORE_CONTENT_EVENTS_H_
#define QZVAULT_SRC_STORE_CONTENT_EVENTS_H_

#include "qzbase/events.h"
#include "qzbase/string.h"

class QzvVault;

class QzviChangeAnnouncer {
 public:
  // `vault` (not owned; null announces nothing) supplies the UUID.
  explicit QzviChangeAnnouncer(QzvVault* vault);
  QzviChangeAnnouncer(const QzviChangeAnnouncer&) = delete;
  QzviChangeAnnouncer& operator=(const QzviChangeAnnouncer&) = delete;

  // Announces file `name` of `directory` with `changeType` and no second
  // reference. Does nothing without a vault or a listener, or when the path
  // cannot be formed.
  void announce(const QzbString& directory, const QzbString& name,
                RepositoryObjectChangeType changeType);

 private:
  QzvVault* vault_;
  RepositoryEventManager* manager_;
  bool haveUuid_;
  QzbString uuid_;
};

// Announces a change to the repository event manager (nothing when the vault is
// null, nobody listens, or `reference` is empty).
void qzviFireContentChanged(QzvVault* vault, const QzbString& reference,
                            RepositoryObjectChangeType changeType,
                            const QzbString& secondReference);

#endif  // QZVAULT_SRC_STORE_CONTENT_EVENTS_H_
