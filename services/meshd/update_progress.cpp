#include "services/meshd/update_progress.h"

#include <algorithm>
#include <array>

namespace kalo::meshd {
namespace {

constexpr int kPerMille = 1000;
constexpr int kMostBeforeTheEnd = 99;

// In the order in which the steps follow each other, with the part of a node's time (per mille)
// that is behind it when the step begins. Writing the programs and the restart take longest.
struct Step {
  std::string_view word;
  int begin;
};

constexpr std::array kSteps = {
    Step{"none", 0},
    Step{"preparing", 0},
    Step{"waiting_remote_upgrading", 0},
    Step{"analying_system", 50},
    Step{"updating_programs", 150},
    Step{"updating_configurations", 600},
    Step{"start_service", 650},
    Step{"reboot", 700},
    Step{"shutdown", 700},
    Step{"finish", kPerMille},
};

bool IsWorking(const UpdateNode& node) {
  return node.stage == NodeStage::kStarting || node.stage == NodeStage::kInstalling;
}

// How long a node's part is over, in per mille of it.
int InstalledPart(const UpdateNode& node) {
  const int rank = StepRank(node.step);
  if (rank < 0 || rank + 1 >= static_cast<int>(kSteps.size())) return 0;
  const int begin = kSteps[static_cast<std::size_t>(rank)].begin;
  const auto* next = std::find_if(kSteps.begin() + rank, kSteps.end(),
                                  [begin](const Step& step) { return step.begin > begin; });
  return begin + (next->begin - begin) * std::clamp(node.percent, 0, 100) / 100;
}

int PartOf(const UpdateNode& node) {
  switch (node.stage) {
    case NodeStage::kDone:
    case NodeStage::kFailed:
      return kPerMille;
    case NodeStage::kInstalling:
      return InstalledPart(node);
    default:
      return 0;
  }
}

int TotalOf(const UpdateRecord& record) {
  if (record.state == UpdateState::kFinished) return 100;
  int sum = 0;
  int count = 0;
  for (const UpdateNode& node : record.nodes) {
    if (node.stage == NodeStage::kLeftOut) continue;
    sum += PartOf(node);
    ++count;
  }
  return count == 0 ? 0 : std::min(sum / count / (kPerMille / 100), kMostBeforeTheEnd);
}

std::string StepOf(const UpdateRecord& record) {
  if (record.state == UpdateState::kFinished) return "finish";
  if (record.state == UpdateState::kFailed) return "failed";
  if (record.state == UpdateState::kNone) return "none";
  std::string step = "preparing";
  for (const UpdateNode& node : record.nodes) {
    if (node.id == 0 && node.stage == NodeStage::kInstalling) return node.step;
    if (node.id != 0 && node.stage == NodeStage::kInstalling) step = "waiting_remote_upgrading";
  }
  return step;
}

int MeanPercent(const UpdateRecord& record) {
  int sum = 0;
  int count = 0;
  for (const UpdateNode& node : record.nodes) {
    if (!IsWorking(node)) continue;
    sum += node.percent;
    ++count;
  }
  return count == 0 ? 0 : sum / count;
}

// The version wanted of the CAP, or of the first node when the CAP is not part of the update.
std::string VersionOf(const UpdateRecord& record) {
  const auto cap = std::find_if(record.nodes.begin(), record.nodes.end(),
                                [](const UpdateNode& node) { return node.id == 0; });
  if (cap != record.nodes.end()) return cap->wanted_version;
  return record.nodes.empty() ? "" : record.nodes.front().wanted_version;
}

void AppendSentence(std::string& text, const std::string& sentence) {
  if (!text.empty()) text += "; ";
  text += sentence;
}

}  // namespace

int StepRank(std::string_view step) {
  const auto* row = std::find_if(kSteps.begin(), kSteps.end(),
                                 [step](const Step& entry) { return entry.word == step; });
  return row == kSteps.end() ? -1 : static_cast<int>(row - kSteps.begin());
}

void RefreshShown(UpdateRecord& record) {
  record.total = std::max(record.total, TotalOf(record));
  const std::string step = StepOf(record);
  if (step == "failed" || StepRank(step) > StepRank(record.step)) record.step = step;
}

KALO::MESH::SDK::Client::SystemUpdateProgress ProgressOf(const UpdateRecord& record) {
  KALO::MESH::SDK::Client::SystemUpdateProgress progress;
  progress.version = VersionOf(record);
  progress.step = record.step;
  progress.percent = record.state == UpdateState::kFinished ? 100 : MeanPercent(record);
  progress.total_percentage = record.total;
  for (const UpdateNode& node : record.nodes) {
    if (node.error.number == 0) continue;
    if (progress.error_number == 0) progress.error_number = node.error.number;
    AppendSentence(progress.err_desc, node.error.description);
    AppendSentence(progress.err_msg, node.error.message);
  }
  return progress;
}

}  // namespace kalo::meshd
