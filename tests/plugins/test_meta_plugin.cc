// "qzvmdtestmeta": a metadata plug-in for the tests, implementing every
// operation of QzvMetaDataPlugin and QzvMetaDataFile over a small text format,
// so that tests of listings, renames, attributes and impact analysis can write
// the files they need in a few lines.
//
// Plug-ins. The factory offers three, in this order:
//   index 0  type "TestMeta"    handles "*.tmeta"    resource type "TestMeta"
//   index 1  type "TestJob"     handles "*.job.def"  resource type "Job"
//   index 2  type "TestReport"  handles "*.rpt.def"  resource type "Report"
// canHandle looks at the name only (the suffix in any letter case). Every
// plug-in reads the same format. getResourceIdentity returns the path as
// given. getDescription is "Test metadata files 1.0 (<type>)".
//
// File format. UTF-8 text, one directive per line; "\n" ends a line and a
// "\r" before it is dropped. A directive is a keyword, one blank, and its
// argument; fields inside an argument are separated by one blank or by "|"
// as shown:
//
//   name <text>
//       The display name: the rest of the line, blanks included (it may be
//       empty). Without a name line the file has no display name; with
//       several, the last counts.
//   attr <attribute> <row> <column> <value>
//       One value of an attribute. <attribute> holds no blank; <row> and
//       <column> are decimal numbers from 0 to 999; <value> is the rest of the
//       line after the blank that follows <column> (it may be empty or hold
//       blanks; a line that ends after <column> gives the empty value).
//       Attributes are numbered in the order in which they first appear (in an
//       attr or attribute line). An attribute has as many rows as its highest
//       row plus one and as many columns as its highest column plus one, so
//       "attr Wide 0 11 x" makes an attribute of twelve columns. Cells that no
//       line sets read as null.
//   attribute <attribute> <rows> <columns>
//       Declares an attribute with at least that many rows and columns (0 to
//       1000 each), so that a file can hold an attribute with empty cells.
//       commit() and save() write one such line before each attribute's attr
//       lines, so that cleared attributes and empty cells survive.
//   readonly <attribute>
//       The attribute is read-only: getAttributeDescription reports it so,
//       setValue refuses it and clear leaves it alone.
//   dep <type>|<name>|<identity>
//       A resource the file uses, made with factory->getResource(name, type,
//       identity). Identities follow docs/identities.md, for example
//       "dep DataFile|orders.csv|/srv/feeds/in/orders.csv".
//   datadep <sourceType>|<source>|<catalog>|<schema>|<table>
//       A database (empty <table>) or table the file uses, made with
//       factory->getDataResource on createQzDataURI(...) of the five parts,
//       for example "datadep postgresql|%%SALES_DSN%%||public|orders".
//   fileref <type>|<directory>|<name>
//       A file reference: factory->getResource(name, type, identity) with the
//       identity "fileref:<directory>/<name>" made by the resource manager's
//       makeFileReference, for example "fileref:%%FEED_DIR%%/orders.csv".
//   fail <operation>
//       Makes one operation fail, for tests of failure paths: "open"
//       (openFile returns null), "dependencies" (listDependencies returns
//       false), "commit" and "save" (return false, the file is not written),
//       "name" (offerName refuses every name).
//
// Blank lines, lines beginning with "#" and lines with another keyword are
// kept as they are (and written back by commit and save) but mean nothing.
// A directive with a malformed argument (a number out of range, the wrong
// number of "|" fields, an unknown "fail" operation) makes the whole file
// unreadable: openFile returns null.
//
// Dependencies are listed in the order of their lines, one resource per row
// of the list; listDependencies fails at the first resource that the factory
// cannot make.
//
// Writing. setValue, clear and offerName change the opened file in memory.
// commit() writes the attribute changes (with the name the file had when it
// was opened or last saved); save() writes everything, including an offered
// name. Both write the whole file to a temporary file beside it (a dot-name,
// hidden from listings) and rename it over the original through the platform
// layer, so a test can fail the rename with the fault-injecting platform. The
// written file holds the name line first, then the kept lines in their order
// (comments, readonly, dep, datadep, fileref, fail and unknown lines), then
// each attribute's attribute line and attr lines by row and column. Values
// and names holding a line break are refused (setValue and offerName return
// false), since the format could not carry them.
//
// Counters of what the library did are exported as qztest_meta_counters
// (test_meta_counters.h).
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qzbase/platform.h"
#include "qzbase/uri.h"
#include "qzvault/plugin.h"
#include "test_meta_counters.h"

