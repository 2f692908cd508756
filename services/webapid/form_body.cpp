#include "services/webapid/form_body.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <utility>

#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "host/webapi/error_codes.h"
#include "services/webapid/file_names.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kProcessorBuffer = std::size_t{32} << 10;
constexpr std::size_t kMostParts = 256;

int NotStored() {
  Log(LOG_ERR, "an upload cannot be stored: %s", std::strerror(errno));
  return webapi::kUploadNotStored;
}

}  // namespace

FormBody::FormBody(MHD_Connection* connection, const Limits& limits, const UploadStore& store,
                   std::optional<UploadFolder>& folder)
    : limits_(limits),
      store_(store),
      folder_(folder),
      processor_(MHD_create_post_processor(connection, kProcessorBuffer, &OnPiece, this)) {}

void FormBody::Feed(std::string_view data) {
  if (error_ != 0) return;
  if (MHD_post_process(processor_.get(), data.data(), data.size()) != MHD_YES && error_ == 0) {
    error_ = webapi::kMalformedRequest;
  }
}

BodyResult FormBody::Finish() {
  // Only the end tells a whole body from one that was cut between two parts; it may also hand out
  // a last piece.
  const bool whole = MHD_destroy_post_processor(processor_.release()) == MHD_YES;
  if (error_ == 0 && !whole) error_ = webapi::kMalformedRequest;
  if (error_ == 0) error_ = EndField();
  if (error_ == 0 && folder_ && !folder_->Close()) error_ = NotStored();
  if (error_ != 0) return {error_, {}};
  return {0, std::move(parameters_)};
}

// Called from C, so nothing may be thrown through.
MHD_Result FormBody::OnPiece(void* self, MHD_ValueKind /*kind*/, const char* name,
                             const char* file_name, const char* /*type*/, const char* /*encoding*/,
                             const char* data, std::uint64_t offset, std::size_t size) {
  auto& body = *static_cast<FormBody*>(self);
  try {
    const std::string_view bytes(size == 0 ? "" : data, size);
    body.error_ = body.Take({name, file_name, bytes, offset});
  } catch (const std::exception& e) {
    Log(LOG_ERR, "reading a form: %s", e.what());
    body.error_ = webapi::kGeneralFailure;
  }
  return body.error_ == 0 ? MHD_YES : MHD_NO;
}

int FormBody::Take(const Piece& piece) {
  if (piece.name == nullptr) return webapi::kMalformedRequest;
  if (!Continues(piece)) {
    if (const int error = Begin(piece); error != 0) return error;
  }
  return Append(piece);
}

// A part's first piece may come twice with offset 0, the first time empty.
bool FormBody::Continues(const Piece& piece) const {
  return in_part_ && name_ == piece.name && piece.offset == part_size_ &&
         (piece.offset > 0 || !piece.data.empty()) && in_file_ == (piece.file_name != nullptr);
}

int FormBody::Begin(const Piece& piece) {
  if (const int error = EndField(); error != 0) return error;
  const std::string_view name = piece.name;
  if (IsReservedParameter(name)) return webapi::kReservedParameter;
  if (!IsParameterName(name) || piece.offset != 0 || parameters_.isMember(piece.name) ||
      ++parts_ > kMostParts) {
    return webapi::kMalformedRequest;
  }
  in_part_ = true;
  in_file_ = piece.file_name != nullptr;
  name_ = name;
  part_size_ = 0;
  fields_size_ += name.size();
  parameters_[name_] = "";
  return in_file_ ? BeginFile(piece) : 0;
}

// A form has texts only, so the words of a boolean are taken as one here, where that is known.
int FormBody::EndField() {
  if (!in_part_ || in_file_) return 0;
  if (!IsUtf8(value_)) return webapi::kMalformedRequest;
  Json::Value& parameter = parameters_[name_];
  if (value_ == "true" || value_ == "false") {
    parameter = value_ == "true";
  } else {
    parameter = value_;
  }
  value_.clear();
  return 0;
}

int FormBody::BeginFile(const Piece& piece) {
  const std::optional<std::string> file_name = SafeFileName(piece.file_name);
  if (!limits_.files_allowed || !IsFileField(name_) || !file_name) {
    return webapi::kMalformedRequest;
  }
  if (!folder_) {
    std::optional<UploadFolder> made = store_.MakeFolder();
    if (!made) return NotStored();
    folder_.emplace(std::move(*made));
  } else if (!folder_->Close()) {
    return NotStored();
  }
  const std::optional<std::filesystem::path> file = folder_->StartFile();
  if (!file) return NotStored();
  parameters_[name_] = *file_name;
  parameters_[name_ + "_tmp"] = file->string();
  return 0;
}

int FormBody::Append(const Piece& piece) {
  part_size_ += piece.data.size();
  if (!in_file_) {
    fields_size_ += piece.data.size();
    if (fields_size_ > limits_.fields) return webapi::kBodyTooLarge;
    value_ += piece.data;
    return 0;
  }
  files_size_ += piece.data.size();
  if (files_size_ > limits_.files) return webapi::kBodyTooLarge;
  return folder_->Append(piece.data) ? 0 : NotStored();
}

}  // namespace kalo::webapid
