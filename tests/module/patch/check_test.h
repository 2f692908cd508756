#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "tests/fake/module_test.h"

namespace KALO::MESH::Webapi {

/// A mesh whose updates are asked for.
class CheckTest : public fake::ModuleTest {
 protected:
  CheckTest() {
    platform.files["/etc.defaults/kaloinfo.conf"]["unique"] = "M1";
    platform.files["/etc/kaloinfo.conf"]["rolling_group_id"] = "1234";
    platform.on_program = [this](const std::vector<std::string>& words) { return Run(words); };
  }

  /// What the version-2 feed answers with; without one the fetcher leaves an empty file.
  void Feed(const std::string& document) { document_ = document; }
  /// The same with one item.
  void FeedItem(const std::string& title, int build, const std::string& phase = R"("")") {
    Feed(R"({"channel":{"item":[{"title":")" + title + R"(","BuildNum":)" + std::to_string(build) +
         R"(,"phase":)" + phase + R"(,"model":"any"}]}})");
  }
  void Regular(const std::string& unique, const std::string& version,
               const std::string& type = "hbx") {
    platform.regular_offers[unique] = {true, type, version};
  }

  /// @return one key of the patch-information file; "-" when it is not there.
  [[nodiscard]] std::string Key(const std::string& key) {
    const auto& file = platform.files["/tmp/mesh_patch"];
    const auto found = file.find(key);
    return found != file.end() ? found->second : "-";
  }
  /// @return log lines of the feed and the check, without what parsing a version logs.
  [[nodiscard]] std::vector<std::string> CheckLogs() const {
    std::vector<std::string> logs;
    for (std::string& line : Logs()) {
      if (line.find("Parsed ") == std::string::npos) logs.push_back(std::move(line));
    }
    return logs;
  }
  /// @return whether a log line is there.
  [[nodiscard]] bool Logged(const std::string& line) const {
    const std::vector<std::string> logs = Logs();
    return std::find(logs.begin(), logs.end(), line) != logs.end();
  }

  int fetch_result = 0;
  std::string fetched_file;  ///< where the fetcher was told to put the document

 private:
  int Run(const std::vector<std::string>& words) {
    if (words.front() != "/usr/kalo/bin/wget") return notify_result;
    fetched_file = words.at(4);
    if (fetch_result >= 0) std::ofstream(fetched_file) << document_;
    return fetch_result;
  }

  std::string document_;

 protected:
  int notify_result = 0;
};

}  // namespace KALO::MESH::Webapi
