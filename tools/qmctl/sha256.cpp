#include "tools/qmctl/sha256.h"

#include <openssl/evp.h>

#include "tools/qmctl/failure.h"

namespace qmctl {

std::string sha256Of(std::span<const std::uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int uSize = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &uSize, EVP_sha256(), nullptr) != 1) {
    throw Failure(kFailed, "the hash of a frame can't be computed");
  }
  std::string sText;
  for (unsigned int i = 0; i < uSize; ++i) {
    sText += kDigits[digest[i] >> 4U];
    sText += kDigits[digest[i] & 0xFU];
  }
  return sText;
}

}  // namespace qmctl
