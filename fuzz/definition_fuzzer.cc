// The shipped plug-in's definition reader: a definition or template file is
// parsed (DefsDocument::parse), written back as the plug-in writes it
// (build, render) and its "uses" entries turned into resources
// (appendDependencies). A document that parses renders to a text that parses
// to the same document and renders the same again; a rejected document has a
// one-line reason; a malformed "uses" entry makes no resource at all, and
// every resource made has a type and an identity (a data source's without
// control characters).
#include <cstdint>
#include <string>
#include <vector>

#include "defs_dependencies.h"
#include "defs_document.h"
#include "fuzz_support.h"
#include "qzbase/uri.h"
#include "qzvault/resource.h"

namespace {

// A resource that only remembers what it was made of.
class FakeResource final : public QzResource {
 public:
  FakeResource(const QzbString& name, const QzbString& type, const QzbString& identity)
      : name_(name), type_(type), identity_(identity) {}
  void release() override { delete this; }
  QzbString getId() override { return QzbString("1"); }
  QzbString getName() override { return name_; }
  QzbString getResourceType() override { return type_; }
  QzbString getResourceIdentity() override { return identity_; }
  int getDependencyType() override { return 0; }
  QzResourcePropertyList* getProperties() override { return nullptr; }
  QzbDate getAnalysisDate() override { return QzbDate(); }
  QzbString getResourceLocation() override { return QzbString(""); }
  bool IsResolved() override { return true; }
  bool IsResourceIdentityMacroValue() override { return false; }

 private:
  QzbString name_;
  QzbString type_;
  QzbString identity_;
};

class FakeFactory final : public QzResourceFactory {
 public:
  void release() override {}
  QzbString getErrorMessage() override { return QzbString(""); }
  QzResource* getResource(const QzbString& name, const QzbString& type, const QzbString& identity) override {
    ++made;
    checkResource(type, identity);
    return new FakeResource(name, type, identity);
  }
  QzbString getPluginPath() override { return QzbString(""); }
  void registerResourceResolver(QzResourceResolver*) override {}
  QzResourceResolver* getResourceResolver() override { return nullptr; }
  QzResource* getDataResource(QzDataURI* uri) override {
    ++made;
    FUZZ_CHECK(uri != nullptr, "a null data URI");
    const QzbString identity = uri->toString();
    checkResource(QzbString("Table"), identity, true);
    return new FakeResource(QzbString("data"), QzbString("Table"), identity);
  }

  int made = 0;

 private:
  // Every resource has a type and an identity; a data source's identity (the
  // text form of its reference) never holds a control character.
  static void checkResource(const QzbString& type, const QzbString& identity, bool dataSource = false) {
    FUZZ_CHECK(!type.isEmpty(), "a resource without a type");
    FUZZ_CHECK(!identity.isEmpty(), "a resource without an identity");
    if (!dataSource) return;
    for (unsigned char c : identity.toStdString()) {
      FUZZ_CHECK(c >= 0x20 && c != 0x7F, "a control character in " + identity.toStdString());
    }
  }
};

class FakeList final : public QzResourceList {
 public:
  bool next() override { return false; }
  QzResource* getValue(int) override { return nullptr; }
  void release() override {}
  bool addRow() override {
    ++rows;
    return true;
  }
  void setLastRowElement(int column, QzResource* resource) override {
    FUZZ_CHECK(column == 0 && resource != nullptr, "an odd row element");
  }
  bool contains(QzResource*) override { return false; }
  bool reset() override { return true; }

  int rows = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  qzvmd_defs::DefsDocument document;
  std::string reason;
  if (!document.parse(text, &reason)) {
    FUZZ_CHECK(!reason.empty(), "a refusal without a reason");
    return 0;
  }

  // Written back and read again: the same document, rendered the same.
  const std::string rendered = qzvmd_defs::DefsDocument::render(document.build(nullptr));
  qzvmd_defs::DefsDocument again;
  FUZZ_CHECK(again.parse(rendered, &reason), reason + "\n" + rendered);
  FUZZ_CHECK(qzvmd_defs::DefsDocument::render(again.build(nullptr)) == rendered, rendered);
  std::string name;
  std::string nameAgain;
  FUZZ_CHECK(document.displayName(&name) == again.displayName(&nameAgain) && name == nameAgain, rendered);
  FUZZ_CHECK(document.attributes().size() == again.attributes().size(), rendered);
  for (std::size_t i = 0; i < document.attributes().size(); ++i) {
    const qzvmd_defs::DefsAttribute& first = document.attributes()[i];
    const qzvmd_defs::DefsAttribute& second = again.attributes()[i];
    FUZZ_CHECK(first.name == second.name && first.readOnly == second.readOnly &&
                   first.columns == second.columns && first.rows == second.rows,
               "attribute " + first.name);
  }

  // A display name set by the vault is written back as given.
  const std::string newName = "renamed \xC3\xA9";
  qzvmd_defs::DefsDocument renamed;
  FUZZ_CHECK(renamed.parse(qzvmd_defs::DefsDocument::render(document.build(&newName)), &reason), reason);
  FUZZ_CHECK(renamed.displayName(&name) && name == newName, "the new name was lost");

  // The resources the document uses.
  FakeFactory factory;
  FakeList list;
  const bool listed = qzvmd_defs::appendDependencies(document.uses(), "/vault/Jobs", &list, &factory, &reason);
  if (!listed) {
    FUZZ_CHECK(factory.made == 0, "a malformed entry, yet resources were made: " + reason);
    FUZZ_CHECK(!reason.empty() && reason.find('\n') == std::string::npos, "no one-line reason");
  } else {
    FUZZ_CHECK(list.rows <= factory.made, "more rows than resources");
  }
  return 0;
}
