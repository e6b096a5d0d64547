// Checks of the vault's own files and of the paths and names hosts give.
#include "vault_files.h"

#include <string>
#include <vector>

#include "qzbase/path.h"

namespace {

const char* kindOf(int type) {
  switch (type) {
    case NP_TYPE_FILE: return "a regular file";
    case NP_TYPE_DIRECTORY: return "a directory";
    case NP_TYPE_LINK: return "a symbolic link";
    case NP_TYPE_FIFO: return "a fifo";
    case NP_TYPE_DEVICE: return "a device";
    case NP_TYPE_SOCKET: return "a socket";
    default: return "a special file";
  }
}

bool isVaultName(const std::string& component) { return !component.empty() && component[0] == '.'; }

}  // namespace

QzbString qzviWrongTypeReason(int type, bool directory) {
  if (type == NP_TYPE_LINK) {
    return QzbString("a symbolic link (the vault never follows links to its own files)", true);
  }
  if (directory && type != NP_TYPE_DIRECTORY) {
    return qzbStringFormat("%s, not a directory", kindOf(type));
  }
  if (!directory && type != NP_TYPE_FILE) {
    return qzbStringFormat("%s, not a regular file", kindOf(type));
  }
  return QzbString();
}

QzbString qzviRefusalMessage(const QzbString& path, const QzbString& reason) {
  return qzbStringFormat("%s is %s", path.asCstr(), reason.asCstr());
}

QzviVaultFileState qzviExamineVaultFile(const QzbString& path, bool directory, QzbString* reason,
                                        NpFileInfo* info) {
  NpFileInfo status;
  const int result = np_fio_lstat(path.asCstr(), &status);
  if (result == NP_ERR_NOT_FOUND) return QzviVaultFileState::kMissing;
  if (result != NP_OK) {
    if (reason != nullptr) *reason = qzbStringFormat("not examinable: %s", np_fio_errdesc(result));
    return QzviVaultFileState::kRefused;
  }
  const QzbString wrong = qzviWrongTypeReason(status.type, directory);
  if (!wrong.isNull()) {
    if (reason != nullptr) *reason = wrong;
    return QzviVaultFileState::kRefused;
  }
  if (info != nullptr) *info = status;
  return QzviVaultFileState::kPresent;
}

bool qzviIsObjectFileName(const QzbString& name, QzbString* error) {
  const char* reason = nullptr;
  if (name.isEmpty()) {
    reason = "it is empty";
  } else if (name.find("/") >= 0 || name.find("\\") >= 0) {
    reason = "a file name is one name of the folder, without a separator";
  } else if (name.compare(".", true) == 0 || name.compare("..", true) == 0) {
    reason = "it names a directory, not a file";
  } else if (name.startsWith(".")) {
    reason = "names beginning with \".\" belong to the vault's own files";
  }
  if (reason == nullptr) return true;
  if (error != nullptr) {
    *error = qzbStringFormat("Invalid file name \"%s\": %s", name.isNull() ? "" : name.asCstr(),
                             reason);
  }
  return false;
}

bool qzviIsInsideVault(const QzbString& root, const QzbString& path, bool rootAllowed,
                       QzbString* error) {
  const std::string rootText = root.isNull() ? std::string() : root.toStdString();
  const std::string pathText = path.isNull() ? std::string() : path.toStdString();
  auto refuse = [&](const QzbString& message) {
    if (error != nullptr) *error = message;
    return false;
  };
  const QzbString outside =
      qzbStringFormat("Path %s is outside the vault %s", pathText.c_str(), rootText.c_str());

  // The root itself, then "/" and the rest.
  std::string rest;
  if (pathText == rootText) {
    if (!rootAllowed) return refuse(outside);
    return true;
  }
  const std::string prefix = rootText == "/" ? rootText : rootText + "/";
  if (rootText.empty() || pathText.compare(0, prefix.size(), prefix) != 0) return refuse(outside);
  rest = pathText.substr(prefix.size());

  std::vector<std::string> components;
  std::string::size_type start = 0;
  while (start <= rest.size()) {
    const std::string::size_type slash = rest.find('/', start);
    const std::string component =
        rest.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    if (!component.empty()) components.push_back(component);
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  if (components.empty()) {
    if (!rootAllowed) return refuse(outside);
    return true;
  }
  for (const std::string& component : components) {
    if (component == "." || component == "..") return refuse(outside);
    if (isVaultName(component)) {
      return refuse(qzbStringFormat("Path %s names one of the vault's own files (\"%s\")",
                                    pathText.c_str(), component.c_str()));
    }
  }

  // Down from the root: no link, and directories until the last component;
  // what does not exist yet ends the walk.
  std::string walked = rootText == "/" ? std::string() : rootText;
  for (std::size_t i = 0; i < components.size(); ++i) {
    walked += "/" + components[i];
    NpFileInfo status;
    const int result = np_fio_lstat(walked.c_str(), &status);
    if (result == NP_ERR_NOT_FOUND) return true;
    if (result != NP_OK) {
      return refuse(qzbStringFormat("Path %s cannot be examined: %s", walked.c_str(),
                                    np_fio_errdesc(result)));
    }
    if (status.type == NP_TYPE_LINK) {
      return refuse(qzbStringFormat(
          "Path %s passes through the symbolic link %s, which the vault does not follow",
          pathText.c_str(), walked.c_str()));
    }
    if (i + 1 < components.size() && status.type != NP_TYPE_DIRECTORY) {
      return refuse(qzbStringFormat("Path %s passes through %s, which is not a directory",
                                    pathText.c_str(), walked.c_str()));
    }
  }
  return true;
}
