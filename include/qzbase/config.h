// The configuration store: string options by key.
//
// qzbGetConfigOptions(nullptr) (or "") is the process's default store, which
// the vault library reads ("BASE/PLUGIN_PATH", "QZVLT/BYPASS", and the option
// names that impact-analysis macros look up). Hosts and tests set and remove
// keys in code. Operators give a file of "key=value" lines through the
// environment variable QZ_CONFIG_FILE: the default store loads it the first
// time it is asked for. In that file blank lines and lines beginning with "#"
// are ignored; the key is trimmed of blanks; the value is everything after the
// first "=", trimmed of blanks and of a trailing carriage return. A malformed
// line is reported through the logger "QZ.Base" at level 5 and skipped.
//
// Thread safety: every operation is safe to call from several threads.
#ifndef QZBASE_CONFIG_H_
#define QZBASE_CONFIG_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

#define QZB_CONFIG_FILE_ENV "QZ_CONFIG_FILE"

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
  // Returns false with a one-line reason in *error (when given) if the file
  // cannot be read or holds a malformed line (a line with no key before its
  // "="); every well-formed line is still kept.
  virtual bool loadFile(const QzbString& path, QzbString* error) = 0;
  // Removes every key.
  virtual void clear() = 0;

 protected:
  virtual ~QzbConfigOptions() = default;
};

// The store of that name, made on first use and alive for the process. A null
// or empty name gives the default store. Never returns null.
QZBASE_EXPORT QzbConfigOptions* qzbGetConfigOptions(const char* name);

#endif  // QZBASE_CONFIG_H_
