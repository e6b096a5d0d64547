// What keeps the vault's files where they belong: the vault's own files and
// directories are used only when they are what they should be (never through
// a symbolic link, never a fifo or a device that would hang a reader), paths
// that hosts give must lie inside the vault without passing through a link,
// and names that hosts give for objects must be one plain name of the folder.
//
// Every message here is one line that names the file concerned.
#ifndef QZVAULT_SRC_STORE_VAULT_FILES_H_
#define QZVAULT_SRC_STORE_VAULT_FILES_H_

#include "qzbase/platform.h"
#include "qzbase/string.h"

#define QZVI_VERSION_DIRECTORY ".v_ver"
#define QZVI_QUARANTINE_DIRECTORY ".v_quarantine"

enum class QzviVaultFileState {
  kMissing,  // nothing has the name
  kPresent,  // a regular file (or, where a directory was asked for, a directory)
  kRefused,  // a link, a fifo, a device or the wrong kind: never to be used
};

// Looks at the vault file or directory `path` without following a link.
// kRefused with what it is in *reason, to follow "<path> is " ("a symbolic
// link (the vault never follows links to its own files)", "a fifo, not a
// regular file", "not examinable: Permission denied"). *info, when given,
// receives the status of a present file.
QzviVaultFileState qzviExamineVaultFile(const QzbString& path, bool directory, QzbString* reason,
                                        NpFileInfo* info = nullptr);

// What an entry of type `type` is, to follow "<path> is ", when it is not
// what the vault wants (a regular file, or a directory when `directory`);
// null when it is.
QzbString qzviWrongTypeReason(int type, bool directory);

// "<path> is <reason>".
QzbString qzviRefusalMessage(const QzbString& path, const QzbString& reason);

// True when `name` can name an object in a folder: one name, not empty, no
// separator, not "." or "..", not one of the vault's own names (beginning
// with "."). Otherwise false with "Invalid file name \"<name>\": ..." in
// *error.
bool qzviIsObjectFileName(const QzbString& name, QzbString* error);

// True when `path` lies inside the vault whose root is `root` (or is the
// root itself, when `rootAllowed`) and no component below the root is a
// symbolic link or one of the vault's own names; the path need not exist,
// but every component that exists must be a directory except the last.
// Otherwise false with the reason in *error ("Path <path> is outside the
// vault <root>", "... passes through the symbolic link <link>", "... names
// one of the vault's own files").
bool qzviIsInsideVault(const QzbString& root, const QzbString& path, bool rootAllowed,
                       QzbString* error);

#endif  // QZVAULT_SRC_STORE_VAULT_FILES_H_
