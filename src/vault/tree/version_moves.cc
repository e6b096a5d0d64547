#include "version_moves.h"

#include "qzbase/path.h"
#include "qzbase/platform.h"

bool QzviVersionMove::prepare(const Moves& moves, bool renameLater, QzbString* error) {
  moves_ = moves;
  made_.clear();
  renameLater_ = renameLater;
  if (renameLater_) return true;
  for (const auto& move : moves_) {
    const int linked = np_fio_link(move.first.asCstr(), move.second.asCstr());
    if (linked == NP_OK) {
      made_.push_back(move.second);
      continue;
    }
    if (linked == NP_ERR_EXISTS) {
      abandon();
      *error = qzbStringFormat("Version file %s already exists", move.second.asCstr());
      return false;
    }
    if (linked == NP_ERR_ACCESS || linked == NP_ERR_UNKNOWN || linked == NP_ERR_CROSS_DEVICE) {
      // No hard links here: rename after the object has moved instead.
      abandon();
      renameLater_ = true;
      return true;
    }
    abandon();
    *error = QzbString(np_fio_errdesc(linked));
    return false;
  }
  return true;
}

void QzviVersionMove::finish() {
  for (const auto& move : moves_) {
    if (renameLater_) {
      np_fio_rename_noreplace(move.first.asCstr(), move.second.asCstr());
    } else {
      np_fio_unlink(move.first.asCstr());
    }
  }
  moves_.clear();
  made_.clear();
}

void QzviVersionMove::abandon() {
  for (const QzbString& made : made_) np_fio_unlink(made.asCstr());
  made_.clear();
}
