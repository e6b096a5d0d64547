// QzbDatavar: one tagged value. Only the member that the type names is
// meaningful; the others keep their cleared state so that copies stay cheap.
#include "qzbase/datavar.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "qzbase/path.h"

namespace {

// The shortest text that reads back as exactly `value`: the shortest "%.*g"
// form, or plain digits for a whole number when they are no longer ("100"
// rather than "1e+02", "1625140800" rather than "1.6251408e+09").
QzbString shortestDoubleText(double value) {
  char buffer[40];
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buffer, sizeof buffer, "%.*g", precision, value);
    if (!std::isfinite(value) || std::strtod(buffer, nullptr) == value) break;
  }
  if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 1e21) {
    char digits[40];
    const int n = std::snprintf(digits, sizeof digits, "%.0f", value);
    if (n > 0 && static_cast<std::size_t>(n) <= std::strlen(buffer)) return QzbString(digits);
  }
  return QzbString(buffer);
}

// A double's integer part, when it has one that fits in 64 bits.
bool doubleToInt64(double value, long long* out) {
  // 2^63 is exactly representable; every double below it truncates into range.
  if (!std::isfinite(value) || value >= 9223372036854775808.0 || value < -9223372036854775808.0) {
    return false;
  }
  *out = static_cast<long long>(value);
  return true;
}

// The low 32 bits, as QzbString::asInt keeps them.
int lowBits(long long value) {
  return static_cast<int>(static_cast<unsigned long long>(value) & 0xffffffffULL);
}

void setOk(bool* ok, bool value) {
  if (ok != nullptr) *ok = value;
}

}  // namespace

QzbDatavar::QzbDatavar() noexcept : type_(QZB_DATAVAR_NULL), integer_(0), real_(0.0) {}
QzbDatavar::QzbDatavar(int value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(long value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(long long value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(double value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(const char* value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(const QzbString& value) : QzbDatavar() { assign(value); }
QzbDatavar::QzbDatavar(const QzbDate& value) : QzbDatavar() { assign(value); }

void QzbDatavar::setNull() {
  type_ = QZB_DATAVAR_NULL;
  integer_ = 0;
  real_ = 0.0;
  text_.setNull(true);
  date_.setNull();
}

bool QzbDatavar::isNull() const { return type_ == QZB_DATAVAR_NULL; }

void QzbDatavar::assign(int value) {
  setNull();
  type_ = QZB_DATAVAR_INT32;
  integer_ = value;
}

void QzbDatavar::assign(long value) { assign(static_cast<long long>(value)); }

void QzbDatavar::assign(long long value) {
  setNull();
  type_ = QZB_DATAVAR_INT64;
  integer_ = value;
}

void QzbDatavar::assign(double value) {
  setNull();
  type_ = QZB_DATAVAR_DOUBLE;
  real_ = value;
}

void QzbDatavar::assign(const char* value) {
  // Copied before the old value is cleared, in case `value` points into it.
  QzbString text(value);
  setNull();
  if (text.isNull()) return;
  type_ = QZB_DATAVAR_STRING;
  text_ = std::move(text);
}

void QzbDatavar::assign(const QzbString& value) {
  if (&value == &text_) return;  // assigning the held text to itself
  setNull();
  if (value.isNull()) return;
  type_ = QZB_DATAVAR_STRING;
  text_ = value;
}

void QzbDatavar::assign(const QzbDate& value) {
  if (&value == &date_) return;
  setNull();
  if (value.isNull()) return;
  type_ = QZB_DATAVAR_DATE;
  date_ = value;
}

QzbDatavarType QzbDatavar::type() const { return type_; }

QzbString QzbDatavar::asString() const {
  switch (type_) {
    case QZB_DATAVAR_INT32:
    case QZB_DATAVAR_INT64:
      return qzbStringFormat("%lld", integer_);
    case QZB_DATAVAR_DOUBLE:
      return shortestDoubleText(real_);
    case QZB_DATAVAR_STRING:
      return text_;
    case QZB_DATAVAR_DATE:
      return shortestDoubleText(date_.asDouble());
    case QZB_DATAVAR_NULL:
      break;
  }
  return QzbString();
}

long long QzbDatavar::asInt64(bool* ok) const {
  long long value = 0;
  switch (type_) {
    case QZB_DATAVAR_INT32:
    case QZB_DATAVAR_INT64:
      setOk(ok, true);
      return integer_;
    case QZB_DATAVAR_DOUBLE:
      if (doubleToInt64(real_, &value)) {
        setOk(ok, true);
        return value;
      }
      break;
    case QZB_DATAVAR_STRING:
      return text_.asInt64(ok);
    case QZB_DATAVAR_DATE:
      if (doubleToInt64(date_.asDouble(), &value)) {
        setOk(ok, true);
        return value;
      }
      break;
    case QZB_DATAVAR_NULL:
      break;
  }
  setOk(ok, false);
  return 0;
}

int QzbDatavar::asInt(bool* ok) const {
  if (type_ == QZB_DATAVAR_STRING) return text_.asInt(ok);
  return lowBits(asInt64(ok));
}

double QzbDatavar::asDouble(bool* ok) const {
  switch (type_) {
    case QZB_DATAVAR_INT32:
    case QZB_DATAVAR_INT64:
      setOk(ok, true);
      return static_cast<double>(integer_);
    case QZB_DATAVAR_DOUBLE:
      setOk(ok, true);
      return real_;
    case QZB_DATAVAR_STRING:
      return text_.asDouble(ok);
    case QZB_DATAVAR_DATE:
      setOk(ok, true);
      return date_.asDouble();
    case QZB_DATAVAR_NULL:
      break;
  }
  setOk(ok, false);
  return 0.0;
}

QzbDate QzbDatavar::asDate() const {
  switch (type_) {
    case QZB_DATAVAR_DATE:
      return date_;
    case QZB_DATAVAR_INT32:
    case QZB_DATAVAR_INT64:
      return QzbDate(static_cast<double>(integer_));
    case QZB_DATAVAR_DOUBLE:
      return QzbDate(real_);
    case QZB_DATAVAR_STRING: {
      bool ok = false;
      const double value = text_.asDouble(&ok);
      return ok ? QzbDate(value) : QzbDate();
    }
    case QZB_DATAVAR_NULL:
      break;
  }
  return QzbDate();
}
