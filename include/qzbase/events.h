// The repository event manager: hosts register listeners and the vault tells
// them when the content of a repository changes (a file added, changed or
// removed behind the library's back and noticed by a cache refresh).
//
// Thread safety: registration and notification are safe from several threads.
// Listeners are called on the notifying thread, outside the manager's lock, in
// the order they were added; a listener may remove itself from its callback.
#ifndef QZBASE_EVENTS_H_
#define QZBASE_EVENTS_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

enum RepositoryObjectChangeType {
  QZ_CHANGE_ADDED_OR_MODIFIED = 0,  // the object exists with new content
  QZ_CHANGE_REMOVED = 1,            // the object is gone (a modified object is
                                    // announced as removed, then added)
  QZ_CHANGE_RENAMED = 2,            // the object now has the second reference
};

class QZBASE_EXPORT RepositoryListener {
 public:
  virtual ~RepositoryListener();
  // `repositoryId` is the vault's UUID (null when it has none), `reference`
  // the object's URI reference, `secondReference` a second reference where
  // the change type has one (null otherwise).
  virtual void contentChanged(const QzbString& repositoryId, const QzbString& reference,
                              RepositoryObjectChangeType changeType,
                              const QzbString& secondReference) = 0;
};

class QZBASE_EXPORT RepositoryEventManager {
 public:
  // The listener stays owned by the caller, who removes it before destroying
  // it. Adding a listener twice has no further effect.
  virtual void addListener(RepositoryListener* listener) = 0;
  // After removal the listener is not called again. Called outside a callback,
  // removeListener also waits until callbacks of that listener running on other
  // threads have returned, so the owner may destroy it at once; called from a
  // callback it does not wait. Removing an unknown or null listener does nothing.
  virtual void removeListener(RepositoryListener* listener) = 0;
  // True when at least one listener is registered: notifiers test this first so
  // that building a notification costs nothing when nobody listens.
  virtual bool hasListeners() const = 0;
  virtual void fireContentChanged(const QzbString& repositoryId, const QzbString& reference,
                                  RepositoryObjectChangeType changeType,
                                  const QzbString& secondReference) = 0;

 protected:
  virtual ~RepositoryEventManager() = default;
};

// The process's event manager; never null.
QZBASE_EXPORT RepositoryEventManager* getRepositoryEventManager(void);

#endif  // QZBASE_EVENTS_H_
