#include "openlineage.h"

#include <algorithm>
#include <map>

#include "qzbase/config.h"
#include "qzbase/uri.h"
#include "qzvault/entry.h"
#include "iso_date.h"
#include "tool_error.h"

namespace qzvtool {

const char kOpenLineageJobEventSchema[] = "https://openlineage.io/spec/2-0-2/OpenLineage.json#/$defs/JobEvent";

namespace {

const char kFileNamespace[] = "file";

// The naming conventions' scheme for a database type.
std::string databaseScheme(const std::string& type) {
  static const std::map<std::string, std::string> schemes = {
      {"postgresql", "postgres"}, {"postgres", "postgres"}, {"sqlserver", "mssql"},
      {"mssql", "mssql"},         {"mysql", "mysql"},       {"mariadb", "mysql"},
      {"oracle", "oracle"},       {"sqlite", "sqlite"},     {"db2", "db2"},
      {"teradata", "teradata"},   {"trino", "trino"},       {"redshift", "redshift"},
      {"snowflake", "snowflake"}, {"bigquery", "bigquery"}};
  std::string lower = type;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto found = schemes.find(lower);
  return found != schemes.end() ? found->second : lower;
}

std::string databaseNamespace(const std::string& type, const std::string& source) {
  // A file database's source is its path: sqlite:///srv/db/inventory.db.
  return databaseScheme(type) + "://" + source;
}

std::string joinNonEmpty(const std::vector<std::string>& parts) {
  std::string joined;
  for (const std::string& part : parts) {
    if (part.empty()) continue;
    if (!joined.empty()) joined += '.';
    joined += part;
  }
  return joined;
}

bool isAbsolutePath(const std::string& identity) {
  if (!identity.empty() && identity[0] == '/') return true;
  // A drive letter: "C:/feeds/in/orders.csv".
  return identity.size() > 2 && std::isalpha(static_cast<unsigned char>(identity[0])) && identity[1] == ':' &&
         identity[2] == '/';
}

class ResourceManager {
 public:
  ResourceManager() : manager_(createQzResourceManager()) {
    if (manager_ == nullptr) fail("cannot read resource identities: out of memory");
  }
  ~ResourceManager() { manager_->release(); }
  ResourceManager(const ResourceManager&) = delete;
  ResourceManager& operator=(const ResourceManager&) = delete;
  QzResourceManager* operator->() const { return manager_; }

 private:
  QzResourceManager* manager_;
};

}  // namespace

OpenLineageDataset openLineageDataset(const std::string& type, const std::string& identity,
                                      const std::string& fallbackNamespace) {
  ResourceManager manager;
  const QzbString text(identity.c_str());
  QzbString sourceType;
  QzbString source;
  QzbString catalog;
  QzbString schema;
  QzbString table;
  if (manager->parseTableIdentity(text, &sourceType, &source, &catalog, &schema, &table)) {
    return {databaseNamespace(qzvtool::text(sourceType), qzvtool::text(source)),
            joinNonEmpty({qzvtool::text(catalog), qzvtool::text(schema), qzvtool::text(table)})};
  }
  if (manager->parseDatabaseIdentity(text, &sourceType, &source)) {
    return {databaseNamespace(qzvtool::text(sourceType), qzvtool::text(source)), qzvtool::text(source)};
  }
  QzbString directory;
  QzbString name;
  if (manager->parseFileReference(text, &directory, &name)) {
    std::string path = qzvtool::text(directory);
    if (path.empty() || path.back() != '/') path += '/';
    return {kFileNamespace, path + qzvtool::text(name)};
  }
  if (isAbsolutePath(identity)) return {kFileNamespace, identity};
  return {fallbackNamespace, type + ":" + identity};
}

std::vector<std::string> macroNames(const std::string& identity) {
  std::vector<std::string> names;
  std::size_t at = 0;
  for (;;) {
    const std::size_t open = identity.find("%%", at);
    if (open == std::string::npos) break;
    const std::size_t close = identity.find("%%", open + 2);
    if (close == std::string::npos) break;
    names.push_back(identity.substr(open + 2, close - open - 2));
    at = close + 2;
  }
  return names;
}

std::string openLineageProducer() {
  return std::string("urn:qzvault:") + qzx_build_version + ":build:" + std::to_string(qzx_build_number);
}

namespace {

Json datasetJson(const OpenLineageDataset& dataset) {
  return Json{{"namespace", dataset.ns}, {"name", dataset.name}};
}

}  // namespace

OpenLineageExport openLineageExport(VaultSession& session, QzvImpactAnalysis* analysis,
                                    const std::string& jobNamespace, const std::string& producer) {
  const LineageGraph graph = wholeLineage(analysis);
  std::map<std::string, const ResourceRow*> byId;
  for (const LineageNode& node : graph.nodes) byId.emplace(node.resource.id, &node.resource);
  std::map<std::string, std::vector<const ResourceRow*>> uses;
  for (const LineageEdge& edge : graph.edges) {
    const auto used = byId.find(edge.used);
    if (used != byId.end()) uses[edge.user].push_back(used->second);
  }

  OpenLineageExport result;
  std::map<std::string, Json> events;  // by vault path
  for (const LineageNode& node : graph.nodes) {
    const ResourceRow& row = node.resource;
    if (row.analysed.isNull() || row.analysed.asDouble() == 0.0) continue;
    VaultPath path;
    if (!isAbsolutePath(row.identity) || !vaultPathOf(session.root(), row.identity, &path) || path.isRoot()) {
      continue;
    }
    if (path.relative.front() == '.' || path.relative.find("/.") != std::string::npos) continue;
    if (session.kindOf(path) != VaultSession::Kind::kObject) continue;

    std::set<OpenLineageDataset> inputs;
    for (const ResourceRow* used : uses[row.id]) {
      std::string identity = used->identity;
      QzbString substituted;
      if (analysis->substituteMacros(QzbString(identity.c_str()), &substituted)) {
        identity = text(substituted);
      }
      const std::vector<std::string> left = macroNames(identity);
      if (!left.empty()) {
        ++result.inputsWithMacros;
        for (const std::string& name : left) {
          QzbString value;
          if (!qzbGetConfigOptions("")->getOption(QzbString(name.c_str()), &value, 0)) {
            result.unsetMacros.insert(name);
          }
        }
      }
      inputs.insert(openLineageDataset(used->type, identity, jobNamespace));
    }
    Json inputList = Json::array();
    for (const OpenLineageDataset& dataset : inputs) inputList.push_back(datasetJson(dataset));
    events[path.relative] = Json{{"eventTime", isoDateTime(row.analysed)},
                                 {"producer", producer},
                                 {"schemaURL", kOpenLineageJobEventSchema},
                                 {"job", Json{{"namespace", jobNamespace}, {"name", path.relative}}},
                                 {"inputs", inputList}};
  }
  for (auto& entry : events) result.events.push_back(std::move(entry.second));
  return result;
}

}  // namespace qzvtool
