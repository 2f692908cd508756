// A tar file whose every member is described by a line of the input, with the checksums right, so
// that nothing but the reader's rules is in its way.

#include <fcntl.h>

#include "fuzz/described_tar.h"
#include "fuzz/fuzz_target.h"
#include "host/core/unique_fd.h"
#include "host/update/patch_format/patch_error.h"
#include "host/update/patch_format/tar_reader.h"
#include "tests/support/tar_header.h"

namespace kalo::fuzz {
namespace {

// Reads a member's data in pieces of an odd size.
std::string ReadData(patch::TarReader& reader, std::uint64_t size) {
  std::string data;
  std::string piece(100, '\0');
  while (const std::size_t count = reader.Read(piece)) {
    Require(count <= piece.size(), "no more is read than there is room for");
    data.append(piece, 0, count);
    Require(data.size() <= size, "a member is no longer than its header says");
  }
  return data;
}

void CheckMember(const patch::TarMember& member, const DescribedMember& as_built) {
  Require(as_built.IsPlain(), "a member is root's, and a plain file or a folder");
  const std::string name = as_built.FullName();
  Require(member.name == name || (member.is_folder && member.name + "/" == name),
          "a member has its header's name");
  Require(member.mode == as_built.Permissions(), "a member has its header's mode");
  Require(member.size == as_built.ClaimedSize(), "a member has its header's size");
  Require(!member.is_folder || member.size == 0, "a folder has no data");
}

void ReadAll(patch::TarReader& reader, const BuiltTar& tar) {
  const auto is_zeros = [&](std::uint64_t begin, std::uint64_t end) {
    return tar.bytes.substr(begin, end - begin).find_first_not_of('\0') == std::string::npos;
  };
  std::uint64_t end = 0;
  std::uint64_t place = 0;
  while (const auto member = reader.Next()) {
    Require(is_zeros(end, place), "padding is zeros");
    const auto built = tar.headers.find(place);
    Require(built != tar.headers.end(), "a member begins with a header");
    CheckMember(*member, *built->second);
    Require(
        ReadData(reader, member->size) == tar.bytes.substr(place + test::kTarBlock, member->size),
        "a member's data is what follows its header");
    end = place + test::kTarBlock + member->size;
    place = test::WholeTarBlocks(end);
  }
  Require(is_zeros(end, tar.bytes.size()), "nothing stands behind the last member");
}

}  // namespace
}  // namespace kalo::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo;
  const std::string text = fuzz::TextOf(data, size);
  const std::vector<fuzz::DescribedMember> members = fuzz::ReadDescription(text);
  const fuzz::BuiltTar tar = fuzz::BuildTar(members);
  fuzz::PutInput(fuzz::kInputFile, tar.bytes);
  const UniqueFd fd(::open(fuzz::kInputFile, O_RDONLY | O_CLOEXEC));
  try {
    patch::TarReader reader(fd.Get());
    fuzz::ReadAll(reader, tar);
  } catch (const patch::PatchError&) {
    return 0;
  }
  return 0;
}
