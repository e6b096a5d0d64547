// Lineage closures: chains, diamonds, cycles, self-loops, depth limits,
// duplicate and dangling edges, the whole graph, unknown resources, null
// arguments, and agreement with a breadth-first walk done in the test on
// random graphs, small ones (the walk steps one query at a time) and one
// large enough that the walk reads every edge at once and the rows in one
// pass; and the plans of the walk's step queries.
#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qzvault/lineage.h"
#include "impact_fixture.h"
#include "lineage_impl.h"
#include "support/log_capture.h"

namespace {

using qztest::ImpactTest;
using qztest::LogCapture;
using qztest::RawStore;
using qztest::Releaser;
using qztest::ResourcePtr;
using qztest::str;
using Strings = std::vector<std::string>;

using LineagePtr = std::unique_ptr<QzvLineage, Releaser>;
using LineageListPtr = std::unique_ptr<QzvLineageList, Releaser>;
using EdgeListPtr = std::unique_ptr<QzvLineageEdgeList, Releaser>;

const char kLineageLogger[] = "QZ.Repos.Vault.Lineage";
// A depth limit deeper than any the small graphs need.
const int kDeepLimit = 8;

class LineageTest : public ImpactTest {
 protected:
  LineageTest() : lineage_(analysis_->getLineage()) {}

  // A stored resource named `name` with identity "/v/<name>", remembered by
  // name so that edges can be written by name.
  QzResource* node(const std::string& name) {
    auto found = nodes_.find(name);
    if (found != nodes_.end()) return found->second.get();
    ResourcePtr made = make(name.c_str(), "File", ("/v/" + name).c_str());
    QzResource* raw = made.get();
    if (raw != nullptr) {
      byId_[str(raw->getId())] = name;
      nodes_[name] = std::move(made);
    }
    return raw;
  }
  std::string id(const std::string& name) { return str(node(name)->getId()); }

  // Records "user uses used" straight into v_impadeps (duplicates allowed).
  void uses(const std::string& user, const std::string& used) {
    const std::string userId = id(user);  // made first when new
    edgeById(userId, id(used));
  }
  void edgeById(const std::string& userId, const std::string& usedId) {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("INSERT INTO v_impadeps (res_id, res_used) VALUES (" + userId + ", " +
                         usedId + ")"))
        << raw.lastError();
  }

  // "name:distance" for every row, in list order.
  Strings rowsOf(QzvLineageList* list) {
    Strings rows;
    if (list == nullptr) return rows;
    list->reset();
    while (list->next()) {
      rows.push_back(str(list->getResource()->getName()) + ":" +
                     std::to_string(list->getDistance()));
    }
    return rows;
  }
  // "user>used" by name for every edge, in list order.
  Strings edgesOf(QzvLineageEdgeList* list) {
    Strings rows;
    if (list == nullptr) return rows;
    list->reset();
    while (list->next()) {
      rows.push_back(nameOf(str(list->getUserId())) + ">" + nameOf(str(list->getUsedId())));
    }
    return rows;
  }
  std::string nameOf(const std::string& resourceId) {
    auto found = byId_.find(resourceId);
    return found != byId_.end() ? found->second : "#" + resourceId;
  }

  Strings down(const std::string& name, int depth) {
    LineageListPtr list(lineage_->getDependents(node(name), depth));
    EXPECT_NE(list, nullptr) << str(lineage_->getErrorMessage());
    return rowsOf(list.get());
  }
  Strings up(const std::string& name, int depth) {
    LineageListPtr list(lineage_->getUsed(node(name), depth));
    EXPECT_NE(list, nullptr) << str(lineage_->getErrorMessage());
    return rowsOf(list.get());
  }
  Strings downEdges(const std::string& name, int depth) {
    EdgeListPtr list(lineage_->getDependentEdges(node(name), depth));
    EXPECT_NE(list, nullptr) << str(lineage_->getErrorMessage());
    return edgesOf(list.get());
  }
  Strings upEdges(const std::string& name, int depth) {
    EdgeListPtr list(lineage_->getUsedEdges(node(name), depth));
    EXPECT_NE(list, nullptr) << str(lineage_->getErrorMessage());
    return edgesOf(list.get());
  }

