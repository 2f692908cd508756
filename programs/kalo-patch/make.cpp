#include <memory>
#include <optional>
#include <string>

#include "host/update/patch_format/patch_writer.h"
#include "host/update/patch_format/version_text.h"
#include "programs/kalo-patch/commands.h"

namespace kalo::patch_tool {
namespace {

struct Options {
  patch::PatchSources sources;
  std::optional<std::int32_t> build;
  std::optional<std::int32_t> nano;
  std::string key_file;
  std::string out;
};

void FillNumbers(Options& options) {
  patch::PatchDescription& description = options.sources.description;
  const auto numbers = patch::ParseVersionText(description.version);
  if (!numbers || !patch::IsDisplayForm(description.version)) {
    throw UsageError("--version " + description.version +
                     " is no version; write it like \"VXM 1.4.0-76010\" or "
                     "\"VXM 1.4.0-76010 Update 3\"");
  }
  if (options.build.value_or(numbers->build) != numbers->build ||
      options.nano.value_or(numbers->nano) != numbers->nano) {
    throw UsageError("--build and --nano must be those of --version; leave them out");
  }
  description.build = numbers->build;
  description.nano = numbers->nano;
}

void Run(Options& options) {
  FillNumbers(options);
  std::optional<patch::SigningKey> key;
  if (!options.key_file.empty()) key = patch::SigningKey::Load(options.key_file);
  patch::MakePatch(options.sources, key ? &*key : nullptr, options.out);
}

}  // namespace

void AddMake(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("make", "Make a patch of a folder");
  patch::PatchSources& sources = options->sources;
  command->add_option("PAYLOAD", sources.payload_folder, "folder with the files of /usr/kalo")
      ->required();
  command->add_option("--unique", sources.description.unique, "the hardware model it is for")
      ->required();
  command->add_option("--version", sources.description.version, "e.g. \"VXM 1.4.0-76010 Update 3\"")
      ->required();
  command->add_option("--build", options->build, "build number, if it is to be checked");
  command->add_option("--nano", options->nano, "small-update number, if it is to be checked");
  command->add_option("--updater", sources.updater_file, "the updater's file")->required();
  command->add_option("--texts", sources.texts_folder, "folder with texts for people");
  command->add_option("--key", options->key_file, "sign it at once with this private key");
  command->add_option("-o,--output", options->out, "the patch file")->required();
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
