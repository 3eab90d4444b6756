// Finds the first of a list of composition tracks that has room for a range.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "vidloom/platform/coremedia/CMTimeRange.h"

namespace vidloom {

/// Rows stand for composition tracks, spans for what lies on them. Two spans leave each other room only where one ends, in seconds,
/// strictly before the other starts: spans that touch do not, nor does one that is not a number.
/// Answers are those of looking at every span of every row in order, for any spans; they cost the logarithm of the number of rows
/// as long as a span's row is decided by what ends before it.
class PlacementIndex {
 public:
  struct Span {
    double startSeconds;
    double endSeconds;
  };
  static Span spanOf(const CMTimeRange& range);
  static bool leaveRoom(const Span& a, const Span& b) { return a.endSeconds < b.startSeconds || b.endSeconds < a.startSeconds; }

  /// Adds an empty row behind the others and returns its number.
  size_t addRow();
  void occupy(size_t row, const Span& span);
  std::optional<size_t> firstRowWithRoom(const Span& span) const;

 private:
  class Row {
   public:
    void add(const Span& span);
    bool hasRoom(const Span& span) const;

   private:
    std::vector<Span> ordered_;    // by start; the ends grow too
    std::vector<Span> unordered_;  // what ends before it starts, is not a number, or overlaps
  };
  /// What is known of a stretch of rows: enough to rule out that any of them has room.
  struct Summary {
    double earliestLastEnd;
    double latestStart;
    bool hasEmptyRow;
    bool rulesOut(const Span& span) const;
    friend bool operator==(const Summary&, const Summary&) = default;
  };
  static Summary nothing();
  static Summary join(const Summary& a, const Summary& b);
  void grow();
  void refresh(size_t row);
  std::optional<size_t> search(size_t node, const Span& span) const;

  std::vector<Row> rows_;
  std::vector<Summary> tree_;  // node n has the children 2n and 2n + 1; the leaves begin at capacity_
  size_t capacity_ = 0;
};

}  // namespace vidloom
