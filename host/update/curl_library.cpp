#include "host/update/curl_library.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace kalo {
namespace {

// The one that the headers belong to.
constexpr const char* kFile = KALO_CURL_SONAME;

[[noreturn]] void Fail() {
  const char* cause = dlerror();
  throw std::runtime_error("the transfer library cannot be loaded: " +
                           std::string(cause != nullptr ? cause : kFile));
}

// Stays loaded: what it was given, such as callbacks, may be in use until the process ends.
CurlLibrary Load() {
  void* file = dlopen(kFile, RTLD_NOW | RTLD_LOCAL);
  if (file == nullptr) Fail();
  const auto find = [file](const char* name, auto& function) {
    void* found = dlsym(file, name);
    if (found == nullptr) Fail();
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(found);
  };
  CurlLibrary curl{};
  find("curl_global_init", curl.global_init);
  find("curl_easy_init", curl.easy_init);
  find("curl_easy_cleanup", curl.easy_cleanup);
  find("curl_easy_reset", curl.easy_reset);
  find("curl_easy_setopt", curl.easy_setopt);
  find("curl_easy_perform", curl.easy_perform);
  find("curl_easy_getinfo", curl.easy_getinfo);
  find("curl_easy_strerror", curl.easy_strerror);
  find("curl_multi_init", curl.multi_init);
  find("curl_multi_cleanup", curl.multi_cleanup);
  find("curl_multi_add_handle", curl.multi_add_handle);
  find("curl_multi_remove_handle", curl.multi_remove_handle);
  find("curl_multi_perform", curl.multi_perform);
  find("curl_multi_poll", curl.multi_poll);
  find("curl_multi_info_read", curl.multi_info_read);
  find("curl_mime_init", curl.mime_init);
  find("curl_mime_free", curl.mime_free);
  find("curl_mime_addpart", curl.mime_addpart);
  find("curl_mime_name", curl.mime_name);
  find("curl_mime_data", curl.mime_data);
  find("curl_mime_data_cb", curl.mime_data_cb);
  find("curl_mime_filename", curl.mime_filename);
  find("curl_slist_append", curl.slist_append);
  find("curl_slist_free_all", curl.slist_free_all);
  if (curl.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
    throw std::runtime_error("the transfer library cannot be started");
  }
  return curl;
}

}  // namespace

const CurlLibrary& Curl() {
  static const CurlLibrary kLibrary = Load();
  return kLibrary;
}

}  // namespace kalo
