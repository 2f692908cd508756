#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "host/update/patch_format/patch_file.h"
#include "programs/kalo-patch/commands.h"

namespace kalo::patch_tool {
namespace {

struct Options {
  std::string file;
  std::string key_folder;
  std::vector<std::string> key_files;
};

void Run(const Options& options) {
  if (options.key_folder.empty() && options.key_files.empty()) {
    throw UsageError("verify needs --keys FOLDER or --key FILE");
  }
  patch::KeyRing keys;
  if (!options.key_folder.empty()) keys = patch::KeyRing::Load(options.key_folder);
  for (const std::string& file : options.key_files) keys.AddFile(file);
  const patch::VerifyResult result =
      patch::VerifyPatch(options.file, keys, patch::FileTrust::kAnyOwner);
  if (!result.IsValid()) {
    throw patch::PatchError(
        result.outcome,
        options.file + ": " + std::string(patch::ToWords(result.outcome)) + ": " + result.reason);
  }
  std::cout << options.file << ": valid, " << result.description.version << " for "
            << result.description.unique << "\n";
}

}  // namespace

void AddVerify(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("verify", "Check signature and contents of a patch");
  command->add_option("FILE", options->file, "the patch file")->required();
  command->add_option("--keys", options->key_folder, "folder with public keys (*.pem)");
  command->add_option("--key", options->key_files, "a public key's file; may be given again");
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
