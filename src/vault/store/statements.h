// Statements with "?" parameters over a metadata database.
//
// Parameters are passed as `count` further arguments, each a const QzbDatavar*
// (in placeholder order; the first binds parameter 0). With a count of 0 the
// SQL goes straight to the connection's select or exec and is never prepared.
// Failures are reported to the debug log as "prepare failed: %s", "select
// failed: %s" or "exec failed: %s" and through the result; callers record
// their own messages. No transaction is opened or ended here.
#ifndef QZVAULT_SRC_STORE_STATEMENTS_H_
#define QZVAULT_SRC_STORE_STATEMENTS_H_

#include "qzbase/datavar.h"
#include "qzbase/sqlite.h"
#include "qzbase/string.h"
#include "qzvault/item_list.h"

// Binds `value` at parameter `index` (from 0): NULL for a null value, an
// integer, a text, or a double for a double or a date. False for any other
// type (nothing is bound).
bool setParm(SqliteStatement* statement, const QzbDatavar* value, int index);

// A new item list over the query's rows (it owns the statement and cursor, and
// the connection must stay open until it is released), or null.
QzvItemList* qzviParamSelect(SqliteConnection* connection, const QzbString& sql, int count, ...);
// True when the statement ran.
bool qzviParamExec(SqliteConnection* connection, const QzbString& sql, int count, ...);
// True when the query gave a row; its column 0 as an integer is written to
// *result (left untouched when there is no row).
bool qzviParamSingleton(SqliteConnection* connection, const QzbString& sql, int* result,
                        int count, ...);

#endif  // QZVAULT_SRC_STORE_STATEMENTS_H_
