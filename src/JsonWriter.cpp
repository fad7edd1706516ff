#include "JsonWriter.h"

#include <algorithm>
#include <charconv>
#include <ostream>

namespace NuvikPrediction {

namespace {

// Text handed to the stream at once.
constexpr std::size_t kChunk = std::size_t{1} << 16;
// The buffer starts small, for small documents, and grows to fit a chunk.
constexpr std::size_t kInitialCapacity = std::size_t{1} << 12;
// Most bytes one input byte of a string can become: a control's \u00XX.
constexpr std::size_t kMaxEscapedBytes = 6;
constexpr std::size_t kMaxNumberBytes = 20;
constexpr unsigned kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789abcdef";

// Bytes written as they are.
struct PlainBytes {
  constexpr PlainBytes() : plain() {
    for (int byte = 0x20; byte < 0x80; ++byte) plain[byte] = byte != '"' && byte != '\\';
  }
  bool plain[256];
};
constexpr PlainBytes kPlain;

char* PutUnicodeEscape(char* out, unsigned unit) {
  out[0] = '\\';
  out[1] = 'u';
  out[2] = kHexDigits[(unit >> 12) & 0xF];
  out[3] = kHexDigits[(unit >> 8) & 0xF];
  out[4] = kHexDigits[(unit >> 4) & 0xF];
  out[5] = kHexDigits[unit & 0xF];
  return out + 6;
}

char* PutShortEscape(char* out, char letter) {
  out[0] = '\\';
  out[1] = letter;
  return out + 2;
}

// Decodes the sequence whose first byte, from 0x80 on, is at `position`, and
// moves `position` to its last byte.
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

// Writes the escape of the byte at `position`, which is not plain, moving
// `position` past what it consumed.
char* PutEscaped(char* out, const unsigned char*& position, const unsigned char* end) {
  const unsigned char byte = *position;
  switch (byte) {
    case '"': ++position; return PutShortEscape(out, '"');
    case '\\': ++position; return PutShortEscape(out, '\\');
    case '\b': ++position; return PutShortEscape(out, 'b');
    case '\f': ++position; return PutShortEscape(out, 'f');
    case '\n': ++position; return PutShortEscape(out, 'n');
    case '\r': ++position; return PutShortEscape(out, 'r');
    case '\t': ++position; return PutShortEscape(out, 't');
    default: break;
  }
  if (byte < 0x20) {
    ++position;
    return PutUnicodeEscape(out, byte);
  }
  const unsigned point = DecodeSequence(position, end);
  ++position;
  if (point < 0x10000) return PutUnicodeEscape(out, point);
  // Above the basic plane: a surrogate pair, with jsoncpp's masks also for
  // the points beyond U+10FFFF that a lenient four-byte read can give.
  const unsigned offset = point - 0x10000;
  out = PutUnicodeEscape(out, 0xD800 + ((offset >> 10) & 0x3FF));
  return PutUnicodeEscape(out, 0xDC00 + (offset & 0x3FF));
}

// Writes `value` quoted; `out` has room for kMaxEscapedBytes per byte and
// the quotes.
char* PutQuoted(char* out, std::string_view value) {
  const auto* position = reinterpret_cast<const unsigned char*>(value.data());
  const auto* end = position + value.size();
  *out++ = '"';
  while (position != end) {
    if (kPlain.plain[*position]) {
      *out++ = static_cast<char>(*position++);
    } else {
      out = PutEscaped(out, position, end);
    }
  }
  *out++ = '"';
  return out;
}

std::size_t QuotedRoom(std::string_view value) { return value.size() * kMaxEscapedBytes + 2; }

}  // namespace

void AppendQuotedString(std::string& out, std::string_view value) {
  const std::size_t size = out.size();
  out.resize(size + QuotedRoom(value));
  char* end = PutQuoted(out.data() + size, value);
  out.resize(static_cast<std::size_t>(end - out.data()));
}

JsonWriter::JsonWriter(std::ostream& out) : out(out) {}

void JsonWriter::BeginObject() { Open('{'); }

void JsonWriter::EndObject() { Close('}'); }

void JsonWriter::BeginArray() { Open('['); }

void JsonWriter::EndArray() { Close(']'); }

void JsonWriter::Key(std::string_view key) {
  char* cursor = Reserve(QuotedRoom(key) + 2);
  if (afterValue) *cursor++ = ',';
  cursor = PutQuoted(cursor, key);
  *cursor++ = ':';
  afterValue = false;
  Commit(cursor);
}

void JsonWriter::String(std::string_view value) {
  char* cursor = Reserve(QuotedRoom(value) + 1);
  if (afterValue) *cursor++ = ',';
  End(PutQuoted(cursor, value));
}

void JsonWriter::UInt64(std::uint64_t value) {
  char* cursor = Reserve(kMaxNumberBytes + 1);
  if (afterValue) *cursor++ = ',';
  End(std::to_chars(cursor, cursor + kMaxNumberBytes, value).ptr);
}

void JsonWriter::Int64(std::int64_t value) {
  char* cursor = Reserve(kMaxNumberBytes + 1);
  if (afterValue) *cursor++ = ',';
  End(std::to_chars(cursor, cursor + kMaxNumberBytes, value).ptr);
}

void JsonWriter::Null() {
  char* cursor = Reserve(5);
  if (afterValue) *cursor++ = ',';
  for (const char letter : {'n', 'u', 'l', 'l'}) *cursor++ = letter;
  End(cursor);
}

void JsonWriter::Flush() {
  if (used == 0) return;
  std::size_t first = 0;
  if (!started) {
    // jsoncpp writes its first token, one bracket, as formatted output.
    out << std::string_view(buffer.get(), 1);
    first = 1;
    started = true;
  }
  out.write(buffer.get() + first, static_cast<std::streamsize>(used - first));
  used = 0;
}

void JsonWriter::Open(char bracket) {
  char* cursor = Reserve(2);
  if (afterValue) *cursor++ = ',';
  *cursor++ = bracket;
  afterValue = false;
  Commit(cursor);
}

void JsonWriter::Close(char bracket) {
  char* cursor = Reserve(1);
  *cursor++ = bracket;
  End(cursor);
}

char* JsonWriter::Reserve(std::size_t bytes) {
  if (capacity - used < bytes) {
    const std::size_t grown = std::max({used + bytes, 2 * capacity, kInitialCapacity});
    std::unique_ptr<char[]> larger(new char[grown]);
    std::copy(buffer.get(), buffer.get() + used, larger.get());
    buffer = std::move(larger);
    capacity = grown;
  }
  return buffer.get() + used;
}

void JsonWriter::Commit(char* cursor) { used = static_cast<std::size_t>(cursor - buffer.get()); }

void JsonWriter::End(char* cursor) {
  Commit(cursor);
  afterValue = true;
  if (used >= kChunk) Flush();
}

}  // namespace NuvikPrediction
