// Reading and atomically replacing definition files.
//
// Existence, type, creation, renaming and removal go through the base layer's
// np_* functions, so that a fault-injecting platform reaches them. The layer has
// no operations for file contents or for setting exact permission bits; those
// two steps use the C++ standard library.
#include "defs_file_io.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <system_error>

#include "defs_paths.h"
#include "qzbase/platform.h"

namespace qzvmd_defs {
namespace {

// Room left in a file name for the temporary suffix (".", "~", 16 hex digits).
constexpr std::size_t kMaxTemporaryStem = 200;
constexpr int kTemporaryNameAttempts = 64;

std::string randomSuffix() {
  thread_local std::mt19937_64 generator{std::random_device{}()};
  static const char digits[] = "0123456789abcdef";
  std::uint64_t value = generator();
  std::string suffix(16, '0');
  for (char& c : suffix) {
    c = digits[value & 15u];
    value >>= 4;
  }
  return suffix;
}

// Creates a new, empty, hidden file beside `path` and returns its name in
// *temporary. The exclusive create makes two concurrent writers pick distinct
// files.
bool createTemporaryBeside(const std::string& path, std::string* temporary, std::string* reason) {
  const std::string directory = directoryOf(path);
  std::string stem = leafOf(path).substr(0, kMaxTemporaryStem);
  std::string prefix = directory;
  if (!prefix.empty() && prefix != "/") prefix += "/";
  prefix += "." + stem + "~";
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    const std::string candidate = prefix + randomSuffix();
    NpFile* handle = nullptr;
    const int rc = np_fio_open(candidate.c_str(), NP_FIO_WRITE | NP_FIO_CREATE_NEW, &handle);
    if (rc == NP_OK) {
      np_fio_close(handle);
      *temporary = candidate;
      return true;
    }
    if (rc != NP_ERR_EXISTS) {
      *reason = std::string("cannot create a temporary file beside it: ") + np_fio_errdesc(rc);
      return false;
    }
  }
  *reason = "cannot find a free temporary file name beside it";
  return false;
}

}  // namespace

bool readWholeFile(const std::string& path, std::string* content, std::string* reason) {
  NpStat status{};
  const int rc = np_fio_stat(path.c_str(), &status);
  if (rc != NP_OK) {
    *reason = np_fio_errdesc(rc);
    return false;
  }
  if (status.type != NP_TYPE_FILE) {
    *reason = "not a regular file";
    return false;
  }
  if (status.size > kMaxDocumentBytes) {
    *reason = "larger than " + std::to_string(kMaxDocumentBytes) + " bytes";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *reason = "cannot be opened for reading";
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) {
    *reason = "read error";
    return false;
  }
  *content = text.str();
  return true;
}

bool replaceFileAtomically(const std::string& path, const std::string& content,
                           std::string* reason) {
  NpStat original{};
  const int statResult = np_fio_stat(path.c_str(), &original);
  const bool exists = statResult == NP_OK;
  if (!exists && statResult != NP_ERR_NOT_FOUND) {
    *reason = np_fio_errdesc(statResult);
    return false;
  }
  if (exists && original.type != NP_TYPE_FILE) {
    *reason = "not a regular file";
    return false;
  }

  std::string temporary;
  if (!createTemporaryBeside(path, &temporary, reason)) return false;

  bool written = false;
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (out) {
      out.write(content.data(), static_cast<std::streamsize>(content.size()));
      out.flush();
      written = static_cast<bool>(out);
    }
  }
  if (!written) {
    np_fio_unlink(temporary.c_str());
    *reason = "cannot write the temporary file";
    return false;
  }
  if (exists) {
    std::error_code error;
    std::filesystem::permissions(temporary,
                                 static_cast<std::filesystem::perms>(original.mode & 07777),
                                 std::filesystem::perm_options::replace, error);
    if (error) {
      np_fio_unlink(temporary.c_str());
      *reason = "cannot give the temporary file the original's permissions: " + error.message();
      return false;
    }
  }
  const int renameResult = np_fio_rename(temporary.c_str(), path.c_str());
  if (renameResult != NP_OK) {
    np_fio_unlink(temporary.c_str());
    *reason = std::string("cannot replace the file: ") + np_fio_errdesc(renameResult);
    return false;
  }
  return true;
}

}  // namespace qzvmd_defs
