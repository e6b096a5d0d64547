// Statements with "?" parameters: binding, and the three ways of running them.
#include "statements.h"

#include <cstdarg>
#include <new>

#include "debug_log.h"
#include "item_list_impl.h"
#include "qzbase/path.h"

namespace {

void logFailure(const char* format, const QzbString& message) {
  qzviDebugLog(qzbStringFormat(format, message.asCstr()));
}

// Binds the `count` variadic QzbDatavar pointers at indexes 0 to count - 1;
// false at the first value that cannot be bound.
bool bindAll(SqliteStatement* statement, int count, va_list args) {
  for (int index = 0; index < count; ++index) {
    const QzbDatavar* value = va_arg(args, const QzbDatavar*);
    if (!setParm(statement, value, index)) return false;
  }
  return true;
}

// Prepares `sql` and binds the parameters. Null when preparing fails (logged)
// or a value cannot be bound; the statement is then released, which callers
// cannot tell from abandoning it.
SqliteStatement* prepareAndBind(SqliteConnection* connection, const QzbString& sql, int count,
                                va_list args) {
  SqliteStatement* statement = connection->prepare(sql);
  if (statement == nullptr) {
    logFailure("prepare failed: %s", connection->getErrorMessage());
    return nullptr;
  }
  if (!bindAll(statement, count, args)) {
    statement->release();
    return nullptr;
  }
  return statement;
}

// Steps `cursor` once; writes column 0 to *result when it is on a row.
// Releases the cursor.
bool readSingleton(SqliteCursor* cursor, int* result) {
  bool found = false;
  if (cursor->next() == 1) {
    if (result != nullptr) *result = cursor->getInt(0);
    found = true;
  }
  cursor->release();
  return found;
}

QzvItemList* newCursorList(SqliteStatement* statement, SqliteCursor* cursor) {
  QzvItemList* list = statement != nullptr
                          ? new (std::nothrow) QzvItemListCursorImpl(statement, cursor)
                          : new (std::nothrow) QzvItemListCursorImpl(cursor);
  if (list == nullptr) {
    cursor->release();
    if (statement != nullptr) statement->release();
  }
  return list;
}

}  // namespace

bool setParm(SqliteStatement* statement, const QzbDatavar* value, int index) {
  if (value == nullptr || value->isNull()) {
    statement->bindNull(index);
    return true;
  }
  switch (value->type()) {
    case QZB_DATAVAR_INT32:
      statement->bindInt(index, value->asInt());
      return true;
    case QZB_DATAVAR_INT64:
      // Bound whole: object sizes and row ids do not fit 32 bits.
      statement->bindInt(index, value->asInt64());
      return true;
    case QZB_DATAVAR_STRING:
      statement->bindText(index, value->asString());
      return true;
    case QZB_DATAVAR_DOUBLE:
    case QZB_DATAVAR_DATE:  // a date is stored as its numeric value
      statement->bindDouble(index, value->asDouble());
      return true;
    default:
      return false;
  }
}

QzvItemList* qzviParamSelect(SqliteConnection* connection, const QzbString& sql, int count, ...) {
  if (count <= 0) {
    SqliteCursor* cursor = connection->select(sql);
    if (cursor == nullptr) {
      logFailure("select failed: %s", connection->getErrorMessage());
      return nullptr;
    }
    return newCursorList(nullptr, cursor);
  }

  va_list args;
  va_start(args, count);
  SqliteStatement* statement = prepareAndBind(connection, sql, count, args);
  va_end(args);
  if (statement == nullptr) return nullptr;

  SqliteCursor* cursor = statement->executeQuery();
  if (cursor == nullptr) {
    logFailure("select failed: %s", statement->getErrorMessage());
    statement->release();
    return nullptr;
  }
  return newCursorList(statement, cursor);
}

bool qzviParamExec(SqliteConnection* connection, const QzbString& sql, int count, ...) {
  if (count <= 0) {
    const bool ran = connection->exec(sql, 0);
    if (!ran) logFailure("exec failed: %s", connection->getErrorMessage());
    return ran;
  }

  va_list args;
  va_start(args, count);
  SqliteStatement* statement = prepareAndBind(connection, sql, count, args);
  va_end(args);
  if (statement == nullptr) return false;

  const bool ran = statement->execute(0);
  if (!ran) logFailure("exec failed: %s", connection->getErrorMessage());
  statement->release();
  return ran;
}

bool qzviParamSingleton(SqliteConnection* connection, const QzbString& sql, int* result,
                        int count, ...) {
  if (count <= 0) {
    SqliteCursor* cursor = connection->select(sql);
    if (cursor == nullptr) {
      logFailure("select failed: %s", connection->getErrorMessage());
      return false;
    }
    return readSingleton(cursor, result);
  }

  va_list args;
  va_start(args, count);
  SqliteStatement* statement = prepareAndBind(connection, sql, count, args);
  va_end(args);
  if (statement == nullptr) return false;

  SqliteCursor* cursor = statement->executeQuery();
  if (cursor == nullptr) {
    logFailure("select failed: %s", statement->getErrorMessage());
    statement->release();
    return false;
  }
  const bool found = readSingleton(cursor, result);
  statement->release();
  return found;
}
