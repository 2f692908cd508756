#pragma once

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

/// @return the report; step "none" when there is none.
[[nodiscard]] InstallReport ReadInstallReport();

/// Replaces the report whole.
/// @return false with errno set on failure.
[[nodiscard]] bool WriteInstallReport(const InstallReport& report);

}  // namespace kalo::node
