#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/fake/json_text.h"
#include "tests/fake/platform.h"
#include "webapi/api_table.h"
#include "webapi/exceptions.h"
#include "webapi/upgrade_handler.h"

namespace fake {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// A request through an entry function against a fake platform.
class ModuleTest : public ::testing::Test {
 protected:
  /// Calls one entry function and ends a child that comes back from it.
  void Call(KALO::APIHandler entry, const std::string& parameters = "{}");

  /// @return what the journal holds.
  [[nodiscard]] std::vector<std::string> Lines() const { return platform.journal.Lines(); }
  [[nodiscard]] std::vector<std::string> Lines(std::string_view prefix) const {
    return platform.journal.Lines(prefix);
  }
  /// @return what the journal holds from the line on that begins so.
  [[nodiscard]] std::vector<std::string> LinesFrom(const std::string& begin) const;
  /// @return the answers, in the order given.
  [[nodiscard]] std::vector<std::string> Answers() const;
  /// @return the log lines as "PRIORITY TEXT", without the source line.
  [[nodiscard]] std::vector<std::string> Logs() const;

  Platform platform;
  KALO::APIRequest request{Json::objectValue};
  KALO::APIResponse response;
  KALO::MESH::Webapi::UpgradeHandler handler{&request, &response};
};

}  // namespace fake
