#include "host/update/patch_format/description.h"

#include <optional>

#include "host/core/key_value_text.h"
#include "host/update/patch_format/version_text.h"

namespace kalo::patch {
namespace {

// The field for it in the update check's request holds no more.
constexpr std::size_t kLongestUnique = 63;
constexpr std::string_view kUniqueBytes =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.+-";

[[noreturn]] void Fail(const std::string& reason) {
  throw PatchError(VerifyOutcome::kBadDescription, "VERSION: " + reason);
}

std::string Take(const KeyValueText& text, const std::string& key) {
  const std::optional<std::string> value = text.Get(key);
  if (!value || value->empty()) Fail("no " + key);
  return *value;
}

void Check(const PatchDescription& description) {
  if (!IsModelName(description.unique)) Fail("unique is not a model's name");
  if (!IsDisplayForm(description.version)) {
    Fail("version is not in display form (\"VXM 1.4.0-76010 Update 3\")");
  }
  const VersionNumbers numbers = ParseVersionText(description.version).value_or(VersionNumbers{});
  if (numbers != VersionNumbers{description.build, description.nano}) {
    Fail("build and nano are not those of the version");
  }
}

}  // namespace

bool IsModelName(std::string_view text) {
  return !text.empty() && text.size() <= kLongestUnique && !text.starts_with('.') &&
         text.find_first_not_of(kUniqueBytes) == std::string_view::npos;
}

PatchDescription ParseDescription(std::string_view text) {
  const KeyValueText values{std::string(text)};
  PatchDescription description;
  description.unique = Take(values, "unique");
  description.version = Take(values, "version");
  const std::string pure = Take(values, "build") + "-" + Take(values, "nano");
  const bool has_numbers = pure.find_first_not_of("0123456789-") == std::string::npos;
  const auto numbers = has_numbers ? ParseVersionText(pure) : std::nullopt;
  if (!numbers) Fail("build or nano is not a number");
  description.build = numbers->build;
  description.nano = numbers->nano;
  Check(description);
  return description;
}

std::string WriteDescription(const PatchDescription& description) {
  Check(description);
  return "unique=\"" + description.unique + "\"\nversion=\"" + description.version +
         "\"\nbuild=\"" + std::to_string(description.build) + "\"\nnano=\"" +
         std::to_string(description.nano) + "\"\n";
}

}  // namespace kalo::patch
