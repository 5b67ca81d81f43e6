#include "apps/kavo/provenance.h"

#include <openssl/evp.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <system_error>

namespace kavo::command {

namespace {

// In hexadecimal digits; empty if the file cannot be read.
std::string HashOf(const std::string& file) {
  std::error_code unused;
  std::ifstream stream;
  if (std::filesystem::is_regular_file(file, unused)) {
    stream.open(file, std::ios::binary);
  }
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  if (!stream.is_open() || !context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
    return {};
  }
  std::array<char, 1 << 16> block;
  while (stream.read(block.data(), block.size()) || stream.gcount() > 0) {
    EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(stream.gcount()));
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int size = 0;
  EVP_DigestFinal_ex(context.get(), digest.data(), &size);
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    text += kDigits[digest[i] >> 4];
    text += kDigits[digest[i] & 15];
  }
  return text;
}

}  // namespace

std::string Version() { return KAVO_VERSION; }

std::vector<formats::InputFile> HashFiles(const std::vector<std::pair<std::string, std::string>>& files) {
  std::vector<formats::InputFile> hashed;
  std::set<std::pair<std::string, std::string>> known;
  for (const auto& [role, name] : files) {
    if (!name.empty() && known.emplace(role, name).second) {
      hashed.push_back({role, name, HashOf(name)});
    }
  }
  return hashed;
}

}  // namespace kavo::command
