#include "checked_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qzvtool {
namespace {

const std::size_t kBufferSize = 64 * 1024;

}  // namespace

CheckedFdBuffer::CheckedFdBuffer(int fd, bool lineBuffered)
    : fd_(fd), lineBuffered_(lineBuffered), buffer_(kBufferSize) {
  setp(buffer_.data(), buffer_.data() + buffer_.size());
}

CheckedFdBuffer::~CheckedFdBuffer() { flushAll(); }

bool CheckedFdBuffer::writeOut(const char* data, std::size_t size) {
  while (size > 0 && error_ == 0) {
    const ssize_t written = ::write(fd_, data, size);
    if (written > 0) {
      data += written;
      size -= static_cast<std::size_t>(written);
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      // A non-blocking descriptor that is full: wait until it takes more.
      pollfd waiting{fd_, POLLOUT, 0};
      if (poll(&waiting, 1, -1) >= 0 || errno == EINTR) continue;
    }
    // write() returning 0 for a non-empty buffer would loop for ever; it is
    // the nearest thing to a full device.
    error_ = written == 0 ? ENOSPC : errno;
  }
  return error_ == 0;
}

bool CheckedFdBuffer::flushAll() {
  const std::size_t pending = static_cast<std::size_t>(pptr() - pbase());
  const bool ok = writeOut(pbase(), pending);
  setp(buffer_.data(), buffer_.data() + buffer_.size());
  return ok;
}

CheckedFdBuffer::int_type CheckedFdBuffer::overflow(int_type c) {
  if (!flushAll()) return traits_type::eof();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  if (lineBuffered_ && traits_type::to_char_type(c) == '\n' && !flushAll()) return traits_type::eof();
  return c;
}

std::streamsize CheckedFdBuffer::xsputn(const char* data, std::streamsize count) {
  if (error_ != 0 || count <= 0) return error_ != 0 ? 0 : count;
  const std::size_t size = static_cast<std::size_t>(count);
  const std::size_t room = static_cast<std::size_t>(epptr() - pptr());
  if (size <= room) {
    std::memcpy(pptr(), data, size);
    pbump(static_cast<int>(size));
  } else if (!flushAll() || !writeOut(data, size)) {
    // Larger than the buffer: written through once the buffer is empty.
    return 0;
  }
  if (lineBuffered_ && std::memchr(data, '\n', size) != nullptr && !flushAll()) return 0;
  return count;
}

int CheckedFdBuffer::sync() { return flushAll() ? 0 : -1; }

}  // namespace qzvtool
