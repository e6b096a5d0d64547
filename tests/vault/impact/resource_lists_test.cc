// The value classes of the lineage store: a resource, the resource list, the
// property list and the string list. No store is involved.
#include <string>

#include <gtest/gtest.h>

#include "resource_impl.h"

namespace {

std::string str(const QzbString& text) { return text.toStdString(); }

QzvResourceImpl* newResource(const char* identity, const char* id = "1") {
  QzvResourceImpl* resource = new QzvResourceImpl();
  resource->setResourceIdentity(QzbString(identity));
  resource->setId(QzbString(id));
  return resource;
}

// A list of resources with the given identities.
QzvResourceListImpl* listOf(std::initializer_list<const char*> identities) {
  QzvResourceListImpl* list = new QzvResourceListImpl();
  for (const char* identity : identities) {
    QzvResourceImpl* resource = newResource(identity);
    EXPECT_TRUE(list->addRow());
    list->setLastRowElement(0, resource);
    resource->release();
  }
  return list;
}

// ---------------------------------------------------------------------------
// QzvResourceImpl

TEST(Resource, NewResourceIsResolvedWithoutMacroAndEmpty) {
  QzvResourceImpl* resource = new QzvResourceImpl();
  EXPECT_TRUE(resource->IsResolved());
  EXPECT_FALSE(resource->IsResourceIdentityMacroValue());
  EXPECT_TRUE(resource->getResourceLocation().isEmpty());
  EXPECT_TRUE(resource->getId().isNull());
  EXPECT_TRUE(resource->getName().isNull());
  EXPECT_TRUE(resource->getAnalysisDate().isNull());
  EXPECT_EQ(resource->getDependencyType(), 0);
  resource->release();
}

TEST(Resource, GetPropertiesGivesANewEmptyListEachCall) {
  QzvResourceImpl* resource = newResource("/x");
  QzResourcePropertyList* first = resource->getProperties();
  QzResourcePropertyList* second = resource->getProperties();
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_FALSE(first->next());
  EXPECT_FALSE(second->next());
  // Filling one leaves the next one empty.
  first->release();
  second->release();
  QzResourcePropertyList* third = resource->getProperties();
  EXPECT_FALSE(third->next());
  third->release();
  resource->release();
}

TEST(Resource, CopyFromTakesEveryFieldButDependencyType) {
  QzvResourceImpl* source = newResource("/src", "17");
  source->setName(QzbString("name"));
  source->setResourceType(QzbString("Table"));
  source->setResourceLocation(QzbString("here"));
  source->setAnalysisDate(QzbDate(1234.5));
  source->setResolved(false);
  source->setMacroIdentity(true);
  QzvResourceImpl* copy = new QzvResourceImpl();
  copy->copyFrom(source);
  EXPECT_EQ(str(copy->getId()), "17");
  EXPECT_EQ(str(copy->getName()), "name");
  EXPECT_EQ(str(copy->getResourceType()), "Table");
  EXPECT_EQ(str(copy->getResourceIdentity()), "/src");
  EXPECT_EQ(str(copy->getResourceLocation()), "here");
  EXPECT_EQ(copy->getAnalysisDate().asDouble(), 1234.5);
  EXPECT_FALSE(copy->IsResolved());
  EXPECT_TRUE(copy->IsResourceIdentityMacroValue());
  EXPECT_EQ(copy->getDependencyType(), 0);
  copy->copyFrom(nullptr);  // ignored
  EXPECT_EQ(str(copy->getId()), "17");
  copy->release();
  source->release();
}

// ---------------------------------------------------------------------------
// QzvResourceListImpl

TEST(ResourceList, EmptyListHasNoRows) {
  QzvResourceListImpl* list = new QzvResourceListImpl();
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(0), nullptr);
  EXPECT_EQ(list->rowCount(), 0u);
  list->setLastRowElement(0, nullptr);  // no row: nothing happens
  list->release();
}

