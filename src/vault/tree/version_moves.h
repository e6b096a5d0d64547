// Carrying an object's version files along when the object is renamed or
// moved, so that no crash leaves a version under neither name nor under the
// old name alone (where it would look like the version of an object that is
// gone). Each version first gets its new name as a second link to the same
// file; the old names are dropped only after the object and its metadata
// have moved; when the object stays, the new names are dropped again. Where
// the file system has no hard links, the versions are renamed after the
// object has moved, never over an existing file.
//
// Internal; one object, one thread.
#ifndef QZVAULT_SRC_TREE_VERSION_MOVES_H_
#define QZVAULT_SRC_TREE_VERSION_MOVES_H_

#include <utility>
#include <vector>

#include "qzbase/string.h"

class QzviVersionMove {
 public:
  // (old path, new path) of each version file.
  using Moves = std::vector<std::pair<QzbString, QzbString>>;

  // Gives every version its new name (or, with `renameLater`, only notes
  // the moves for finish()). False, with every new name made so far removed
  // and the reason in *error ("Version file <path> already exists", or the
  // platform's description), when a new name is taken or cannot be made.
  bool prepare(const Moves& moves, bool renameLater, QzbString* error);
  // The object has moved: the old names go (or the versions are renamed).
  // Failures are ignored: what stays behind is a second name of a version,
  // which the vault check removes.
  void finish();
  // The object did not move: the new names go.
  void abandon();

 private:
  Moves moves_;
  std::vector<QzbString> made_;  // new names made by prepare
  bool renameLater_ = false;
};

#endif  // QZVAULT_SRC_TREE_VERSION_MOVES_H_
