// Allocation failures in an object's attribute listing, attribute look-up,
// analysis, file rename and delete. The library makes its objects with the
// non-throwing form of new, which this program replaces with one that fails
// the k-th call; every k is tried until an operation meets no failure. Each
// run must end cleanly, with a message where it fails, and leave file and
// metadata consistent.
#include <new>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "object_impl.h"
#include "qzvault/attribute.h"
#include "qzvault/item_list.h"
#include "support/failing_new.h"
#include "support/temp_dir.h"
#include "object_test_util.h"

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qztest::failingNothrowAllocate(size, false);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return qztest::failingNothrowAllocate(size, true);
}

namespace {

using qztest::Cell;
using qztest::own;
using qztest::Owned;
using qztest::Rows;
using qztest::S;

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
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
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
  const std::set<std::string> messages = qztest::sweepAllocationFailures([&](std::string* message) {
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
  qztest::sweepAllocationFailures([&](std::string* message) {
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
      qztest::failNothrowAllocation(k);
      const bool ok = rename ? object->fileRename(S("b.txt")) : object->deleteSelf();
      const bool fired = qztest::stopFailingNothrowAllocation();
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