  std::map<std::string, ResourcePtr> nodes_;
  std::map<std::string, std::string> byId_;
  LineagePtr lineage_;
};

// ---------------------------------------------------------------------------
// Shapes

TEST_F(LineageTest, AChainIsListedInBothDirectionsWithItsDistances) {
  uses("b", "a");
  uses("c", "b");
  uses("d", "c");
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1", "c:2", "d:3"}));
  EXPECT_EQ(up("d", QZV_LINEAGE_UNLIMITED), (Strings{"c:1", "b:2", "a:3"}));
  EXPECT_EQ(down("c", QZV_LINEAGE_UNLIMITED), (Strings{"d:1"}));
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"b>a", "c>b", "d>c"}));
  EXPECT_EQ(upEdges("c", QZV_LINEAGE_UNLIMITED), (Strings{"b>a", "c>b"}));
}

TEST_F(LineageTest, AResourceWithoutEdgesHasAnEmptyClosureNotAFailure) {
  node("alone");
  LineageListPtr list(lineage_->getDependents(node("alone"), QZV_LINEAGE_UNLIMITED));
  ASSERT_NE(list, nullptr) << str(lineage_->getErrorMessage());
  EXPECT_EQ(list->length(), 0);
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getResource(), nullptr);
  EXPECT_EQ(list->getDistance(), 0);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "");
}

TEST_F(LineageTest, ADiamondListsTheSharedDependentOnce) {
  uses("b", "a");
  uses("c", "a");
  uses("d", "b");
  uses("d", "c");
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1", "c:1", "d:2"}));
  EXPECT_EQ(up("d", QZV_LINEAGE_UNLIMITED), (Strings{"b:1", "c:1", "a:2"}));
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"b>a", "c>a", "d>b", "d>c"}));
}

TEST_F(LineageTest, AShortcutGivesTheShorterDistance) {
  uses("b", "a");
  uses("c", "b");
  uses("d", "c");
  uses("d", "a");  // d also uses a directly
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1", "d:1", "c:2"}));
  EXPECT_EQ(down("a", 2), (Strings{"b:1", "d:1", "c:2"}));
}

TEST_F(LineageTest, ACycleEndsAndNeverListsTheStart) {
  uses("a", "b");
  uses("b", "c");
  uses("c", "a");
  uses("x", "c");
  for (int depth : {QZV_LINEAGE_UNLIMITED, 2, 3, 5, kDeepLimit + 3}) {
    SCOPED_TRACE(depth);
    EXPECT_EQ(down("a", depth), (Strings{"c:1", "b:2", "x:2"}));
  }
  EXPECT_EQ(down("a", 1), (Strings{"c:1"}));
  EXPECT_EQ(up("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1", "c:2"}));
  // The edge back into the start shows the cycle.
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"a>b", "b>c", "c>a", "x>c"}));
}

TEST_F(LineageTest, ATwoResourceCycleFromEitherEnd) {
  uses("a", "b");
  uses("b", "a");
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1"}));
  EXPECT_EQ(down("b", QZV_LINEAGE_UNLIMITED), (Strings{"a:1"}));
  EXPECT_EQ(up("a", 4), (Strings{"b:1"}));
  EXPECT_EQ(downEdges("a", 1), (Strings{"a>b", "b>a"}));
}

TEST_F(LineageTest, ASelfLoopIsShownAsAnEdgeButListsNoResourceTwice) {
  uses("a", "a");
  uses("b", "a");
  uses("b", "b");
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1"}));
  EXPECT_EQ(down("a", 1), (Strings{"b:1"}));
  EXPECT_EQ(up("a", QZV_LINEAGE_UNLIMITED), (Strings{}));
  EXPECT_EQ(up("b", 3), (Strings{"a:1"}));
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"a>a", "b>a", "b>b"}));
  EXPECT_EQ(upEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"a>a"}));
}

