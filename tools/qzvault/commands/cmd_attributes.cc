// attr list|get|set|clear: the attributes of folders and objects. An
// attribute is a table of rows (from 0) of ten columns (0 to 9).
#include <iostream>
#include <memory>
#include <vector>

#include "cli.h"
#include "iso_date.h"
#include "output.h"
#include "session.h"
#include "tool_error.h"

namespace qzvtool {
namespace {

const int kColumnCount = 10;

struct AttrOptions {
  std::string path;
  std::string name;
  std::string value;
  int row = 0;
  int column = 0;
  bool json = false;
  bool nul = false;  // -z (attr list)
  // The --row and --col options, which tell whether they were given.
  const CLI::Option* rowOption = nullptr;
  const CLI::Option* columnOption = nullptr;

  bool rowGiven() const { return rowOption != nullptr && rowOption->count() > 0; }
  bool columnGiven() const { return columnOption != nullptr && columnOption->count() > 0; }
};

// One attribute read from a listing or an attribute object: its rows, each
// cut after its last non-null value.
struct AttributeRows {
  std::string name;
  std::vector<std::vector<QzbString>> rows;
};

// The library keeps its date attributes as seconds since the epoch; they are
// shown as every date the tool prints is, ISO 8601 with the zone. Anything
// else (and a date row that is not a plain number) is shown as stored.
QzbString shownValue(const std::string& attribute, int column, const QzbString& value) {
  if (column != 0 || value.isNull() || (attribute != "_CREATIONDATE" && attribute != "_MODIFIEDDATE")) {
    return value;
  }
  const std::string stored = text(value);
  if (stored.empty() || stored.size() > 18 || stored.find_first_not_of("0123456789") != std::string::npos) {
    return value;
  }
  return QzbString(isoDateTime(static_cast<std::int64_t>(std::stoll(stored))).c_str());
}

std::vector<QzbString> trimmedRow(std::vector<QzbString> values) {
  while (!values.empty() && values.back().isNull()) values.pop_back();
  return values;
}

Json rowJson(const std::vector<QzbString>& values) {
  Json row = Json::array();
  for (const QzbString& value : values) row.push_back(jsonText(value));
  return row;
}

std::string rowText(const std::vector<QzbString>& values) {
  std::string line;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) line += " | ";
    line += text(values[i]);
  }
  return line;
}

// The -z form of attributes: every row as the attribute's name, the row
// number and the ten column values, each field NUL-terminated.
void printAttributeRecords(const std::vector<AttributeRows>& attributes) {
  TextTable records;
  for (const AttributeRows& attribute : attributes) {
    for (std::size_t row = 0; row < attribute.rows.size(); ++row) {
      std::vector<std::string> fields{attribute.name, std::to_string(row)};
      for (const QzbString& value : attribute.rows[row]) fields.push_back(text(value));
      records.addRow(std::move(fields));
    }
  }
  records.printRecords(std::cout, 2 + kColumnCount);
}

// Prints attributes: one line per row, "NAME  value | value ...", with the
// row number after the name when the attribute has more than one row.
void printAttributes(const std::vector<AttributeRows>& attributes, bool json) {
  if (json) {
    Json list = Json::array();
    for (const AttributeRows& attribute : attributes) {
      Json rows = Json::array();
      for (const auto& values : attribute.rows) rows.push_back(rowJson(values));
      list.push_back(Json{{"name", attribute.name}, {"rows", rows}});
    }
    printJson(list);
    return;
  }
  TextTable table;
  for (const AttributeRows& attribute : attributes) {
    for (std::size_t row = 0; row < attribute.rows.size(); ++row) {
      const std::string label =
          attribute.rows.size() == 1 ? attribute.name : attribute.name + "[" + std::to_string(row) + "]";
      table.addRow({label, rowText(attribute.rows[row])});
    }
  }
  table.print(std::cout);
}

// The listing's rows (attr, seq, v0..v9) grouped by attribute, in the order
// the library gives them.
std::vector<AttributeRows> groupListing(QzvItemList* list) {
  std::vector<AttributeRows> attributes;
  while (list->next()) {
    const std::string name = text(list->getValue(0));
    if (attributes.empty() || attributes.back().name != name) {
      attributes.push_back(AttributeRows{name, {}});
    }
    std::vector<QzbString> values;
    for (int column = 0; column < kColumnCount; ++column) {
      values.push_back(shownValue(name, column, list->getValue(2 + column)));
    }
    attributes.back().rows.push_back(trimmedRow(values));
  }
  return attributes;
}

