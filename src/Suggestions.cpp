#include "nuvik/Suggestions.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <istream>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>

#include <json/json.h>

#include "ByteEscape.h"

namespace NuvikPrediction {

namespace {

constexpr std::uint64_t kDocumentVersion = 1;
constexpr std::size_t kNoSlot = std::numeric_limits<std::size_t>::max();
constexpr std::size_t kMinTableSize = 16;

// NameEntry flags.
constexpr unsigned kUsed = 1;
constexpr unsigned kExcluded = 2;
constexpr unsigned kInstalled = 4;
constexpr unsigned kCandidate = 8;  // met among the candidates

std::size_t SaturatingSum(std::initializer_list<std::size_t> terms) {
  std::size_t sum = 0;
  for (const std::size_t term : terms) {
    sum = term > std::numeric_limits<std::size_t>::max() - sum ? std::numeric_limits<std::size_t>::max() : sum + term;
  }
  return sum;
}

void AppendNames(std::string& out, const char* key, const std::vector<std::string>& names, bool reversed) {
  out += key;
  out += '[';
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i != 0) out += ',';
    AppendByteEscapedString(out, names[reversed ? names.size() - 1 - i : i]);
  }
  out += ']';
}

bool ReadNames(const Json::Value& list, std::vector<std::string>& names) {
  if (!list.isArray()) return false;
  for (const Json::Value& name : list) {
    if (!name.isString()) return false;
    names.push_back(name.asString());
    RestoreEscapedBytes(names.back());
  }
  return true;
}

bool ReadDocument(const std::string& text, std::vector<std::string>& dismissed, std::vector<std::string>& row) {
  // One object and nothing after it: no comments, no repeated keys.
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &root, &errors)) return false;
  } catch (const Json::Exception&) {  // nesting deeper than the reader's limit
    return false;
  }
  const Json::Value& document = root;  // const: looking a key up adds no member
  if (!document.isObject()) return false;
  const Json::Value& version = document["version"];
  return version.isUInt64() && version.asUInt64() == kDocumentVersion &&
         ReadNames(document["dismissed"], dismissed) && ReadNames(document["row"], row);
}

}  // namespace

void Suggestions::NameTable::Reset(std::size_t names) {
  std::size_t size = kMinTableSize;
  while (size / 2 < names) size *= 2;
  entries_.assign(size, NameEntry{});
  size_ = 0;
}

Suggestions::NameEntry& Suggestions::NameTable::Get(std::string_view name) {
  if (2 * (size_ + 1) > entries_.size()) {
    // At most half full: twice the size, and every entry moved.
    spare_.assign(std::max(2 * entries_.size(), kMinTableSize), NameEntry{});
    for (const NameEntry& entry : entries_) {
      if (entry.flags != 0) Probe(spare_, entry.name) = entry;
    }
    entries_.swap(spare_);
  }
  NameEntry& entry = Probe(entries_, name);
  if (entry.flags == 0) {
    entry = NameEntry{name, kNoSlot, kUsed};
    ++size_;
  }
  return entry;
}

Suggestions::NameEntry& Suggestions::NameTable::Probe(std::vector<NameEntry>& entries, std::string_view name) {
  const std::size_t mask = entries.size() - 1;
  std::size_t index = std::hash<std::string_view>()(name) & mask;
  while (entries[index].flags != 0 && entries[index].name != name) index = (index + 1) & mask;
  return entries[index];
}

std::vector<std::string> Suggestions::Row(const Nuvik& model, const std::tm& now, const RowRequest& request) {
  std::vector<std::string> row;
  if (request.count != 0) {
    // A prefix that settles the row unless `installed` leaves out more names
    // or an application of the previous row ranks further down: room for the
    // newcomers, the previous row and every name that exclusion, dismissal or
    // emptiness leaves out.
    const std::size_t previous = request.stable ? std::min(previousRow_.size(), request.count) : 0;
    const std::size_t reach = SaturatingSum({request.count, previous, request.exclude.size(), dismissed_.size(), 1});
    const std::vector<std::string> prefix = model.GetNextAt(now, reach);
    if (!MakeRow(prefix, prefix.size() < reach, request, row)) MakeRow(model.GetNextAt(now), true, request, row);
  }
  previousRow_.assign(row.begin(), row.end());
  return row;
}

std::vector<std::string> Suggestions::Row(const std::vector<std::string>& ranking, const RowRequest& request) {
  std::vector<std::string> row;
  MakeRow(ranking, true, request, row);
  previousRow_.assign(row.begin(), row.end());
  return row;
}

