// A read-only view of a value parsed by simdjson that answers the questions
// the document readers ask exactly as a const Json::Value of the same text
// would, for documents DomDocument accepts (integers only, unique keys).
//
// Where Json::Value would throw (member lookup on a bare value, a conversion
// it does not model) the view instead marks its document as unsupported and
// answers as a null value would; the caller then discards what it read and
// reads the text again with jsoncpp.
#ifndef NUVIK_DOM_VALUE_H_
#define NUVIK_DOM_VALUE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include <simdjson.h>

namespace NuvikPrediction {

class DomValue {
 public:
  using ArrayIndex = unsigned int;  // Json::ArrayIndex

  class const_iterator {
   public:
    const_iterator(simdjson::dom::array::iterator position, bool* unsupported)
        : position_(position), unsupported_(unsupported) {}
    DomValue operator*() const { return DomValue(*position_, unsupported_); }
    const_iterator& operator++() {
      ++position_;
      return *this;
    }
    bool operator!=(const const_iterator& other) const { return position_ != other.position_; }

   private:
    simdjson::dom::array::iterator position_;
    bool* unsupported_;
  };

  // A null value.
  explicit DomValue(bool* unsupported) : unsupported_(unsupported) {}
  DomValue(simdjson::dom::element element, bool* unsupported)
      : element_(element), type_(element.type()), unsupported_(unsupported) {}

  bool isNull() const { return type_ == Type::NULL_VALUE; }
  bool isObject() const { return type_ == Type::OBJECT; }
  bool isArray() const { return type_ == Type::ARRAY; }
  bool isString() const { return type_ == Type::STRING; }
  bool isUInt64() const {
    return type_ == Type::UINT64 || (type_ == Type::INT64 && element_.get_int64().value_unsafe() >= 0);
  }
  // Null, an empty array or an empty object.
  bool empty() const {
    if (isArray()) return Array().begin() == Array().end();
    if (isObject()) return Object().begin() == Object().end();
    return isNull();
  }
  // Elements of an array, members of an object, 0 for anything else.
  ArrayIndex size() const {
    if (!isArray() && !isObject()) return 0;
    // simdjson's counts saturate at kSaturatedCount.
    const std::size_t counted = isArray() ? Array().size() : Object().size();
    if (counted < kSaturatedCount) return static_cast<ArrayIndex>(counted);
    ArrayIndex count = 0;
    if (isArray()) {
      for (auto it = Array().begin(); it != Array().end(); ++it) ++count;
    } else {
      for (auto it = Object().begin(); it != Object().end(); ++it) ++count;
    }
    return count;
  }

  std::uint64_t asUInt64() const {
    if (type_ == Type::UINT64) return element_.get_uint64().value_unsafe();
    if (isUInt64()) return static_cast<std::uint64_t>(element_.get_int64().value_unsafe());
    return Unsupported(), 0;
  }
  std::string asString() const {
    if (isString()) return std::string(element_.get_string().value_unsafe());
    return Unsupported(), std::string();
  }

  // The element at `index` of an array; null past the end or on null.
  DomValue operator[](ArrayIndex index) const {
    if (!isArray()) return isNull() ? DomValue(unsupported_) : Unsupported();
    for (const simdjson::dom::element element : Array()) {
      if (index-- == 0) return DomValue(element, unsupported_);
    }
    return DomValue(unsupported_);
  }
  // The member `key` of an object; null when absent or on null.
  DomValue operator[](std::string_view key) const {
    if (!isObject()) return isNull() ? DomValue(unsupported_) : Unsupported();
    simdjson::dom::element member;
    if (Object().at_key(key).get(member) != simdjson::SUCCESS) return DomValue(unsupported_);
    return DomValue(member, unsupported_);
  }
  bool isMember(std::string_view key) const {
    if (!isObject()) return isNull() ? false : (Unsupported(), false);
    return Object().at_key(key).error() == simdjson::SUCCESS;
  }

  // Iteration over the elements of an array; nothing on null.
  const_iterator begin() const { return const_iterator(IsIterable() ? Array().begin() : Position(), unsupported_); }
  const_iterator end() const { return const_iterator(IsIterable() ? Array().end() : Position(), unsupported_); }

 private:
  using Type = simdjson::dom::element_type;
  using Position = simdjson::dom::array::iterator;  // default-constructed ones compare equal
  static constexpr std::size_t kSaturatedCount = 0xFFFFFF;

  bool IsIterable() const {
    if (!isArray() && !isNull()) Unsupported();
    return isArray();
  }
  simdjson::dom::array Array() const { return element_.get_array().value_unsafe(); }
  simdjson::dom::object Object() const { return element_.get_object().value_unsafe(); }
  DomValue Unsupported() const {
    *unsupported_ = true;
    return DomValue(unsupported_);
  }

  simdjson::dom::element element_;
  Type type_ = Type::NULL_VALUE;
  bool* unsupported_;
};

}  // namespace NuvikPrediction

#endif  // NUVIK_DOM_VALUE_H_
