#include "programs/kalomeshupgrade/late_start.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/mesh/wire.h"

namespace kalo::equal {
namespace {

using KALO::MESH::SDK::Client::SystemUpdateProgress;
using mesh::MeshCode;

struct Decision {
  bool runs = false;
  std::size_t asked = 0;
};

// @param steps what is told one time after the other, "-" for no answer; the last one stays.
Decision Decide(MeshCode code, const std::vector<std::string>& steps) {
  Decision decision;
  decision.runs = RunsAllTheSame(static_cast<std::uint16_t>(code), [&] {
    const std::string& step = steps.at(std::min(decision.asked, steps.size() - 1));
    ++decision.asked;
    SystemUpdateProgress progress;
    progress.code = step == "-" ? 1 : 0;
    progress.step = step;
    return progress;
  });
  return decision;
}

TEST(LateStart, ARefusalIsFinal) {
  const Decision decision = Decide(MeshCode::kNothingStaged, {"upgrading"});
  EXPECT_FALSE(decision.runs);
  EXPECT_EQ(decision.asked, 0U) << "whatever runs is somebody else's";
}

TEST(LateStart, AnAnswerThatWasLateOrLostSaysNothing) {
  for (const MeshCode code : {MeshCode::kTimedOut, MeshCode::kConnectionLost}) {
    const Decision decision = Decide(code, {"none", "-", "finish", "failed", "upgrading"});
    EXPECT_TRUE(decision.runs);
    EXPECT_EQ(decision.asked, 5U);
  }
}

TEST(LateStart, AnUpdateThatDoesNotBeginWasRefused) {
  for (const char* idle : {"none", "finish", "failed"}) {
    const Decision decision = Decide(MeshCode::kTimedOut, {"-", idle});
    EXPECT_FALSE(decision.runs) << idle;
    EXPECT_EQ(decision.asked, 10U) << idle;
  }
}

TEST(LateStart, AnUpdateOfWhichNobodyTellsIsTakenToRun) {
  EXPECT_TRUE(Decide(MeshCode::kTimedOut, {"none", "-"}).runs);
}

}  // namespace
}  // namespace kalo::equal