TEST(ResourceList, IteratesInInsertionOrderAndStopsPastTheLast) {
  QzvResourceListImpl* list = listOf({"a", "b"});
  EXPECT_EQ(list->getValue(), nullptr);  // before the first row
  ASSERT_TRUE(list->next());
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "a");
  ASSERT_TRUE(list->next());
  EXPECT_EQ(str(list->getValue(0)->getResourceIdentity()), "b");
  EXPECT_EQ(list->getValue(1), nullptr);  // one column only
  EXPECT_EQ(list->getValue(-1), nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getValue(), nullptr);
  EXPECT_FALSE(list->next());
  EXPECT_TRUE(list->reset());
  ASSERT_TRUE(list->next());
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "a");
  list->release();
}

TEST(ResourceList, SetLastRowElementCopiesIntoTheOnlyColumnWhateverTheIndex) {
  QzvResourceListImpl* list = new QzvResourceListImpl();
  ASSERT_TRUE(list->addRow());
  QzvResourceImpl* source = newResource("/s", "9");
  list->setLastRowElement(5, source);
  source->setId(QzbString("10"));  // the list holds a copy
  source->release();
  ASSERT_TRUE(list->next());
  QzResource* held = list->getValue();
  ASSERT_NE(held, nullptr);
  EXPECT_EQ(str(held->getResourceIdentity()), "/s");
  EXPECT_EQ(str(held->getId()), "9");
  list->release();
}

TEST(ResourceList, ContainsStopsOneRowPastTheMatch) {
  QzvResourceListImpl* list = listOf({"first", "second", "third"});
  QzvResourceImpl* probe = newResource("second");
  EXPECT_TRUE(list->contains(probe));
  // The position is on the third row; the list has still not started.
  ASSERT_NE(list->getValue(), nullptr);
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "third");
  ASSERT_TRUE(list->next());  // not started: moves to the first row
  EXPECT_EQ(str(list->getValue()->getResourceIdentity()), "first");
  probe->release();
  list->release();
}

TEST(ResourceList, ContainsComparesIdentitiesCaseSensitively) {
  QzvResourceListImpl* list = listOf({"/A", "/b"});
  QzvResourceImpl* probe = newResource("/a");
  EXPECT_FALSE(list->contains(probe));
  EXPECT_EQ(list->getValue(), nullptr);  // past the last row
  probe->setResourceIdentity(QzbString("/A"));
  EXPECT_TRUE(list->contains(probe));
  EXPECT_FALSE(list->contains(nullptr));
  probe->release();
  list->release();
}

TEST(ResourceList, CopyListCopiesEveryRowFromTheStart) {
  QzvResourceListImpl* source = listOf({"a", "b", "c"});
  ASSERT_TRUE(source->next());
  ASSERT_TRUE(source->next());  // the copy resets the source first
  QzvResourceListImpl* copy = new QzvResourceListImpl();
  EXPECT_TRUE(copy->copyList(source));
  EXPECT_EQ(copy->rowCount(), 3u);
  EXPECT_EQ(copy->getValue(), nullptr);  // ends before its first row
  std::string seen;
  while (copy->next()) seen += str(copy->getValue()->getResourceIdentity());
  EXPECT_EQ(seen, "abc");
  EXPECT_FALSE(copy->copyList(nullptr));
  copy->release();
  source->release();
}

// ---------------------------------------------------------------------------
// QzvResourcePropertyListImpl

TEST(ResourcePropertyList, RowsStartNullAndTakeKeyAndValue) {
  QzvResourcePropertyListImpl* list = new QzvResourcePropertyListImpl();
  list->setLastRow(QzbString("k"), QzbString("v"));  // no element: nothing
  EXPECT_FALSE(list->next());
  EXPECT_TRUE(list->getKey().isNull());
  ASSERT_TRUE(list->addRow());
  ASSERT_TRUE(list->addRow());
  list->setLastRow(QzbString("k2"), QzbString("v2"));
  list->release();

  QzvResourcePropertyListImpl* fresh = new QzvResourcePropertyListImpl();
  ASSERT_TRUE(fresh->addRow());
  ASSERT_TRUE(fresh->addRow());
  fresh->setLastRow(QzbString("k2"), QzbString("v2"));
  ASSERT_TRUE(fresh->next());
  EXPECT_TRUE(fresh->getKey().isNull());
  EXPECT_TRUE(fresh->getValue().isNull());
  ASSERT_TRUE(fresh->next());
  EXPECT_EQ(str(fresh->getKey()), "k2");
  EXPECT_EQ(str(fresh->getValue()), "v2");
  EXPECT_FALSE(fresh->next());
  EXPECT_TRUE(fresh->getValue().isNull());
  delete fresh;  // the destructor is public for this class
}

