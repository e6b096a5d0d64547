// qzbStringFormat: printf-style formatting into a QzbString, with "%S" for a
// const QzbString*. Each ordinary conversion is handed to the C library's
// snprintf on its own, with the argument fetched at its proper type.
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "qzbase/path.h"
#include "qzbase/string.h"

namespace {

enum class Length { kNone, kHH, kH, kL, kLL, kBigL, kZ, kJ, kT };

// Appends one conversion formatted by snprintf.
template <typename T>
void appendConversion(std::string* out, const std::string& conversion, bool hasWidthStar,
                      int width, bool hasPrecisionStar, int precision, T value) {
  char buffer[256];
  int n;
  if (hasWidthStar && hasPrecisionStar) {
    n = std::snprintf(buffer, sizeof buffer, conversion.c_str(), width, precision, value);
  } else if (hasWidthStar) {
    n = std::snprintf(buffer, sizeof buffer, conversion.c_str(), width, value);
  } else if (hasPrecisionStar) {
    n = std::snprintf(buffer, sizeof buffer, conversion.c_str(), precision, value);
  } else {
    n = std::snprintf(buffer, sizeof buffer, conversion.c_str(), value);
  }
  if (n < 0) return;
  if (static_cast<std::size_t>(n) < sizeof buffer) {
    out->append(buffer, static_cast<std::size_t>(n));
    return;
  }
  std::string big(static_cast<std::size_t>(n) + 1, '\0');
  if (hasWidthStar && hasPrecisionStar) {
    std::snprintf(&big[0], big.size(), conversion.c_str(), width, precision, value);
  } else if (hasWidthStar) {
    std::snprintf(&big[0], big.size(), conversion.c_str(), width, value);
  } else if (hasPrecisionStar) {
    std::snprintf(&big[0], big.size(), conversion.c_str(), precision, value);
  } else {
    std::snprintf(&big[0], big.size(), conversion.c_str(), value);
  }
  big.resize(static_cast<std::size_t>(n));
  out->append(big);
}

// Pads a QzbString's text as "%s" would with the given flags, width and precision.
void appendPadded(std::string* out, const char* text, std::size_t length, bool leftAlign,
                  int width, int precision) {
  if (precision >= 0 && static_cast<std::size_t>(precision) < length) {
    length = static_cast<std::size_t>(precision);
  }
  const std::size_t pad =
      (width > 0 && static_cast<std::size_t>(width) > length) ? width - length : 0;
  if (!leftAlign) out->append(pad, ' ');
  out->append(text, length);
  if (leftAlign) out->append(pad, ' ');
}

}  // namespace

