#include "JsonWriter.h"

#include <charconv>
#include <ostream>

namespace NuvikPrediction {

namespace {

// Text handed to the stream at once.
constexpr std::size_t kChunk = std::size_t{1} << 16;
constexpr unsigned kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789abcdef";

bool IsPlain(unsigned char byte) { return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\'; }

void AppendUnicodeEscape(std::string& out, unsigned unit) {
  const char text[6] = {'\\', 'u', kHexDigits[(unit >> 12) & 0xF], kHexDigits[(unit >> 8) & 0xF],
                        kHexDigits[(unit >> 4) & 0xF], kHexDigits[unit & 0xF]};
  out.append(text, sizeof text);
}

// Decodes the sequence whose first byte, from 0x80 on, is at `*position`,
// and moves `*position` to its last byte.
unsigned DecodeSequence(const unsigned char*& position, const unsigned char* end) {
  const unsigned first = position[0];
  const auto left = end - position;
  if (first < 0xE0) {
    if (left < 2) return kReplacement;
    const unsigned point = ((first & 0x1F) << 6) | (position[1] & 0x3Fu);
    position += 1;
    return point < 0x80 ? kReplacement : point;
  }
  if (first < 0xF0) {
    if (left < 3) return kReplacement;
    const unsigned point = ((first & 0x0F) << 12) | ((position[1] & 0x3Fu) << 6) | (position[2] & 0x3Fu);
    position += 2;
    if (point >= 0xD800 && point <= 0xDFFF) return kReplacement;
    return point < 0x800 ? kReplacement : point;
  }
  if (first < 0xF8) {
    if (left < 4) return kReplacement;
    const unsigned point = ((first & 0x07) << 18) | ((position[1] & 0x3Fu) << 12) | ((position[2] & 0x3Fu) << 6) |
                           (position[3] & 0x3Fu);
    position += 3;
    return point < 0x10000 ? kReplacement : point;
  }
  return kReplacement;
}

void AppendEscaped(std::string& out, const unsigned char*& position, const unsigned char* end) {
  const unsigned char byte = *position;
  switch (byte) {
    case '"': out.append("\\\"", 2); return;
    case '\\': out.append("\\\\", 2); return;
    case '\b': out.append("\\b", 2); return;
    case '\f': out.append("\\f", 2); return;
    case '\n': out.append("\\n", 2); return;
    case '\r': out.append("\\r", 2); return;
    case '\t': out.append("\\t", 2); return;
    default: break;
  }
  if (byte < 0x20) {
    AppendUnicodeEscape(out, byte);
    return;
  }
  const unsigned point = DecodeSequence(position, end);
  if (point < 0x10000) {
    AppendUnicodeEscape(out, point);
    return;
  }
  // Above the basic plane: a surrogate pair, with jsoncpp's masks also for
  // the points beyond U+10FFFF that a lenient four-byte read can give.
  const unsigned offset = point - 0x10000;
  AppendUnicodeEscape(out, 0xD800 + ((offset >> 10) & 0x3FF));
  AppendUnicodeEscape(out, 0xDC00 + (offset & 0x3FF));
}

}  // namespace

void AppendQuotedString(std::string& out, std::string_view value) {
  out.push_back('"');
  const auto* position = reinterpret_cast<const unsigned char*>(value.data());
  const auto* end = position + value.size();
  while (position != end) {
    const auto* plain = position;
    while (position != end && IsPlain(*position)) ++position;
    out.append(reinterpret_cast<const char*>(plain), static_cast<std::size_t>(position - plain));
    if (position == end) break;
    AppendEscaped(out, position, end);
    ++position;
  }
  out.push_back('"');
}

JsonWriter::JsonWriter(std::ostream& out) : out(out) { buffer.reserve(kChunk + kChunk / 4); }

void JsonWriter::BeginObject() {
  Separate();
  buffer.push_back('{');
  afterValue = false;
}

void JsonWriter::EndObject() {
  buffer.push_back('}');
  Ended();
}

void JsonWriter::BeginArray() {
  Separate();
  buffer.push_back('[');
  afterValue = false;
}

void JsonWriter::EndArray() {
  buffer.push_back(']');
  Ended();
}

void JsonWriter::Key(std::string_view key) {
  Separate();
  AppendQuotedString(buffer, key);
  buffer.push_back(':');
  afterValue = false;
}

void JsonWriter::String(std::string_view value) {
  Separate();
  AppendQuotedString(buffer, value);
  Ended();
}

void JsonWriter::UInt64(std::uint64_t value) {
  Separate();
  char digits[20];
  const auto written = std::to_chars(digits, digits + sizeof digits, value).ptr;
  buffer.append(digits, static_cast<std::size_t>(written - digits));
  Ended();
}

void JsonWriter::Int64(std::int64_t value) {
  Separate();
  char digits[20];
  const auto written = std::to_chars(digits, digits + sizeof digits, value).ptr;
  buffer.append(digits, static_cast<std::size_t>(written - digits));
  Ended();
}

void JsonWriter::Null() {
  Separate();
  buffer.append("null", 4);
  Ended();
}

void JsonWriter::Flush() {
  if (buffer.empty()) return;
  out.write(buffer.data(), static_cast<std::streamsize>(buffer.size()));
  buffer.clear();
}

void JsonWriter::Separate() {
  if (afterValue) buffer.push_back(',');
}

void JsonWriter::Ended() {
  afterValue = true;
  if (buffer.size() >= kChunk) Flush();
}

}  // namespace NuvikPrediction
