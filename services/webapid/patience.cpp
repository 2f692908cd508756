#include "services/webapid/patience.h"

#include <algorithm>

namespace kalo::webapid {
namespace {

constexpr auto kShortestPause = 10 * Patience::kWait;
constexpr std::chrono::seconds kLongestPause{1};

}  // namespace

void Patience::WaitedInVain(Clock::time_point now) {
  pause_ = std::clamp<Clock::duration>(2 * pause_, kShortestPause, kLongestPause);
  until_ = now + pause_;
}

}  // namespace kalo::webapid
