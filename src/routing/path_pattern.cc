#include "routing/path_pattern.h"

#include <cstdint>
#include <utility>

namespace kav {
namespace {

bool InGroup(PathPattern::Group group, char c) {
  return group == PathPattern::Group::kPlain ? c != '/' : c != '\n' && c != '\r';
}

bool LiteralAt(std::string_view path, size_t at, std::string_view literal) {
  return at <= path.size() && path.size() - at >= literal.size() &&
         path.compare(at, literal.size(), literal) == 0;
}

}  // namespace

PathPattern::PathPattern(std::vector<std::string> literals, std::vector<Group> groups)
    : literals_(std::move(literals)), groups_(std::move(groups)) {}

// With groups 0 .. k-1, literal j + 1 following group j: tail[j][p] says
// whether groups j .. k-1 and their literals match path[p, n) exactly. It
// is filled from the last group back, each row from the end of the path
// back, tracking the nearest position where group j may end (its literal
// follows and the rest matches) and the farthest position group j can
// reach. The captures are then read forwards, each group taking the
// farthest end that still lets the rest match: the greedy choice.
bool PathPattern::Match(std::string_view path, std::vector<Capture>& captures) const {
  captures.clear();
  const size_t n = path.size();
  const size_t k = groups_.size();
  if (!LiteralAt(path, 0, literals_[0])) return false;
  if (k == 0) return n == literals_[0].size();

  const size_t width = n + 1;
  std::vector<uint8_t> tail(k * width, 0);
  // Whether group j may end at q: its literal is at q and the rest matches.
  auto ends_at = [&](size_t j, size_t q) {
    const std::string& literal = literals_[j + 1];
    if (!LiteralAt(path, q, literal)) return false;
    const size_t next = q + literal.size();
    return j + 1 == k ? next == n : tail[(j + 1) * width + next] != 0;
  };
  for (size_t j = k; j-- > 0;) {
    constexpr size_t kNone = SIZE_MAX;
    size_t nearest_end = kNone;
    size_t reach = n;  // the farthest end of group j started at p
    for (size_t p = n + 1; p-- > 0;) {
      if (ends_at(j, p)) nearest_end = p;
      if (p < n && !InGroup(groups_[j], path[p])) reach = p;
      tail[j * width + p] = nearest_end != kNone && nearest_end <= reach;
    }
  }

  size_t p = literals_[0].size();
  if (tail[p] == 0) return false;
  captures.resize(k);
  for (size_t j = 0; j < k; ++j) {
    size_t reach = p;
    while (reach < n && InGroup(groups_[j], path[reach])) ++reach;
    size_t end = reach;
    while (!ends_at(j, end)) --end;  // tail[j][p] promises one in [p, reach]
    captures[j] = Capture{p, end - p};
    p = end + literals_[j + 1].size();
  }
  return true;
}

}  // namespace kav
