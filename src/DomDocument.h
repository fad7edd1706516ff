// simdjson in front of jsoncpp: parses a document only when the result is
// provably what jsoncpp's default reader makes of the same text.
#ifndef NUVIK_DOM_DOCUMENT_H_
#define NUVIK_DOM_DOCUMENT_H_

#include <string>

#include <simdjson.h>

#include "DomValue.h"

namespace NuvikPrediction {

class DomDocument {
 public:
  DomDocument() = default;
  DomDocument(const DomDocument&) = delete;
  DomDocument& operator=(const DomDocument&) = delete;

  // Parses `text`. False, leaving the text to jsoncpp, unless simdjson accepts
  // it whole (which excludes comments, trailing commas, text after the root,
  // invalid UTF-8, raw control characters in strings, lone surrogates and a
  // byte order mark), it nests at most kMaxDepth levels, every number in it
  // is an integer of 64 bits and no object repeats a key.
  bool Parse(const std::string& text);
  // The root value; only after Parse returned true.
  DomValue Root() { return DomValue(root_, &unsupported_); }
  // True once a reader asked a value of this document something that only
  // jsoncpp answers (typically by throwing): what was read is then void.
  bool unsupported() const { return unsupported_; }

  // Far below jsoncpp's limit of 1000, far above any document written.
  static constexpr std::size_t kMaxDepth = 64;
  // Spare capacity after the text that spares simdjson a padded copy.
  static constexpr std::size_t kPadding = simdjson::SIMDJSON_PADDING;

 private:
  simdjson::dom::parser parser_;
  simdjson::dom::element root_;
  bool unsupported_ = false;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_DOM_DOCUMENT_H_
