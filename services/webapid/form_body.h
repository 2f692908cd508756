#pragma once

#include <microhttpd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "services/webapid/body_reader.h"
#include "services/webapid/upload_store.h"

namespace kalo::webapid {

/// A form: multipart, or percent-encoded without files. Fields become string parameters,
/// or booleans when they are "true" or "false"; the file part NAME becomes the parameters NAME (the
/// safe file name) and NAME_tmp (where the file lies).
class FormBody : public BodyReader {
 public:
  struct Limits {
    std::size_t fields = 0;   ///< bytes of all names and values together
    std::uint64_t files = 0;  ///< bytes of all files together
    bool files_allowed = false;
  };

  /// @param connection borrowed; its headers tell the form's encoding
  /// @param folder     borrowed; receives the request's folder with the first file
  FormBody(MHD_Connection* connection, const Limits& limits, const UploadStore& store,
           std::optional<UploadFolder>& folder);

  /// @return whether the headers name an encoding that can be read.
  [[nodiscard]] bool IsReadable() const { return processor_ != nullptr; }
  void Feed(std::string_view data) override;
  [[nodiscard]] BodyResult Finish() override;

 private:
  struct Destroy {
    void operator()(MHD_PostProcessor* processor) const { MHD_destroy_post_processor(processor); }
  };
  // A part comes in pieces; only a piece at offset 0 can begin one.
  struct Piece {
    const char* name;
    const char* file_name;
    std::string_view data;
    std::uint64_t offset;
  };

  static MHD_Result OnPiece(void* self, MHD_ValueKind kind, const char* name, const char* file_name,
                            const char* type, const char* encoding, const char* data,
                            std::uint64_t offset, std::size_t size);
  // Each returns 0 or an error code.
  [[nodiscard]] int Take(const Piece& piece);
  [[nodiscard]] int Begin(const Piece& piece);
  [[nodiscard]] int EndField();
  [[nodiscard]] int BeginFile(const Piece& piece);
  [[nodiscard]] int Append(const Piece& piece);
  [[nodiscard]] bool Continues(const Piece& piece) const;

  Limits limits_;
  const UploadStore& store_;
  std::optional<UploadFolder>& folder_;
  std::unique_ptr<MHD_PostProcessor, Destroy> processor_;
  Json::Value parameters_{Json::objectValue};
  int error_ = 0;

  bool in_part_ = false;
  bool in_file_ = false;
  std::string name_;   // of the current part
  std::string value_;  // of the current part when it is no file
  std::uint64_t part_size_ = 0;
  std::size_t fields_size_ = 0;
  std::uint64_t files_size_ = 0;
  std::size_t parts_ = 0;
};

}  // namespace kalo::webapid
