// Making a folder object without knowing the folder's class: what objects use
// to hand out their parent folder, so that the object and folder sources do
// not depend on each other (folders make objects, objects only ask for this).
#ifndef QZVAULT_SRC_TREE_FOLDER_FACTORY_H_
#define QZVAULT_SRC_TREE_FOLDER_FACTORY_H_

#include "qzbase/string.h"
#include "qzvault/folder.h"

class QzviVaultContext;

// A new folder over `path` with `filter` (a null filter admits every file),
// owned by the caller (release it). Null when it cannot be made, with the
// reason in *error ("Out of memory" or the folder's own message).
QzvFolder* qzviMakeFolder(QzviVaultContext* context, const QzbString& path,
                          const QzbString& filter, QzbString* error);

#endif  // QZVAULT_SRC_TREE_FOLDER_FACTORY_H_
