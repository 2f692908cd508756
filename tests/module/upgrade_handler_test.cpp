#include "webapi/upgrade_handler.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {
namespace {

class Handler : public fake::ModuleTest {};

TEST_F(Handler, BuildingAndDestroyingOneTouchesNothing) {
  { const UpgradeHandler unused(&request, &response); }
  EXPECT_THAT(Lines(), fake::IsEmpty());
  EXPECT_FALSE(response.HasAnswer());
}

TEST_F(Handler, KnowsTheEnginesStepsAndTheirOrder) {
  const std::map<std::string, std::int32_t> expected = {
      {"none", 0},
      {"preparing", 1},
      {"waiting_remote_upgrading", 2},
      {"analying_system", 3},
      {"updating_programs", 4},
      {"updating_configurations", 5},
      {"start_service", 6},
      {"reboot", 7},
      {"shutdown", 8},
      {"finish", 9},
      {"failed", 2147483647},
  };
  EXPECT_EQ(handler.StepRanks(), expected);
}

// Behind the pointer to the virtual table: the two borrowed pointers, then the map itself.
TEST_F(Handler, FieldsAreInTheContractsOrder) {
  std::array<const void*, 3> head{};
  std::memcpy(head.data(), static_cast<const void*>(&handler), sizeof head);
  EXPECT_EQ(head[1], &request);
  EXPECT_EQ(head[2], &response);
  const auto begin = reinterpret_cast<std::uintptr_t>(&handler);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&handler.StepRanks()), begin + sizeof head);
  EXPECT_EQ(sizeof handler, sizeof head + sizeof(std::map<std::string, std::int32_t>));
}

TEST_F(Handler, SharesNothingWithAnother) {
  const UpgradeHandler other(&request, &response);
  EXPECT_NE(&other.StepRanks(), &handler.StepRanks());
  EXPECT_EQ(other.StepRanks(), handler.StepRanks());
}

// A pointer to a virtual member holds 1 + the offset of its slot, by the C++ ABI of both targets.
template <class Method>
std::size_t SlotOf(Method method) {
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &method, sizeof offset);
#if defined(__aarch64__)
  return offset / sizeof(void*);
#else
  return (offset - 1) / sizeof(void*);
#endif
}

TEST_F(Handler, VirtualOperationsStandInTheirSlots) {
  // Slots 0 and 1 are the two destructors.
  const std::array slots = {
      SlotOf(&UpgradeHandler::Start),
      SlotOf(&UpgradeHandler::StartEqualUpdate),
      SlotOf(&UpgradeHandler::CancelEqualUpdate),
      SlotOf(&UpgradeHandler::PatchCheck),
      SlotOf(&UpgradeHandler::PatchCheckEqual),
      SlotOf(&UpgradeHandler::PatchClean),
      SlotOf(&UpgradeHandler::PatchUpload),
      SlotOf(&UpgradeHandler::StatusGetV1),
      SlotOf(&UpgradeHandler::StatusGetV2),
      SlotOf(&UpgradeHandler::ProgressGet),
      SlotOf(&UpgradeHandler::ProgressGetV2),
      SlotOf(&UpgradeHandler::DownloadStart),
      SlotOf(&UpgradeHandler::DownloadCancel),
      SlotOf(&UpgradeHandler::DownloadProgressGet),
      SlotOf(&UpgradeHandler::DownloadProgressGetV2),
      SlotOf(&UpgradeHandler::RunUpgradePrecheck),
  };
  for (std::size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(slots.at(i), i + 2) << i;
}

}  // namespace
}  // namespace KALO::MESH::Webapi
