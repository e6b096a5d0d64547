#include "vault_uuid.h"

#include <uuid/uuid.h>

namespace qzvtool {

std::string newVaultUuid() {
  uuid_t value;
  uuid_generate(value);
  char textForm[37];
  uuid_unparse_lower(value, textForm);
  return textForm;
}

bool isUuid(const std::string& text) {
  uuid_t parsed;
  return text.size() == 36 && uuid_parse(text.c_str(), parsed) == 0;
}

}  // namespace qzvtool
