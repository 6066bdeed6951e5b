// Budgets on what the texts of one call may make the dispatcher build.
//
// An index path (the rest of a query or header key after the parameter's
// name and a ".", as in "ids.3" or "filter.name") creates the elements and
// members it names. A few bytes of query could otherwise ask for gigabytes,
// so per call:
//   * an index is at most kMaxArgumentIndex ("Index %1 is out of range");
//   * a path has at most kMaxIndexPathSegments segments
//     ("Index path '%1' has more than %2 segments");
//   * all index paths together create at most kMaxIndexPathElements
//     collection elements and structure members
//     ("Index path '%1' goes beyond the %2 elements that index paths may
//     create in one call"),
// where '%1' is the whole key. The elements an index creates are those up
// to it that did not exist yet: "ids.9" on an empty argument creates ten.
//
// Thread-safety: a budget belongs to one call.
#ifndef KAV_ROUTING_ARGUMENT_BUDGET_H_
#define KAV_ROUTING_ARGUMENT_BUDGET_H_

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace kav {

inline constexpr unsigned long kMaxArgumentIndex = 0xFFFF;
inline constexpr size_t kMaxIndexPathSegments = 32;
inline constexpr size_t kMaxIndexPathElements = 1024;

inline constexpr char kIndexPathTooDeep[] = "Index path '%1' has more than %2 segments";
inline constexpr char kIndexPathOverBudget[] =
    "Index path '%1' goes beyond the %2 elements that index paths may create in one call";

// The elements and members that the index paths of one call have created.
class IndexPathBudget {
 public:
  // Records `count` more when that stays within kMaxIndexPathElements;
  // otherwise records nothing and returns false.
  bool Charge(size_t count) {
    if (count > kMaxIndexPathElements - used_) return false;
    used_ += count;
    return true;
  }

 private:
  size_t used_ = 0;
};

// The number of segments of an index path: its dots plus one.
inline size_t IndexPathSegments(std::string_view path) {
  return static_cast<size_t>(std::count(path.begin(), path.end(), '.')) + 1;
}

}  // namespace kav

#endif  // KAV_ROUTING_ARGUMENT_BUDGET_H_
