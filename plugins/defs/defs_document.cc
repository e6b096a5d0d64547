// Parsing, checking and rebuilding definition documents.
#include "defs_document.h"

#include <algorithm>
#include <unordered_set>

namespace qzvmd_defs {
namespace {

const Json& nullJson() {
  static const Json value;
  return value;
}

std::string attributeLabel(std::size_t index, const std::string& name) {
  if (!name.empty()) return "attribute \"" + name + "\"";
  return "attributes[" + std::to_string(index) + "]";
}

bool isCell(const Json& value) {
  return value.is_string() || value.is_number() || value.is_boolean() || value.is_null();
}

int longestRow(const std::vector<std::vector<Json>>& rows) {
  std::size_t longest = 0;
  for (const auto& row : rows) longest = std::max(longest, row.size());
  return static_cast<int>(longest);
}

// Reads one element of "attributes".
bool parseAttribute(const Json& value, std::size_t index, DefsAttribute* attribute,
                    std::string* reason) {
  if (!value.is_object()) {
    *reason = attributeLabel(index, "") + " is not an object";
    return false;
  }
  const auto name = value.find("name");
  if (name == value.end() || !name->is_string() || name->get_ref<const std::string&>().empty()) {
    *reason = attributeLabel(index, "") + " has no name";
    return false;
  }
  attribute->name = name->get<std::string>();
  const std::string label = attributeLabel(index, attribute->name);
  if (attribute->name[0] == '_') {
    // Names beginning with "_" are the vault's own (creator, dates, locks).
    *reason = label + ": names beginning with \"_\" are reserved";
    return false;
  }
  const auto readOnly = value.find("readOnly");
  if (readOnly != value.end()) {
    if (!readOnly->is_boolean()) {
      *reason = label + ": \"readOnly\" is not true or false";
      return false;
    }
    attribute->readOnly = readOnly->get<bool>();
  }
  int declared = 0;
  const auto columns = value.find("columns");
  if (columns != value.end()) {
    if (!columns->is_number_integer() || columns->get<long long>() < 0 ||
        columns->get<long long>() > kMaxColumns) {
      *reason = label + ": \"columns\" is not a count from 0 to " + std::to_string(kMaxColumns);
      return false;
    }
    declared = columns->get<int>();
  }
  const auto rows = value.find("rows");
  if (rows != value.end()) {
    if (!rows->is_array()) {
      *reason = label + ": \"rows\" is not an array of rows";
      return false;
    }
    for (const Json& row : *rows) {
      if (!row.is_array()) {
        *reason = label + ": \"rows\" is not an array of rows";
        return false;
      }
      for (const Json& cell : row) {
        if (!isCell(cell)) {
          *reason = label + ": a value is not a text, number, true, false or null";
          return false;
        }
      }
      attribute->rows.emplace_back(row.begin(), row.end());
    }
  }
  attribute->columns = std::max(declared, longestRow(attribute->rows));
  return true;
}

}  // namespace

bool DefsDocument::parse(const std::string& text, std::string* reason) {
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::exception& error) {
    // A syntax error, and also a number too large for a double
    // ("1e2800"), which the parser reports as out of range.
    *reason = std::string("not a JSON document: ") + error.what();
    return false;
  }
  if (!root.is_object()) {
    *reason = "the document is not a JSON object";
    return false;
  }
  const auto name = root.find("name");
  if (name != root.end() && !name->is_string()) {
    *reason = "\"name\" is not a text";
    return false;
  }
  std::vector<DefsAttribute> attributes;
  const auto list = root.find("attributes");
  if (list != root.end()) {
    if (!list->is_array()) {
      *reason = "\"attributes\" is not an array";
      return false;
    }
    std::unordered_set<std::string> seen;
    for (std::size_t i = 0; i < list->size(); ++i) {
      DefsAttribute attribute;
      if (!parseAttribute((*list)[i], i, &attribute, reason)) return false;
      // The vault stores an attribute's rows under its name: a second
      // attribute of the same name would mix with the first.
      if (!seen.insert(attribute.name).second) {
        *reason = attributeLabel(i, attribute.name) + " appears twice";
        return false;
      }
      attributes.push_back(std::move(attribute));
    }
  }
  const auto uses = root.find("uses");
  if (uses != root.end() && !uses->is_array()) {
    *reason = "\"uses\" is not an array";
    return false;
  }
  root_ = std::move(root);
  attributes_ = std::move(attributes);
  return true;
}

bool DefsDocument::displayName(std::string* name) const {
  const auto found = root_.find("name");
  if (found == root_.end() || !found->is_string()) return false;
  const std::string& text = found->get_ref<const std::string&>();
  if (text.empty()) return false;
  *name = text;
  return true;
}

const Json& DefsDocument::uses() const {
  const auto found = root_.find("uses");
  return found == root_.end() ? nullJson() : *found;
}

Json DefsDocument::build(const std::string* name) const {
  Json root = root_;
  if (name != nullptr) root["name"] = *name;
  if (!attributes_.empty()) {
    Json& list = root["attributes"];
    for (std::size_t i = 0; i < attributes_.size(); ++i) {
      const DefsAttribute& attribute = attributes_[i];
      Json& element = list[i];
      Json rows = Json::array();
      for (const auto& row : attribute.rows) rows.push_back(Json(row));
      element["rows"] = std::move(rows);
      // A column count that no row shows any more (after clear) is kept in
      // the file, so that the attribute keeps its shape.
      if (attribute.columns > longestRow(attribute.rows)) element["columns"] = attribute.columns;
    }
  }
  return root;
}

std::string DefsDocument::render(const Json& root) { return root.dump(2) + "\n"; }

bool cellText(const Json& cell, std::string* text) {
  if (cell.is_null()) return false;
  if (cell.is_string()) {
    *text = cell.get_ref<const std::string&>();
  } else {
    *text = cell.dump();
  }
  return true;
}

bool isValidUtf8(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t length = text.size();
  std::size_t i = 0;
  while (i < length) {
    const unsigned char lead = bytes[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    std::size_t follow = 0;
    unsigned codePoint = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
      follow = 1;
      codePoint = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      follow = 2;
      codePoint = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      follow = 3;
      codePoint = lead & 0x07u;
    } else {
      return false;
    }
    if (i + follow >= length) return false;  // the sequence is cut off
    for (std::size_t k = 1; k <= follow; ++k) {
      const unsigned char next = bytes[i + k];
      if ((next & 0xC0u) != 0x80u) return false;
      codePoint = (codePoint << 6) | (next & 0x3Fu);
    }
    // Overlong forms, surrogates and values above U+10FFFF are not UTF-8.
    if ((follow == 2 && codePoint < 0x800) || (follow == 3 && codePoint < 0x10000) ||
        (codePoint >= 0xD800 && codePoint <= 0xDFFF) || codePoint > 0x10FFFF) {
      return false;
    }
    i += follow + 1;
  }
  return true;
}

}  // namespace qzvmd_defs
