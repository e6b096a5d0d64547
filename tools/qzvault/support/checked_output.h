// A stream buffer over a file descriptor that notices every failed write.
//
// The standard streams drop a failed write quietly unless someone looks at
// their state at the right moment, and the C library's stdout keeps no
// reason. This buffer writes with write(2), retries interrupted and partial
// writes, waits when the descriptor is non-blocking and full, and keeps the
// errno of the first write that failed; after a failure it takes nothing
// more, so that a broken output costs no further work.
//
// Not thread safe; the tool prints from one thread.
#ifndef QZVAULT_TOOL_SUPPORT_CHECKED_OUTPUT_H_
#define QZVAULT_TOOL_SUPPORT_CHECKED_OUTPUT_H_

#include <streambuf>
#include <vector>

namespace qzvtool {

class CheckedFdBuffer : public std::streambuf {
 public:
  // Writes to `fd` (which stays open: the buffer never closes it). With
  // `lineBuffered` every line break flushes, for a terminal.
  CheckedFdBuffer(int fd, bool lineBuffered);
  ~CheckedFdBuffer() override;
  CheckedFdBuffer(const CheckedFdBuffer&) = delete;
  CheckedFdBuffer& operator=(const CheckedFdBuffer&) = delete;

  // Writes what is buffered; false when this or an earlier write failed.
  bool flushAll();
  // The errno of the first failed write; 0 while every write succeeded.
  int error() const { return error_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* data, std::streamsize count) override;
  int sync() override;

 private:
  bool writeOut(const char* data, std::size_t size);

  int fd_;
  bool lineBuffered_;
  int error_ = 0;
  std::vector<char> buffer_;
};

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_SUPPORT_CHECKED_OUTPUT_H_
