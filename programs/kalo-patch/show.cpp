#include <json/writer.h>

#include <iomanip>
#include <iostream>
#include <memory>
#include <string>

#include "host/update/patch_format/patch_listing.h"
#include "programs/kalo-patch/commands.h"

namespace kalo::patch_tool {
namespace {

struct Options {
  std::string file;
  bool json = false;
};

const char* ModeText(mode_t mode) {
  return mode == patch::kProgramMode ? "0755" : "0644";
}

void PrintJson(const patch::PatchListing& listing) {
  const patch::PatchDescription& description = listing.result.description;
  Json::Value root(Json::objectValue);
  root["unique"] = description.unique;
  root["version"] = description.version;
  root["build"] = description.build;
  root["nano"] = description.nano;
  root["signed"] = listing.result.is_signed;
  root["payload_files"] = listing.result.payload_files;
  root["payload_bytes"] = Json::UInt64(listing.result.payload_bytes);
  root["members"] = Json::Value(Json::arrayValue);
  for (const patch::ListedMember& member : listing.manifest.members) {
    Json::Value entry(Json::objectValue);
    entry["name"] = member.name;
    entry["size"] = Json::UInt64(member.size);
    entry["sha256"] = member.sha256;
    entry["mode"] = ModeText(member.mode);
    root["members"].append(entry);
  }
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "  ";
  std::cout << Json::writeString(writer, root) << "\n";
}

void PrintText(const patch::PatchListing& listing) {
  const patch::PatchDescription& description = listing.result.description;
  std::cout << "model      " << description.unique << "\n"
            << "version    " << description.version << "\n"
            << "build      " << description.build << "\n"
            << "update     " << description.nano << "\n"
            << "signature  " << (listing.result.is_signed ? "present, not checked" : "none") << "\n"
            << "payload    " << listing.result.payload_files << " files, "
            << listing.result.payload_bytes << " bytes\n\n";
  for (const patch::ListedMember& member : listing.manifest.members) {
    std::cout << ModeText(member.mode) << std::setw(12) << member.size << "  "
              << member.sha256.substr(0, 12) << "  " << member.name << "\n";
  }
}

void Run(const Options& options) {
  const patch::PatchListing listing =
      NamingFile(options.file, [&] { return patch::ListPatch(options.file); });
  if (options.json) {
    PrintJson(listing);
  } else {
    PrintText(listing);
  }
}

}  // namespace

void AddShow(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("show", "List a patch; its signature is not checked");
  command->add_option("FILE", options->file, "the patch file")->required();
  command->add_flag("--json", options->json, "as JSON");
  command->callback([options] { Run(*options); });
}

}  // namespace kalo::patch_tool
