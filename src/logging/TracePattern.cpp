#include "logging/TracePattern.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace lm2::logging {
namespace {

const char* const kWeekdays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
const char* const kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                               "July",    "August",   "September", "October", "November", "December"};

std::string number(long value, int width, char fill = '0') {
  char text[32];
  std::snprintf(text, sizeof text, fill == '0' ? "%0*ld" : "%*ld", width, value);
  return text;
}

// strftime in the C locale for the conversions date formats use; one it does not know is written
// as it stands, as the C library does.
void appendDate(std::string& out, const std::string& format, const TraceRecord& r) {
  const int weekday = ((r.weekday % 7) + 7) % 7;
  const int month = (r.month >= 1 && r.month <= 12) ? r.month - 1 : 0;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%' || i + 1 == format.size()) {
      out += format[i];
      continue;
    }
    const char conversion = format[++i];
    switch (conversion) {
      case 'a': out.append(kWeekdays[weekday], 3); break;
      case 'A': out += kWeekdays[weekday]; break;
      case 'b': case 'h': out.append(kMonths[month], 3); break;
      case 'B': out += kMonths[month]; break;
      case 'c': appendDate(out, "%a %b %e %H:%M:%S %Y", r); break;
      case 'C': out += number(r.year / 100, 2); break;
      case 'd': out += number(r.day, 2); break;
      case 'D': appendDate(out, "%m/%d/%y", r); break;
      case 'e': out += number(r.day, 2, ' '); break;
      case 'F': appendDate(out, "%Y-%m-%d", r); break;
      case 'H': out += number(r.hour, 2); break;
      case 'I': out += number(r.hour % 12 == 0 ? 12 : r.hour % 12, 2); break;
      case 'j': out += number(r.dayOfYear + 1, 3); break;
      case 'm': out += number(r.month, 2); break;
      case 'M': out += number(r.minute, 2); break;
      case 'n': out += '\n'; break;
      case 'p': out += r.hour < 12 ? "AM" : "PM"; break;
      case 'R': appendDate(out, "%H:%M", r); break;
      case 'S': out += number(r.second, 2); break;
      case 't': out += '\t'; break;
      case 'T': appendDate(out, "%H:%M:%S", r); break;
      case 'u': out += number(weekday == 0 ? 7 : weekday, 1); break;
      case 'w': out += number(weekday, 1); break;
      case 'y': out += number(r.year % 100, 2); break;
      case 'Y': out += number(r.year, 1); break;
      case '%': out += '%'; break;
      default:
        out += '%';
        out += conversion;
    }
  }
}

// %d's option: a named format, or a strftime format in which the first %l is the milliseconds.
void appendTimestamp(std::string& out, std::string format, const TraceRecord& record) {
  if (format.empty() || format == "ISO8601") format = "%Y-%m-%d %H:%M:%S,%l";
  else if (format == "ABSOLUTE") format = "%H:%M:%S,%l";
  else if (format == "DATE") format = "%d %b %Y %H:%M:%S,%l";
  const auto millis = format.find("%l");
  if (millis == std::string::npos) {
    appendDate(out, format, record);
    return;
  }
  appendDate(out, format.substr(0, millis), record);
  out += number(record.millisecond, 3);
  appendDate(out, format.substr(millis + 2), record);
}

// %c{N}: the last N dot-separated parts of the category; the whole name when N is not a positive
// number (leading blanks and anything after the digits are ignored, as a stream reads a number).
std::string categoryPart(const std::string& category, const std::string& option) {
  char* end = nullptr;
  const long parts = std::strtol(option.c_str(), &end, 10);
  if (end == option.c_str() || parts <= 0) return category;
  std::size_t begin = category.size();
  for (long found = 0; found < parts; ++found) {
    const auto dot = begin == 0 ? std::string::npos : category.rfind('.', begin - 1);
    if (dot == std::string::npos) return category;
    begin = dot;
  }
  return category.substr(begin + 1);
}

std::size_t readDigits(const std::string& text, std::size_t& at) {
  std::size_t value = 0;
  while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) && value < 100000) {
    value = value * 10 + static_cast<std::size_t>(text[at++] - '0');
  }
  return value;
}

bool isDigit(const std::string& text, std::size_t at) {
  return at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]));
}

}  // namespace

std::optional<TracePattern> TracePattern::parse(const std::string& pattern) {
  TracePattern parsed;
  std::string literal;
  std::size_t at = 0;
  while (at < pattern.size()) {
    if (pattern[at] != '%') {
      literal += pattern[at++];
      continue;
    }
    ++at;
    Piece piece;
    if (at < pattern.size() && pattern[at] == '-') {
      piece.leftAlign = true;
      ++at;
      if (!isDigit(pattern, at)) return std::nullopt;
    }
    piece.minWidth = readDigits(pattern, at);
    if (at < pattern.size() && pattern[at] == '.') {
      ++at;
      if (!isDigit(pattern, at)) return std::nullopt;
      piece.maxWidth = readDigits(pattern, at);
    }
    if (at == pattern.size()) return std::nullopt;
    piece.conversion = pattern[at++];
    if (std::string("cdmnprRtux%").find(piece.conversion) == std::string::npos) return std::nullopt;
    if (at < pattern.size() && pattern[at] == '{') {
      const auto close = pattern.find('}', at + 1);
      piece.text = pattern.substr(at + 1, close == std::string::npos ? std::string::npos : close - at - 1);
      at = close == std::string::npos ? pattern.size() : close + 1;
    }
    if (piece.conversion == '%') {
      literal += '%';
      continue;
    }
    if (!literal.empty()) parsed.pieces_.push_back(Piece{0, std::move(literal)});
    literal.clear();
    parsed.pieces_.push_back(std::move(piece));
  }
  if (!literal.empty()) parsed.pieces_.push_back(Piece{0, std::move(literal)});
  return parsed;
}

std::string TracePattern::format(const TraceRecord& record, const std::string& lineEnd) const {
  std::string line;
  for (const Piece& piece : pieces_) {
    if (piece.conversion == 0) {
      line += piece.text;
      continue;
    }
    std::string value = convert(piece, record, lineEnd);
    if (piece.maxWidth > 0 && value.size() > piece.maxWidth) value.resize(piece.maxWidth);
    const std::size_t fill = value.size() < piece.minWidth ? piece.minWidth - value.size() : 0;
    if (!piece.leftAlign) line.append(fill, ' ');
    line += value;
    if (piece.leftAlign) line.append(fill, ' ');
  }
  return line;
}

std::string TracePattern::convert(const Piece& piece, const TraceRecord& record, const std::string& lineEnd) const {
  std::string value;
  switch (piece.conversion) {
    case 'c': return categoryPart(record.category, piece.text);
    case 'd': appendTimestamp(value, piece.text, record); return value;
    case 'm': return record.message;
    case 'n': return lineEnd;
    case 'p': return record.priority;
    case 'r': return std::to_string(record.millisecondsSinceStart);
    case 'R': return std::to_string(record.secondsSince1970);
    case 't': return record.thread;
    case 'u': return std::to_string(record.clockTicks);
    default: return value;  // %x: no nested context is ever pushed
  }
}

}  // namespace lm2::logging
