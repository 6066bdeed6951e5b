// PathPattern: the matcher of a path template's expression.
//
// A template's expression is a run of literal texts with one capture group
// between each two: "([^/]*)" for a plain part (any characters but "/") and
// "(.*)" for a rest or fragment part (any characters but line feed and
// carriage return, as "." is in an ECMAScript expression; a fragment part's
// "#" belongs to the literal before its group). Matching gives the result of
// a full match by a backtracking ECMAScript engine - among all ways to match
// the whole path, the one whose first group is longest, then whose second
// group is longest, and so on - in time and memory linear in the path's
// length for a given template, with no recursion. (Backtracking engines
// recurse once per character and can take exponential time, so a long or
// hostile URL could exhaust the stack or stall the call.)
//
// Thread-safety: immutable once built; Match may run concurrently.
#ifndef KAV_ROUTING_PATH_PATTERN_H_
#define KAV_ROUTING_PATH_PATTERN_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kav {

class PathPattern {
 public:
  enum class Group { kPlain, kRest };

  // A pattern of `literals` (one more than `groups`) around `groups`.
  // REQUIRES: literals.size() == groups.size() + 1.
  PathPattern(std::vector<std::string> literals, std::vector<Group> groups);

  // One captured group: its offset and length in the path.
  struct Capture {
    size_t offset = 0;
    size_t length = 0;
  };

  // Whether the pattern matches all of `path`; on a match `captures` holds
  // one entry per group.
  bool Match(std::string_view path, std::vector<Capture>& captures) const;

  size_t group_count() const { return groups_.size(); }

 private:
  std::vector<std::string> literals_;
  std::vector<Group> groups_;
};

}  // namespace kav

#endif  // KAV_ROUTING_PATH_PATTERN_H_
