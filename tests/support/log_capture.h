// Captures log events for the duration of a test, so that tests assert on the
// exact texts the library logs (and at which level, from which logger).
#ifndef QZ_TESTS_SUPPORT_LOG_CAPTURE_H_
#define QZ_TESTS_SUPPORT_LOG_CAPTURE_H_

#include <mutex>
#include <string>
#include <vector>

#include "qzbase/log.h"

namespace qztest {

struct CapturedEvent {
  std::string logger;
  int level;
  std::string file;
  int line;
  std::string text;
};

// Attached on construction (every level, every logger), detached on
// destruction.
class LogCapture : public QzLogSink {
 public:
  LogCapture();
  ~LogCapture() override;
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void onLogEvent(const QzLogEvent& event) override;

  std::vector<CapturedEvent> events() const;
  void clear();
  // True when some event has exactly this text (and this level / logger when
  // they are given: level 0 and an empty logger match any).
  bool contains(const std::string& text, int level = 0, const std::string& logger = "") const;
  // Number of events with exactly this text.
  int count(const std::string& text, int level = 0, const std::string& logger = "") const;
  // True when some event's text contains `fragment`.
  bool containsFragment(const std::string& fragment) const;
  // Every event as "LEVEL logger text" lines, for failure messages.
  std::string dump() const;

 private:
  mutable std::mutex mutex_;
  std::vector<CapturedEvent> events_;
};

}  // namespace qztest

#endif  // QZ_TESTS_SUPPORT_LOG_CAPTURE_H_
