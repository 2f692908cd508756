#include "services/node/boot_result.h"

#include <syslog.h>

#include <cerrno>
#include <system_error>

#include "host/core/log.h"
#include "services/node/error_codes.h"
#include "services/node/install_report.h"
#include "services/node/slots.h"
#include "services/node/stage.h"

namespace kalo::node {
namespace {

InstallReport EndOf(const slots::State& state) {
  InstallReport report;
  report.version = state.version;
  if (state.trial == slots::Trial::kFailed) {
    report.step = "failed";
    report.error_number = error::kGeneral;
    report.err_desc = "the node went back to its previous version";
    report.err_msg = state.failure;
  } else {
    report.step = "finish";
    report.percent = 100;
  }
  return report;
}

}  // namespace

void ConfirmBoot() {
  const slots::State state = slots::ReadState();
  if (state.trial != slots::Trial::kBooted && state.trial != slots::Trial::kFailed) return;
  // The report first: who sees the trial ended may rely on finding how.
  if (!WriteInstallReport(EndOf(state))) {
    throw std::system_error(errno, std::generic_category(), "writing the report");
  }
  if (state.trial == slots::Trial::kBooted) {
    // A confirmation that broke off is made good later, when the next patch may lie there already.
    const auto staged = ReadStaged();
    if (!staged || staged->description.version == state.version) RemoveStaged();
    Log(LOG_NOTICE, "install: %s is confirmed", state.version.c_str());
  }
  slots::EndTrial();
}

bool GiveUpBoot() {
  return slots::FallBack("the new version did not become healthy");
}

}  // namespace kalo::node
