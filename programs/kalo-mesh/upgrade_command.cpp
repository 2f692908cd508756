// The whole way of an update in one command.

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <optional>

#include "host/core/file_lock.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/download_watch.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/precheck.h"
#include "programs/kalo-mesh/silence.h"
#include "programs/kalo-mesh/terminal.h"
#include "programs/kalo-mesh/update_offer.h"

namespace kalo::cli {
namespace {

// Tells the whole router, for as long as it is held, that an automatic update runs.
FileLock TakeAutoUpdateLock() {
  // Whoever asks whether one runs has it for a moment.
  auto lock = FileLock::TakeWithin(KALO::paths::kAutoUpdateLock, std::chrono::seconds(1));
  if (lock) return std::move(*lock);
  throw Failure(kFailed, errno == ETIMEDOUT ? std::string("an automatic update runs already")
                                            : std::string(KALO::paths::kAutoUpdateLock) + ": " +
                                                  std::strerror(errno));
}

// Only routers whose owner chose the beta channel update themselves to beta releases.
bool TakesBeta() {
  return KLIBCFileCheckKeyValue(KALO::paths::kConfiguration, "update_channel", "beta", 0) == 1;
}

// Before the point of no return.
bool WantsIt(ApiClient& client, const UpgradeOptions& options, bool asks, std::ostream& out) {
  const bool unasked = options.yes || options.is_auto;
  const Precheck precheck = ReadPrecheck(AskPrecheck(client, DefaultLanguage()));
  if (!PassPrecheck(precheck, {options.accepts_licence, unasked, asks}, out)) return false;
  return unasked ||
         Agrees(asks,
                "All nodes restart now; the Wi-Fi is away for some minutes. Do not switch off any "
                "node meanwhile.\nUpgrade? [y/N] ",
                "say --yes to upgrade without asking");
}

}  // namespace

int RunUpgrade(const CommonOptions& common, const UpgradeOptions& options) {
  std::optional<FileLock> lock;
  if (options.is_auto) lock = TakeAutoUpdateLock();
  ApiClient client(OpenSession(common), common.connect_deadline);
  Silence silence;
  std::ostream& out = common.json ? silence.Stream() : std::cout;
  const UpdateOffer offer = ReadOffer(CheckForUpdate(client, options.is_auto));
  out << offer.Sentence() << "\n";
  if (!offer.available || (options.is_auto && offer.beta && !TakesBeta())) {
    if (offer.available) out << "Beta releases are not installed by themselves.\n";
    if (common.json)
      std::cout << R"({"success":true,"nodes":[]})"
                << "\n";
    return kOk;
  }
  BarBoard board(out, !common.json && IsTerminal());
  // Night after night the same again would be fetched of which nobody reads the licence.
  if (!options.is_auto || !StandsReady(client, offer.version, true)) {
    StartDownload(client, offer.promotion);
    (void)FollowDownload(client, board, options.is_auto);
  }
  if (!WantsIt(client, options, !common.json, out)) {
    out << "Nothing was installed. The patches stay on the nodes; kalo-mesh start installs them, "
           "kalo-mesh clean drops them.\n";
    return kOk;
  }
  return RunStart(common, {true, options.is_auto, options.deadline});
}

}  // namespace kalo::cli