// The attribute NAME of the folder or object at `path`; `readable` asks for the
// plug-in check on objects before their attributes are changed.
Held<QzvAttribute> openAttribute(VaultSession& session, const VaultPath& path,
                                 const std::string& name) {
  const QzbString attributeName(name.c_str());
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    Held<QzvFolder> folder = session.openFolder(path);
    Held<QzvAttribute> attribute = hold(folder->getAttribute(attributeName));
    if (!attribute) failWith(folder->getErrorMessage(), "cannot read attribute " + name);
    return attribute;
  }
  session.requireReadable(path);
  Held<QzvObject> object = session.openObject(path);
  Held<QzvAttribute> attribute = hold(object->getAttribute(attributeName));
  if (!attribute) failWith(object->getErrorMessage(), "cannot read attribute " + name);
  return attribute;
}

// Attributes whose names begin with "_" (the creator, the modifying user,
// the dates, the lock owner, the vault's UUID) are kept by the library
// itself; the tool does not write them.
void checkNotReserved(const std::string& command, const std::string& name) {
  if (!name.empty() && name[0] == '_') {
    failUsage("attr " + command + ": " + name +
              " belongs to the library (attribute names beginning with \"_\" are kept by the "
              "vault itself)");
  }
}

void checkPosition(const AttrOptions& options) {
  if (options.rowGiven() && options.row < 0) {
    failUsage("--row " + std::to_string(options.row) + " is negative (rows are numbered from 0)");
  }
  if (options.rowGiven() && options.row >= QZV_ATTR_MAX_ROWS) {
    failUsage("--row " + std::to_string(options.row) + " is beyond the last row an attribute may have (" +
              std::to_string(QZV_ATTR_MAX_ROWS - 1) + ")");
  }
  if (options.columnGiven() && (options.column < 0 || options.column >= kColumnCount)) {
    failUsage("--col " + std::to_string(options.column) + " is outside 0..9");
  }
}

void runList(const GlobalOptions& global, const AttrOptions& options) {
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvItemList> list;
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    Held<QzvFolder> folder = session.openFolder(path);
    list = hold(folder->getAttrList());
    if (!list) failWith(folder->getErrorMessage(), "cannot list the attributes of " + path.shown());
  } else {
    session.requireReadable(path);
    Held<QzvObject> object = session.openObject(path);
    list = hold(object->getAttrList());
    if (!list) failWith(object->getErrorMessage(), "cannot list the attributes of " + path.shown());
  }
  if (options.nul) {
    printAttributeRecords(groupListing(list.get()));
  } else {
    printAttributes(groupListing(list.get()), options.json);
  }
}

void runGet(const GlobalOptions& global, const AttrOptions& options) {
  checkPosition(options);
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  Held<QzvAttribute> attribute = openAttribute(session, path, options.name);
  const int rows = attribute->numRows();

  if (!options.rowGiven() && !options.columnGiven()) {
    AttributeRows all{options.name, {}};
    for (int row = 0; row < rows; ++row) {
      std::vector<QzbString> values;
      for (int column = 0; column < kColumnCount; ++column) {
        values.push_back(shownValue(options.name, column, attribute->getValue(column, row)));
      }
      all.rows.push_back(trimmedRow(values));
    }
    printAttributes({all}, options.json);
    return;
  }
  const int row = options.rowGiven() ? options.row : 0;
  const int column = options.columnGiven() ? options.column : 0;
  if (row >= rows) {
    fail("attribute " + options.name + " of " + path.shown() + " has " + std::to_string(rows) +
         (rows == 1 ? " row" : " rows") + "; row " + std::to_string(row) + " does not exist");
  }
  const QzbString value = shownValue(options.name, column, attribute->getValue(column, row));
  if (options.json) {
    printJson(Json{{"name", options.name}, {"row", row}, {"col", column}, {"value", jsonText(value)}});
  } else {
    printLine(text(value));
  }
}

// The folder whose metadata holds the attributes of `path`: the folder
// itself, or an object's folder.
VaultPath attributeFolder(VaultSession& session, const VaultPath& path) {
  return path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder ? path : path.parent();
}

