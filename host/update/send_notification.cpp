#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "host/notification/notification_store.h"
#include "host/update/download/download_progress.h"
#include "platform/update/update_util.h"

namespace KALO::MESH::SDK::Upgrade {
namespace {

std::string Sentence(bool success, bool is_auto, const std::string& version) {
  const std::string what = version.empty() ? "The firmware" : version;
  const std::string by = is_auto ? " by itself" : "";
  return success ? what + " was downloaded" + by + " and is on every node that needs it."
                 : what + " could not be downloaded" + by + ". The system log says why.";
}

}  // namespace

void UpdateUtil::SendNotification(bool success, bool is_auto, const std::string& version) {
  // The job is done. A download that counted a group and then skipped it (of two groups that claim
  // the CAP only the last is fetched) has not written its last word yet.
  if (success) (void)kalo::download::DownloadProgress().Finish();
  kalo::Notification notification;
  notification.source = "KALO.Mesh.Upgrade";
  notification.topic = "download";
  notification.recipient = "@administrators";
  notification.count = 1;
  notification.text = Sentence(success, is_auto, version);
  try {
    kalo::NotificationStore().Raise(std::move(notification));
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "administrators cannot be told how a download ended: %s", e.what());
  }
}

}  // namespace KALO::MESH::SDK::Upgrade
