#include "box/setup/administrator.h"

#include <crypt.h>
#include <json/value.h>
#include <json/writer.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "host/core/file_io.h"

namespace kalo::box {
namespace {

constexpr std::size_t kPasswordBytes = 10;

std::string Hash(const std::string& password) {
  std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
  const auto data = std::make_unique<crypt_data>();
  if (crypt_gensalt_rn("$y$", 0, nullptr, 0, setting.data(), setting.size()) == nullptr ||
      crypt_rn(password.c_str(), setting.data(), data.get(), sizeof *data) == nullptr) {
    throw std::runtime_error("this system's libcrypt has no yescrypt");
  }
  return data->output;
}

}  // namespace

Administrator MakeAdministrator() {
  return {"admin", RandomHex(kPasswordBytes)};
}

std::string UsersJson(const Administrator& administrator) {
  Json::Value user(Json::objectValue);
  user["name"] = administrator.name;
  user["hash"] = Hash(administrator.password);
  user["groups"].append("administrators");
  Json::Value file(Json::objectValue);
  file["users"].append(user);
  return file.toStyledString();
}

}  // namespace kalo::box
