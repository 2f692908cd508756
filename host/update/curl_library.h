#pragma once

#include <curl/curl.h>

namespace kalo {

/// The transfer library's functions, by their names without "curl_".
///
/// It is loaded when it is used first, not with the program: with all that it needs itself it takes
/// a megabyte of every worker's memory, and most requests transfer nothing.
struct CurlLibrary {
  decltype(&curl_global_init) global_init;
  decltype(&curl_easy_init) easy_init;
  decltype(&curl_easy_cleanup) easy_cleanup;
  decltype(&curl_easy_reset) easy_reset;
  decltype(&curl_easy_setopt) easy_setopt;
  decltype(&curl_easy_perform) easy_perform;
  decltype(&curl_easy_getinfo) easy_getinfo;
  decltype(&curl_easy_strerror) easy_strerror;
  decltype(&curl_multi_init) multi_init;
  decltype(&curl_multi_cleanup) multi_cleanup;
  decltype(&curl_multi_add_handle) multi_add_handle;
  decltype(&curl_multi_remove_handle) multi_remove_handle;
  decltype(&curl_multi_perform) multi_perform;
  decltype(&curl_multi_poll) multi_poll;
  decltype(&curl_multi_info_read) multi_info_read;
  decltype(&curl_mime_init) mime_init;
  decltype(&curl_mime_free) mime_free;
  decltype(&curl_mime_addpart) mime_addpart;
  decltype(&curl_mime_name) mime_name;
  decltype(&curl_mime_data) mime_data;
  decltype(&curl_mime_data_cb) mime_data_cb;
  decltype(&curl_mime_filename) mime_filename;
  decltype(&curl_slist_append) slist_append;
  decltype(&curl_slist_free_all) slist_free_all;
};

/// @return the library, ready for use.
/// @throws std::runtime_error when it cannot be loaded; the next call tries again
[[nodiscard]] const CurlLibrary& Curl();

}  // namespace kalo
