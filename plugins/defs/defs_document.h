// The in-memory form of one definition or template file: a JSON object with a
// display name ("name"), attributes ("attributes") and the resources the file
// uses ("uses"). The format is described in docs/plugin-guide.md. Keys this
// plug-in does not know are kept as they are when the file is written back,
// and so is the order of keys.
//
// Thread safety: one document is used by one thread at a time.
#ifndef QZVMD_DEFS_DOCUMENT_H_
#define QZVMD_DEFS_DOCUMENT_H_

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace qzvmd_defs {

using Json = nlohmann::ordered_json;

// Bounds of what setValue may create, so that one call cannot make the file
// grow without limit. Documents read from disk may hold more rows.
constexpr int kMaxRows = 100000;
constexpr int kMaxColumns = 256;

// One attribute: a table of values, each a JSON string, number, boolean or
// null (a number or boolean reads as its JSON text).
struct DefsAttribute {
  std::string name;
  bool readOnly = false;
  // The column count reported to the library: the declared "columns" or the
  // longest row, whichever is larger. It never shrinks while the file is open.
  int columns = 0;
  std::vector<std::vector<Json>> rows;
};

class DefsDocument {
 public:
  // Parses and checks `text`. On failure returns false, sets *reason to one
  // line and leaves the document as it was.
  bool parse(const std::string& text, std::string* reason);

  // True when the document has a non-empty "name"; it is then in *name.
  bool displayName(std::string* name) const;

  std::vector<DefsAttribute>& attributes() { return attributes_; }
  const std::vector<DefsAttribute>& attributes() const { return attributes_; }

  // The "uses" array, or a null value when the document has none.
  const Json& uses() const;

  // The whole document as it would be written: the root as last read or
  // written, with the in-memory attributes and, when `name` is not null, that
  // display name.
  Json build(const std::string* name) const;
  // Makes `root` (a value from build()) what the file now holds.
  void adopt(Json root) { root_ = std::move(root); }

  // The text written to disk for `root`: indented by two blanks, ending in a
  // newline.
  static std::string render(const Json& root);

 private:
  Json root_;
  std::vector<DefsAttribute> attributes_;
};

// The text of a cell; false for a null cell.
bool cellText(const Json& cell, std::string* text);

// True when `text` is well-formed UTF-8, as every text in a JSON file must be.
bool isValidUtf8(const std::string& text);

}  // namespace qzvmd_defs

#endif  // QZVMD_DEFS_DOCUMENT_H_
