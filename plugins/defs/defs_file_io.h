// Reading a definition file whole and writing one back so that a crash never
// leaves half a file: the new content goes to a temporary file beside the
// original, which then replaces the original in one rename.
//
// Thread safety: the functions may run on several threads at once, for
// distinct files. Two writers of one file do not corrupt it; the last rename
// wins.
#ifndef QZVMD_DEFS_FILE_IO_H_
#define QZVMD_DEFS_FILE_IO_H_

#include <cstdint>
#include <string>

namespace qzvmd_defs {

// Files larger than this are not read: a definition is a few kilobytes, and a
// huge file in a vault folder must not make a listing allocate without bound.
constexpr std::uint64_t kMaxDocumentBytes = 16u * 1024u * 1024u;

// Reads the regular file at `path` into *content. False with a one-line
// *reason when it is missing, not a regular file, too large or unreadable.
bool readWholeFile(const std::string& path, std::string* content, std::string* reason);

// Replaces the file at `path` with `content`. The content is written to a new
// hidden file in the same directory (its name begins with "." so that the
// vault's listings skip it), given the original's permission bits, and renamed
// over the original. When `path` does not exist the file is created with the
// process's default permissions. On failure the original is untouched, the
// temporary file is removed, and *reason says why in one line.
bool replaceFileAtomically(const std::string& path, const std::string& content,
                           std::string* reason);

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_FILE_IO_H_
