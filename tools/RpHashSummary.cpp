#include "tools/RpHashSummary.h"

#include <algorithm>
#include <cmath>

namespace PimrpTool {

RpLoadSpread rpLoadSpreadOf(const std::vector<std::uint64_t>& counts) {
  RpLoadSpread spread;
  if (counts.size() < 2) return spread;
  const auto [smallest, largest] = std::minmax_element(counts.begin(), counts.end());
  spread.maxOverMin = static_cast<double>(*largest) / static_cast<double>(*smallest);
  double sum = 0;
  for (const std::uint64_t count : counts) sum += static_cast<double>(count);
  const double mean = sum / static_cast<double>(counts.size());
  double squares = 0;
  for (const std::uint64_t count : counts) {
    const double distance = static_cast<double>(count) - mean;
    squares += distance * distance;
  }
  spread.cv = std::sqrt(squares / static_cast<double>(counts.size())) / mean;
  return spread;
}

}  // namespace PimrpTool
