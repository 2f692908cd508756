#pragma once

#include "services/meshd/update_record.h"

namespace kalo::meshd {

/// Keeps the upgrade's progress file true to the service's update. Requests write "upgrading" after
/// the service took their order, so the file may say so when the update is over already; and the
/// file is lost at the CAP's restart, which lies in the middle of every update of the CAP.
///
///  - An update runs: the file says "upgrading" and the update's own total, whatever it said; only
///    a higher percentage stays.
///  - None runs, and the file says "upgrading": nobody else will end that, unless the equal-version
///    update runs. So it becomes "finished" 100 or "failed" 0, as the last update ended ("failed"
///    when the equal-version update died before it began), and the download's progress file goes
///    too unless a download or an upload holds the patch lock.
///  - Any other word is somebody else's and stays.
///  - Either progress file has a step and no percentage: who wrote it died, or could not write, in
///    between, and every request would refuse the file from then on. It gets the percentage 0; one
///    who is about to write it still does, behind that.
///  - A download stands there that nobody runs: it is ended. The web API server does so when a
///    process of its own died; this also ends what a request began and could not go on with.
class StateFileKeeper {
 public:
  /// Looks once. To be called at every tick, and after an update began or ended.
  /// @param record the running or last update
  void Keep(const UpdateRecord& record);

 private:
  bool complained_ = false;
};

}  // namespace kalo::meshd
