#include "host/update/feed/list_check.h"

#include <stdexcept>

namespace kalo::feed {

ReleaseList CheckReleaseList(const std::string& text, const std::string& signature,
                             const patch::KeyRing& keys, const ListRules& rules) {
  if (keys.Empty()) throw std::runtime_error("there is no key to check its signature with");
  if (!keys.Verifies(text, signature)) throw std::runtime_error("its signature is bad");
  ReleaseList list = ParseReleaseList(text, "list.json");
  if (list.unique != rules.unique) throw std::runtime_error("it is for model " + list.unique);
  if (list.number < rules.known_number) {
    throw std::runtime_error("it is older (" + std::to_string(list.number) +
                             ") than one seen before (" + std::to_string(rules.known_number) + ")");
  }
  if (list.expires < rules.now) throw std::runtime_error("it has expired");
  return list;
}

}  // namespace kalo::feed
