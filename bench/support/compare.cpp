#include "bench/support/compare.h"

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <vector>

#include "coreapi/platform/clock.h"

namespace qm_bench {

double compare(const Scenario& scenario, const std::function<double()>& ours,
               const std::function<double()>& peer) {
  ours();
  peer();
  std::vector<double> ratios;
  for (int i = 0; i < scenario.pairs; ++i) {
    const double oursSeconds = ours();
    ratios.push_back(peer() / oursSeconds);
  }
  std::sort(ratios.begin(), ratios.end());
  const double median = ratios[ratios.size() / 2];
  std::string goal = "record";
  if (scenario.goal > 0.0) {
    char text[32];
    std::snprintf(text, sizeof text, ">=%.2f%s", scenario.goal, median >= scenario.goal ? "" : " MISS");
    goal = text;
  }
  std::printf("%-52s %8.2f %8.2f %8.2f   %-11s %s\n", scenario.name.c_str(), median, ratios.front(),
              ratios.back(), goal.c_str(), scenario.peer.c_str());
  std::fflush(stdout);
  return median;
}

void report(const std::string& name, double value, const std::string& unit, double goal) {
  std::string asked = "record";
  if (goal > 0.0) {
    char text[32];
    std::snprintf(text, sizeof text, "<=%.2f%s", goal, value <= goal ? "" : " MISS");
    asked = text;
  }
  std::printf("%-52s %8.2f %8s %8s   %-11s %s\n", name.c_str(), value, "", "", asked.c_str(), unit.c_str());
  std::fflush(stdout);
}

double seconds(const std::function<void()>& work) {
  const std::int64_t start = qm_platform::steadyClockNanoseconds();
  work();
  return static_cast<double>(qm_platform::steadyClockNanoseconds() - start) * 1e-9;
}

std::size_t heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace qm_bench