QzbString qzbStringFormatV(const char* format, va_list args) {
  if (format == nullptr) return QzbString();
  std::string out;
  const char* p = format;
  while (*p != '\0') {
    if (*p != '%') {
      const char* next = std::strchr(p, '%');
      const std::size_t n = next == nullptr ? std::strlen(p) : static_cast<std::size_t>(next - p);
      out.append(p, n);
      p += n;
      continue;
    }
    const char* start = p++;
    if (*p == '%') {
      out.push_back('%');
      ++p;
      continue;
    }
    bool leftAlign = false;
    while (*p != '\0' && std::strchr("-+ #0'", *p) != nullptr) {
      if (*p == '-') leftAlign = true;
      ++p;
    }
    bool widthStar = false;
    int width = -1;
    if (*p == '*') {
      widthStar = true;
      width = va_arg(args, int);
      if (width < 0) {
        leftAlign = true;
      }
      ++p;
    } else {
      while (*p >= '0' && *p <= '9') {
        width = (width < 0 ? 0 : width) * 10 + (*p - '0');
        ++p;
      }
    }
    bool precisionStar = false;
    int precision = -1;
    if (*p == '.') {
      ++p;
      precision = 0;
      if (*p == '*') {
        precisionStar = true;
        precision = va_arg(args, int);
        ++p;
      } else {
        while (*p >= '0' && *p <= '9') {
          precision = precision * 10 + (*p - '0');
          ++p;
        }
      }
    }
    Length length = Length::kNone;
    switch (*p) {
      case 'h':
        ++p;
        if (*p == 'h') {
          ++p;
          length = Length::kHH;
        } else {
          length = Length::kH;
        }
        break;
      case 'l':
        ++p;
        if (*p == 'l') {
          ++p;
          length = Length::kLL;
        } else {
          length = Length::kL;
        }
        break;
      case 'q':
        ++p;
        length = Length::kLL;
        break;
      case 'L':
        ++p;
        length = Length::kBigL;
        break;
      case 'z':
        ++p;
        length = Length::kZ;
        break;
      case 'j':
        ++p;
        length = Length::kJ;
        break;
      case 't':
        ++p;
        length = Length::kT;
        break;
      default:
        break;
    }
    const char conversionChar = *p;
    if (conversionChar == '\0') {
      // A dangling conversion at the end of the format is written as it stands.
      out.append(start);
      break;
    }
    ++p;
    const std::string conversion(start, static_cast<std::size_t>(p - start));
    const int w = width;
    const int pr = precision;
    // Width for the texts padded here: a negative "*" width means
    // left-aligned in that many columns, as printf reads it.
    const int padWidth = (widthStar && width < 0) ? (width == INT_MIN ? 0 : -width) : width;
    switch (conversionChar) {
      case 'S': {
        const QzbString* s = va_arg(args, const QzbString*);
        if (s != nullptr && !s->isNull()) {
          appendPadded(&out, s->asCstr(), s->length(), leftAlign, padWidth, pr);
        } else {
          appendPadded(&out, "", 0, leftAlign, padWidth, pr);
        }
        break;
      }
      case 'd':
      case 'i':
        switch (length) {
          case Length::kL:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr, va_arg(args, long));
            break;
          case Length::kLL:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, long long));
            break;
          case Length::kZ:
          case Length::kT:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, std::ptrdiff_t));
            break;
          case Length::kJ:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, intmax_t));
            break;
          default:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr, va_arg(args, int));
            break;
        }
        break;
      case 'u':
      case 'o':
      case 'x':
      case 'X':
        switch (length) {
          case Length::kL:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, unsigned long));
            break;
          case Length::kLL:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, unsigned long long));
            break;
          case Length::kZ:
          case Length::kT:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, std::size_t));
            break;
          case Length::kJ:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, uintmax_t));
            break;
          default:
            appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                             va_arg(args, unsigned int));
            break;
        }
        break;
      case 'f':
      case 'F':
      case 'e':
      case 'E':
      case 'g':
      case 'G':
      case 'a':
      case 'A':
        if (length == Length::kBigL) {
          appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                           va_arg(args, long double));
        } else {
          appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                           va_arg(args, double));
        }
        break;
      case 'c':
        if (length == Length::kL) {
          appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                           static_cast<wint_t>(va_arg(args, wint_t)));
        } else {
          appendConversion(&out, conversion, widthStar, w, precisionStar, pr, va_arg(args, int));
        }
        break;
      case 's': {
        if (length == Length::kL) {
          const wchar_t* ws = va_arg(args, const wchar_t*);
          appendConversion(&out, conversion, widthStar, w, precisionStar, pr,
                           ws == nullptr ? L"(null)" : ws);
        } else {
          const char* s = va_arg(args, const char*);
          // The C library prints "(null)" for a null pointer; we do the same
          // without relying on it.
          if (s == nullptr) s = "(null)";
          appendPadded(&out, s,
                       pr >= 0 ? strnlen(s, static_cast<std::size_t>(pr)) : std::strlen(s),
                       leftAlign, padWidth, pr);
        }
        break;
      }
      case 'p':
        appendConversion(&out, conversion, widthStar, w, precisionStar, pr, va_arg(args, void*));
        break;
      case 'n':
        // Writing through a format is never wanted here; consume the pointer.
        (void)va_arg(args, void*);
        break;
      default:
        // An unknown conversion is copied as it stands, consuming nothing.
        out.append(conversion);
        break;
    }
  }
  return QzbString::fromStdString(out);
}

QzbString qzbStringFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  QzbString result = qzbStringFormatV(format, args);
  va_end(args);
  return result;
}
