// From "uses" entries to resources made through the library's factory.
#include "defs_dependencies.h"

#include <memory>
#include <unordered_set>
#include <vector>

#include "defs_paths.h"
#include "qzbase/file_types.h"
#include "qzbase/uri.h"

namespace qzvmd_defs {
namespace {

// The entry type that asks for a file's type to be taken from its extension.
const char kFileType[] = "File";

// One resource to make: either by type and identity, or from data-source parts.
struct ResourceRequest {
  bool fromDataSource = false;
  std::string name;
  std::string type;
  std::string identity;
  std::string parts[5];  // source type, source name, catalog, schema, table
};

struct ManagerRelease {
  void operator()(QzResourceManager* manager) const { manager->release(); }
};
using ManagerPtr = std::unique_ptr<QzResourceManager, ManagerRelease>;

struct UriRelease {
  void operator()(QzDataURI* uri) const { uri->release(); }
};
using UriPtr = std::unique_ptr<QzDataURI, UriRelease>;

struct ResourceRelease {
  void operator()(QzResource* resource) const { resource->release(); }
};
using ResourcePtr = std::unique_ptr<QzResource, ResourceRelease>;

QzbString toQzb(const std::string& text) { return QzbString::fromBytes(text.data(), text.size()); }

std::string fromQzb(const QzbString& text) { return std::string(text.asCstr(), text.length()); }

// "DataFile" for "orders.csv", "Job" for "load.job.def", "File" when the
// extension names no type.
std::string typeForFileName(const std::string& leaf) {
  QzbString extension;
  if (getComponentsFromFilesystemPath(toQzb(leaf), &extension, nullptr, nullptr)) {
    const QzbString type = getTypeForFileExtension(extension);
    if (!type.isEmpty()) return fromQzb(type);
  }
  return kFileType;
}

bool hasSeparator(const std::string& text) {
  return text.find('/') != std::string::npos || text.find('\\') != std::string::npos;
}

// Reads an optional text member; false when it is there but not a text.
bool optionalText(const Json& object, const char* key, std::string* value, bool* present) {
  const auto found = object.find(key);
  *present = found != object.end();
  if (!*present) return true;
  if (!found->is_string()) return false;
  *value = found->get<std::string>();
  return true;
}

class RequestReader {
 public:
  RequestReader(std::string documentDirectory, QzResourceManager* manager)
      : documentDirectory_(std::move(documentDirectory)), manager_(manager) {}

  bool read(const Json& entry, std::size_t index, ResourceRequest* request, std::string* reason) {
    label_ = "uses[" + std::to_string(index) + "]";
    if (!entry.is_object()) return fail(" is not an object", reason);
    bool present = false;
    if (!optionalText(entry, "type", &request->type, &present) || request->type.empty()) {
      return fail(" has no type", reason);
    }
    bool named = false;
    if (!optionalText(entry, "name", &request->name, &named)) {
      return fail(": \"name\" is not a text", reason);
    }
    int forms = 0;
    for (const char* key : {"path", "fileName", "identity", "source"}) {
      if (entry.contains(key)) ++forms;
    }
    if (forms != 1) {
      return fail(" needs exactly one of \"path\", \"fileName\", \"identity\" and \"source\"",
                  reason);
    }
    if (entry.contains("path")) return readPath(entry, named, request, reason);
    if (entry.contains("fileName")) return readFileReference(entry, named, request, reason);
    if (entry.contains("identity")) return readIdentity(entry, named, request, reason);
    if (named) {
      return fail(": a data source is named by its table; \"name\" is not allowed", reason);
    }
    return readSource(entry.at("source"), request, reason);
  }

 private:
  bool fail(const std::string& what, std::string* reason) {
    *reason = label_ + what;
    return false;
  }

  bool readPath(const Json& entry, bool named, ResourceRequest* request, std::string* reason) {
    const Json& path = entry.at("path");
    if (!path.is_string() || path.get_ref<const std::string&>().empty()) {
      return fail(": \"path\" is not a file path", reason);
    }
    const std::string& text = path.get_ref<const std::string&>();
    if (text.back() == '/' || text.back() == '\\') {
      return fail(": \"path\" ends in a separator", reason);
    }
    request->identity = resolvePath(text, documentDirectory_);
    const std::string leaf = leafOf(request->identity);
    if (leaf.empty() || leaf == "..") return fail(": \"path\" names no file", reason);
    if (request->type == kFileType) request->type = typeForFileName(leaf);
    if (!named) request->name = leaf;
    return true;
  }

  bool readFileReference(const Json& entry, bool named, ResourceRequest* request,
                         std::string* reason) {
    const Json& fileName = entry.at("fileName");
    if (!fileName.is_string() || fileName.get_ref<const std::string&>().empty() ||
        hasSeparator(fileName.get_ref<const std::string&>())) {
      return fail(": \"fileName\" is not a file name", reason);
    }
    const std::string& leaf = fileName.get_ref<const std::string&>();
    std::string directory;
    bool present = false;
    if (!optionalText(entry, "directory", &directory, &present)) {
      return fail(": \"directory\" is not a text", reason);
    }
    directory = resolvePath(directory, documentDirectory_);
    QzbString identity;
    if (!manager_->makeFileReference(toQzb(directory), toQzb(leaf), &identity)) {
      return fail(": " + fromQzb(manager_->getErrorMessage()), reason);
    }
    request->identity = fromQzb(identity);
    if (request->type == kFileType) request->type = typeForFileName(leaf);
    if (!named) request->name = leaf;
    return true;
  }

