#include "file_names.h"

#include <cstring>

#include "qzbase/file_types.h"

namespace qzvtool {

FileNameParts splitFileName(const std::string& fileName) {
  std::size_t split = std::string::npos;
  if (const char* twoPart = qzbFindTwoPartExtension(fileName.c_str())) {
    split = fileName.size() - std::strlen(twoPart) - 1;
  } else {
    const std::size_t dot = fileName.rfind('.');
    if (dot != std::string::npos && dot != 0) split = dot;
  }
  if (split == std::string::npos) return FileNameParts{fileName, std::string()};
  return FileNameParts{fileName.substr(0, split), fileName.substr(split + 1)};
}

}  // namespace qzvtool
