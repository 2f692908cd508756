#include "services/meshd/update_failure.h"

#include "host/mesh/wire.h"
#include "services/node/error_codes.h"

namespace kalo::meshd {
namespace {

using mesh::UpdateError;

NodeError Failure(const UpdateNode& node, std::int32_t number, const std::string& what,
                  const std::string& why) {
  std::string who = "node " + std::to_string(node.id);
  if (!node.name.empty()) who += " (" + node.name + ")";
  return {number, who + " " + what, why};
}

NodeError Failure(const UpdateNode& node, UpdateError error, const std::string& what,
                  const std::string& why) {
  return Failure(node, static_cast<std::int32_t>(error), what, why);
}

}  // namespace

NodeError InstallFailed(const UpdateNode& node, const InstallReport& install) {
  const std::int32_t number = install.error_number != 0
                                  ? install.error_number
                                  : static_cast<std::int32_t>(UpdateError::kInstallFailed);
  std::string why = install.err_desc;
  if (!install.err_msg.empty()) why += (why.empty() ? "" : ": ") + install.err_msg;
  return Failure(node, number, "could not install", why.empty() ? "it gave no reason" : why);
}

NodeError FellBack(const UpdateNode& node, const std::string& version) {
  return Failure(node, UpdateError::kFellBack, "fell back",
                 "after its restart it runs " + version + " instead of " + node.wanted_version);
}

NodeError TookTooLong(const UpdateNode& node) {
  return Failure(node, UpdateError::kDeadline, "took too long",
                 "it did not come back with " + node.wanted_version +
                     " in time; its last step was " + node.step);
}

NodeError StartRefused(const UpdateNode& node, std::int32_t error_number) {
  const std::int32_t number =
      error_number != 0 ? error_number : static_cast<std::int32_t>(UpdateError::kStartRefused);
  return Failure(node, number, "refused to install",
                 error_number == node::error::kNothingStaged
                     ? "no patch is staged on it any more"
                     : "it answered with error " + std::to_string(error_number));
}

NodeError NotReached(const UpdateNode& node, LateCause cause) {
  const char* why = "it did not answer in time";
  if (cause == LateCause::kBusy) why = "it was busy with a patch all the time";
  if (cause == LateCause::kNotSaved) why = "the main router cannot save how far the update is";
  return Failure(node, UpdateError::kDeadline, "could not be told to install", why);
}

NodeError WasOffline(const UpdateNode& node) {
  return Failure(node, UpdateError::kOffline, "was left out",
                 "it was offline when the update began");
}

}  // namespace kalo::meshd
