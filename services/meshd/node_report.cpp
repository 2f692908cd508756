#include "services/meshd/node_report.h"

#include <algorithm>
#include <tuple>

#include "services/meshd/bus_text.h"
#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

constexpr std::uint32_t kLargestId = 65535;

std::string BusTextOf(const Json::Value& object, const char* key) {
  return BusText(TextOf(object, key));
}

// A node that never installed anything since its boot reports an empty step.
InstallReport ReadInstall(const Json::Value& install) {
  InstallReport report;
  report.step = BusTextOf(install, "step");
  if (report.step.empty()) report.step = "none";
  report.percent = std::clamp(IntegerOf(install, "percent"), 0, 100);
  report.error_number = IntegerOf(install, "errno");
  report.err_desc = BusTextOf(install, "err_desc");
  report.err_msg = BusTextOf(install, "err_msg");
  return report;
}

}  // namespace

bool NodeReport::HasIdentityOf(const NodeReport& other) const {
  return std::tie(node_id, name, unique, version, build, nano) ==
         std::tie(other.node_id, other.name, other.unique, other.version, other.build, other.nano);
}

NodeReport ParseNodeReport(const Json::Value& data) {
  NodeReport report;
  report.node_id = NumberOf(data, "node_id", kLargestId);
  report.name = BusTextOf(data, "name");
  report.unique = BusTextOf(data, "unique");
  report.version = BusTextOf(data, "version");
  report.build = IntegerOf(data, "build");
  report.nano = IntegerOf(data, "nano");
  report.boot_id = BusTextOf(data, "boot_id");
  report.staged_version = BusTextOf(data, "staged_version");
  report.install = ReadInstall(MemberOf(data, "install"));
  // Without them nobody could tell whether an update of this node succeeded.
  if (report.version.empty() || report.boot_id.empty()) {
    throw BadJson("it does not say what it runs or in which boot");
  }
  return report;
}

}  // namespace kalo::meshd
