// The statement texts of stored attributes (v_attr of a folder's ".v_fmd"),
// built in one place so that the attribute object, the folder's listings and
// the tests agree on them byte for byte. Texts keep their blanks as they are:
// other tools of the product match these statements in logs.
//
// Thread safety: pure functions.
#ifndef QZVAULT_SRC_TREE_ATTRIBUTE_SQL_H_
#define QZVAULT_SRC_TREE_ATTRIBUTE_SQL_H_

#include "qzbase/string.h"

// Rows v0..v9 of one attribute in seq order. For the folder itself
// (`forFolder`) one parameter, the attribute name; otherwise the file name
// and the attribute name.
QzbString qzviAttrSelectSql(bool forFolder);
// Deletes every row of one attribute; parameters as qzviAttrSelectSql.
QzbString qzviAttrDeleteSql(bool forFolder);
// Inserts one row: fname, attr, seq, v0..v9 (13 parameters).
QzbString qzviAttrInsertSql();

// The folder's own attributes, 12 columns (attr, seq, v0..v9), by attr, seq.
QzbString qzviFolderAttrListSql();
// The object attribute listing over the name table `nameTable` ("v_file" of
// ".v_cmd" or "v_object" of ".v_fmd"), 14 columns. `byFile` adds the file
// name parameter, `byAttribute` the attribute parameter (after it).
QzbString qzviObjectAttrListSql(const char* nameTable, bool byFile, bool byAttribute);

#endif  // QZVAULT_SRC_TREE_ATTRIBUTE_SQL_H_