TEST_F(LineageTest, DuplicateEdgesCountOnce) {
  uses("b", "a");
  uses("b", "a");
  uses("c", "b");
  uses("c", "b");
  uses("c", "b");
  for (int depth : {QZV_LINEAGE_UNLIMITED, 1, 2, kDeepLimit + 1}) {
    SCOPED_TRACE(depth);
    const Strings expected = depth == 1 ? Strings{"b:1"} : Strings{"b:1", "c:2"};
    EXPECT_EQ(down("a", depth), expected);
  }
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"b>a", "c>b"}));
  EdgeListPtr all(lineage_->getAllEdges());
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(edgesOf(all.get()), (Strings{"b>a", "c>b"}));
}

TEST_F(LineageTest, DanglingEdgesAreSkippedAndNotWalkedThrough) {
  uses("b", "a");
  node("c");
  node("gone");
  const std::string goneId = id("gone");
  uses("c", "gone");   // c uses a resource that is about to disappear
  uses("gone", "a");   // which used a
  edgeById("9999", id("a"));  // an edge from a resource that never existed
  edgeById(id("b"), "8888");  // and to one
  {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("DELETE FROM v_imparcs WHERE id = " + goneId));
  }
  EXPECT_EQ(down("a", QZV_LINEAGE_UNLIMITED), (Strings{"b:1"}));
  EXPECT_EQ(down("a", 3), (Strings{"b:1"}));
  EXPECT_EQ(up("c", QZV_LINEAGE_UNLIMITED), (Strings{}));
  EXPECT_EQ(up("b", 2), (Strings{"a:1"}));
  EXPECT_EQ(downEdges("a", QZV_LINEAGE_UNLIMITED), (Strings{"b>a"}));
  EdgeListPtr all(lineage_->getAllEdges());
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(edgesOf(all.get()), (Strings{"b>a"}));
}

// ---------------------------------------------------------------------------
// Depth limits

TEST_F(LineageTest, DepthLimitsCutTheChainInBothFormsOfTheWalk) {
  // A chain of 20: r1 uses r0, r2 uses r1, ...
  for (int index = 1; index < 20; ++index) {
    uses("r" + std::to_string(index), "r" + std::to_string(index - 1));
  }
  for (int depth = 1; depth <= 22; ++depth) {
    SCOPED_TRACE(depth);
    const Strings rows = down("r0", depth);
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(std::min(depth, 19)));
    EXPECT_EQ(rows.back(), "r" + std::to_string(rows.size()) + ":" + std::to_string(rows.size()));
    EXPECT_EQ(up("r19", depth).size(), static_cast<std::size_t>(std::min(depth, 19)));
  }
  EXPECT_EQ(down("r0", QZV_LINEAGE_UNLIMITED).size(), 19u);
}

TEST_F(LineageTest, ALimitedClosureHasTheEdgesAmongItsResources) {
  uses("b", "a");
  uses("c", "a");
  uses("c", "b");  // between two resources at distance 1
  uses("d", "c");  // beyond the limit
  EXPECT_EQ(down("a", 1), (Strings{"b:1", "c:1"}));
  // Ordered by the user's id, then the used one's (b, a, c, d were made in
  // that order).
  EXPECT_EQ(downEdges("a", 1), (Strings{"b>a", "c>b", "c>a"}));
  EXPECT_EQ(downEdges("a", 2), (Strings{"b>a", "c>b", "c>a", "d>c"}));
}

TEST_F(LineageTest, ANegativeDepthIsRefused) {
  uses("b", "a");
  LogCapture log;
  LineageListPtr list(lineage_->getDependents(node("a"), -1));
  EXPECT_EQ(list, nullptr);
  const std::string message =
      "Invalid lineage depth -1: give a positive number of steps, or 0 for no limit";
  EXPECT_EQ(str(lineage_->getErrorMessage()), message);
  EXPECT_TRUE(log.contains(message, QZLOG_ERROR, kLineageLogger)) << log.dump();
  EdgeListPtr edges(lineage_->getUsedEdges(node("b"), -7));
  EXPECT_EQ(edges, nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()),
            "Invalid lineage depth -7: give a positive number of steps, or 0 for no limit");
}

// ---------------------------------------------------------------------------
// Bad input

