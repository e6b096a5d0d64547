// Path handling of the definition plug-ins: the identities that files get in
// the impact-analysis store are their full paths with "/" separators and
// without "." or ".." components, so that a file named by a definition meets
// the same file reached any other way.
//
// Thread safety: pure functions.
#ifndef QZVMD_DEFS_PATHS_H_
#define QZVMD_DEFS_PATHS_H_

#include <string>

namespace qzvmd_defs {

// Every "\" becomes "/" and every run of separators becomes one "/".
std::string normaliseSeparators(const std::string& path);

// True when `path` (separators normalised) does not depend on the directory
// it is read from: it begins with "/", with a drive ("C:/"), or with a
// "%%NAME%%" macro, which stands for a directory the configuration supplies.
bool isAnchoredPath(const std::string& path);

// The path that `path`, as written in a document, names: separators
// normalised, a path that is not anchored taken relative to `baseDirectory`,
// and "." and ".." components folded away. A ".." never climbs above the root
// nor out of a component that holds a macro (whose value is unknown here); it
// is kept in the second case. An empty path gives `baseDirectory`.
std::string resolvePath(const std::string& path, const std::string& baseDirectory);

// The directory part of `path` (normalised separators): everything before the
// last "/", "/" for a leaf in the root, "" when there is no separator.
std::string directoryOf(const std::string& path);

// The text after the last "/" (all of `path` when there is none).
std::string leafOf(const std::string& path);

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_PATHS_H_
