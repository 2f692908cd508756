#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/precheck.h"

namespace kalo::cli {

int RunPrecheck(const CommonOptions& common, const PrecheckOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data =
      AskPrecheck(client, options.language.empty() ? DefaultLanguage() : options.language);
  const Precheck precheck = ReadPrecheck(data);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
    return precheck.can_continue ? kOk : kFailed;
  }
  if (!PassPrecheck(precheck, {options.accepts_licence, true}, std::cout)) {
    throw Failure(kFailed, "without your agreement nothing is installed");
  }
  std::cout << "Nothing stands in the way. Next: kalo-mesh start --wait\n";
  return kOk;
}

}  // namespace kalo::cli
