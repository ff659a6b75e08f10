#pragma once

#include <functional>
#include <string>

/// Measures ours against a peer in one run, alternating: A B A B. The ratio of each neighbouring pair is
/// taken, so that a machine that slows down or speeds up meanwhile touches both sides alike; the table shows
/// the median, the lowest and the highest ratio.
namespace qm_bench {

/// One row of the table.
struct Scenario {
  std::string name;
  std::string peer;   ///< who is measured against
  double goal = 0.0;  ///< the ratio that is asked for; 0 when the row is for the record
  int pairs = 9;      ///< pairs that count; one more runs first to warm up
};

/// Runs both sides and prints the row. Each function does the whole work once and returns the seconds that
/// count, which leaves set-up and tear-down out. A ratio of 2 means that ours takes half the peer's time.
/// Returns the median.
double compare(const Scenario& scenario, const std::function<double()>& ours,
               const std::function<double()>& peer);

/// Prints a row for a figure that has no peer, such as bytes a byte of input. `goal` is the largest value
/// asked for; 0 when the row is for the record.
void report(const std::string& name, double value, const std::string& unit, double goal = 0.0);

/// Seconds that a call takes.
double seconds(const std::function<void()>& work);

/// Keeps the compiler from dropping the computation of a value.
template <typename T>
void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

/// Bytes of heap in use now, by the allocator's own books.
std::size_t heapInUse();

}  // namespace qm_bench
