#include "vidloom/compositing/PlacementIndex.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace vidloom {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

PlacementIndex::Span PlacementIndex::spanOf(const CMTimeRange& range) {
  const double start = CMTimeGetSeconds(range.start);
  return {start, start + CMTimeGetSeconds(range.duration)};
}

void PlacementIndex::Row::add(const Span& span) {
  const auto next = std::lower_bound(ordered_.begin(), ordered_.end(), span,
                                     [](const Span& a, const Span& b) { return a.startSeconds < b.startSeconds; });
  const bool fits = span.startSeconds <= span.endSeconds && (next == ordered_.end() || span.endSeconds < next->startSeconds) &&
                    (next == ordered_.begin() || std::prev(next)->endSeconds < span.startSeconds);
  if (fits)
    ordered_.insert(next, span);
  else
    unordered_.push_back(span);
}

bool PlacementIndex::Row::hasRoom(const Span& span) const {
  // Of the spans that do not start behind the new one, the last also ends last.
  const auto behind = std::upper_bound(ordered_.begin(), ordered_.end(), span.endSeconds,
                                       [](double end, const Span& other) { return end < other.startSeconds; });
  if (behind != ordered_.begin() && !(std::prev(behind)->endSeconds < span.startSeconds)) return false;
  return std::all_of(unordered_.begin(), unordered_.end(), [&](const Span& other) { return leaveRoom(other, span); });
}

PlacementIndex::Summary PlacementIndex::nothing() { return {kInfinity, -kInfinity, false}; }

PlacementIndex::Summary PlacementIndex::join(const Summary& a, const Summary& b) {
  return {std::min(a.earliestLastEnd, b.earliestLastEnd), std::max(a.latestStart, b.latestStart), a.hasEmptyRow || b.hasEmptyRow};
}

bool PlacementIndex::Summary::rulesOut(const Span& span) const {
  return !hasEmptyRow && !(earliestLastEnd < span.startSeconds) && !(latestStart > span.endSeconds);
}

size_t PlacementIndex::addRow() {
  if (rows_.size() == capacity_) grow();
  rows_.emplace_back();
  const size_t row = rows_.size() - 1;
  tree_[capacity_ + row] = {-kInfinity, -kInfinity, true};
  refresh(row);
  return row;
}

void PlacementIndex::occupy(size_t row, const Span& span) {
  Summary& leaf = tree_[capacity_ + row];
  rows_[row].add(span);
  leaf.earliestLastEnd = std::max(leaf.earliestLastEnd, std::isnan(span.endSeconds) ? kInfinity : span.endSeconds);
  leaf.latestStart = std::max(leaf.latestStart, std::isnan(span.startSeconds) ? -kInfinity : span.startSeconds);
  leaf.hasEmptyRow = false;
  refresh(row);
}

void PlacementIndex::grow() {
  const size_t larger = capacity_ == 0 ? 4 : 2 * capacity_;
  std::vector<Summary> tree(2 * larger, nothing());
  std::copy(tree_.begin() + static_cast<std::ptrdiff_t>(capacity_), tree_.end(),
            tree.begin() + static_cast<std::ptrdiff_t>(larger));
  for (size_t node = larger - 1; node > 0; --node) tree[node] = join(tree[2 * node], tree[2 * node + 1]);
  tree_ = std::move(tree);
  capacity_ = larger;
}

void PlacementIndex::refresh(size_t row) {
  for (size_t node = (capacity_ + row) / 2; node > 0; node /= 2) {
    const Summary summary = join(tree_[2 * node], tree_[2 * node + 1]);
    if (summary == tree_[node]) return;
    tree_[node] = summary;
  }
}

std::optional<size_t> PlacementIndex::search(size_t node, const Span& span) const {
  if (tree_[node].rulesOut(span)) return std::nullopt;
  if (node >= capacity_) {
    const size_t row = node - capacity_;
    return rows_[row].hasRoom(span) ? std::optional<size_t>(row) : std::nullopt;
  }
  if (const auto left = search(2 * node, span)) return left;
  return search(2 * node + 1, span);
}

std::optional<size_t> PlacementIndex::firstRowWithRoom(const Span& span) const {
  return capacity_ == 0 ? std::nullopt : search(1, span);
}

}  // namespace vidloom
