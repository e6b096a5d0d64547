#include "file_copy.h"

#include <random>
#include <vector>

#include "qzbase/platform.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

// Closes a platform file handle on scope exit.
struct FileCloser {
  NpFile* file = nullptr;
  ~FileCloser() { np_fio_close(file); }
};

std::string hiddenNameBeside(const std::string& target) {
  static std::mt19937_64 generator{std::random_device{}()};
  const std::size_t slash = target.rfind('/');
  const std::string directory = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
  const std::string leaf = slash == std::string::npos ? target : target.substr(slash + 1);
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, ".%016llx.new", static_cast<unsigned long long>(generator()));
  return directory + "." + leaf.substr(0, 200) + suffix;
}

}  // namespace

void copyIntoPlace(const std::string& source, const std::string& target) {
  FileCloser in;
  int result = np_fio_open(source.c_str(), NP_FIO_READ | NP_FIO_NOFOLLOW, &in.file);
  if (result != NP_OK) fail("cannot read " + source + ": " + np_fio_errdesc(result));

  const std::string hidden = hiddenNameBeside(target);
  {
    FileCloser out;
    result = np_fio_open(hidden.c_str(), NP_FIO_WRITE | NP_FIO_CREATE_NEW, &out.file);
    if (result != NP_OK) fail("cannot write " + target + ": " + np_fio_errdesc(result));
    std::vector<char> buffer(1 << 16);
    for (;;) {
      std::size_t got = 0;
      result = np_fio_read(in.file, buffer.data(), buffer.size(), &got);
      if (result != NP_OK) {
        np_fio_unlink(hidden.c_str());
        fail("cannot read " + source + ": " + np_fio_errdesc(result));
      }
      if (got == 0) break;
      result = np_fio_write(out.file, buffer.data(), got);
      if (result != NP_OK) {
        np_fio_unlink(hidden.c_str());
        fail("cannot write " + target + ": " + np_fio_errdesc(result));
      }
    }
  }
  result = np_fio_rename_noreplace(hidden.c_str(), target.c_str());
  if (result != NP_OK) {
    np_fio_unlink(hidden.c_str());
    fail("cannot write " + target + ": " +
         (result == NP_ERR_EXISTS ? std::string("a file of that name appeared meanwhile")
                                  : std::string(np_fio_errdesc(result))));
  }
}

}  // namespace qzvtool
