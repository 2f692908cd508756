// kalo-patch: makes, signs, checks, lists and publishes patch files.

#include <exception>
#include <iostream>
#include <string_view>

#include "host/update/patch_format/patch_error.h"
#include "programs/kalo-patch/commands.h"

namespace {

using kalo::patch::VerifyOutcome;

// What the user can do about it; empty when the words of the error already say it.
std::string_view Advice(VerifyOutcome outcome) {
  switch (outcome) {
    case VerifyOutcome::kCannotRead:
      return "check the path and who may read it";
    case VerifyOutcome::kNotAPatch:
    case VerifyOutcome::kBadMember:
      return "the file is damaged or was not made by kalo-patch: make it again, or copy it again";
    case VerifyOutcome::kBadManifest:
      return "make it again with kalo-patch make";
    case VerifyOutcome::kNoKey:
      return "name a folder that holds the maker's public key, or its file with --key";
    case VerifyOutcome::kBadSignature:
      return "sign it with kalo-patch sign, or check it with the key that it was signed with";
    case VerifyOutcome::kCannotWrite:
      return "check the folder's rights and the free space";
    default:
      return "";
  }
}

int Report(const kalo::patch::PatchError& error) {
  std::cerr << "kalo-patch: " << error.what() << "\n";
  const std::string_view advice = Advice(error.Outcome());
  if (!advice.empty()) std::cerr << "  " << advice << "\n";
  return kalo::patch_tool::kFailed;
}

int Run(int argc, char** argv) {
  CLI::App app("Makes, signs, checks, lists and publishes firmware patch files.", "kalo-patch");
  app.require_subcommand(1);
  app.footer("Exit status: 0 done, 1 failed, 2 wrong usage.");
  kalo::patch_tool::AddKeygen(app);
  kalo::patch_tool::AddMake(app);
  kalo::patch_tool::AddSign(app);
  kalo::patch_tool::AddVerify(app);
  kalo::patch_tool::AddShow(app);
  kalo::patch_tool::AddPublish(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kalo::patch_tool::kOk : kalo::patch_tool::kUsage;
  } catch (const kalo::patch_tool::UsageError& e) {
    std::cerr << "kalo-patch: " << e.what() << "\n  kalo-patch --help says more\n";
    return kalo::patch_tool::kUsage;
  } catch (const kalo::patch::PatchError& e) {
    return Report(e);
  }
  return kalo::patch_tool::kOk;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "kalo-patch: " << e.what() << "\n";
    return kalo::patch_tool::kFailed;
  }
}