TEST_F(LineageTest, NullArgumentsAreRefused) {
  EXPECT_EQ(lineage_->getDependents(nullptr, 0), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "No resource was given");
  EXPECT_EQ(lineage_->getUsed(nullptr, 3), nullptr);
  EXPECT_EQ(lineage_->getDependentEdges(nullptr, 0), nullptr);
  EXPECT_EQ(lineage_->getUsedEdges(nullptr, 0), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "No resource was given");
}

TEST_F(LineageTest, AResourceThatIsNotStoredIsRefused) {
  node("a");
  const std::string aId = id("a");
  {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("DELETE FROM v_imparcs WHERE id = " + aId));
  }
  EXPECT_EQ(lineage_->getDependents(node("a"), 0), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "Resource " + aId + " is not in the lineage store");
  EXPECT_EQ(lineage_->getUsedEdges(node("a"), 2), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "Resource " + aId + " is not in the lineage store");

  // A resource a host made up, without an id.
  QzvResourceImpl* madeUp = new QzvResourceImpl();
  ResourcePtr holder(madeUp);
  EXPECT_EQ(lineage_->getUsed(madeUp, 0), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "Resource (no id) is not in the lineage store");
  madeUp->setId(QzbString("12x", true));
  EXPECT_EQ(lineage_->getUsed(madeUp, 0), nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()), "Resource 12x is not in the lineage store");
}

TEST_F(LineageTest, AStoreThatIsNotADatabaseFailsWithTheOpenError) {
  qztest::writeFile(storePath(), "this is not a database, just text that is long enough\n");
  QzvResourceImpl* resource = new QzvResourceImpl();
  ResourcePtr holder(resource);
  resource->setId(QzbString("1", true));
  LogCapture log;
  EXPECT_EQ(lineage_->getDependents(resource, 0), nullptr);
  const std::string message = str(lineage_->getErrorMessage());
  EXPECT_FALSE(message.empty());
  EXPECT_TRUE(log.contains(message, QZLOG_ERROR, kLineageLogger)) << log.dump();
  EXPECT_EQ(lineage_->getAllResources(), nullptr);
  EXPECT_EQ(lineage_->getAllEdges(), nullptr);
  // Nothing was changed or removed.
  EXPECT_EQ(qztest::readFile(storePath()),
            "this is not a database, just text that is long enough\n");
}

TEST_F(LineageTest, AFailureTextSurvivesALaterSuccess) {
  uses("b", "a");
  EXPECT_EQ(lineage_->getDependents(node("a"), -2), nullptr);
  LineageListPtr list(lineage_->getDependents(node("a"), 0));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(str(lineage_->getErrorMessage()),
            "Invalid lineage depth -2: give a positive number of steps, or 0 for no limit");
}

// ---------------------------------------------------------------------------
// Whole graph, resources and lists

TEST_F(LineageTest, TheWholeGraphListsEveryResourceAndEveryStoredEdge) {
  uses("b", "a");
  uses("c", "b");
  uses("a", "c");
  node("alone");
  LineageListPtr all(lineage_->getAllResources());
  ASSERT_NE(all, nullptr);
  EXPECT_EQ(rowsOf(all.get()), (Strings{"b:0", "a:0", "c:0", "alone:0"}));
  EdgeListPtr edges(lineage_->getAllEdges());
  ASSERT_NE(edges, nullptr);
  EXPECT_EQ(edges->length(), 3);
  EXPECT_EQ(edgesOf(edges.get()), (Strings{"b>a", "a>c", "c>b"}));
}

TEST_F(LineageTest, ListedResourcesCarryTheirStoredFields) {
  ResourcePtr job = make("load", "Job", "/v/jobs/load.job.def");
  ResourcePtr table = make("orders", "Table", "db:postgresql/sales//public/orders");
  {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("INSERT INTO v_impadeps (res_id, res_used) VALUES (" +
                         str(job->getId()) + ", " + str(table->getId()) + ")"));
  }
  LineageListPtr list(lineage_->getUsed(job.get(), 0));
  ASSERT_NE(list, nullptr) << str(lineage_->getErrorMessage());
  ASSERT_TRUE(list->next());
  QzResource* found = list->getResource();
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(str(found->getId()), str(table->getId()));
  EXPECT_EQ(str(found->getName()), "orders");
  EXPECT_EQ(str(found->getResourceType()), "Table");
  EXPECT_EQ(str(found->getResourceIdentity()), "db:postgresql/sales//public/orders");
  EXPECT_EQ(list->getDistance(), 1);
  EXPECT_FALSE(list->next());
  EXPECT_FALSE(list->next());
  EXPECT_EQ(list->getResource(), nullptr);
  list->reset();
  EXPECT_TRUE(list->next());
  EXPECT_EQ(list->length(), 1);
}

