// malloc and friends that count, forwarding to glibc's own entry points.
#include "heap_counter.h"

#include <errno.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

std::atomic<std::size_t> g_inUse{0};
std::atomic<std::size_t> g_peak{0};

void added(void* block) {
  if (block == nullptr) return;
  const std::size_t now = g_inUse.fetch_add(malloc_usable_size(block)) + malloc_usable_size(block);
  std::size_t peak = g_peak.load(std::memory_order_relaxed);
  while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
  }
}

void removed(void* block) {
  if (block != nullptr) g_inUse.fetch_sub(malloc_usable_size(block));
}

}  // namespace

namespace qzbench {

std::size_t heapInUse() { return g_inUse.load(); }
std::size_t heapPeak() { return g_peak.load(); }
void resetHeapPeak() { g_peak.store(g_inUse.load()); }

}  // namespace qzbench

// The project builds with hidden visibility; these must be seen by the C
// library and SQLite to take the place of their own.
#define QZ_BENCH_VISIBLE __attribute__((visibility("default")))

extern "C" {

QZ_BENCH_VISIBLE void* malloc(std::size_t size) {
  void* block = __libc_malloc(size);
  added(block);
  return block;
}

QZ_BENCH_VISIBLE void* calloc(std::size_t count, std::size_t size) {
  void* block = __libc_calloc(count, size);
  added(block);
  return block;
}

QZ_BENCH_VISIBLE void* realloc(void* block, std::size_t size) {
  const std::size_t before = block != nullptr ? malloc_usable_size(block) : 0;
  void* moved = __libc_realloc(block, size);
  if (moved != nullptr) {
    g_inUse.fetch_sub(before);
    added(moved);
  } else if (block != nullptr && size == 0) {
    g_inUse.fetch_sub(before);  // realloc(p, 0) freed p
  }
  return moved;
}

QZ_BENCH_VISIBLE void free(void* block) {
  removed(block);
  __libc_free(block);
}

QZ_BENCH_VISIBLE void* memalign(std::size_t alignment, std::size_t size) {
  void* block = __libc_memalign(alignment, size);
  added(block);
  return block;
}

QZ_BENCH_VISIBLE void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

QZ_BENCH_VISIBLE int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  if (alignment < sizeof(void*) || (alignment & (alignment - 1)) != 0) return EINVAL;
  void* block = memalign(alignment, size);
  if (block == nullptr) return ENOMEM;
  *out = block;
  return 0;
}

}  // extern "C"
