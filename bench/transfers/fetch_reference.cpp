// bench-fetch-reference one|two URL SHA256 TARGET: fetches a file with the transfer library alone;
// its hash is taken while it is written, or from the file when it is there.
#include <curl/curl.h>
#include <gnutls/crypto.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Target {
  std::FILE* file = nullptr;
  gnutls_hash_hd_t hash = nullptr;
  bool hash_now = false;
};

std::size_t Take(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& target = *static_cast<Target*>(self);
  if (target.hash_now) gnutls_hash(target.hash, bytes, size * count);
  return std::fwrite(bytes, size, count, target.file) * size;
}

void HashFile(Target& target) {
  std::vector<char> block(std::size_t{256} << 10);
  std::rewind(target.file);
  while (const std::size_t got = std::fread(block.data(), 1, block.size(), target.file)) {
    gnutls_hash(target.hash, block.data(), got);
  }
}

std::string Hex(const std::array<unsigned char, 32>& digest) {
  std::string text;
  for (const unsigned char byte : digest) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    text += digits.data();
  }
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  Target target;
  target.hash_now = std::string_view(argv[1]) == "one";
  target.file = std::fopen(argv[4], "w+");
  if (target.file == nullptr || gnutls_hash_init(&target.hash, GNUTLS_DIG_SHA256) != 0) return 1;
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* curl = curl_easy_init();
  curl_easy_setopt(curl, CURLOPT_URL, argv[2]);
  curl_easy_setopt(curl, CURLOPT_CAINFO, "/etc.defaults/kalo/feed-ca.crt");
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Take);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &target);
  const CURLcode result = curl_easy_perform(curl);
  if (!target.hash_now) HashFile(target);
  std::array<unsigned char, 32> digest{};
  gnutls_hash_deinit(target.hash, digest.data());
  std::fclose(target.file);
  curl_easy_cleanup(curl);
  if (result == CURLE_OK && Hex(digest) == argv[3]) return 0;
  std::fprintf(stderr, "bench-fetch-reference: %s\n", curl_easy_strerror(result));
  return 1;
}
