#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kalo::fuzz {

/// A tar member with everything about it free, also what no archiver would write.
struct DescribedMember {
  char type = '0';
  unsigned mode = 0;
  std::string name;
  std::string prefix;
  std::string link;
  std::string owner;  ///< user's name
  unsigned uid = 0;
  unsigned gid = 0;
  std::string magic;
  std::optional<std::string> data;    ///< empty: what the reader of the text finds right for it
  std::optional<std::uint64_t> size;  ///< that the header claims, instead of the data's
  char padding = '\0';                ///< what fills the last block
  bool is_listed = false;             ///< in the manifest
  std::string listed_name;            ///< in the manifest; empty: the full name

  /// @return the name as an unpacker puts it together.
  [[nodiscard]] std::string FullName() const;
  [[nodiscard]] std::string ListedName() const;
  [[nodiscard]] std::uint64_t ClaimedSize() const;
  /// @return the mode without the kind of file, which some archivers put beside it.
  [[nodiscard]] unsigned Permissions() const;
  /// @return whether it is a regular file or a folder, and root's.
  [[nodiscard]] bool IsPlain() const;
};

/// Reads a text of one member a line: type, mode and name, then words such as "prefix=a". A mutated
/// text is still an archive, in which the checksums are right.
[[nodiscard]] std::vector<DescribedMember> ReadDescription(std::string_view text);

struct BuiltTar {
  std::string bytes;
  std::map<std::uint64_t, const DescribedMember*> headers;  ///< by the place of each
};

/// @param members borrowed by the result
[[nodiscard]] BuiltTar BuildTar(const std::vector<DescribedMember>& members);

}  // namespace kalo::fuzz
