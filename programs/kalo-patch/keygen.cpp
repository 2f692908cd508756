#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "host/core/file_io.h"
#include "host/update/patch_format/atomic_output.h"
#include "host/update/patch_format/signing_key.h"
#include "programs/kalo-patch/commands.h"

namespace kalo::patch_tool {
namespace {

constexpr mode_t kPrivateMode = 0600;
constexpr mode_t kPublicMode = 0644;

struct Options {
  std::string private_file;
  std::string public_file;
};

// A key that is written over is lost, and with it every node that trusts only it.
void RefuseExisting(const std::string& path) {
  if (std::filesystem::exists(std::filesystem::symlink_status(path))) {
    throw std::runtime_error(path + " exists; move it away first, a key is never written over");
  }
}

void Write(const patch::AtomicOutput& output, const std::string& text) {
  if (!WriteAll(output.Fd(), text)) {
    throw std::system_error(errno, std::generic_category(), "cannot write the key");
  }
}

void Run(const Options& options) {
  if (options.private_file == options.public_file) {
    throw UsageError("--private and --public must be two files");
  }
  RefuseExisting(options.private_file);
  RefuseExisting(options.public_file);
  const patch::SigningKey key = patch::SigningKey::Generate();
  patch::AtomicOutput private_output(options.private_file, kPrivateMode);
  patch::AtomicOutput public_output(options.public_file, kPublicMode);
  Write(private_output, key.PrivatePem());
  Write(public_output, key.PublicPem());
  private_output.Commit();
  public_output.Commit();
}

}  // namespace

void AddKeygen(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("keygen", "Make an Ed25519 key pair, in PEM files");
  command->add_option("--private", options->private_file, "the private key's file (mode 0600)")
      ->required();
  command->add_option("--public", options->public_file, "the public key's file, for the nodes")
      ->required();
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
