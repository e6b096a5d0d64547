// The plug-ins for the vault's file family, their factory and the entry
// function the library looks up.
#include "defs_plugin.h"

#include <cstring>
#include <new>

#include "defs_log.h"
#include "defs_metadata_file.h"
#include "defs_paths.h"
#include "qzbase/file_types.h"

namespace qzvmd_defs {
namespace {

// A copy of `text`; a null string in the unlikely case that memory runs out,
// since nothing may be thrown to the library.
QzbString toQzb(const std::string& text) noexcept {
  try {
    return QzbString::fromBytes(text.data(), text.size());
  } catch (...) {
    return QzbString();
  }
}

// The kinds are the entries of qzbFileTypes whose extension spans two dots,
// grouped by resource type in the table's order.
std::vector<DefsKind> collectKinds() {
  std::vector<DefsKind> kinds;
  for (const QzbFileType& type : qzbFileTypes) {
    if (std::strchr(type.extension, '.') == nullptr) continue;
    DefsKind* kind = nullptr;
    for (DefsKind& known : kinds) {
      if (known.resourceType == type.resourceType) kind = &known;
    }
    if (kind == nullptr) {
      kinds.push_back(DefsKind{type.resourceType, {}});
      kind = &kinds.back();
    }
    kind->extensions.emplace_back(type.extension);
  }
  return kinds;
}

}  // namespace

const std::vector<DefsKind>& defsKinds() {
  static const std::vector<DefsKind> kinds = collectKinds();
  return kinds;
}

QzbString DefsPluginImpl::getDescription() {
  try {
    return toQzb(kind_.resourceType + " definitions and templates 1.0");
  } catch (...) {  // the concatenation
    return QzbString();
  }
}

void DefsPluginImpl::release() { delete this; }

QzbString DefsPluginImpl::getTypeName() { return toQzb(kind_.resourceType); }

bool DefsPluginImpl::canHandle(const QzbString& path) {
  const char* extension = qzbFindTwoPartExtension(path);
  if (extension == nullptr) return false;
  for (const std::string& own : kind_.extensions) {
    if (own == extension) return true;
  }
  return false;
}

QzvMetaDataFile* DefsPluginImpl::openFile(const QzbString& path) {
  try {
    if (path.isEmpty()) return nullptr;
    const std::string text(path.asCstr(), path.length());
    std::string reason;
    QzvMetaDataFile* file = DefsMetaDataFileImpl::open(text, &reason);
    if (file == nullptr) {
      DEFS_LOG(QZLOG_DEBUG, "Cannot open \"%s\": %s", text.c_str(), reason.c_str());
    }
    return file;
  } catch (...) {
    return nullptr;
  }
}

QzbString DefsPluginImpl::getResourceIdentity(const QzbString& path) {
  try {
    if (path.isNull()) return QzbString();
    return toQzb(normaliseSeparators(std::string(path.asCstr(), path.length())));
  } catch (...) {
    return QzbString();
  }
}

QzbString DefsPluginImpl::getResourceType() { return toQzb(kind_.resourceType); }

int DefsPluginFactoryImpl::getStatus() {
  try {
    return defsKinds().empty() ? 0 : 1;
  } catch (...) {
    return 0;
  }
}

int DefsPluginFactoryImpl::getPluginCount() {
  try {
    return static_cast<int>(defsKinds().size());
  } catch (...) {
    return 0;
  }
}

QzvMetaDataPlugin* DefsPluginFactoryImpl::getPlugin(int index) {
  try {
    const auto& kinds = defsKinds();
    if (index < 0 || static_cast<std::size_t>(index) >= kinds.size()) return nullptr;
    return new (std::nothrow) DefsPluginImpl(kinds[static_cast<std::size_t>(index)]);
  } catch (...) {
    return nullptr;
  }
}

void DefsPluginFactoryImpl::release() { delete this; }

}  // namespace qzvmd_defs

// The one symbol the module exports.
extern "C" __attribute__((visibility("default")))
QzvMetaDataPluginFactory* qzv_create_factory10(void) {
  return new (std::nothrow) qzvmd_defs::DefsPluginFactoryImpl();
}
