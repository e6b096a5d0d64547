#include "support/log_capture.h"

namespace qztest {

LogCapture::LogCapture() { qzlogAddSink(this, 1, nullptr); }

LogCapture::~LogCapture() { qzlogRemoveSink(this); }

void LogCapture::onLogEvent(const QzLogEvent& event) {
  std::lock_guard<std::mutex> guard(mutex_);
  events_.push_back(CapturedEvent{event.logger, event.level, event.file, event.line, event.text});
}

std::vector<CapturedEvent> LogCapture::events() const {
  std::lock_guard<std::mutex> guard(mutex_);
  return events_;
}

void LogCapture::clear() {
  std::lock_guard<std::mutex> guard(mutex_);
  events_.clear();
}

bool LogCapture::contains(const std::string& text, int level, const std::string& logger) const {
  return count(text, level, logger) > 0;
}

int LogCapture::count(const std::string& text, int level, const std::string& logger) const {
  std::lock_guard<std::mutex> guard(mutex_);
  int n = 0;
  for (const CapturedEvent& e : events_) {
    if (e.text == text && (level == 0 || e.level == level) && (logger.empty() || e.logger == logger)) {
      ++n;
    }
  }
  return n;
}

bool LogCapture::containsFragment(const std::string& fragment) const {
  std::lock_guard<std::mutex> guard(mutex_);
  for (const CapturedEvent& e : events_) {
    if (e.text.find(fragment) != std::string::npos) return true;
  }
  return false;
}

std::string LogCapture::dump() const {
  std::lock_guard<std::mutex> guard(mutex_);
  std::string out;
  for (const CapturedEvent& e : events_) {
    out += std::string(qzlogLevelName(e.level)) + " " + e.logger + " " + e.text + "\n";
  }
  return out;
}

}  // namespace qztest
