// The direction of dependencies between the folders of the library and of the
// tool. The build writes one table per component (build/layering/*.txt: the
// component's source root, then one line per folder naming the folders it may
// use); these tests read every source of the component and fail when
//   - a file includes a header of a folder its own folder may not use,
//   - two sources depend on each other, directly or round a circle (x.cc
//     includes y.h while y.cc or y.h includes x.h, and so on),
//   - a header name occurs in two folders (includes name headers bare, so the
//     name must say which file is meant),
//   - a folder is missing from the table or has no README.md of five to
//     fifteen lines.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

struct Component {
  std::string name;                                 // "vault", "tool"
  fs::path root;                                    // source root
  std::vector<std::string> folders;                 // in table order
  std::map<std::string, std::set<std::string>> may;  // folder -> folders it may use (itself included)
};

Component readTable(const fs::path& table) {
  Component component;
  component.name = table.stem().string();
  std::ifstream in(table);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string first;
    if (!(words >> first)) continue;
    if (first == "root") {
      std::string relative;
      words >> relative;
      component.root = fs::path(QZ_TEST_SOURCE_ROOT) / relative;
      continue;
    }
    component.folders.push_back(first);
    std::set<std::string>& uses = component.may[first];
    uses.insert(first);
    std::string used;
    while (words >> used) uses.insert(used);
  }
  return component;
}

std::vector<Component> readTables() {
  std::vector<Component> components;
  const fs::path directory = fs::path(QZ_TEST_BINARY_ROOT) / "layering";
  std::vector<fs::path> tables;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().extension() == ".txt") tables.push_back(entry.path());
  }
  std::sort(tables.begin(), tables.end());
  for (const fs::path& table : tables) components.push_back(readTable(table));
  return components;
}

bool isSource(const fs::path& path) {
  return path.extension() == ".h" || path.extension() == ".cc";
}

// The quoted includes of a source.
std::vector<std::string> quotedIncludes(const fs::path& source) {
  static const std::regex kInclude("^\\s*#\\s*include\\s+\"([^\"]+)\"");
  std::vector<std::string> names;
  std::ifstream in(source);
  std::string line;
  std::smatch match;
  while (std::getline(in, line)) {
    if (std::regex_search(line, match, kInclude)) names.push_back(match[1]);
  }
  return names;
}

// One source of a component: its folder ("" at the component's root, which
// may use every folder) and its path.
struct Source {
  std::string folder;
  fs::path path;
};

std::vector<Source> sourcesOf(const Component& component) {
  std::vector<Source> sources;
  for (const auto& entry : fs::directory_iterator(component.root)) {
    if (entry.is_regular_file() && isSource(entry.path())) {
      sources.push_back({"", entry.path()});
    } else if (entry.is_directory()) {
      const std::string folder = entry.path().filename().string();
      for (const auto& file : fs::recursive_directory_iterator(entry.path())) {
        if (file.is_regular_file() && isSource(file.path())) sources.push_back({folder, file.path()});
      }
    }
  }
  std::sort(sources.begin(), sources.end(),
            [](const Source& a, const Source& b) { return a.path < b.path; });
  return sources;
}

// A path as messages show it: relative to the component's parent directories
// (for example "src/vault/store/x.cc").
std::string shown(const Component& component, const fs::path& path) {
  return fs::relative(path, component.root.parent_path().parent_path()).string();
}

// Every include that runs against the table, one message each.
std::vector<std::string> upwardIncludes(const Component& component) {
  std::vector<std::string> found;
  // Header name -> folders that hold a header of that name.
  std::map<std::string, std::set<std::string>> owners;
  for (const Source& source : sourcesOf(component)) {
    if (source.path.extension() == ".h") owners[source.path.filename().string()].insert(source.folder);
  }
  for (const Source& source : sourcesOf(component)) {
    if (source.folder.empty()) continue;  // the component's top may use everything
    const auto allowed = component.may.find(source.folder);
    if (allowed == component.may.end()) continue;  // a folder with no place: tested apart
    for (const std::string& include : quotedIncludes(source.path)) {
      const auto owner = owners.find(fs::path(include).filename().string());
      if (owner == owners.end()) continue;  // public or base-layer header
      for (const std::string& folder : owner->second) {
        if (allowed->second.count(folder)) continue;
        found.push_back(shown(component, source.path) + " includes " + folder + "/" + include +
                        ", but the " + source.folder + " folder may not use the " + folder +
                        " folder");
      }
    }
  }
  return found;
}

// A module is a header and the source of the same name; module a depends on
// module b when a's header or source includes b's header. Every circle of
// modules that depend on each other, as a list of its modules.
std::vector<std::vector<std::string>> dependencyCircles(const Component& component) {
  std::map<std::string, std::string> moduleOfHeader;  // "x.h" -> module
  for (const Source& source : sourcesOf(component)) {
    if (source.path.extension() == ".h") {
      moduleOfHeader[source.path.filename().string()] =
          shown(component, source.path.parent_path() / source.path.stem());
    }
  }
  std::map<std::string, std::set<std::string>> edges;
  for (const Source& source : sourcesOf(component)) {
    const std::string module = shown(component, source.path.parent_path() / source.path.stem());
    edges[module];
    for (const std::string& include : quotedIncludes(source.path)) {
      const auto target = moduleOfHeader.find(fs::path(include).filename().string());
      if (target != moduleOfHeader.end() && target->second != module) {
        edges[module].insert(target->second);
      }
    }
  }
  // Strongly connected components (Tarjan): any with two or more modules
  // is a circle of dependencies.
  std::map<std::string, int> index, low;
  std::vector<std::string> stack;
  std::set<std::string> onStack;
  int next = 0;
  std::vector<std::vector<std::string>> circles;
  std::function<void(const std::string&)> visit = [&](const std::string& module) {
    index[module] = low[module] = next++;
    stack.push_back(module);
    onStack.insert(module);
    for (const std::string& target : edges[module]) {
      if (!index.count(target)) {
        visit(target);
        low[module] = std::min(low[module], low[target]);
      } else if (onStack.count(target)) {
        low[module] = std::min(low[module], index[target]);
      }
    }
    if (low[module] == index[module]) {
      std::vector<std::string> members;
      std::string member;
      do {
        member = stack.back();
        stack.pop_back();
        onStack.erase(member);
        members.push_back(member);
      } while (member != module);
      if (members.size() > 1) circles.push_back(members);
    }
  };
  for (const auto& entry : edges) {
    if (!index.count(entry.first)) visit(entry.first);
  }
  return circles;
}

