#include "box/setup/patch_keys.h"

#include "box/setup/put_file.h"
#include "host/update/patch_format/signing_key.h"

namespace kalo::box {

void PatchKeys::MakeWhenMissing() const {
  if (std::filesystem::exists(Secret()) && std::filesystem::exists(Public())) return;
  const patch::SigningKey key = patch::SigningKey::Generate();
  PutFile(Secret(), key.PrivatePem(), 0600);
  PutFile(Public(), key.PublicPem());
}

}  // namespace kalo::box