TEST_F(LineageTest, EdgeListsReadNullOffARow) {
  uses("b", "a");
  EdgeListPtr edges(lineage_->getDependentEdges(node("a"), 0));
  ASSERT_NE(edges, nullptr);
  EXPECT_TRUE(edges->getUserId().isNull());
  ASSERT_TRUE(edges->next());
  EXPECT_EQ(str(edges->getUserId()), id("b"));
  EXPECT_EQ(str(edges->getUsedId()), id("a"));
  EXPECT_FALSE(edges->next());
  EXPECT_TRUE(edges->getUsedId().isNull());
}

TEST_F(LineageTest, ResourcesGoThroughTheResolverAndTheLineageOutlivesItsAnalysis) {
  uses("b", "a");
  qztest::FakeResolver resolver;
  resolver.location = "found here";
  analysis_->registerResourceResolver(&resolver);
  QzvLineage* lineage = analysis_->getLineage();
  ASSERT_NE(lineage, nullptr);
  // The analysis object that made it may go first.
  analysis_->release();
  analysis_ = new QzvImpactAnalysisImpl(vault_);
  LineageListPtr list(lineage->getDependents(node("a"), 0));
  ASSERT_NE(list, nullptr) << str(lineage->getErrorMessage());
  ASSERT_TRUE(list->next());
  EXPECT_EQ(str(list->getResource()->getResourceLocation()), "found here");
  EXPECT_EQ(resolver.lastIdentity, "/v/b");
  list.reset();
  lineage->release();
}

TEST_F(LineageTest, AClosureRecordsNothing) {
  // The one-step query records a table's database as its dependency; the
  // closure only reads.
  ResourcePtr database = make("", "Database", "db:postgresql/sales");
  ResourcePtr table = make("orders", "Table", "db:postgresql/sales//public/orders");
  LineageListPtr used(lineage_->getUsed(table.get(), 0));
  ASSERT_NE(used, nullptr);
  LineageListPtr dependents(lineage_->getDependents(table.get(), 0));
  ASSERT_NE(dependents, nullptr);
  EXPECT_EQ(used->length(), 0);
  EXPECT_EQ(count("v_impadeps"), 0);
  // The one-step query does record the link, so there was one to record.
  qztest::ResourceListPtr oneStep(analysis_->getDependentResources(table.get(), false));
  EXPECT_EQ(count("v_impadeps"), 1);
}

// ---------------------------------------------------------------------------
// Agreement with a breadth-first walk on random graphs with cycles,
// self-loops and duplicate edges.

