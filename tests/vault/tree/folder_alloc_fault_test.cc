// Allocation failures in the folder's attribute listings. This program
// replaces the global allocation functions (every new and delete of the
// process, the library's included, goes through malloc and free here) so that
// a test can make one allocation of a chosen size fail: the in-memory list
// itself (allocated with nothrow new) or the first row of a list (a vector
// growing to one row of cells).
// The compiler cannot know that new and delete are replaced in pairs here, and
// takes free() of what operator new returned for a mismatch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "folder_test_util.h"
#include "item_list_impl.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "vault_test_util.h"

namespace {

std::atomic<std::size_t> g_failSize{0};
std::atomic<bool> g_failNothrow{false};
std::atomic<int> g_failures{0};

// True (once) for the armed allocation.
bool failThisAllocation(std::size_t size, bool nothrow) {
  std::size_t armed = g_failSize.load();
  if (armed == 0 || armed != size || g_failNothrow.load() != nothrow) return false;
  if (!g_failSize.compare_exchange_strong(armed, 0)) return false;
  ++g_failures;
  return true;
}

void* allocate(std::size_t size) { return std::malloc(size == 0 ? 1 : size); }

}  // namespace

void* operator new(std::size_t size) {
  if (failThisAllocation(size, false)) throw std::bad_alloc();
  void* memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) {
  void* memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (failThisAllocation(size, true)) return nullptr;
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

using qztest::LogCapture;
using qztest::makeFolder;
using qztest::S;
using qztest::ScopedVault;
using qztest::TempDir;

// Arms the failure of the next allocation of `size` bytes made by nothrow new
// (`nothrow`) or by plain new; disarms on scope exit.
class ScopedAllocationFailure {
 public:
  ScopedAllocationFailure(std::size_t size, bool nothrow) : before_(g_failures.load()) {
    g_failNothrow = nothrow;
    g_failSize = size;
  }
  ~ScopedAllocationFailure() { g_failSize = 0; }
  ScopedAllocationFailure(const ScopedAllocationFailure&) = delete;
  ScopedAllocationFailure& operator=(const ScopedAllocationFailure&) = delete;
  int failures() const { return g_failures.load() - before_; }

 private:
  int before_;
};

// The bytes of the first row of a list of `columns` columns.
std::size_t firstRowBytes(int columns) {
  return sizeof(QzbString) * static_cast<std::size_t>(columns);
}

class AllocationTest : public ::testing::Test {
 protected:
  AllocationTest() : vault_(dir_.path()) {
    qztest::writeFile(dir_.join("a.txt"), "a file");
    db_ = qztest::fixedDb(vault_.get(), dir_.path());
    qztest::execute(db_,
                    "INSERT INTO v_object (fname, name) VALUES ('a.txt', 'A');"
                    "INSERT INTO v_attr (fname, attr, seq, v0) VALUES "
                    "('a.txt', 'Owner', 0, 'alice'), (NULL, 'Owner', 0, 'bob')");
    folder_ = makeFolder(vault_.get(), dir_.path());
  }

  TempDir dir_;
  ScopedVault vault_;
  std::string db_;
  qztest::Owned<QzvFolderImpl> folder_;
};

TEST_F(AllocationTest, TheArmedAllocationFailsAndOnlyOnce) {
  {
    ScopedAllocationFailure failure(12345, true);
    void* first = ::operator new(12345, std::nothrow);
    void* second = ::operator new(12345, std::nothrow);
    EXPECT_EQ(first, nullptr);
    EXPECT_NE(second, nullptr);
    ::operator delete(second);
    EXPECT_EQ(failure.failures(), 1);
  }
  {
    ScopedAllocationFailure failure(777, false);
    EXPECT_THROW(::operator delete(::operator new(777)), std::bad_alloc);
    void* after = ::operator new(777);
    ::operator delete(after);
  }
}

TEST_F(AllocationTest, AttrListWhoseListCannotBeMadeIsOutOfMemory) {
  folder_->getAttrList()->release();  // the dates are in place: no writes below
  LogCapture log;
  QzvItemList* list;
  {
    ScopedAllocationFailure failure(sizeof(QzvItemListImpl), true);
    list = folder_->getAttrList();
    EXPECT_EQ(failure.failures(), 1);
  }
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "Out of memory");
  EXPECT_TRUE(log.contains("Out of memory", 5)) << log.dump();
}

TEST_F(AllocationTest, AttrListWhoseRowsCannotBeCopiedIsOutOfMemory) {
  folder_->getAttrList()->release();
  LogCapture log;
  QzvItemList* list;
  {
    ScopedAllocationFailure failure(firstRowBytes(12), false);
    list = folder_->getAttrList();
    EXPECT_EQ(failure.failures(), 1);
  }
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "Out of memory");
  EXPECT_TRUE(log.contains("Out of memory", 5)) << log.dump();
}

TEST_F(AllocationTest, ObjectAttrListWhoseListCannotBeMadeIsAMemoryAllocationFailure) {
  folder_->getObjectAttrList(QzbString(), QzbString())->release();  // no refresh below
  LogCapture log;
  QzvItemList* list;
  {
    ScopedAllocationFailure failure(sizeof(QzvItemListImpl), true);
    list = folder_->getObjectAttrList(QzbString(), QzbString());
    EXPECT_EQ(failure.failures(), 1);
  }
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "Memory allocation failed");
  EXPECT_TRUE(log.contains("Memory allocation failed", 5)) << log.dump();
}

TEST_F(AllocationTest, ObjectAttrListWhoseRowCannotBeAddedIsOutOfMemory) {
  folder_->getObjectAttrList(QzbString(), QzbString())->release();
  LogCapture log;
  QzvItemList* list;
  {
    ScopedAllocationFailure failure(firstRowBytes(14), false);
    list = folder_->getObjectAttrList(QzbString(), QzbString());
    EXPECT_EQ(failure.failures(), 1);
  }
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(folder_->getErrorMessage().toStdString(), "Out of memory");
  EXPECT_TRUE(log.contains("Out of memory", 5)) << log.dump();
}

}  // namespace