bool Suggestions::MakeRow(const std::vector<std::string>& ranking, bool whole, const RowRequest& request,
                          std::vector<std::string>& row) {
  const std::size_t count = request.count;
  const std::size_t previous = request.stable ? std::min(previousRow_.size(), count) : 0;
  // The row never holds more than the candidates, so more slots change nothing.
  const std::size_t slots = std::min(count, previous + ranking.size() + request.fallback.size());
  const bool anyInstalled = !request.installed.empty();

  names_.Reset(request.exclude.size() + request.installed.size() + previous + slots);
  for (const std::string& app : request.exclude) names_.Get(app).flags |= kExcluded;
  for (const std::string& app : request.installed) names_.Get(app).flags |= kInstalled;

  // The previous row's applications that may keep their slots, awaited
  // among the candidates.
  slots_.assign(slots, Ranked{nullptr, 0});
  std::size_t awaited = 0;
  for (std::size_t slot = 0; slot < previous; ++slot) {
    const std::string& app = previousRow_[slot];
    NameEntry& entry = names_.Get(app);
    if (entry.previousSlot != kNoSlot || !IsEligible(app, entry, anyInstalled)) continue;
    entry.previousSlot = slot;
    ++awaited;
  }

  newcomers_.clear();
  std::size_t candidates = 0;
  const auto settled = [&] { return newcomers_.size() == count && awaited == 0; };
  const auto meet = [&](const std::string& app) {
    NameEntry& entry = names_.Get(app);
    if ((entry.flags & kCandidate) != 0 || !IsEligible(app, entry, anyInstalled)) return;
    entry.flags |= kCandidate;
    const Ranked candidate{&app, candidates++};
    if (entry.previousSlot != kNoSlot) {
      slots_[entry.previousSlot] = candidate;
      --awaited;
    } else if (newcomers_.size() < count) {
      newcomers_.push_back(candidate);
    }
  };
  for (auto app = ranking.begin(); app != ranking.end() && !settled(); ++app) meet(*app);
  if (!whole && !settled()) return false;
  for (auto app = request.fallback.begin(); app != request.fallback.end() && !settled(); ++app) meet(*app);

  // Kept applications give up their slots from the one ranked last.
  keptSlots_.clear();
  for (std::size_t slot = 0; slot < slots; ++slot) {
    if (slots_[slot].name != nullptr) keptSlots_.push_back(slot);
  }
  std::sort(keptSlots_.begin(), keptSlots_.end(),
            [this](std::size_t a, std::size_t b) { return slots_[a].rank > slots_[b].rank; });
  std::size_t freeSlot = 0;
  std::size_t evicted = 0;
  for (const Ranked& newcomer : newcomers_) {
    while (freeSlot < slots && slots_[freeSlot].name != nullptr) ++freeSlot;
    if (freeSlot < slots) {
      slots_[freeSlot] = newcomer;
      continue;
    }
    if (evicted == keptSlots_.size()) break;
    Ranked& kept = slots_[keptSlots_[evicted]];
    if (kept.rank < newcomer.rank + kStableMargin) break;
    kept = newcomer;
    ++evicted;
  }

  row.clear();
  for (const Ranked& slot : slots_) {
    if (slot.name != nullptr) row.push_back(*slot.name);
  }
  return true;
}

bool Suggestions::IsEligible(const std::string& app, const NameEntry& entry, bool anyInstalled) const {
  return !app.empty() && (entry.flags & kExcluded) == 0 && (!anyInstalled || (entry.flags & kInstalled) != 0) &&
         dismissedNames_.count(app) == 0;
}

void Suggestions::Dismiss(const std::string& app) {
  if (dismissedNames_.insert(app).second) {
    dismissed_.push_back(app);
    return;
  }
  const auto position = std::find(dismissed_.begin(), dismissed_.end(), app);
  std::rotate(position, position + 1, dismissed_.end());
}

void Suggestions::Restore(const std::string& app) {
  if (dismissedNames_.erase(app) == 0) return;
  dismissed_.erase(std::find(dismissed_.begin(), dismissed_.end(), app));
}

std::vector<std::string> Suggestions::Dismissed() const { return {dismissed_.rbegin(), dismissed_.rend()}; }

void Suggestions::ClearDismissed() {
  dismissed_.clear();
  dismissedNames_.clear();
}

std::ostream& Suggestions::SerializeJson(std::ostream& os) const {
  std::string text = "{";
  AppendNames(text, "\"dismissed\":", dismissed_, true);
  AppendNames(text, ",\"row\":", previousRow_, false);
  text += ",\"version\":" + std::to_string(kDocumentVersion) + "}";
  return os.write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::istream& Suggestions::DeserializeJson(std::istream& is) {
  const std::string text{std::istreambuf_iterator<char>(is), std::istreambuf_iterator<char>()};
  std::vector<std::string> dismissed;  // most recent first
  std::vector<std::string> row;
  if (!ReadDocument(text, dismissed, row)) {
    is.setstate(std::ios_base::badbit);
    return is;
  }
  // A name listed twice was last dismissed where it comes first.
  std::unordered_set<std::string> dismissedNames;
  std::vector<std::string> leastRecentFirst;
  for (std::string& app : dismissed) {
    if (dismissedNames.insert(app).second) leastRecentFirst.push_back(std::move(app));
  }
  std::reverse(leastRecentFirst.begin(), leastRecentFirst.end());
  dismissed_.swap(leastRecentFirst);
  dismissedNames_.swap(dismissedNames);
  previousRow_.swap(row);
  return is;
}

std::ostream& operator<<(std::ostream& os, const Suggestions& suggestions) { return suggestions.SerializeJson(os); }

std::istream& operator>>(std::istream& is, Suggestions& suggestions) { return suggestions.DeserializeJson(is); }

}  // namespace NuvikPrediction