TEST_F(LineageTest, RandomGraphsAgreeWithABreadthFirstWalk) {
  const int kNodes = 40;
  std::mt19937 random(20240607);
  std::vector<std::string> names;
  for (int index = 0; index < kNodes; ++index) names.push_back("n" + std::to_string(index));
  for (const std::string& name : names) node(name);
  std::vector<std::pair<int, int>> edges;  // (user, used)
  {
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("BEGIN"));
    std::uniform_int_distribution<int> pick(0, kNodes - 1);
    for (int count = 0; count < 70; ++count) {
      const int user = pick(random);
      const int used = pick(random);
      edges.emplace_back(user, used);
      ASSERT_TRUE(raw.exec("INSERT INTO v_impadeps (res_id, res_used) VALUES (" +
                           id(names[user]) + ", " + id(names[used]) + ")"));
    }
    ASSERT_TRUE(raw.exec("COMMIT"));
  }
  // Reference: breadth first over the edge list, in memory.
  auto reference = [&](int start, bool dependents, int depth) {
    std::map<int, int> distance{{start, 0}};
    std::deque<int> queue{start};
    while (!queue.empty()) {
      const int near = queue.front();
      queue.pop_front();
      if (depth != 0 && distance[near] >= depth) continue;
      for (const auto& edge : edges) {
        const int from = dependents ? edge.second : edge.first;
        const int to = dependents ? edge.first : edge.second;
        if (from != near || distance.count(to) != 0) continue;
        distance[to] = distance[near] + 1;
        queue.push_back(to);
      }
    }
    std::set<std::string> rows;
    for (const auto& entry : distance) {
      if (entry.first != start) {
        rows.insert(names[entry.first] + ":" + std::to_string(entry.second));
      }
    }
    return rows;
  };
  for (int start = 0; start < kNodes; start += 3) {
    for (int depth : {0, 1, 2, 3, 5, kDeepLimit, kDeepLimit + 1, 30}) {
      SCOPED_TRACE("start " + names[start] + " depth " + std::to_string(depth));
      const Strings got = down(names[start], depth);
      EXPECT_EQ(std::set<std::string>(got.begin(), got.end()), reference(start, true, depth));
      EXPECT_EQ(std::set<std::string>(got.begin(), got.end()).size(), got.size());
      const Strings gotUp = up(names[start], depth);
      EXPECT_EQ(std::set<std::string>(gotUp.begin(), gotUp.end()),
                reference(start, false, depth));
    }
  }
}

// ---------------------------------------------------------------------------
// A graph large enough that the walk leaves single steps for reading every
// edge at once, and reads the rows of a large closure in one pass: the same
// answers as a breadth-first walk in the test, dangling edges included.

