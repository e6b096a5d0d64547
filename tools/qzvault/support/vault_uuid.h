// UUIDs for new vaults, made with libuuid: the library stores a vault's UUID
// but never makes one up.
#ifndef QZVAULT_TOOL_SUPPORT_VAULT_UUID_H_
#define QZVAULT_TOOL_SUPPORT_VAULT_UUID_H_

#include <string>

namespace qzvtool {

// A new random UUID in lower case ("1b4e28ba-2fa1-11d2-883f-0016d3cca427").
std::string newVaultUuid();
// True when `text` is a UUID in the 8-4-4-4-12 hexadecimal form.
bool isUuid(const std::string& text);

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_VAULT_UUID_H_
