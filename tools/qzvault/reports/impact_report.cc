#include "impact_report.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <map>
#include <utility>

#include "tool_error.h"

namespace qzvtool {
namespace {

// "TYPE:IDENTITY": a type of letters, digits and "_" before the first ":".
bool splitTypedIdentity(const std::string& argument, std::string* type, std::string* identity) {
  const std::size_t colon = argument.find(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == argument.size()) return false;
  if (!std::isalpha(static_cast<unsigned char>(argument[0]))) return false;
  for (std::size_t i = 0; i < colon; ++i) {
    const unsigned char c = static_cast<unsigned char>(argument[i]);
    if (!std::isalnum(c) && c != '_') return false;
  }
  *type = argument.substr(0, colon);
  *identity = argument.substr(colon + 1);
  return true;
}

// True when `argument` names an existing folder or object of the vault.
bool namesVaultEntry(const VaultSession& session, const std::string& argument) {
  try {
    return session.kindOf(session.resolve(argument)) != VaultSession::Kind::kMissing;
  } catch (const ToolError&) {
    return false;
  }
}

}  // namespace

ResourceRow resourceRow(QzResource* resource) {
  ResourceRow row;
  row.id = text(resource->getId());
  row.type = text(resource->getResourceType());
  row.name = text(resource->getName());
  row.identity = text(resource->getResourceIdentity());
  row.location = text(resource->getResourceLocation());
  row.macro = resource->IsResourceIdentityMacroValue();
  row.resolved = resource->IsResolved();
  row.analysed = resource->getAnalysisDate();
  return row;
}

std::vector<ResourceRow> resourceRows(QzResourceList* list) {
  std::vector<ResourceRow> rows;
  list->reset();
  while (list->next()) {
    if (QzResource* resource = list->getValue(0)) rows.push_back(resourceRow(resource));
  }
  std::stable_sort(rows.begin(), rows.end(), [](const ResourceRow& a, const ResourceRow& b) {
    return a.type != b.type ? a.type < b.type : a.identity < b.identity;
  });
  return rows;
}

std::vector<ResourceRow> allResources(QzvImpactAnalysis* analysis) {
  const QzbString before = analysis->getErrorMessage();
  Held<QzResourceList> list(analysis->getAllUniqueUsedResources());
  if (!list) failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  std::vector<ResourceRow> rows = resourceRows(list.get());
  // Queries answer failure with an empty list and a new message.
  if (rows.empty() && analysis->getErrorMessage() != before) {
    failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  }
  return rows;
}

std::string resourceLine(const VaultSession& session, const ResourceRow& row) {
  std::string line = identityShown(session, row.identity) + " (" + row.type;
  if (row.macro) line += ", macro";
  return line + ")";
}

std::string identityShown(const VaultSession& session, const std::string& identity) {
  VaultPath path;
  if (!identity.empty() && identity[0] == '/' && vaultPathOf(session.root(), identity, &path)) {
    return path.shown();
  }
  return identity;
}

Json resourceJson(const VaultSession& session, const ResourceRow& row) {
  Json resource{{"type", row.type}, {"name", row.name}, {"identity", row.identity}};
  VaultPath path;
  if (!row.identity.empty() && row.identity[0] == '/' && vaultPathOf(session.root(), row.identity, &path)) {
    resource["path"] = path.shown();
  }
  resource["macro"] = row.macro;
  return resource;
}

// The fields of a resource row: type, name, identity, macro flag.
const std::size_t kResourceFields = 4;

void printResources(const VaultSession& session, const std::vector<ResourceRow>& rows, bool json,
                    bool records) {
  if (json) {
    Json list = Json::array();
    for (const ResourceRow& row : rows) list.push_back(resourceJson(session, row));
    printJson(list);
    return;
  }
  TextTable table;
  for (const ResourceRow& row : rows) {
    table.addRow({row.type, row.name.empty() && !records ? "-" : row.name, identityShown(session, row.identity),
                  row.macro ? "macro" : ""});
  }
  if (records) {
    table.printRecords(std::cout, kResourceFields);
  } else {
    table.print(std::cout);
  }
}

Held<QzResource> findResource(VaultSession& session, QzvImpactAnalysis* analysis,
                              const std::string& argument) {
  std::string type;
  std::string identity;
  if (splitTypedIdentity(argument, &type, &identity) && !namesVaultEntry(session, argument)) {
    Held<QzResource> resource(analysis->getResource(QzbString(type.c_str()), QzbString(identity.c_str())));
    if (!resource) {
      failWith(analysis->getErrorMessage(),
               "no resource of type " + type + " with the identity " + identity);
    }
    return resource;
  }
  const VaultPath path = session.resolve(argument);
  if (path.isRoot() || session.kindOf(path) == VaultSession::Kind::kFolder) {
    failUsage(path.shown() + " is a folder; only objects and TYPE:IDENTITY name resources");
  }
  Held<QzvObject> object = session.openObject(path);
  Held<QzResource> resource(analysis->getResourceForObject(object.get()));
  if (!resource) failWith(analysis->getErrorMessage(), "no resource for " + path.shown());
  return resource;
}

std::vector<AnalysisFailure> analyzeObjects(VaultSession& session,
                                            const std::vector<ObjectEntry>& objects) {
  std::vector<AnalysisFailure> failures;
  ProgressBar progress("Analysing", objects.size());
  for (const ObjectEntry& entry : objects) {
    try {
      session.requireReadable(entry.path, entry.type);
      Held<QzvObject> object = session.openObject(entry.path);
      const bool analysed = object->analyzeImpact(nullptr);
      const std::string message = text(object->getErrorMessage());
      if (!analysed) {
        failures.push_back({entry.path.shown(),
                            message.empty() ? "the impact-analysis store could not record it" : message});
      } else if (!message.empty()) {
        failures.push_back({entry.path.shown(), message});
      }
    } catch (const ToolError& error) {
      if (error.exitStatus() != kExitFailure) throw;
      // Most of the tool's messages already begin with the path; it is
      // printed once, in front of every failure.
      std::string message = error.what();
      const std::string prefix = entry.path.shown() + ": ";
      if (message.compare(0, prefix.size(), prefix) == 0) message.erase(0, prefix.size());
      failures.push_back({entry.path.shown(), message});
    }
    progress.step();
  }
  return failures;
}

namespace {

// The rows of a query's answer; a query answers failure with an empty list
// and a new message.
std::vector<ResourceRow> queryRows(QzvImpactAnalysis* analysis, QzResourceList* answer,
                                   const QzbString& messageBefore) {
  Held<QzResourceList> list(answer);
  if (!list) failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  std::vector<ResourceRow> rows = resourceRows(list.get());
  if (rows.empty() && analysis->getErrorMessage() != messageBefore) {
    failWith(analysis->getErrorMessage(), "cannot read the impact-analysis store");
  }
  return rows;
}

}  // namespace

std::vector<ResourceRow> resourcesUsedBy(QzvImpactAnalysis* analysis, QzResource* resource) {
  const QzbString before = analysis->getErrorMessage();
  return queryRows(analysis, analysis->getDependentResources(resource, false), before);
}

std::vector<ResourceRow> resourcesUsing(QzvImpactAnalysis* analysis, QzResource* resource) {
  const QzbString before = analysis->getErrorMessage();
  return queryRows(analysis, analysis->getUsedByResources(resource, false), before);
}

void printLineage(VaultSession& session, QzvImpactAnalysis* analysis, bool json) {
  // Each resource R with its users U (getUsedByResources) gives "U uses R".
  std::map<std::string, std::pair<ResourceRow, std::vector<ResourceRow>>> uses;
  for (const ResourceRow& row : allResources(analysis)) {
    Held<QzResource> resource(
        analysis->getResource(QzbString(row.type.c_str()), QzbString(row.identity.c_str())));
    if (!resource) continue;
    for (const ResourceRow& user : resourcesUsing(analysis, resource.get())) {
      auto& entry = uses[user.type + '\n' + user.identity];
      entry.first = user;
      entry.second.push_back(row);
    }
  }
  Json lineage = Json::array();
  for (auto& entry : uses) {
    const ResourceRow& user = entry.second.first;
    const std::vector<ResourceRow>& used = entry.second.second;
    if (json) {
      Json list = Json::array();
      for (const ResourceRow& usedRow : used) list.push_back(resourceJson(session, usedRow));
      lineage.push_back(Json{{"resource", resourceJson(session, user)}, {"uses", list}});
      continue;
    }
    printLine(resourceLine(session, user));
    for (const ResourceRow& usedRow : used) printLine("  uses " + resourceLine(session, usedRow));
  }
  if (json) printJson(lineage);
}

}  // namespace qzvtool
