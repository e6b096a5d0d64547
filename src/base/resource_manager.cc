// The resource manager: identity texts of databases, tables and file
// references (docs/identities.md).
#include <new>
#include <string>
#include <vector>

#include "part_escape.h"
#include "qzbase/uri.h"

namespace {

using qzb_internal::appendEscapedPart;
using qzb_internal::hasControlCharacter;
using qzb_internal::splitEscapedParts;

const char kDatabasePrefix[] = "db:";
const char kFileReferencePrefix[] = "fileref:";
constexpr std::size_t kDatabasePrefixLength = sizeof(kDatabasePrefix) - 1;
constexpr std::size_t kFileReferencePrefixLength = sizeof(kFileReferencePrefix) - 1;

std::string toStd(const QzbString& text) { return std::string(text.asCstr(), text.length()); }

QzbString fromStd(const std::string& text) { return QzbString::fromBytes(text.data(), text.size()); }

void setIfWanted(QzbString* out, const std::string& value) {
  if (out != nullptr) *out = fromStd(value);
}

class QzResourceManagerImpl final : public QzResourceManager {
 public:
  QzResourceManagerImpl() { error_.setNull(false); }
  QzResourceManagerImpl(const QzResourceManagerImpl&) = delete;
  QzResourceManagerImpl& operator=(const QzResourceManagerImpl&) = delete;

  void release() override { delete this; }

  QzbString getErrorMessage() const override { return error_; }

  bool makeDatabaseIdentity(const QzbString& sourceType, const QzbString& sourceName,
                            QzbString* identity) override {
    if (identity == nullptr) return fail("No place given for the database identity");
    const std::string parts[] = {toStd(sourceType), toStd(sourceName)};
    if (!checkSourceParts(parts[0], parts[1])) return false;
    *identity = fromStd(join(kDatabasePrefix, parts, 2));
    return true;
  }

  bool parseDatabaseIdentity(const QzbString& identity, QzbString* sourceType,
                             QzbString* sourceName) override {
    std::vector<std::string> parts;
    if (!splitDataIdentity(identity, "Database identity", &parts)) return false;
    if (parts.size() != 2) {
      return fail("Database identity must have two parts: data-source type and name");
    }
    if (!checkSourceParts(parts[0], parts[1])) return false;
    setIfWanted(sourceType, parts[0]);
    setIfWanted(sourceName, parts[1]);
    return true;
  }

  bool makeTableIdentity(const QzbString& sourceType, const QzbString& sourceName,
                         const QzbString& catalog, const QzbString& schema,
                         const QzbString& table, QzbString* identity) override {
    if (identity == nullptr) return fail("No place given for the table identity");
    const std::string parts[] = {toStd(sourceType), toStd(sourceName), toStd(catalog),
                                 toStd(schema), toStd(table)};
    if (!checkTableParts(parts)) return false;
    *identity = fromStd(join(kDatabasePrefix, parts, 5));
    return true;
  }

  bool parseTableIdentity(const QzbString& identity, QzbString* sourceType,
                          QzbString* sourceName, QzbString* catalog, QzbString* schema,
                          QzbString* table) override {
    std::vector<std::string> parts;
    if (!splitDataIdentity(identity, "Table identity", &parts)) return false;
    if (parts.size() != 5) {
      return fail(
          "Table identity must have five parts: data-source type and name, catalog, "
          "schema and table");
    }
    if (!checkTableParts(parts.data())) return false;
    setIfWanted(sourceType, parts[0]);
    setIfWanted(sourceName, parts[1]);
    setIfWanted(catalog, parts[2]);
    setIfWanted(schema, parts[3]);
    setIfWanted(table, parts[4]);
    return true;
  }

  bool makeFileReference(const QzbString& directory, const QzbString& name,
                         QzbString* reference) override {
    if (reference == nullptr) return fail("No place given for the file reference");
    const std::string directoryPart = toStd(directory);
    const std::string namePart = toStd(name);
    if (!checkFileParts(directoryPart, namePart)) return false;
    std::string text(kFileReferencePrefix);
    text.append(directoryPart).append("/").append(namePart);
    *reference = fromStd(text);
    return true;
  }

  bool parseFileReference(const QzbString& reference, QzbString* directory,
                          QzbString* name) override {
    if (reference.isEmpty()) return fail("File reference is null or empty");
    const std::string text = toStd(reference);
    if (text.compare(0, kFileReferencePrefixLength, kFileReferencePrefix) != 0) {
      return fail("File reference must begin with \"fileref:\"");
    }
    const std::size_t separator = text.rfind('/');
    if (separator == std::string::npos || separator < kFileReferencePrefixLength) {
      return fail("File reference must hold \"/\" between directory and file name");
    }
    const std::string directoryPart =
        text.substr(kFileReferencePrefixLength, separator - kFileReferencePrefixLength);
    const std::string namePart = text.substr(separator + 1);
    if (!checkFileParts(directoryPart, namePart)) return false;
    setIfWanted(directory, directoryPart);
    setIfWanted(name, namePart);
    return true;
  }

 private:
  ~QzResourceManagerImpl() override = default;

  bool fail(const char* message) {
    error_ = QzbString(message);
    return false;
  }

  static std::string join(const char* prefix, const std::string* parts, int count) {
    std::string text(prefix);
    for (int i = 0; i < count; ++i) {
      if (i > 0) text.push_back('/');
      appendEscapedPart(parts[i], &text);
    }
    return text;
  }

  // The "db:" text split into its unescaped parts.
  bool splitDataIdentity(const QzbString& identity, const char* what,
                         std::vector<std::string>* parts) {
    if (identity.isEmpty()) {
      error_ = QzbString(what);
      error_.append(" is null or empty");
      return false;
    }
    const std::string text = toStd(identity);
    if (text.compare(0, kDatabasePrefixLength, kDatabasePrefix) != 0) {
      error_ = QzbString(what);
      error_.append(" must begin with \"db:\"");
      return false;
    }
    if (hasControlCharacter(text)) return fail("Identity holds a control character");
    *parts = splitEscapedParts(text.substr(kDatabasePrefixLength));
    return true;
  }

  bool checkSourceParts(const std::string& sourceType, const std::string& sourceName) {
    if (sourceType.empty()) return fail("Data-source type is empty");
    if (sourceName.empty()) return fail("Data-source name is empty");
    if (hasControlCharacter(sourceType) || hasControlCharacter(sourceName)) {
      return fail("Identity holds a control character");
    }
    return true;
  }

  // `parts` holds five parts: type, source, catalog, schema, table.
  bool checkTableParts(const std::string* parts) {
    if (!checkSourceParts(parts[0], parts[1])) return false;
    if (parts[4].empty()) return fail("Table name is empty");
    for (int i = 2; i < 5; ++i) {
      if (hasControlCharacter(parts[i])) return fail("Identity holds a control character");
    }
    return true;
  }

  bool checkFileParts(const std::string& directory, const std::string& name) {
    if (name.empty()) return fail("File name is empty");
    if (name.find('/') != std::string::npos) return fail("File name holds \"/\"");
    if (hasControlCharacter(directory) || hasControlCharacter(name)) {
      return fail("File reference holds a control character");
    }
    return true;
  }

  QzbString error_;
};

}  // namespace

QzResourceManager* createQzResourceManager(void) {
  return new (std::nothrow) QzResourceManagerImpl();
}
