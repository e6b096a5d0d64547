// Resource identities (docs/identities.md) through the resource manager:
// database, table and file-reference identities. Every make followed by its
// parse gives the parts back; any text that parses is made again into the
// same parts; no identity made holds a control character.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "qzbase/uri.h"

namespace {

QzResourceManager* manager() {
  static QzResourceManager* shared = createQzResourceManager();
  return shared;
}

QzbString q(const std::string& text) { return QzbString::fromStdString(text); }

void checkNoControl(const std::string& identity) {
  for (unsigned char c : identity) FUZZ_CHECK(c >= 0x20 && c != 0x7F, identity);
}

void checkDatabase(const std::string& type, const std::string& source) {
  QzbString identity;
  if (!manager()->makeDatabaseIdentity(q(type), q(source), &identity)) return;
  checkNoControl(identity.toStdString());
  QzbString readType;
  QzbString readSource;
  FUZZ_CHECK(manager()->parseDatabaseIdentity(identity, &readType, &readSource), identity.toStdString());
  FUZZ_CHECK(readType.toStdString() == type && readSource.toStdString() == source, identity.toStdString());
  // A database identity is not a table identity.
  FUZZ_CHECK(!manager()->parseTableIdentity(identity, nullptr, nullptr, nullptr, nullptr, nullptr),
             identity.toStdString());
}

void checkTable(const std::vector<std::string>& p) {
  QzbString identity;
  if (!manager()->makeTableIdentity(q(p[0]), q(p[1]), q(p[2]), q(p[3]), q(p[4]), &identity)) return;
  checkNoControl(identity.toStdString());
  QzbString read[5];
  FUZZ_CHECK(manager()->parseTableIdentity(identity, &read[0], &read[1], &read[2], &read[3], &read[4]),
             identity.toStdString());
  for (int i = 0; i < 5; ++i) FUZZ_CHECK(read[i].toStdString() == p[static_cast<std::size_t>(i)], identity.toStdString());
}

void checkFile(const std::string& directory, const std::string& name) {
  QzbString reference;
  if (!manager()->makeFileReference(q(directory), q(name), &reference)) return;
  checkNoControl(reference.toStdString());
  QzbString readDirectory;
  QzbString readName;
  FUZZ_CHECK(manager()->parseFileReference(reference, &readDirectory, &readName), reference.toStdString());
  FUZZ_CHECK(readDirectory.toStdString() == directory && readName.toStdString() == name,
             reference.toStdString());
}

void checkParsed(const std::string& text) {
  QzbString a;
  QzbString b;
  if (manager()->parseDatabaseIdentity(q(text), &a, &b)) {
    QzbString made;
    FUZZ_CHECK(manager()->makeDatabaseIdentity(a, b, &made), text);
    QzbString a2;
    QzbString b2;
    FUZZ_CHECK(manager()->parseDatabaseIdentity(made, &a2, &b2), text);
    FUZZ_CHECK(a2.toStdString() == a.toStdString() && b2.toStdString() == b.toStdString(), text);
  }
  QzbString t[5];
  if (manager()->parseTableIdentity(q(text), &t[0], &t[1], &t[2], &t[3], &t[4])) {
    QzbString made;
    FUZZ_CHECK(manager()->makeTableIdentity(t[0], t[1], t[2], t[3], t[4], &made), text);
    QzbString t2[5];
    FUZZ_CHECK(manager()->parseTableIdentity(made, &t2[0], &t2[1], &t2[2], &t2[3], &t2[4]), text);
    for (int i = 0; i < 5; ++i) FUZZ_CHECK(t2[i].toStdString() == t[i].toStdString(), text);
  }
  if (manager()->parseFileReference(q(text), &a, &b)) {
    QzbString made;
    FUZZ_CHECK(manager()->makeFileReference(a, b, &made), text);
    QzbString a2;
    QzbString b2;
    FUZZ_CHECK(manager()->parseFileReference(made, &a2, &b2), text);
    FUZZ_CHECK(a2.toStdString() == a.toStdString() && b2.toStdString() == b.toStdString(), text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> raw = qzfuzz::splitInput(data, size, 5);
  std::vector<std::string> parts;
  for (const std::string& part : raw) parts.push_back(qzfuzz::cText(part));
  checkDatabase(parts[0], parts[1]);
  checkTable(parts);
  checkFile(parts[0], parts[1]);
  checkParsed(parts[0]);
  return 0;
}