TEST_F(LineageTest, ALargeGraphAgreesWithABreadthFirstWalk) {
  const int kNodes = 3000;
  const int kEdges = 3 * kNodes;
  std::mt19937 random(4711);
  std::uniform_int_distribution<int> pick(1, kNodes + 20);  // some ids are never stored
  std::vector<std::pair<int, int>> edges;                  // (user, used)
  const std::set<int> deleted = {17, 450, 2999};            // stored, then removed
  {
    createStore();
    RawStore raw(storePath());
    ASSERT_TRUE(raw.exec("BEGIN"));
    for (int id = 1; id <= kNodes; ++id) {
      ASSERT_TRUE(raw.exec("INSERT INTO v_imparcs (id, name, res_idty, res_type) VALUES (" +
                           std::to_string(id) + ", 'n" + std::to_string(id) + "', '/v/n" +
                           std::to_string(id) + "', 'File')"));
    }
    for (int count = 0; count < kEdges; ++count) {
      const int user = pick(random);
      const int used = pick(random);
      edges.emplace_back(user, used);
      ASSERT_TRUE(raw.exec("INSERT INTO v_impadeps (res_id, res_used) VALUES (" +
                           std::to_string(user) + ", " + std::to_string(used) + ")"));
    }
    for (int id : deleted) {
      ASSERT_TRUE(raw.exec("DELETE FROM v_imparcs WHERE id = " + std::to_string(id)));
    }
    ASSERT_TRUE(raw.exec("COMMIT"));
  }
  const auto stored = [&](int id) { return id >= 1 && id <= kNodes && deleted.count(id) == 0; };
  // Reference: breadth first over the edge list, stepping only onto stored
  // resources; rows "n<id>:<distance>" and edges "user>used" among them.
  std::map<int, std::vector<int>> towardsUsers;
  std::map<int, std::vector<int>> towardsUsed;
  for (const auto& edge : edges) {
    towardsUsers[edge.second].push_back(edge.first);
    towardsUsed[edge.first].push_back(edge.second);
  }
  const auto reference = [&](int start, bool dependents, int depth, Strings* rows,
                             std::set<std::string>* edgeRows) {
    const auto& adjacent = dependents ? towardsUsers : towardsUsed;
    std::map<int, int> distance{{start, 0}};
    std::deque<int> queue{start};
    while (!queue.empty()) {
      const int near = queue.front();
      queue.pop_front();
      if (depth != 0 && distance[near] >= depth) continue;
      auto found = adjacent.find(near);
      if (found == adjacent.end()) continue;
      for (int far : found->second) {
        if (!stored(far) || distance.count(far) != 0) continue;
        distance[far] = distance[near] + 1;
        queue.push_back(far);
      }
    }
    std::vector<std::pair<int, int>> order;
    for (const auto& entry : distance) {
      if (entry.first != start) order.emplace_back(entry.second, entry.first);
    }
    std::sort(order.begin(), order.end());
    for (const auto& entry : order) {
      rows->push_back("n" + std::to_string(entry.second) + ":" + std::to_string(entry.first));
    }
    for (const auto& edge : edges) {
      if (distance.count(edge.first) != 0 && distance.count(edge.second) != 0) {
        edgeRows->insert(std::to_string(edge.first) + ">" + std::to_string(edge.second));
      }
    }
  };
  const auto idsOf = [](QzvLineageEdgeList* list) {
    Strings rows;
    while (list != nullptr && list->next()) {
      rows.push_back(str(list->getUserId()) + ">" + str(list->getUsedId()));
    }
    return rows;
  };
  for (int start : {1, 2, 1234}) {
    ResourcePtr resource(new QzvResourceImpl());
    static_cast<QzvResourceImpl*>(resource.get())->setId(QzbString(std::to_string(start).c_str()));
    for (bool dependents : {true, false}) {
      for (int depth : {QZV_LINEAGE_UNLIMITED, 2, 6}) {
        SCOPED_TRACE("start " + std::to_string(start) + (dependents ? " down" : " up") +
                     " depth " + std::to_string(depth));
        Strings expectedRows;
        std::set<std::string> expectedEdges;
        reference(start, dependents, depth, &expectedRows, &expectedEdges);
        LineageListPtr list(dependents ? lineage_->getDependents(resource.get(), depth)
                                       : lineage_->getUsed(resource.get(), depth));
        ASSERT_NE(list, nullptr) << str(lineage_->getErrorMessage());
        EXPECT_EQ(rowsOf(list.get()), expectedRows);
        EdgeListPtr edgeList(dependents ? lineage_->getDependentEdges(resource.get(), depth)
                                        : lineage_->getUsedEdges(resource.get(), depth));
        ASSERT_NE(edgeList, nullptr) << str(lineage_->getErrorMessage());
        const Strings got = idsOf(edgeList.get());
        EXPECT_EQ(std::set<std::string>(got.begin(), got.end()), expectedEdges);
        EXPECT_EQ(got.size(), expectedEdges.size()) << "each edge once";
      }
    }
  }
  // The unlimited closures above reached most of the store, so the walk read
  // every edge at once and the rows in one pass; the depth-2 ones did not.
  Strings all;
  std::set<std::string> unused;
  reference(1, true, QZV_LINEAGE_UNLIMITED, &all, &unused);
  EXPECT_GT(all.size(), static_cast<std::size_t>(kNodes / 2));
}

// ---------------------------------------------------------------------------
// Plans: a step of the walk reads its edges from the covering edge index, and
// the test that a resource is stored looks its row up by id; nothing scans.

TEST_F(LineageTest, TheWalksStepsReadTheCoveringEdgeIndexes) {
  createStore();
  RawStore raw(storePath());
  const auto plan = [&](const char* sql) {
    std::string text;
    for (const std::string& row : raw.rows(std::string("EXPLAIN QUERY PLAN ") + sql)) {
      text += row.substr(row.rfind('|') + 1) + "\n";
    }
    return text;
  };
  const std::string toUsers = plan(kQzviLineageStepToUsers);
  EXPECT_NE(toUsers.find("USING COVERING INDEX v_impadeps_used_res_id (res_used=?)"),
            std::string::npos)
      << toUsers;
  EXPECT_EQ(toUsers.find("SCAN"), std::string::npos) << toUsers;
  const std::string toUsed = plan(kQzviLineageStepToUsed);
  EXPECT_NE(toUsed.find("USING COVERING INDEX v_impadeps_res_id_used (res_id=?)"),
            std::string::npos)
      << toUsed;
  EXPECT_EQ(toUsed.find("SCAN"), std::string::npos) << toUsed;
  const std::string isStored = plan(kQzviLineageIsStored);
  EXPECT_NE(isStored.find("USING INTEGER PRIMARY KEY (rowid=?)"), std::string::npos) << isStored;
}

}  // namespace
