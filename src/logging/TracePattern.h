#pragma once
// log4cpp's PatternLayout for the Windows build without log4cpp: the ConversionPattern an
// administrator wrote (for example "%d{%H:%M:%S,%l} [%-5p] %c - %m%n") is read once when the
// properties file is, and each trace record is written through it. The same patterns produce the
// same lines as with log4cpp: literals, %% , %c and %c{N} (the last N parts of the category), %d
// with no format (ISO 8601), ISO8601, ABSOLUTE, DATE or a strftime format with %l for the
// milliseconds, %m, %n, %p, %r (milliseconds since the process began tracing), %R (seconds since
// 1970), %t (the thread), %u (clock ticks), %x (the nested context, which this product never sets),
// each with log4cpp's minimum width ("%-5p" left-aligned, "%5p" right-aligned) and maximum
// width ("%.20m" keeps the first 20 characters). Dates are formatted here, in the C locale, and not
// by the C runtime's strftime, whose answer to a conversion it does not know may end the process.
// Free of Windows, so that it is compared with log4cpp itself.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace lm2::logging {

// What a record says, as the pattern's conversions need it.
struct TraceRecord {
  // Local time of the record.
  int year = 1970, month = 1, day = 1, hour = 0, minute = 0, second = 0, millisecond = 0;
  int weekday = 4;  // 0 = Sunday
  int dayOfYear = 0;  // 0 = January 1st
  std::int64_t secondsSince1970 = 0;
  std::int64_t millisecondsSinceStart = 0;
  long clockTicks = 0;
  std::string priority;
  std::string category;
  std::string thread;
  std::string message;
};

class TracePattern {
 public:
  // Nothing for a pattern log4cpp refuses (an unknown conversion, a lone "%" at the end, a width
  // without a conversion).
  static std::optional<TracePattern> parse(const std::string& pattern);

  // The record as the pattern writes it; %n is lineEnd.
  std::string format(const TraceRecord& record, const std::string& lineEnd) const;

 private:
  struct Piece {
    char conversion = 0;  // 0: literal text
    std::string text;     // the literal, or the conversion's {option}
    std::size_t minWidth = 0;
    std::size_t maxWidth = 0;  // 0: no limit
    bool leftAlign = false;
  };

  std::string convert(const Piece& piece, const TraceRecord& record, const std::string& lineEnd) const;

  std::vector<Piece> pieces_;
};

}  // namespace lm2::logging
