#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kalo::node {

/// How far this node's installation is: "/run/kalo/install". Gone at every boot; the first thing
/// that a healthy boot writes is how the installation ended that led to it.
struct InstallReport {
  std::string step = "none";  ///< a word of the upgrade engine, in their fixed order
  std::int32_t percent = 0;   ///< of the whole installation, never falls
  std::string version;        ///< what is being installed, display form
  std::int32_t error_number = 0;
  std::string err_desc;  ///< what failed
  std::string err_msg;   ///< why
};

/// The percentage of step "reboot" once the restart was asked for. Up to it the installer works and
/// holds the install lock; from then on nobody does.
inline constexpr std::int32_t kRestartAsked = 96;

/// @return the report; step "none" when there is none.
[[nodiscard]] InstallReport ReadInstallReport();

/// @return whether an installation is under way, if the installer lives.
[[nodiscard]] bool TellsOfWork(const InstallReport& report);

/// For whoever holds the install lock: what an installer left that died at its work ends as failed.
/// @return the report as it is now.
InstallReport EndLeftReport();

/// For everybody else: as ReadInstallReport, and does the above when nobody holds the lock.
[[nodiscard]] InstallReport CurrentReport();

/// How long to wait for the install lock: whoever does the above holds it for a moment.
inline constexpr std::chrono::milliseconds kInstallLockPatience{200};

/// Replaces the report whole.
/// @return false with errno set on failure.
[[nodiscard]] bool WriteInstallReport(const InstallReport& report);

}  // namespace kalo::node
