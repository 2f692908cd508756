#pragma once

namespace KALO::MESH::Webapi {

/// Flag word for KLIBCExecl: output discarded, environment cleaned.
inline constexpr int kQuietProgram = 187;

}  // namespace KALO::MESH::Webapi
