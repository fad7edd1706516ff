// Compact JSON text written straight to a stream, without building a tree.
#ifndef NUVIK_JSON_WRITER_H_
#define NUVIK_JSON_WRITER_H_

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

namespace NuvikPrediction {

// Writes exactly the bytes that jsoncpp 1.9.5 writes for the same value with
// a Json::StreamWriterBuilder whose "indentation" is "" and whose other
// settings are the defaults: no whitespace, integers in decimal, strings
// quoted as AppendQuotedString does. jsoncpp writes object members in
// byte-wise key order; callers give the members in that order. Nothing is
// checked: the caller opens and closes what it writes and puts a key before
// every member value.
//
// Text collects in a buffer that goes to the stream in large chunks; Flush
// hands over the rest and must end every document (the destructor does not).
// The first byte, the opening bracket, goes out as formatted output, as
// jsoncpp writes it: a field width set on the stream pads it and is then
// reset. Stream errors show only in the stream's state.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out);
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;

  void BeginObject();
  void EndObject();
  void BeginArray();
  void EndArray();
  // Starts the next member of the enclosing object; its value follows.
  void Key(std::string_view key);
  void String(std::string_view value);
  void UInt64(std::uint64_t value);
  void Int64(std::int64_t value);
  void Null();
  // Writes everything buffered to the stream.
  void Flush();

 private:
  // Writes a bracket that opens, or closes, an object or an array.
  void Open(char bracket);
  void Close(char bracket);
  // Room for `bytes` more bytes, growing the buffer when it lacks it.
  char* Reserve(std::size_t bytes);
  // Keeps what was written up to `cursor`.
  void Commit(char* cursor);
  // Keeps a value written up to `cursor`; the next one needs a comma.
  void End(char* cursor);

  std::ostream& out;
  std::unique_ptr<char[]> buffer;
  std::size_t capacity = 0;
  std::size_t used = 0;
  bool afterValue = false;
  bool started = false;
};

// An array that is written as null when no element goes in, as jsoncpp
// writes a Json::Value that was never given an element.
class ArrayOrNull {
 public:
  explicit ArrayOrNull(JsonWriter& out) : out(out) {}

  // Opens the array at the first call; the caller then writes the element.
  JsonWriter& Element() {
    if (!open) out.BeginArray();
    open = true;
    return out;
  }
  // Closes the array, or writes null when there was no element.
  void End() {
    if (open) {
      out.EndArray();
    } else {
      out.Null();
    }
  }

 private:
  JsonWriter& out;
  bool open = false;
};

// Writes a dictionary: {"app": name, "id": id} per entry of `names` (a map
// in name order), null when it is empty. `idOf` gives an entry's id as the
// unsigned 64-bit JSON integer.
template <typename Names, typename IdOf>
void WriteDictionary(JsonWriter& out, const Names& names, IdOf idOf) {
  ArrayOrNull dictionary(out);
  for (const auto& entry : names) {
    dictionary.Element().BeginObject();
    out.Key("app");
    out.String(entry.first);
    out.Key("id");
    out.UInt64(idOf(entry.second));
    out.EndObject();
  }
  dictionary.End();
}

// Appends `value` as a quoted JSON string, as jsoncpp does with "emitUTF8"
// off: '"', '\\' and the controls \b \f \n \r \t get their short escapes,
// other bytes below 0x20 become \u00XX (lowercase hex), ASCII stays as it
// is, and a byte from 0x80 on starts a UTF-8 sequence decoded into a code
// point written as \uXXXX, or as a surrogate pair above U+FFFF. A sequence
// is read leniently: its length comes from the first byte alone (0x80-0xDF
// two bytes, 0xE0-0xEF three, 0xF0-0xF7 four), the continuation bytes give
// their low six bits whatever they are, and U+FFFD replaces an overlong
// form, a surrogate, a first byte from 0xF8 on and a sequence cut short by
// the end of the string; the last two consume one byte only.
void AppendQuotedString(std::string& out, std::string_view value);

}  // namespace NuvikPrediction

#endif  // NUVIK_JSON_WRITER_H_