class Layering : public ::testing::Test {
 protected:
  void SetUp() override {
    components_ = readTables();
    ASSERT_GE(components_.size(), 2u) << "the build writes a table for the library and the tool";
  }
  std::vector<Component> components_;
};

TEST_F(Layering, EveryComponentHasTheFoldersItsBuildDescribes) {
  for (const Component& component : components_) {
    SCOPED_TRACE(component.name);
    ASSERT_TRUE(fs::is_directory(component.root)) << component.root;
    EXPECT_GE(component.folders.size(), 3u);
    for (const std::string& folder : component.folders) {
      EXPECT_TRUE(fs::is_directory(component.root / folder)) << folder;
      for (const std::string& used : component.may.at(folder)) {
        EXPECT_TRUE(component.may.count(used)) << folder << " uses an unknown folder " << used;
      }
    }
    for (const auto& entry : fs::directory_iterator(component.root)) {
      if (!entry.is_directory()) continue;
      const std::string folder = entry.path().filename().string();
      bool holdsSources = false;
      for (const auto& file : fs::directory_iterator(entry.path())) {
        holdsSources = holdsSources || isSource(file.path());
      }
      if (holdsSources) {
        EXPECT_TRUE(component.may.count(folder))
            << shown(component, entry.path()) << " holds sources but has no place in the layering";
      }
    }
  }
}

TEST_F(Layering, NoFileIncludesAHeaderOfAFolderItsFolderMayNotUse) {
  for (const Component& component : components_) {
    for (const std::string& message : upwardIncludes(component)) ADD_FAILURE() << message;
  }
}

TEST_F(Layering, NoTwoSourcesDependOnEachOther) {
  for (const Component& component : components_) {
    for (const auto& circle : dependencyCircles(component)) {
      ADD_FAILURE() << "these sources depend on each other: " << ::testing::PrintToString(circle);
    }
  }
}

TEST_F(Layering, HeaderNamesAreUniqueWithinAComponent) {
  for (const Component& component : components_) {
    std::map<std::string, std::vector<std::string>> places;
    for (const Source& source : sourcesOf(component)) {
      if (source.path.extension() == ".h") {
        places[source.path.filename().string()].push_back(shown(component, source.path));
      }
    }
    for (const auto& [name, paths] : places) {
      EXPECT_EQ(paths.size(), 1u) << name << " is in " << ::testing::PrintToString(paths);
    }
  }
}

TEST_F(Layering, EveryFolderOpensWithAShortReadme) {
  for (const Component& component : components_) {
    for (const std::string& folder : component.folders) {
      const fs::path readme = component.root / folder / "README.md";
      std::ifstream in(readme);
      ASSERT_TRUE(in.good()) << shown(component, readme) << " is missing";
      int lines = 0;
      std::string line;
      while (std::getline(in, line)) ++lines;
      EXPECT_GE(lines, 5) << shown(component, readme);
      EXPECT_LE(lines, 15) << shown(component, readme);
    }
  }
}

// The checks themselves, on a small made-up component: a lower folder that
// includes a header of a higher one, and two sources of one folder that
// include each other's headers.
TEST(LayeringCheck, FindsAnUpwardIncludeAndACircle) {
  qztest::TempDir dir;
  const std::string root = dir.join("src/lib");
  qztest::makeDirs(root + "/low");
  qztest::makeDirs(root + "/high");
  qztest::writeFile(root + "/high/top.h", "#pragma once\n");
  qztest::writeFile(root + "/low/a.h", "#pragma once\n");
  qztest::writeFile(root + "/low/a.cc", "#include \"a.h\"\n#include \"b.h\"\n");
  qztest::writeFile(root + "/low/b.h", "#pragma once\n");
  qztest::writeFile(root + "/low/b.cc", "#include \"b.h\"\n#include \"a.h\"\n#include \"top.h\"\n");
  Component component;
  component.name = "lib";
  component.root = root;
  component.folders = {"low", "high"};
  component.may["low"] = {"low"};
  component.may["high"] = {"high", "low"};

  const std::vector<std::string> upward = upwardIncludes(component);
  ASSERT_EQ(upward.size(), 1u) << ::testing::PrintToString(upward);
  EXPECT_EQ(upward[0],
            "src/lib/low/b.cc includes high/top.h, but the low folder may not use the high folder");

  const auto circles = dependencyCircles(component);
  ASSERT_EQ(circles.size(), 1u);
  EXPECT_EQ(std::set<std::string>(circles[0].begin(), circles[0].end()),
            (std::set<std::string>{"src/lib/low/a", "src/lib/low/b"}));
}

}  // namespace
