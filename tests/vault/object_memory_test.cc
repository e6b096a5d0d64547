// Allocation failures in an object's attribute listing, attribute look-up,
// analysis, file rename and delete. The library makes its objects with the
// non-throwing form of new, which this program replaces with one that fails
// the k-th call; every k is tried until an operation meets no failure. Each
// run must end cleanly, with a message where it fails, and leave file and
// metadata consistent.
#include <atomic>
#include <functional>
#include <new>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "qzvault/attribute.h"
#include "qzvault/item_list.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

namespace {
std::atomic<int> g_nothrowCalls{0};
std::atomic<int> g_failAt{0};  // 0: never fail

void* allocate(std::size_t size, bool array) noexcept {
  if (g_failAt.load() > 0 && ++g_nothrowCalls == g_failAt.load()) return nullptr;
  try {
    return array ? ::operator new[](size) : ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}
}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, false);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, true);
}

namespace {

using qztest::Cell;
using qztest::own;
using qztest::Owned;
using qztest::Rows;
using qztest::S;

// Runs `operation` with the k-th non-throwing allocation failing, k = 1, 2,
// ... until a run meets no failure (which must then succeed). `operation`
// returns whether it succeeded and leaves its failure text in *message.
// Returns the messages of the failed runs.
std::set<std::string> sweep(const std::function<bool(std::string*)>& operation) {
  std::set<std::string> messages;
  for (int k = 1; k < 500; ++k) {
    g_nothrowCalls = 0;
    g_failAt = k;
    std::string message;
    const bool ok = operation(&message);
    const bool fired = g_nothrowCalls.load() >= k;
    g_failAt = 0;
    if (!fired) {
      EXPECT_TRUE(ok) << "without a failure at k=" << k << ": " << message;
      return messages;
    }
    if (!ok) {
      EXPECT_FALSE(message.empty()) << "k=" << k;
      messages.insert(message);
    }
  }
  ADD_FAILURE() << "the operation kept allocating";
  return messages;
}

class ObjectMemory : public qztest::ObjectTest {
 protected:
  void SetUp() override {
    add("plan.txt", "content");
    addNameRow("plan.txt", "Plan");
    addAttrRow("plan.txt", "Owner", 0, "ops");
  }
};

TEST_F(ObjectMemory, AttributeListing) {
  auto object = open("plan.txt");
  const std::set<std::string> messages = sweep([&](std::string* message) {
    QzvItemList* list = object->getAttrList();
    *message = object->getErrorMessage().toStdString();
    if (list == nullptr) return false;
    const Rows rows = qztest::takeList(list);
    return qztest::rowsWhere(rows, 0, "Owner").size() == 1;
  });
  EXPECT_TRUE(messages.count("Memory allocation failed")) << "the list was never refused";
}

TEST_F(ObjectMemory, AttributeLookUp) {
  auto object = open("plan.txt");
  const std::set<std::string> messages = sweep([&](std::string* message) {
    QzvAttribute* attribute = object->getAttribute(S("Owner"));
    *message = object->getErrorMessage().toStdString();
    if (attribute == nullptr) return false;
    const bool found = attribute->getSingletonValue().toStdString() == "ops";
    attribute->release();
    return found;
  });
  EXPECT_TRUE(messages.count("Memory allocation failed")) << "the attribute was never refused";
}

TEST_F(ObjectMemory, Analysis) {
  auto object = open("plan.txt");
  sweep([&](std::string* message) {
    object->setErrorMessage(S(""));
    const bool ok = object->analyzeImpact(nullptr);
    *message = object->getErrorMessage().toStdString();
    // An analysis that runs reports its own trouble through the message only.
    return ok && message->empty();
  });
  // Afterwards the object is recorded as analysed. (How many rows carry its
  // identity is the store's business: a look-up that failed for memory may
  // have been taken for "not stored yet".)
  const Rows dates = qztest::query(dir_.join(".v_imd"),
                                   "SELECT count(*) > 0 FROM v_imparcs WHERE res_idty = " +
                                       qztest::sqlText(dir_.join("plan.txt")) +
                                       " AND mod_date IS NOT NULL");
  EXPECT_EQ(dates, (Rows{{Cell("1")}}));
}

TEST(ObjectMemoryChanges, FileRenameAndDeleteEndConsistent) {
  for (const bool rename : {true, false}) {
    for (int k = 1; k < 500; ++k) {
      qztest::TempDir dir;
      qztest::ScopedVault vault(dir.path());
      qztest::writeFile(dir.join("a.txt"), "content");
      const std::string db = qztest::fixedDb(vault.get(), dir.path());
      qztest::execute(db, "INSERT INTO v_object (fname, name) VALUES ('a.txt', 'Alpha')");
      auto object = qztest::openObject(vault.get(), dir.join("a.txt"));
      ASSERT_NE(object, nullptr);
      g_nothrowCalls = 0;
      g_failAt = k;
      const bool ok = rename ? object->fileRename(S("b.txt")) : object->deleteSelf();
      const bool fired = g_nothrowCalls.load() >= k;
      g_failAt = 0;
      SCOPED_TRACE(std::string(rename ? "fileRename" : "deleteSelf") + ", allocation " +
                   std::to_string(k));
      const Rows names = qztest::query(db, "SELECT fname, name FROM v_object");
      if (rename) {
        const std::string where = ok ? "b.txt" : "a.txt";
        EXPECT_EQ(qztest::readFile(dir.join(where)), "content");
        EXPECT_FALSE(qztest::pathExists(dir.join(ok ? "a.txt" : "b.txt")));
        EXPECT_EQ(names, (Rows{{Cell(where), Cell("Alpha")}}));
      } else {
        EXPECT_EQ(ok, !qztest::pathExists(dir.join("a.txt")));
        if (ok) {
          EXPECT_TRUE(names.empty());
        }
      }
      if (!ok) {
        EXPECT_FALSE(object->getErrorMessage().isEmpty());
      }
      if (!fired) {
        EXPECT_TRUE(ok) << object->getErrorMessage().asCstr();
        break;
      }
    }
  }
}

}  // namespace