TEST(ResourcePropertyList, CopyListReadsOnFromWhereTheSourceStands) {
  QzvResourcePropertyListImpl* source = new QzvResourcePropertyListImpl();
  for (const char* key : {"a", "b", "c"}) {
    source->addRow();
    source->setLastRow(QzbString(key), QzbString("value"));
  }
  ASSERT_TRUE(source->next());  // "a" is consumed and not copied
  QzvResourcePropertyListImpl* copy = new QzvResourcePropertyListImpl();
  EXPECT_TRUE(copy->copyList(source));
  std::string keys;
  while (copy->next()) keys += str(copy->getKey());
  EXPECT_EQ(keys, "bc");
  copy->release();
  source->release();
}

// ---------------------------------------------------------------------------
// QzStringListImpl

TEST(StringList, ZeroColumnListCountsRowsButReadsNull) {
  QzStringListImpl* list = new QzStringListImpl();
  EXPECT_EQ(list->getNumCols(), 0);
  ASSERT_TRUE(list->addRow());
  list->setLastRowElement(0, QzbString("File"));  // room for it, but not readable
  ASSERT_TRUE(list->addRow());
  list->setLastRowElement(0, QzbString("Table"));
  EXPECT_EQ(list->length(), 2);
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue().isNull());
  EXPECT_TRUE(list->getValue(0).isNull());
  ASSERT_TRUE(list->next());
  EXPECT_FALSE(list->next());
  list->release();
}

TEST(StringList, ColumnsAreReadWithinTheirCount) {
  QzStringListImpl* list = new QzStringListImpl(2);
  EXPECT_EQ(list->getNumCols(), 2);
  list->setLastRowElement(0, QzbString("x"));  // no row yet: nothing
  ASSERT_TRUE(list->addRow());
  list->setLastRowElement(1, QzbString("b"));
  ASSERT_TRUE(list->next());
  EXPECT_TRUE(list->getValue(0).isNull());  // never set
  EXPECT_EQ(str(list->getValue(1)), "b");
  EXPECT_TRUE(list->getValue(2).isNull());
  EXPECT_TRUE(list->getValue(-1).isNull());
  list->setLastRowElement(0, QzbString(""));
  EXPECT_FALSE(list->getValue(0).isNull());
  EXPECT_EQ(str(list->getValue(0)), "");
  list->release();
}

TEST(StringList, NegativeColumnCountIsNoColumns) {
  QzStringListImpl* list = new QzStringListImpl(-3);
  EXPECT_EQ(list->getNumCols(), 0);
  EXPECT_TRUE(list->addRow());
  EXPECT_EQ(list->length(), 1);
  list->release();
}

TEST(StringList, CopyListTakesColumnsAndTheRemainingRows) {
  QzStringListImpl* source = new QzStringListImpl(2);
  for (const char* first : {"r1", "r2", "r3"}) {
    source->addRow();
    source->setLastRowElement(0, QzbString(first));
    source->setLastRowElement(1, QzbString("second"));
  }
  ASSERT_TRUE(source->next());  // r1 is consumed: copying does not reset
  QzStringListImpl* copy = new QzStringListImpl();
  EXPECT_TRUE(copy->copyList(source));
  EXPECT_EQ(copy->getNumCols(), 2);
  EXPECT_EQ(copy->length(), 2);
  ASSERT_TRUE(copy->next());
  EXPECT_EQ(str(copy->getValue(0)), "r2");
  EXPECT_EQ(str(copy->getValue(1)), "second");
  ASSERT_TRUE(copy->next());
  EXPECT_EQ(str(copy->getValue()), "r3");
  EXPECT_FALSE(copy->next());
  EXPECT_FALSE(copy->copyList(nullptr));
  copy->release();
  source->release();
}

}  // namespace
