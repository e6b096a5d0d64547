// The configuration store: a map of options per store name, each store guarded
// by its own mutex. Stores live for the process.
#include "qzbase/config.h"

#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "qzbase/export.h"
#include "qzbase/log.h"
#include "qzbase/path.h"

namespace {

std::string trim(const std::string& text) {
  const char* blanks = " \t\r\n\f\v";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return std::string();
  const std::size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end - begin + 1);
}

class ConfigStore final : public QzbConfigOptions {
 public:
  bool getOption(const QzbString& key, QzbString* value, int /*flags*/) const override {
    if (key.isNull()) return false;
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = options_.find(key.toStdString());
    if (it == options_.end()) return false;
    if (value != nullptr) *value = QzbString::fromStdString(it->second);
    return true;
  }

  void setOption(const QzbString& key, const QzbString& value) override {
    if (key.isEmpty()) return;
    std::lock_guard<std::mutex> guard(mutex_);
    options_[key.toStdString()] = value.toStdString();
  }

  bool removeOption(const QzbString& key) override {
    if (key.isNull()) return false;
    std::lock_guard<std::mutex> guard(mutex_);
    return options_.erase(key.toStdString()) > 0;
  }

  bool loadFile(const QzbString& path, QzbString* error) override {
    std::ifstream in(path.asCstr());
    if (path.isEmpty() || !in) {
      if (error != nullptr) {
        *error = qzbStringFormat("Cannot read configuration file %s", path.asCstr());
      }
      return false;
    }
    std::string line;
    int lineNumber = 0;
    bool ok = true;
    while (std::getline(in, line)) {
      ++lineNumber;
      const std::string text = trim(line);
      if (text.empty() || text[0] == '#') continue;
      const std::size_t equals = text.find('=');
      const std::string key = equals == std::string::npos ? std::string() : trim(text.substr(0, equals));
      if (key.empty()) {
        // Keep going: one bad line must not cost the options after it.
        if (ok && error != nullptr) {
          *error = qzbStringFormat("Malformed line %d in configuration file %s", lineNumber,
                                   path.asCstr());
        }
        ok = false;
        continue;
      }
      std::lock_guard<std::mutex> guard(mutex_);
      options_[key] = trim(text.substr(equals + 1));
    }
    // A read error (a directory opens as a stream but cannot be read) ends
    // the loop just as the end of the file does.
    if (in.bad()) {
      if (error != nullptr) {
        *error = qzbStringFormat("Cannot read configuration file %s", path.asCstr());
      }
      return false;
    }
    return ok;
  }

  void clear() override {
    std::lock_guard<std::mutex> guard(mutex_);
    options_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string> options_;
};

// Loads the operator's file named by QZ_CONFIG_FILE into the default store.
void loadOperatorFile(ConfigStore* store) {
  const char* file = std::getenv(QZB_CONFIG_FILE_ENV);
  if (file == nullptr || *file == '\0') return;
  QzbString error;
  if (!store->loadFile(QzbString(file), &error)) {
    QzLogger* logger = qzlogGetLogger("QZ.Base");
    if (logger != nullptr) logger->logEvent(QZLOG_ERROR, QZ_SOURCE_FILE, __LINE__, "%S", &error);
  }
}

}  // namespace

QzbConfigOptions* qzbGetConfigOptions(const char* name) {
  static std::mutex* storesMutex = new std::mutex();
  static std::map<std::string, ConfigStore*>* stores = new std::map<std::string, ConfigStore*>();
  const std::string key = name == nullptr ? std::string() : std::string(name);
  std::lock_guard<std::mutex> guard(*storesMutex);
  auto it = stores->find(key);
  if (it != stores->end()) return it->second;
  ConfigStore* store = new ConfigStore();
  // The operator's file is read before the store becomes visible, so that no
  // caller ever sees the default store without it.
  if (key.empty()) loadOperatorFile(store);
  stores->emplace(key, store);
  return store;
}
