#include "content_digest.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "tool_error.h"

namespace qzvtool {

namespace {

using DigestContext = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

[[noreturn]] void digestFailed() { fail("cannot compute a SHA-256 digest (libcrypto failed)"); }

DigestContext startDigest() {
  DigestContext context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) digestFailed();
  return context;
}

std::string finishDigest(EVP_MD_CTX* context) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context, digest, &length) != 1) digestFailed();
  static const char kHex[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(length * 2);
  for (unsigned int i = 0; i < length; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 0x0f];
  }
  return hex;
}

}  // namespace

std::string sha256Hex(const std::string& bytes) {
  DigestContext context = startDigest();
  if (EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) != 1) digestFailed();
  return finishDigest(context.get());
}

std::string sha256OfFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) fail("cannot read " + path + ": " + std::strerror(errno));
  DigestContext context = startDigest();
  char buffer[1 << 16];
  while (in) {
    in.read(buffer, sizeof buffer);
    const std::streamsize got = in.gcount();
    if (got > 0 && EVP_DigestUpdate(context.get(), buffer, static_cast<std::size_t>(got)) != 1) digestFailed();
  }
  if (in.bad()) fail("cannot read " + path);
  return finishDigest(context.get());
}

}  // namespace qzvtool