  bool readIdentity(const Json& entry, bool named, ResourceRequest* request, std::string* reason) {
    const Json& identity = entry.at("identity");
    if (!identity.is_string() || identity.get_ref<const std::string&>().empty()) {
      return fail(": \"identity\" is not a text", reason);
    }
    request->identity = identity.get<std::string>();
    std::string defaultName;
    // Databases and tables must carry identities of their own form, or they
    // would never meet the same database reached through a data source.
    if (request->type == "Database") {
      if (!manager_->parseDatabaseIdentity(toQzb(request->identity), nullptr, nullptr)) {
        return fail(": " + fromQzb(manager_->getErrorMessage()), reason);
      }
    } else if (request->type == "Table") {
      QzbString table;
      if (!manager_->parseTableIdentity(toQzb(request->identity), nullptr, nullptr, nullptr,
                                        nullptr, &table)) {
        return fail(": " + fromQzb(manager_->getErrorMessage()), reason);
      }
      defaultName = fromQzb(table);
    } else {
      defaultName = leafOf(request->identity);
    }
    if (!named) request->name = defaultName;
    return true;
  }

  bool readSource(const Json& source, ResourceRequest* request, std::string* reason) {
    if (!source.is_object()) return fail(": \"source\" is not an object", reason);
    static const char* const keys[5] = {"type", "name", "catalog", "schema", "table"};
    for (int i = 0; i < 5; ++i) {
      bool present = false;
      if (!optionalText(source, keys[i], &request->parts[i], &present)) {
        return fail(std::string(": \"source\" member \"") + keys[i] + "\" is not a text", reason);
      }
    }
    if (request->parts[0].empty() || request->parts[1].empty()) {
      return fail(": \"source\" needs a \"type\" and a \"name\"", reason);
    }
    const bool table = !request->parts[4].empty();
    if (request->type == "Table" && !table) {
      return fail(": a \"Table\" source needs a \"table\"", reason);
    }
    if (request->type == "Database" && table) {
      return fail(": a \"Database\" source has no \"table\"", reason);
    }
    if (request->type != "Table" && request->type != "Database") {
      return fail(": a \"source\" names a \"Database\" or a \"Table\"", reason);
    }
    request->fromDataSource = true;
    return true;
  }

  std::string documentDirectory_;
  QzResourceManager* manager_;
  std::string label_;
};

// Makes the resource of one request; null when the factory makes none.
QzResource* makeResource(const ResourceRequest& request, QzResourceFactory* factory,
                         std::string* reason) {
  if (!request.fromDataSource) {
    QzResource* resource =
        factory->getResource(toQzb(request.name), toQzb(request.type), toQzb(request.identity));
    if (resource == nullptr) *reason = request.type + " \"" + request.identity + "\"";
    return resource;
  }
  UriPtr uri(createQzDataURI(toQzb(request.parts[0]), toQzb(request.parts[1]),
                             toQzb(request.parts[2]), toQzb(request.parts[3]),
                             toQzb(request.parts[4])));
  if (uri == nullptr) {
    *reason = "a data source part holds a control character";
    return nullptr;
  }
  QzResource* resource = factory->getDataResource(uri.get());
  if (resource == nullptr) *reason = request.type + " \"" + fromQzb(uri->toString()) + "\"";
  return resource;
}

}  // namespace

bool appendDependencies(const Json& uses, const std::string& documentDirectory,
                        QzResourceList* list, QzResourceFactory* factory, std::string* reason) {
  if (list == nullptr || factory == nullptr) {
    *reason = "no resource list or factory was given";
    return false;
  }
  if (uses.is_null()) return true;
  ManagerPtr manager(createQzResourceManager());
  if (manager == nullptr) {
    *reason = "out of memory";
    return false;
  }
  std::vector<ResourceRequest> requests(uses.size());
  RequestReader reader(documentDirectory, manager.get());
  for (std::size_t i = 0; i < uses.size(); ++i) {
    if (!reader.read(uses[i], i, &requests[i], reason)) return false;
  }

  std::unordered_set<std::string> listed;
  for (const ResourceRequest& request : requests) {
    std::string what;
    ResourcePtr resource(makeResource(request, factory, &what));
    if (resource == nullptr) {
      const QzbString factoryError = factory->getErrorMessage();
      *reason = "the resource factory made no resource for " + what;
      if (!factoryError.isEmpty()) *reason += ": " + fromQzb(factoryError);
      return false;
    }
    // A resource named twice (by two entries, or by a path and a relative
    // path to the same file) is one dependency.
    const std::string key =
        fromQzb(resource->getResourceType()) + '\n' + fromQzb(resource->getResourceIdentity());
    if (!listed.insert(key).second) continue;
    if (!list->addRow()) {
      *reason = "the resource list cannot grow";
      return false;
    }
    list->setLastRowElement(0, resource.get());
  }
  return true;
}

}  // namespace qzvmd_defs
