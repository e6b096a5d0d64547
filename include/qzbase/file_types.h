// The vault's family of file types (docs/file-types.md): the twelve two-part
// extensions that span two dots ("job.def") and the resource type that each
// known extension stands for in the impact-analysis store. This table is the
// one source of these names; the library and the plug-ins read it from here.
//
// Thread safety: the tables are constant and every function is thread-safe.
#ifndef QZBASE_FILE_TYPES_H_
#define QZBASE_FILE_TYPES_H_

#include "qzbase/export.h"
#include "qzbase/string.h"

// The two-part extensions, lower case and without a leading dot ("job.def",
// "job.tpl", "rpt.def", ...), definitions and templates of each kind in turn.
#define QZB_TWO_PART_EXTENSION_COUNT 12
QZBASE_EXPORT extern const char* const qzbTwoPartExtensions[QZB_TWO_PART_EXTENSION_COUNT];

// One known extension and its resource type.
struct QzbFileType {
  const char* extension;     // lower case, without a leading dot
  const char* resourceType;  // "Job", "DataFile", ...
};

// Every extension that has a resource type of its own: the twelve two-part
// extensions first, then the ordinary files (csv, txt, dat, sql, sh, py, log,
// pdf, html).
#define QZB_FILE_TYPE_COUNT 21
QZBASE_EXPORT extern const QzbFileType qzbFileTypes[QZB_FILE_TYPE_COUNT];

// The two-part extension that `fileName` ends in, as the table's own lower-case
// text without a leading dot (static storage, never to be freed), or null. The
// name must end in "." followed by the extension, in any letter case:
// "Load.JOB.def" gives "job.def"; "jobdef", "job.def" alone (no dot before it)
// and a null name give null. The extension starts at length - strlen(result).
QZBASE_EXPORT const char* qzbFindTwoPartExtension(const char* fileName);
QZBASE_EXPORT const char* qzbFindTwoPartExtension(const QzbString& fileName);

// The resource type of files with extension `extension` (without a leading
// dot, any letter case): "job.def" and "job.tpl" give "Job", "csv" gives
// "DataFile", and so on through qzbFileTypes. A null string for a null, empty
// or unknown extension (the caller then uses "File").
QZBASE_EXPORT QzbString getTypeForFileExtension(const QzbString& extension);

#endif  // QZBASE_FILE_TYPES_H_