#define QZTEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

QzTestMetaCounters g_counters;

const int kMaxIndex = 999;

struct Attribute {
  std::string name;
  int rows = 0;
  int columns = 0;
  bool readOnly = false;
  std::map<std::pair<int, int>, std::string> cells;  // (row, column) -> value
};

enum class DependencyKind { kResource, kData, kFileReference };

struct Dependency {
  DependencyKind kind;
  std::vector<std::string> fields;
};

struct Failures {
  bool open = false;
  bool dependencies = false;
  bool commit = false;
  bool save = false;
  bool name = false;
};

// The parsed content of one file.
struct Document {
  bool hasName = false;
  std::string name;
  std::vector<Attribute> attributes;
  std::vector<std::string> keptLines;
  std::vector<Dependency> dependencies;
  Failures failures;
};

bool hasLineBreak(const std::string& text) {
  return text.find('\n') != std::string::npos || text.find('\r') != std::string::npos;
}

// A decimal number from 0 to `maximum`; false for anything else.
bool parseNumber(const std::string& text, int maximum, int* value) {
  if (text.empty() || text.size() > 4) return false;
  int result = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    result = result * 10 + (c - '0');
  }
  if (result > maximum) return false;
  *value = result;
  return true;
}

// Splits `text` at `separator` into exactly `count` fields.
bool splitFields(const std::string& text, char separator, std::size_t count,
                 std::vector<std::string>* fields) {
  fields->clear();
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    fields->push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return fields->size() == count;
}

Attribute* findOrAddAttribute(Document* document, const std::string& name) {
  for (Attribute& attribute : document->attributes) {
    if (attribute.name == name) return &attribute;
  }
  document->attributes.push_back(Attribute());
  document->attributes.back().name = name;
  return &document->attributes.back();
}

// "NAME ROW COLUMN VALUE": the value is the rest after the third blank.
bool parseAttrLine(const std::string& argument, Document* document) {
  const std::size_t first = argument.find(' ');
  if (first == std::string::npos || first == 0) return false;
  const std::size_t second = argument.find(' ', first + 1);
  if (second == std::string::npos) return false;
  const std::size_t third = argument.find(' ', second + 1);
  const std::string rowText = argument.substr(first + 1, second - first - 1);
  const std::string columnText =
      argument.substr(second + 1, third == std::string::npos ? std::string::npos : third - second - 1);
  int row;
  int column;
  if (!parseNumber(rowText, kMaxIndex, &row) || !parseNumber(columnText, kMaxIndex, &column)) {
    return false;
  }
  Attribute* attribute = findOrAddAttribute(document, argument.substr(0, first));
  attribute->cells[{row, column}] = third == std::string::npos ? std::string() : argument.substr(third + 1);
  if (row + 1 > attribute->rows) attribute->rows = row + 1;
  if (column + 1 > attribute->columns) attribute->columns = column + 1;
  return true;
}

// "NAME ROWS COLUMNS".
bool parseAttributeLine(const std::string& argument, Document* document) {
  std::vector<std::string> fields;
  if (!splitFields(argument, ' ', 3, &fields) || fields[0].empty()) return false;
  int rows;
  int columns;
  if (!parseNumber(fields[1], kMaxIndex + 1, &rows) ||
      !parseNumber(fields[2], kMaxIndex + 1, &columns)) {
    return false;
  }
  Attribute* attribute = findOrAddAttribute(document, fields[0]);
  if (rows > attribute->rows) attribute->rows = rows;
  if (columns > attribute->columns) attribute->columns = columns;
  return true;
}

