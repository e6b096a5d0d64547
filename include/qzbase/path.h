// Path and text helpers of the base layer.
//
// Paths are POSIX paths: the separator is "/". Vault tables store relative
// paths with a backslash between their components (a habit of the
// applications that keep files in a vault); qzbConcatPath therefore reads a
// backslash inside the relative name as a separator. A leaf name that holds a
// backslash (possible on POSIX file systems, never produced by the vault's own
// name conversion) survives listing and qzbParsePath, but cannot be joined
// back through qzbConcatPath.
//
// All functions are thread-safe and touch no file system.
#ifndef QZBASE_PATH_H_
#define QZBASE_PATH_H_

#include <cstdarg>

#include "qzbase/export.h"
#include "qzbase/string.h"

// Joins directory `dir` and relative path `name` with "/".
// - Backslashes in `name` are separators; runs of separators collapse to one,
//   "." components are dropped, and a trailing separator is dropped.
// - `dir` is used as given, with one separator between it and `name` (a
//   trailing "/" of `dir` is not doubled). An empty `dir` gives `name` alone.
// Returns a null string when the two cannot be joined: `dir` or `name` is
// null, `name` is empty or names no component, `name` is absolute (begins
// with a separator), or a component of `name` is "..", which would leave
// `dir`.
QZBASE_EXPORT QzbString qzbConcatPath(const QzbString& dir, const QzbString& name);

// Splits `path` at its last "/" (one trailing "/" is ignored first). Returns
// the directory part and writes the last component to *name when `name` is
// not null. The directory of "/x" is "/". A path without a separator, the
// root "/" itself and a null or empty path have no directory: the result is
// null (and *name is the whole path, "" for the root, null for null).
QZBASE_EXPORT QzbString qzbParsePath(const QzbString& path, QzbString* name);

// The path with "." components, runs of "/" and a trailing "/" removed and
// each ".." taken back together with the component before it, without
// asking the file system (links are not followed): "a/../b" and "./b" are
// "b", "a//b/" is "a/b". For plug-ins that record the files a definition
// names, so that one file is recorded under one name.
// - An absolute path stays absolute; ".." at the root stays at the root
//   ("/../x" is "/x"). A relative path keeps the ".." it cannot take back
//   ("../x", "a/../../x" is "../x").
// - A relative path that names nothing more is "." ("a/.." is "."); the root
//   is "/". An empty path stays empty and a null one null.
QZBASE_EXPORT QzbString qzbNormalizePath(const QzbString& path);

// printf-style formatting into a new string. Every conversion of the C
// library's printf is accepted (with flags, width, precision and length
// modifiers); in addition "%S" takes a pointer to a QzbString (const
// QzbString*) and inserts its text, nothing for a null string or a null
// pointer. A null format gives a null string.
QZBASE_EXPORT QzbString qzbStringFormat(const char* format, ...);
QZBASE_EXPORT QzbString qzbStringFormatV(const char* format, va_list args);

#endif  // QZBASE_PATH_H_
