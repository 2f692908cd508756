#include "host/update/curl_library.h"

#include <stdexcept>

#include "host/core/shared_library.h"

namespace kalo {
namespace {

CurlLibrary Load() {
  // The one that the headers belong to.
  const SharedLibrary file(KALO_CURL_SONAME, "the transfer library");
  CurlLibrary curl{};
  file.Find("curl_global_init", curl.global_init);
  file.Find("curl_easy_init", curl.easy_init);
  file.Find("curl_easy_cleanup", curl.easy_cleanup);
  file.Find("curl_easy_reset", curl.easy_reset);
  file.Find("curl_easy_setopt", curl.easy_setopt);
  file.Find("curl_easy_perform", curl.easy_perform);
  file.Find("curl_easy_getinfo", curl.easy_getinfo);
  file.Find("curl_easy_strerror", curl.easy_strerror);
  file.Find("curl_multi_init", curl.multi_init);
  file.Find("curl_multi_cleanup", curl.multi_cleanup);
  file.Find("curl_multi_add_handle", curl.multi_add_handle);
  file.Find("curl_multi_remove_handle", curl.multi_remove_handle);
  file.Find("curl_multi_perform", curl.multi_perform);
  file.Find("curl_multi_poll", curl.multi_poll);
  file.Find("curl_multi_info_read", curl.multi_info_read);
  file.Find("curl_mime_init", curl.mime_init);
  file.Find("curl_mime_free", curl.mime_free);
  file.Find("curl_mime_addpart", curl.mime_addpart);
  file.Find("curl_mime_name", curl.mime_name);
  file.Find("curl_mime_data", curl.mime_data);
  file.Find("curl_mime_data_cb", curl.mime_data_cb);
  file.Find("curl_mime_filename", curl.mime_filename);
  file.Find("curl_slist_append", curl.slist_append);
  file.Find("curl_slist_free_all", curl.slist_free_all);
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
