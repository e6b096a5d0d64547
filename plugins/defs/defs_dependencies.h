// The resources a definition uses: the "uses" array of a document turned into
// resources of the impact-analysis store, made through the factory that the
// library hands to QzvMetaDataFile::listDependencies.
//
// Thread safety: no state of its own; the list and factory are used by the
// calling thread only.
#ifndef QZVMD_DEFS_DEPENDENCIES_H_
#define QZVMD_DEFS_DEPENDENCIES_H_

#include <string>

#include "defs_document.h"
#include "qzvault/resource.h"

namespace qzvmd_defs {

// Appends one row to `list` for each distinct resource that `uses` (an array,
// or null for none) names; relative paths are taken from
// `documentDirectory`. Every entry is checked before the first resource is
// made, so a malformed entry creates nothing. Returns false with a one-line
// *reason when an entry is malformed, the factory makes no resource, or a row
// cannot be added. Resources returned by the factory are released here.
bool appendDependencies(const Json& uses, const std::string& documentDirectory,
                        QzResourceList* list, QzResourceFactory* factory, std::string* reason);

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_DEPENDENCIES_H_