bool parseFailLine(const std::string& argument, Failures* failures) {
  if (argument == "open") {
    failures->open = true;
  } else if (argument == "dependencies") {
    failures->dependencies = true;
  } else if (argument == "commit") {
    failures->commit = true;
  } else if (argument == "save") {
    failures->save = true;
  } else if (argument == "name") {
    failures->name = true;
  } else {
    return false;
  }
  return true;
}

// Parses one line into `document`; false when the line is malformed.
bool parseLine(const std::string& line, Document* document,
               std::vector<std::string>* readOnlyNames) {
  const std::size_t blank = line.find(' ');
  const std::string keyword = line.substr(0, blank);
  const std::string argument = blank == std::string::npos ? std::string() : line.substr(blank + 1);
  if (keyword == "name") {
    document->hasName = true;
    document->name = argument;
    return true;
  }
  if (keyword == "attr") return parseAttrLine(argument, document);
  if (keyword == "attribute") return parseAttributeLine(argument, document);

  // Everything else is written back as it was.
  document->keptLines.push_back(line);
  if (keyword == "readonly") {
    if (argument.empty()) return false;
    readOnlyNames->push_back(argument);
    return true;
  }
  if (keyword == "dep" || keyword == "fileref") {
    Dependency dependency{keyword == "dep" ? DependencyKind::kResource
                                           : DependencyKind::kFileReference,
                          {}};
    if (!splitFields(argument, '|', 3, &dependency.fields)) return false;
    document->dependencies.push_back(dependency);
    return true;
  }
  if (keyword == "datadep") {
    Dependency dependency{DependencyKind::kData, {}};
    if (!splitFields(argument, '|', 5, &dependency.fields)) return false;
    document->dependencies.push_back(dependency);
    return true;
  }
  if (keyword == "fail") return parseFailLine(argument, &document->failures);
  return true;  // a comment, a blank line or an unknown keyword
}

bool readWholeFile(const std::string& path, std::string* content) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  char buffer[4096];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) content->append(buffer, got);
  const bool ok = std::ferror(file) == 0;
  std::fclose(file);
  return ok;
}

bool parseDocument(const std::string& content, Document* document) {
  std::vector<std::string> readOnlyNames;
  std::size_t start = 0;
  while (start < content.size()) {
    std::size_t end = content.find('\n', start);
    if (end == std::string::npos) end = content.size();
    std::string line = content.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!parseLine(line, document, &readOnlyNames)) return false;
    start = end + 1;
  }
  for (const std::string& name : readOnlyNames) {
    for (Attribute& attribute : document->attributes) {
      if (attribute.name == name) attribute.readOnly = true;
    }
  }
  return true;
}

std::string renderDocument(const Document& document, bool hasName, const std::string& name) {
  std::string text;
  if (hasName) text += "name " + name + "\n";
  for (const std::string& line : document.keptLines) text += line + "\n";
  for (const Attribute& attribute : document.attributes) {
    text += "attribute " + attribute.name + " " + std::to_string(attribute.rows) + " " +
            std::to_string(attribute.columns) + "\n";
    for (const auto& cell : attribute.cells) {
      text += "attr " + attribute.name + " " + std::to_string(cell.first.first) + " " +
              std::to_string(cell.first.second) + " " + cell.second + "\n";
    }
  }
  return text;
}

// Writes `content` to a hidden temporary file beside `path` and renames it
// over `path`.
bool replaceFile(const std::string& path, const std::string& content) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  const std::string leaf = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string temporary = directory + "." + leaf + ".tmp";
  FILE* file = std::fopen(temporary.c_str(), "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  const bool closed = std::fclose(file) == 0;
  if (!written || !closed || np_fio_rename(temporary.c_str(), path.c_str()) != NP_OK) {
    np_fio_unlink(temporary.c_str());
    return false;
  }
  return true;
}

