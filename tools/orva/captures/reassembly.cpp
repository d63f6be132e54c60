// SPDX-License-Identifier: Apache-2.0
#include "captures/reassembly.h"

#include <algorithm>
#include <utility>

namespace orva {
namespace {

constexpr size_t kLongest = 65535 - 20;  ///< bytes behind the shortest IPv4 header
constexpr size_t kUnit = 8;              ///< bytes in which offsets count

/// Could any sender have made this?
bool IsPlausible(const Fragment& fragment) {
  return !fragment.bytes.empty() && fragment.offset % kUnit == 0 &&
         fragment.offset + fragment.bytes.size() <= kLongest &&
         (!fragment.more || fragment.bytes.size() % kUnit == 0);
}

}  // namespace

std::optional<Reassembly::Whole> Reassembly::Add(const Fragment& fragment) {
  while (!waiting_.empty() && fragment.time_ns - waiting_.front().since_ns > limits_.patience_ns) {
    Drop(waiting_.begin());
  }
  if (!IsPlausible(fragment)) {
    ++lost_;
    return std::nullopt;
  }
  auto found = std::find_if(waiting_.begin(), waiting_.end(),
                            [&](const Waiting& waiting) { return waiting.key == fragment.key; });
  if (found == waiting_.end()) {
    if (waiting_.size() >= limits_.datagrams) Drop(waiting_.begin());
    found = waiting_.insert(waiting_.end(), {fragment.key, fragment.time_ns});
  }
  switch (Compare(*found, fragment)) {
    case Fit::kRepeated:
      ++repeated_;
      return std::nullopt;
    case Fit::kContradicts:
      ++lost_;
      Drop(found);
      return std::nullopt;
    case Fit::kNew:
      break;
  }
  Append(*found, fragment);
  if (found->size && found->present == *found->size) {
    Whole whole = std::move(found->whole);
    bytes_ -= whole.bytes.size();
    waiting_.erase(found);
    return whole;
  }
  while (bytes_ > limits_.bytes) Drop(waiting_.begin());
  return std::nullopt;
}

void Reassembly::GiveUp() {
  while (!waiting_.empty()) Drop(waiting_.begin());
}

Reassembly::Fit Reassembly::Compare(const Waiting& waiting, const Fragment& fragment) {
  const Range range = {fragment.offset, fragment.offset + fragment.bytes.size()};
  const size_t highest = waiting.whole.bytes.size();
  for (const Range& known : waiting.ranges) {
    if (range.end <= known.begin || known.end <= range.begin) continue;
    const bool same = range.begin == known.begin && range.end == known.end &&
                      std::equal(fragment.bytes.begin(), fragment.bytes.end(),
                                 waiting.whole.bytes.begin() + static_cast<std::ptrdiff_t>(range.begin));
    return same ? Fit::kRepeated : Fit::kContradicts;
  }
  const bool beyond = waiting.size && (range.end > *waiting.size || !fragment.more);
  const bool cuts_short = !fragment.more && highest > range.end;
  return beyond || cuts_short ? Fit::kContradicts : Fit::kNew;
}

void Reassembly::Append(Waiting& waiting, const Fragment& fragment) {
  std::vector<uint8_t>& bytes = waiting.whole.bytes;
  const size_t end = fragment.offset + fragment.bytes.size();
  if (bytes.size() < end) {
    bytes_ += end - bytes.size();
    bytes.resize(end);
  }
  std::copy(fragment.bytes.begin(), fragment.bytes.end(),
            bytes.begin() + static_cast<std::ptrdiff_t>(fragment.offset));
  waiting.ranges.push_back({fragment.offset, end});
  waiting.present += fragment.bytes.size();
  ++waiting.whole.fragments;
  if (!fragment.more) waiting.size = end;
}

void Reassembly::Drop(Position position) {
  lost_ += position->whole.fragments;
  bytes_ -= position->whole.bytes.size();
  waiting_.erase(position);
}

}  // namespace orva
