// Content digests of files: SHA-256, computed with OpenSSL's libcrypto, as
// lower-case hexadecimal. Two versions with the same digest hold the same
// bytes.
#ifndef QZVAULT_TOOL_SUPPORT_CONTENT_DIGEST_H_
#define QZVAULT_TOOL_SUPPORT_CONTENT_DIGEST_H_

#include <string>

namespace qzvtool {

// The SHA-256 of `bytes`, 64 hexadecimal digits.
std::string sha256Hex(const std::string& bytes);
// The SHA-256 of the file at `path`, read in pieces. Throws ToolError (exit
// status 1) when the file cannot be read.
std::string sha256OfFile(const std::string& path);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_CONTENT_DIGEST_H_
