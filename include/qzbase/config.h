// The configuration store: string options by key.
//
// qzbGetConfigOptions(nullptr) (or "") is the process's default store, which
// the vault library reads ("BASE/PLUGIN_PATH", "QZVLT/BYPASS", and the option
// names that impact-analysis macros look up). Hosts and tests set and remove
// keys in code. Operators give a file of "key=value" lines, which the default
// store reads the first time it is asked for. Which file (qzbLocateConfigFile):
//   1. the file named by the environment variable QZ_CONFIG_FILE, when it is
//      set and not empty; set but empty, no file is read at all;
//   2. otherwise $XDG_CONFIG_HOME/qzvault/config ($HOME/.config/qzvault/config
//      when XDG_CONFIG_HOME is unset, empty or not absolute), if it exists;
//   3. otherwise /etc/qzvault/config, if it exists.
// Only the first of these is read. A file is read only when it is a regular
// file of at most QZB_CONFIG_FILE_MAX_BYTES: a FIFO, a device or a directory is
// refused without being opened for reading, so that it can never block or
// flood the process. In that file blank lines and lines beginning with "#" are
// ignored; the key is trimmed of blanks; the value is everything after the
// first "=", trimmed of blanks and of a trailing carriage return. A file that
// cannot be read and a malformed line (which is skipped) are reported through
// the logger "QZ.Base" at warning level, with the reason, and kept for
// qzbGetConfigFileState.
//
// Thread safety: every operation is safe to call from several threads.
#ifndef QZBASE_CONFIG_H_
#define QZBASE_CONFIG_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

#define QZB_CONFIG_FILE_ENV "QZ_CONFIG_FILE"
// The system-wide file, read when neither QZ_CONFIG_FILE nor the user's file
// names one.
#define QZB_SYSTEM_CONFIG_FILE "/etc/qzvault/config"
// The largest configuration file read, in bytes.
#define QZB_CONFIG_FILE_MAX_BYTES (1024 * 1024)

class QZBASE_EXPORT QzbConfigOptions {
 public:
  // True when `key` is present; then *value (when not null) receives its
  // value, which may be empty. `flags` is reserved and must be 0.
  virtual bool getOption(const QzbString& key, QzbString* value, int flags = 0) const = 0;
  // Sets `key` to `value`. A null or empty key is ignored. A null value is
  // stored as the empty text.
  virtual void setOption(const QzbString& key, const QzbString& value) = 0;
  // Removes `key`; true when it was present.
  virtual bool removeOption(const QzbString& key) = 0;
  // Reads a key=value file into the store, later keys replacing earlier ones.
  // Returns false with a one-line reason naming the file in *error (when
  // given) if the file cannot be read, is not a regular file, is larger than
  // QZB_CONFIG_FILE_MAX_BYTES (nothing is read then) or holds a malformed line
  // (a line with no key before its "="); every well-formed line is still kept.
  // Each key read remembers "FILE:LINE" as its origin.
  virtual bool loadFile(const QzbString& path, QzbString* error) = 0;
  // Removes every key.
  virtual void clear() = 0;

  // Appended after the first set of operations, so that their slots keep
  // their places.

  // Sets `key` to `value` as setOption does, and records `origin` (a short
  // text such as "--set") as where the value came from.
  virtual void setOptionFrom(const QzbString& key, const QzbString& value,
                             const QzbString& origin) = 0;
  // Where the value of `key` came from: "FILE:LINE" for a line of a file,
  // the origin given to setOptionFrom, or "set by the program" for setOption.
  // A null string when the key is absent.
  virtual QzbString getOptionOrigin(const QzbString& key) const = 0;
  // The keys present, in byte order, one per line ("" when there are none).
  virtual QzbString getOptionNames() const = 0;

 protected:
  virtual ~QzbConfigOptions() = default;
};

// The store of that name, made on first use and alive for the process. A null
// or empty name gives the default store. Never returns null.
QZBASE_EXPORT QzbConfigOptions* qzbGetConfigOptions(const char* name);

// Chooses the operator's configuration file as the list above says, with
// `systemFile` in place of QZB_SYSTEM_CONFIG_FILE when it is not null. True
// when a file is to be read: *path is set to it and *origin (when given) to
// what chose it: "QZ_CONFIG_FILE", "XDG_CONFIG_HOME", "HOME" or "system".
// False when no file is to be read (both out strings are then made null).
QZBASE_EXPORT bool qzbLocateConfigFile(const char* systemFile, QzbString* path,
                                       QzbString* origin);

// What the default store made of the operator's file (it is made when first
// asked for). Returns the file read, or a null string when there was none;
// *origin (when given) receives what chose it (see qzbLocateConfigFile) and
// *problem (when given) the one-line reason it could not be read, or its
// first malformed line; null when it was read whole.
QZBASE_EXPORT QzbString qzbGetConfigFileState(QzbString* origin, QzbString* problem);

#endif  // QZBASE_CONFIG_H_
