#include "services/webapid/page_files.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/webapi/error_codes.h"
#include "services/webapid/digest.h"

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = std::size_t{1} << 20;
constexpr std::size_t kTagLength = 16;

struct Type {
  std::string_view extension;
  const char* media_type;
};

constexpr std::array kTypes = {
    Type{".html", "text/html; charset=utf-8"},
    Type{".css", "text/css; charset=utf-8"},
    Type{".js", "text/javascript; charset=utf-8"},
    Type{".svg", "image/svg+xml"},
};

// Its own scripts and styles, its own server, and nothing else: no inline script, no frame around
// it, no form that goes elsewhere, and no text that becomes markup.
constexpr const char* kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
    "require-trusted-types-for 'script'; trusted-types 'none'";

const char* TypeOf(const fs::path& file) {
  const std::string extension = file.extension();
  const auto* type = std::find_if(kTypes.begin(), kTypes.end(),
                                  [&](const Type& known) { return known.extension == extension; });
  return type == kTypes.end() ? nullptr : type->media_type;
}

}  // namespace

PageFiles::PageFiles(const fs::path& folder) {
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path& file = entry->path();
    const bool hidden = file.filename().string().starts_with('.');
    if (hidden || entry->is_symlink() || !entry->is_regular_file()) continue;
    Read(file, "/" + file.lexically_relative(folder).string());
  }
  if (error) Log(LOG_ERR, "%s: %s", folder.c_str(), error.message().c_str());
}

void PageFiles::Read(const fs::path& file, const std::string& path) {
  const char* type = TypeOf(file);
  if (type == nullptr) return;
  std::optional<std::string> body = ReadFile(file, kLargestFile);
  if (!body) {
    Log(LOG_ERR, "%s: %s", file.c_str(), std::strerror(errno));
    return;
  }
  std::string tag = "\"" + Sha256Hex(*body).substr(0, kTagLength) + "\"";
  files_.insert_or_assign(path == "/index.html" ? "/" : path,
                          File{std::move(*body), type, std::move(tag)});
}

Reply PageFiles::Get(const std::string& path, const std::string& known_tag) const {
  const auto found = files_.find(path);
  if (found == files_.end()) return ErrorReply(webapi::kUnknownApi);
  const File& file = found->second;
  const bool known = known_tag == file.tag;
  // Always asked for again: after an upgrade of the router the page must be the new one.
  return {known ? unsigned{MHD_HTTP_NOT_MODIFIED} : unsigned{MHD_HTTP_OK},
          known ? "" : file.body,
          file.type,
          {{"Cache-Control", "no-cache"},
           {"Content-Security-Policy", kPolicy},
           {"Cross-Origin-Opener-Policy", "same-origin"},
           {"ETag", file.tag}}};
}

}  // namespace kalo::webapid
