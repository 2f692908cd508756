#include "box/commands/firmware_commands.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "box/setup/firmware_tree.h"
#include "box/setup/patch_keys.h"
#include "host/update/patch_format/patch_writer.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

struct Options {
  std::string build;
  std::string version;
  std::string unique;
  std::string patch_keys;
  std::string samples;
  std::string out;
  std::uint64_t size_mib = 0;

  void MakeTree(const fs::path& folder) const {
    MakeFirmwareTree(build, DescribeFirmware(unique, version), size_mib << 20, folder);
  }
};

// Beside the patch, so that the machine's /tmp need not hold a firmware.
class TreeFolder {
 public:
  explicit TreeFolder(const fs::path& out) : path_(out.native() + ".tree") {
    fs::remove_all(path_);
  }
  TreeFolder(const TreeFolder&) = delete;
  TreeFolder& operator=(const TreeFolder&) = delete;
  ~TreeFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& Path() const { return path_; }

 private:
  fs::path path_;
};

void MakePatchFile(const Options& options) {
  const TreeFolder tree(fs::absolute(options.out));
  options.MakeTree(tree.Path());
  const PatchKeys keys(options.patch_keys);
  keys.MakeWhenMissing();
  const patch::SigningKey key = patch::SigningKey::Load(keys.Secret());
  const fs::path samples = options.samples;
  patch::MakePatch({DescribeFirmware(options.unique, options.version), tree.Path(),
                    samples / "updater", samples / "texts"},
                   &key, options.out);
}

int Report(const std::function<void()>& work) {
  try {
    work();
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "kalo-box: " << e.what() << "\n";
    return 1;
  }
}

CLI::App* AddCommand(CLI::App& app, const char* name, const char* help, Options& options) {
  CLI::App* command = app.add_subcommand(name, help);
  command->add_option("--build", options.build, "Build folder that it is made from")
      ->required()
      ->check(CLI::ExistingDirectory);
  command->add_option("--version", options.version, "\"VXM 1.4.0-76010\"")->required();
  command->add_option("--unique", options.unique, "Model that it is for")->required();
  command->add_option("--size-mib", options.size_mib, "Fill it up to this size")
      ->check(CLI::Range(0, 4096));
  command->add_option("-o,--out", options.out, "What is made")->required();
  return command;
}

}  // namespace

void AddMakeFirmware(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  AddCommand(app, "make-firmware", "Make a firmware tree", *options)->callback([options, &status] {
    status = Report([&] { options->MakeTree(options->out); });
  });
}

void AddMakePatch(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(app, "make-patch", "Make a firmware patch and sign it", *options);
  command
      ->add_option("--patch-keys", options->patch_keys,
                   "Folder with the key pair; made when missing")
      ->required();
  command->add_option("--samples", options->samples, "Folder with updater and texts")
      ->required()
      ->check(CLI::ExistingDirectory);
  command->callback([options, &status] { status = Report([&] { MakePatchFile(*options); }); });
}

}  // namespace kalo::box
