// The examples of docs/cli-reference.md are run and their output compared.
//
// An example is a ```console block right after a line "<!-- example -->" (run
// in a fresh demo vault at /srv/demo, which is also the working directory) or
// "<!-- example: empty -->" (run in /srv, where /srv/demo is not yet made).
// Lines "$ qzvault ..." are commands; the lines after each, up to the next
// command, are what it prints (stdout, then stderr). A command ending in
// "# exit status N" must end with that status, any other with 0. Every
// example also has the directory /srv/inbox with the files the reference
// describes. Commands run with a PATH on which there is no program at all:
// the reference shows the output of a machine without Graphviz.
//
// Before comparing, both sides are normalised: the real directories become
// /srv/demo, /srv/inbox and /srv, the build tree's plug-in directory the installed
// one, every UUID "<uuid>", every date "<date>", every time in seconds
// "<seconds>", the type of the file system `info` names "<file system>",
// and the user running the test "alice".
#include <pwd.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tool/tool_runner.h"

namespace {

using qztest::TempDir;
using qztool::ToolResult;

const char kDocVault[] = "/srv/demo";
const char kDocInbox[] = "/srv/inbox";
const char kDocParent[] = "/srv";
const char kDocPlugins[] = "/usr/local/lib/qzvault/plugins (installation)";

struct Command {
  int line = 0;
  std::vector<std::string> words;
  int status = 0;
  std::string expected;
};

struct Example {
  int line = 0;
  bool empty = false;
  std::vector<Command> commands;
};

// Splits a command line like a shell does for plain words and quotes.
std::vector<std::string> splitWords(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  bool inWord = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\'' || c == '"') {
      const std::size_t end = text.find(c, i + 1);
      word += text.substr(i + 1, end - i - 1);
      i = end == std::string::npos ? text.size() : end;
      inWord = true;
    } else if (c == ' ') {
      if (inWord) words.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (inWord) words.push_back(word);
  return words;
}

std::vector<Example> readExamples(const std::string& path) {
  std::istringstream in(qztest::readFile(path));
  std::vector<Example> examples;
  std::string line;
  int number = 0;
  const std::regex exitStatus(R"(\s+# exit status ([0-9]+)$)");
  while (std::getline(in, line)) {
    ++number;
    if (line != "<!-- example -->" && line != "<!-- example: empty -->") continue;
    Example example;
    example.line = number;
    example.empty = line == "<!-- example: empty -->";
    std::getline(in, line);
    ++number;
    EXPECT_EQ(line, "```console") << "line " << number << ": an example marker without a console block";
    while (std::getline(in, line)) {
      ++number;
      if (line == "```") break;
      if (line.rfind("$ ", 0) == 0) {
        Command command;
        command.line = number;
        std::string text = line.substr(2);
        std::smatch match;
        if (std::regex_search(text, match, exitStatus)) {
          command.status = std::stoi(match[1]);
          text = text.substr(0, static_cast<std::size_t>(match.position(0)));
        }
        command.words = splitWords(text);
        example.commands.push_back(command);
      } else if (!example.commands.empty()) {
        example.commands.back().expected += line + "\n";
      }
    }
    examples.push_back(example);
  }
  return examples;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
  if (from.empty()) return text;
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string currentUser() {
  const passwd* entry = getpwuid(geteuid());
  return entry != nullptr ? entry->pw_name : "";
}

// The normalisations that apply to the reference and to the real output.
std::string normalise(std::string text) {
  static const std::regex uuid("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}");
  static const std::regex isoDate(
      "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(Z|[+-][0-9]{2}:[0-9]{2})");
  static const std::regex date("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}");
  static const std::regex seconds(R"(\b1[0-9]{9}\b)");
  text = std::regex_replace(text, uuid, "<uuid>");
  text = std::regex_replace(text, isoDate, "<date>");
  text = std::regex_replace(text, date, "<date>");
  text = std::regex_replace(text, seconds, "<seconds>");
  static const std::regex fileSystem("(File system: +)[^ ,]+,");
  text = std::regex_replace(text, fileSystem, "$1<file system>,");
  const std::string user = currentUser();
  if (!user.empty()) text = std::regex_replace(text, std::regex("\\b" + user + "\\b"), "alice");
  return text;
}

// The files of /srv/inbox, as the reference lists them.
void makeInbox(const std::string& inbox) {
  qztest::makeDirs(inbox);
  qztool::writeText(inbox + "/returns.csv", "order_id,amount\n1002,-99.50\n");
  qztool::writeText(inbox + "/orders-fixed.csv",
                    "order_id,customer_id,amount,order_date\n"
                    "1001,C001,250.00,2024-03-01\n"
                    "1002,C002,95.50,2024-03-01\n"
                    "1003,C001,12.75,2024-03-02\n"
                    "1004,C003,40.00,2024-03-02\n");
  qztool::writeText(inbox + "/weekly-load.job.def",
                    "{\n"
                    "  \"name\": \"Weekly load\",\n"
                    "  \"attributes\": [{\"name\": \"Owner\", \"rows\": [[\"data-team\"]]}],\n"
                    "  \"uses\": [{\"type\": \"File\", \"path\": \"../../Data/orders.csv\"}]\n"
                    "}\n");
}

void runExample(const Example& example) {
  TempDir dir;
  const std::string vault = dir.join("demo");
  const std::string inbox = dir.join("inbox");
  makeInbox(inbox);
  // Without Graphviz on PATH, so that the demo vault (which would get a
  // picture of its lineage) and the output are the same on every machine.
  const std::string noPrograms = dir.join("no-programs");
  qztest::makeDirs(noPrograms);
  qztool::RunOptions options;
  options.cwd = dir.path();
  options.env.emplace_back("PATH", noPrograms);
  if (!example.empty) {
    const ToolResult demo = qztool::runTool({"demo", vault}, options);
    ASSERT_EQ(demo.status, 0) << demo.describe();
    options.cwd = vault;
  }
  for (const Command& command : example.commands) {
    SCOPED_TRACE("docs/cli-reference.md line " + std::to_string(command.line));
    ASSERT_FALSE(command.words.empty());
    ASSERT_EQ(command.words[0], "qzvault");
    std::vector<std::string> args;
    for (std::size_t i = 1; i < command.words.size(); ++i) {
      args.push_back(replaceAll(replaceAll(command.words[i], kDocVault, vault), kDocInbox, inbox));
    }
    const ToolResult result = qztool::runTool(args, options);
    std::string actual = result.out + result.err;
    actual = replaceAll(actual, qztool::buildPluginDir() + " (build tree)", kDocPlugins);
    actual = replaceAll(replaceAll(actual, vault, kDocVault), inbox, kDocInbox);
    // The directory that holds both: the working directory of an empty example.
    actual = replaceAll(actual, dir.path(), kDocParent);
    EXPECT_EQ(result.status, command.status) << result.describe();
    EXPECT_EQ(normalise(actual), normalise(command.expected));
  }
}

TEST(CliReference, EveryExampleGivesTheOutputShown) {
  if (!qztool::definitionPluginBuilt()) GTEST_SKIP() << "the definition plug-in is not built";
  const std::vector<Example> examples = readExamples(qztool::sourcePath("docs/cli-reference.md"));
  ASSERT_FALSE(examples.empty());
  for (const Example& example : examples) {
    SCOPED_TRACE("example at docs/cli-reference.md line " + std::to_string(example.line));
    runExample(example);
  }
}

TEST(CliReference, EveryCommandHasAnExample) {
  const std::vector<Example> examples = readExamples(qztool::sourcePath("docs/cli-reference.md"));
  std::set<std::string> shown;
  for (const Example& example : examples) {
    for (const Command& command : example.commands) {
      // The first word after the global options names the command.
      for (std::size_t i = 1; i < command.words.size(); ++i) {
        const std::string& word = command.words[i];
        if (word == "--vault" || word == "--plugins" || word == "--log-level" || word == "--set") {
          ++i;
          continue;
        }
        const std::string next = i + 1 < command.words.size() ? command.words[i + 1] : "";
        if (word == "attr" || word == "version" || (word == "lineage" && next == "export")) {
          shown.insert(word + " " + next);
        } else {
          shown.insert(word);
        }
        break;
      }
    }
  }
  for (const char* command :
       {"init", "info", "ls", "tree", "mkdir", "rmdir", "rename", "fsrename", "mv", "add", "rm",
        "attr list", "attr get", "attr set", "attr clear", "version create", "version list",
        "version rollback", "lock", "unlock", "status", "analyze", "deps", "used-by", "resources",
        "types", "lineage", "lineage export", "graph", "clean", "demo", "check", "config", "log",
        "show", "diff", "locks"}) {
    EXPECT_EQ(shown.count(command), 1u) << "no example of qzvault " << command;
  }
}

}  // namespace
