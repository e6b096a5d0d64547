// Counts the heap in use by the whole process: the program that links this
// replaces malloc, calloc, realloc, free and the aligned allocators with
// versions that forward to the C library and keep the bytes in use (as the
// allocator reports each block's usable size) and their peak. Everything
// that allocates through malloc is counted: the library, operator new,
// SQLite. Link it into one benchmark program only, and only on glibc.
//
// Thread safety: the counters are atomic.
#ifndef QZ_BENCH_HEAP_COUNTER_H_
#define QZ_BENCH_HEAP_COUNTER_H_

#include <cstddef>

namespace qzbench {

// Bytes of heap in use now.
std::size_t heapInUse();
// The most bytes in use at once since the last resetHeapPeak().
std::size_t heapPeak();
// Starts a new peak from the bytes in use now.
void resetHeapPeak();

}  // namespace qzbench

#endif  // QZ_BENCH_HEAP_COUNTER_H_