void runSet(const GlobalOptions& global, const AttrOptions& options) {
  checkNotReserved("set", options.name);
  checkPosition(options);
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  // The attribute is read, changed and written back whole: another writer
  // in between would lose its rows, so the folder stays locked throughout.
  const auto locks = session.lockFolders({attributeFolder(session, path)});
  Held<QzvAttribute> attribute = openAttribute(session, path, options.name);
  if (attribute->isReadOnly()) fail("attribute " + options.name + " of " + path.shown() + " is read only");
  attribute->setValue(options.columnGiven() ? options.column : 0, options.rowGiven() ? options.row : 0,
                      QzbString(options.value.c_str()));
  if (!attribute->commit()) failWith(attribute->getErrorMessage(), "cannot store attribute " + options.name);
  if (options.json) {
    printJson(Json{{"path", path.shown()},
                   {"name", options.name},
                   {"row", options.rowGiven() ? options.row : 0},
                   {"col", options.columnGiven() ? options.column : 0},
                   {"value", options.value}});
  }
}

void runClear(const GlobalOptions& global, const AttrOptions& options) {
  checkNotReserved("clear", options.name);
  VaultSession session(global);
  const VaultPath path = session.resolve(options.path);
  const auto locks = session.lockFolders({attributeFolder(session, path)});
  Held<QzvAttribute> attribute = openAttribute(session, path, options.name);
  if (attribute->isReadOnly()) fail("attribute " + options.name + " of " + path.shown() + " is read only");
  attribute->clear();
  if (!attribute->commit()) failWith(attribute->getErrorMessage(), "cannot store attribute " + options.name);
  if (options.json) printJson(Json{{"path", path.shown()}, {"name", options.name}, {"cleared", true}});
}

void addPosition(CLI::App* command, AttrOptions* options) {
  options->rowOption =
      command->add_option("--row", options->row,
                          "The row (0 to " + std::to_string(QZV_ATTR_MAX_ROWS - 1) + "; default 0)")
          ->type_name("R");
  options->columnOption =
      command->add_option("--col", options->column, "The column (0 to 9; default 0)")
          ->type_name("C");
}

}  // namespace

void addAttributeCommands(CLI::App& app, ToolContext& context) {
  CLI::App* attr = app.add_subcommand(
      "attr", "Read and change the attributes of folders and objects (rows of ten columns)");
  attr->require_subcommand(1);

  auto list = std::make_shared<AttrOptions>();
  CLI::App* listCommand = attr->add_subcommand("list", "List every attribute of a folder or object");
  listCommand->add_option("path", list->path, "The folder or object")->required()->type_name("PATH");
  addNulFlag(listCommand, &list->nul, addJsonFlag(listCommand, &list->json));
  listCommand->callback([&context, list] {
    context.action = [&context, list] { runList(context.global, *list); };
  });

  auto get = std::make_shared<AttrOptions>();
  CLI::App* getCommand = attr->add_subcommand(
      "get", "Print one attribute: every row, or one value with --row / --col");
  getCommand->add_option("path", get->path, "The folder or object")->required()->type_name("PATH");
  getCommand->add_option("name", get->name, "The attribute (" + limitText(kMaxNameBytes) + ")")
      ->required()
      ->check(maxBytes(kMaxNameBytes));
  addJsonFlag(getCommand, &get->json);
  addPosition(getCommand, get.get());
  getCommand->callback([&context, get] {
    context.action = [&context, get] { runGet(context.global, *get); };
  });

  auto set = std::make_shared<AttrOptions>();
  CLI::App* setCommand = attr->add_subcommand("set", "Set one value of an attribute");
  setCommand->add_option("path", set->path, "The folder or object")->required()->type_name("PATH");
  setCommand->add_option("name", set->name, "The attribute (" + limitText(kMaxNameBytes) + ")")
      ->required()
      ->check(maxBytes(kMaxNameBytes));
  setCommand->add_option("value", set->value, "The value (" + limitText(kMaxValueBytes) + ")")
      ->required()
      ->check(maxBytes(kMaxValueBytes));
  addPosition(setCommand, set.get());
  addJsonFlag(setCommand, &set->json);
  setCommand->callback([&context, set] {
    context.action = [&context, set] { runSet(context.global, *set); };
  });

  auto clear = std::make_shared<AttrOptions>();
  CLI::App* clearCommand =
      attr->add_subcommand("clear", "Clear an attribute to one empty row");
  clearCommand->add_option("path", clear->path, "The folder or object")->required()->type_name("PATH");
  clearCommand->add_option("name", clear->name, "The attribute (" + limitText(kMaxNameBytes) + ")")
      ->required()
      ->check(maxBytes(kMaxNameBytes));
  addJsonFlag(clearCommand, &clear->json);
  clearCommand->callback([&context, clear] {
    context.action = [&context, clear] { runClear(context.global, *clear); };
  });
}

}  // namespace qzvtool