class TestMetaFile final : public QzvMetaDataFile {
 public:
  TestMetaFile(const QzbString& path, Document document)
      : path_(path),
        document_(std::move(document)),
        hasPendingName_(document_.hasName),
        pendingName_(document_.name) {}

  QzbString getPath() override { return path_; }

  void release() override {
    ++g_counters.filesReleased;
    delete this;
  }

  bool getDisplayName(QzbString* name, int* flags) override {
    if (flags != nullptr) *flags = 0;
    if (!document_.hasName) return false;
    if (name != nullptr) *name = QzbString::fromStdString(document_.name);
    return true;
  }

  int getAttributeCount() override { return static_cast<int>(document_.attributes.size()); }

  bool isModified() override { return attributesModified_ || nameModified_; }

  void getAttributeDescription(int index, int* rows, int* columns, QzbString* name,
                               int* readOnly) override {
    const Attribute* attribute = attributeAt(index);
    if (rows != nullptr) *rows = attribute != nullptr ? attribute->rows : 0;
    if (columns != nullptr) *columns = attribute != nullptr ? attribute->columns : 0;
    if (name != nullptr) {
      *name = attribute != nullptr ? QzbString::fromStdString(attribute->name) : QzbString();
    }
    if (readOnly != nullptr) *readOnly = attribute != nullptr && attribute->readOnly ? 1 : 0;
  }

  QzbString getValue(int index, int row, int column) override {
    const Attribute* attribute = attributeAt(index);
    if (attribute == nullptr) return QzbString();
    auto found = attribute->cells.find({row, column});
    return found == attribute->cells.end() ? QzbString() : QzbString::fromStdString(found->second);
  }

  bool setValue(int index, int row, int column, const QzbString& value) override {
    Attribute* attribute = attributeAt(index);
    if (attribute == nullptr || attribute->readOnly) return false;
    if (row < 0 || row > kMaxIndex || column < 0 || column > kMaxIndex) return false;
    const std::string text = value.toStdString();
    if (hasLineBreak(text)) return false;
    if (value.isNull()) {
      attribute->cells.erase({row, column});
    } else {
      attribute->cells[{row, column}] = text;
    }
    if (row + 1 > attribute->rows) attribute->rows = row + 1;
    if (column + 1 > attribute->columns) attribute->columns = column + 1;
    attributesModified_ = true;
    return true;
  }

  void clear(int index) override {
    Attribute* attribute = attributeAt(index);
    if (attribute == nullptr || attribute->readOnly) return;
    attribute->cells.clear();
    attribute->rows = 1;
    attributesModified_ = true;
  }

  bool commit() override {
    if (document_.failures.commit) return false;
    if (!replaceFile(path_.toStdString(),
                     renderDocument(document_, document_.hasName, document_.name))) {
      return false;
    }
    ++g_counters.commits;
    attributesModified_ = false;
    return true;
  }

  bool offerName(const QzbString& name) override {
    if (document_.failures.name || name.isNull() || hasLineBreak(name.toStdString())) return false;
    hasPendingName_ = true;
    pendingName_ = name.toStdString();
    nameModified_ = true;
    return true;
  }

  bool save() override {
    if (document_.failures.save) return false;
    if (!replaceFile(path_.toStdString(), renderDocument(document_, hasPendingName_, pendingName_))) {
      return false;
    }
    ++g_counters.saves;
    document_.hasName = hasPendingName_;
    document_.name = pendingName_;
    attributesModified_ = false;
    nameModified_ = false;
    return true;
  }

  bool listDependencies(QzResourceList* dependencies, QzResourceFactory* factory) override {
    ++g_counters.dependencyLists;
    if (document_.failures.dependencies || dependencies == nullptr || factory == nullptr) {
      return false;
    }
    for (const Dependency& dependency : document_.dependencies) {
      QzResource* resource = makeResource(dependency, factory);
      if (resource == nullptr) return false;
      const bool added = dependencies->addRow();
      if (added) dependencies->setLastRowElement(0, resource);
      resource->release();
      if (!added) return false;
    }
    return true;
  }

