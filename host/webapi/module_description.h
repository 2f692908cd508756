#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace kalo::webapi {

/// Who may call a row.
enum class AllowedCaller {
  kAdministrators,  ///< the admin port, a session of a user in the group "administrators"
  kMeshNode0,       ///< the mesh port, the certificate of node 0
  kMeshNodes,       ///< the mesh port, any node's certificate
};

/// What the server knows about one row of a module without loading it.
struct RowDescription {
  std::string api;
  int version = 0;
  std::string method;
  std::vector<AllowedCaller> allow;  ///< empty: nobody
  std::chrono::seconds timeout{60};  ///< a worker that takes longer is killed
  bool poll = false;                 ///< cheap and frequent: one worker is kept free for these
  bool files = false;                ///< may carry file parts
  bool stream = false;  ///< can be listened to: asked again and again, each change is told
};

/// The description file beside a module. Rows of a module that stand in none cannot be called.
struct ModuleDescription {
  std::filesystem::path library;   ///< absolute path of the module
  std::filesystem::path recovery;  ///< program that ends what died in the middle; empty: none
  std::vector<RowDescription> rows;
};

/// @param file path of the description file; the library lies in the same folder
/// @throws ModuleError
[[nodiscard]] ModuleDescription ParseModuleDescription(const std::string& text,
                                                       const std::filesystem::path& file);

/// What a folder of modules holds: the good descriptions in order of file name, and one line for
/// each file that is none.
struct ModuleFolder {
  std::vector<ModuleDescription> modules;
  std::vector<std::string> errors;
};

/// Reads every *.json file of a folder. A folder that is not there holds nothing.
[[nodiscard]] ModuleFolder ReadModuleFolder(const std::filesystem::path& folder);

}  // namespace kalo::webapi
