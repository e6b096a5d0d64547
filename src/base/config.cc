// The configuration store: a map of options per store name, each store guarded
// by its own mutex. Stores live for the process.
#include "qzbase/config.h"

#include <map>
#include <mutex>
#include <sstream>
#include <string>

#include "config_file.h"
#include "qzbase/export.h"
#include "qzbase/log.h"
#include "qzbase/path.h"

namespace {

const char kSetByProgram[] = "set by the program";

std::string trim(const std::string& text) {
  const char* blanks = " \t\r\n\f\v";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return std::string();
  const std::size_t end = text.find_last_not_of(blanks);
  return text.substr(begin, end - begin + 1);
}

struct Option {
  std::string value;
  std::string origin;
};

class ConfigStore final : public QzbConfigOptions {
 public:
  bool getOption(const QzbString& key, QzbString* value, int /*flags*/) const override {
    if (key.isNull()) return false;
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = options_.find(key.toStdString());
    if (it == options_.end()) return false;
    if (value != nullptr) *value = QzbString::fromStdString(it->second.value);
    return true;
  }

  void setOption(const QzbString& key, const QzbString& value) override {
    setOptionFrom(key, value, QzbString(kSetByProgram, true));
  }

  bool removeOption(const QzbString& key) override {
    if (key.isNull()) return false;
    std::lock_guard<std::mutex> guard(mutex_);
    return options_.erase(key.toStdString()) > 0;
  }

  bool loadFile(const QzbString& path, QzbString* error) override {
    if (path.isEmpty()) {
      if (error != nullptr) *error = QzbString("Cannot read configuration file: no file named", true);
      return false;
    }
    const std::string name = path.toStdString();
    std::string content;
    std::string problem;
    if (!qzbiReadConfigFile(name, &content, &problem)) {
      if (error != nullptr) *error = QzbString::fromStdString(problem);
      return false;
    }
    std::istringstream in(content);
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
          *error = qzbStringFormat(
              "Malformed line %d in configuration file %s: %s", lineNumber, name.c_str(),
              equals == std::string::npos ? "no \"=\" (lines are KEY=VALUE)"
                                          : "no key before \"=\" (lines are KEY=VALUE)");
        }
        ok = false;
        continue;
      }
      std::lock_guard<std::mutex> guard(mutex_);
      options_[key] = Option{trim(text.substr(equals + 1)), name + ":" + std::to_string(lineNumber)};
    }
    return ok;
  }

  void clear() override {
    std::lock_guard<std::mutex> guard(mutex_);
    options_.clear();
  }

  void setOptionFrom(const QzbString& key, const QzbString& value,
                     const QzbString& origin) override {
    if (key.isEmpty()) return;
    std::lock_guard<std::mutex> guard(mutex_);
    options_[key.toStdString()] = Option{value.toStdString(), origin.toStdString()};
  }

  QzbString getOptionOrigin(const QzbString& key) const override {
    if (key.isNull()) return QzbString();
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = options_.find(key.toStdString());
    if (it == options_.end()) return QzbString();
    return QzbString::fromStdString(it->second.origin);
  }

  QzbString getOptionNames() const override {
    std::string names;
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& option : options_) {
      if (!names.empty()) names += '\n';
      names += option.first;
    }
    return QzbString::fromStdString(names);
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Option> options_;
};

// What the default store made of the operator's file; written once, under
// the stores' mutex, before the default store becomes visible.
struct OperatorFile {
  QzbString path;
  QzbString origin;
  QzbString problem;
};

OperatorFile& operatorFile() {
  static OperatorFile* file = new OperatorFile();
  return *file;
}

// Loads the operator's file (qzbLocateConfigFile) into the default store.
void loadOperatorFile(ConfigStore* store) {
  OperatorFile& file = operatorFile();
  if (!qzbLocateConfigFile(nullptr, &file.path, &file.origin)) return;
  QzbString error;
  if (!store->loadFile(file.path, &error)) {
    file.problem = error;
    QzLogger* logger = qzlogGetLogger("QZ.Base");
    if (logger != nullptr) logger->logEvent(QZLOG_WARN, QZ_SOURCE_FILE, __LINE__, "%S", &error);
  }
}

std::mutex& storesMutex() {
  static std::mutex* mutex = new std::mutex();
  return *mutex;
}

}  // namespace

QzbConfigOptions* qzbGetConfigOptions(const char* name) {
  static std::map<std::string, ConfigStore*>* stores = new std::map<std::string, ConfigStore*>();
  const std::string key = name == nullptr ? std::string() : std::string(name);
  std::lock_guard<std::mutex> guard(storesMutex());
  auto it = stores->find(key);
  if (it != stores->end()) return it->second;
  ConfigStore* store = new ConfigStore();
  // The operator's file is read before the store becomes visible, so that no
  // caller ever sees the default store without it.
  if (key.empty()) loadOperatorFile(store);
  stores->emplace(key, store);
  return store;
}

QzbString qzbGetConfigFileState(QzbString* origin, QzbString* problem) {
  // Makes the default store, and so reads the file, when nobody has yet.
  qzbGetConfigOptions(nullptr);
  std::lock_guard<std::mutex> guard(storesMutex());
  const OperatorFile& file = operatorFile();
  if (origin != nullptr) *origin = file.origin;
  if (problem != nullptr) *problem = file.problem;
  return file.path;
}