 private:
  ~TestMetaFile() override = default;

  Attribute* attributeAt(int index) {
    if (index < 0 || index >= static_cast<int>(document_.attributes.size())) return nullptr;
    return &document_.attributes[static_cast<std::size_t>(index)];
  }

  static QzbString text(const std::string& value) { return QzbString::fromStdString(value); }

  static QzResource* makeResource(const Dependency& dependency, QzResourceFactory* factory) {
    const std::vector<std::string>& f = dependency.fields;
    switch (dependency.kind) {
      case DependencyKind::kResource:
        return factory->getResource(text(f[1]), text(f[0]), text(f[2]));
      case DependencyKind::kData: {
        QzDataURI* uri = createQzDataURI(text(f[0]), text(f[1]), text(f[2]), text(f[3]), text(f[4]));
        if (uri == nullptr) return nullptr;
        QzResource* resource = factory->getDataResource(uri);
        uri->release();
        return resource;
      }
      case DependencyKind::kFileReference: {
        QzResourceManager* manager = createQzResourceManager();
        if (manager == nullptr) return nullptr;
        QzbString identity;
        const bool made = manager->makeFileReference(text(f[1]), text(f[2]), &identity);
        manager->release();
        if (!made) return nullptr;
        return factory->getResource(text(f[2]), text(f[0]), identity);
      }
    }
    return nullptr;
  }

  QzbString path_;
  Document document_;
  bool hasPendingName_;
  std::string pendingName_;
  bool attributesModified_ = false;
  bool nameModified_ = false;
};

struct PluginKind {
  const char* typeName;
  const char* suffix;
  const char* resourceType;
};

const PluginKind kKinds[] = {
    {"TestMeta", ".tmeta", "TestMeta"},
    {"TestJob", ".job.def", "Job"},
    {"TestReport", ".rpt.def", "Report"},
};
const int kKindCount = static_cast<int>(sizeof kKinds / sizeof kKinds[0]);

class TestMetaPlugin final : public QzvMetaDataPlugin {
 public:
  explicit TestMetaPlugin(const PluginKind& kind) : kind_(kind) {}

  QzbString getDescription() override {
    return QzbString::fromStdString(std::string("Test metadata files 1.0 (") + kind_.typeName + ")");
  }
  void release() override {
    ++g_counters.pluginsReleased;
    delete this;
  }
  QzbString getTypeName() override { return QzbString(kind_.typeName, true); }
  bool canHandle(const QzbString& path) override {
    ++g_counters.canHandleCalls;
    return path.endsWith(kind_.suffix, false);
  }
  QzvMetaDataFile* openFile(const QzbString& path) override {
    ++g_counters.openCalls;
    std::string content;
    if (path.isEmpty() || !readWholeFile(path.toStdString(), &content)) return nullptr;
    Document document;
    if (!parseDocument(content, &document) || document.failures.open) return nullptr;
    ++g_counters.filesOpened;
    return new TestMetaFile(path, std::move(document));
  }
  QzbString getResourceIdentity(const QzbString& path) override { return path; }
  QzbString getResourceType() override { return QzbString(kind_.resourceType, true); }

 private:
  ~TestMetaPlugin() override = default;
  PluginKind kind_;
};

class TestMetaFactory final : public QzvMetaDataPluginFactory {
 public:
  int getStatus() override { return 1; }
  int getPluginCount() override { return kKindCount; }
  QzvMetaDataPlugin* getPlugin(int index) override {
    if (index < 0 || index >= kKindCount) return nullptr;
    return new TestMetaPlugin(kKinds[index]);
  }
  void release() override { delete this; }

 private:
  ~TestMetaFactory() override = default;
};

}  // namespace

QZTEST_EXPORT QzTestMetaCounters* qztest_meta_counters(void) { return &g_counters; }

QZTEST_EXPORT QzvMetaDataPluginFactory* qzv_create_factory10(void) { return new TestMetaFactory(); }
