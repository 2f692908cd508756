#include <memory>
#include <string>

#include "host/update/patch_format/patch_writer.h"
#include "programs/kalo-patch/commands.h"

namespace kalo::patch_tool {
namespace {

struct Options {
  std::string file;
  std::string key_file;
  std::string out;
};

void Run(const Options& options) {
  const patch::SigningKey key = patch::SigningKey::Load(options.key_file);
  const std::string& out = options.out.empty() ? options.file : options.out;
  NamingFile(options.file, [&] { patch::SignPatch(options.file, key, out); });
}

}  // namespace

void AddSign(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("sign", "Sign a patch, or replace its signature");
  command->add_option("FILE", options->file, "the patch file")->required();
  command->add_option("--key", options->key_file, "the private key's file")->required();
  command->add_option("-o,--output", options->out, "write here instead of replacing FILE");
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
