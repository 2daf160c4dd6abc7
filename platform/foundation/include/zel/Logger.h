#pragma once
// Logging: zel::LogFactory hands out one zel::Logger per category name.
//
// Priorities run from 1 (finest) to 5 (most severe). A message is written
// when its priority is at or above the logger's threshold. Before
// LogFactory::configure the threshold of every logger is 4 and output goes to
// standard error only; configure reads "OstrelLoggerConfig.xml" (format in the
// README) and sets thresholds and appenders.
//
// Loggers live for the whole process: the reference that getLogger returns
// never dangles, and keeping it in a static is the intended use. Every
// operation is thread-safe. A call below the threshold costs one relaxed
// atomic load; use ZEL_LOG to avoid building a text that would be dropped.

#include <atomic>
#include <cstdarg>
#include <memory>
#include <vector>

#include "zel/String.h"

namespace zel {

/// One log line as appenders receive it.
struct LogRecord {
  String category;
  int priority = 0;
  String text;
  long long timeMicros = 0; ///< Unix time in microseconds.
  unsigned long threadId = 0;
};

/// Destination of log records. Implementations must be thread-safe: append
/// may be called from any thread, though never concurrently for one record.
class LogAppender {
public:
  virtual ~LogAppender();
  virtual void append(LogRecord const &record) = 0;
  virtual void flush() {}
  /// Records below this priority are not given to this appender.
  int threshold() const noexcept { return m_threshold.load(std::memory_order_relaxed); }
  void setThreshold(int priority) noexcept {
    m_threshold.store(priority, std::memory_order_relaxed);
  }

private:
  std::atomic<int> m_threshold{1};
};

/// Keeps every record in memory, so tests can assert exact lines.
class CaptureAppender : public LogAppender {
public:
  CaptureAppender();
  ~CaptureAppender() override;
  void append(LogRecord const &record) override;
  std::vector<LogRecord> records() const;
  /// Texts of the records of one category (all categories when empty), in order.
  std::vector<String> texts(String const &category = String()) const;
  /// True when some record's text equals `text` (and category, when given).
  bool contains(String const &text, String const &category = String()) const;
  /// True when some record's text contains `fragment`.
  bool containsFragment(String const &fragment) const;
  void clear();

private:
  struct State;
  std::shared_ptr<State> m_state;
};

struct LoggerAccess;

class Logger {
public:
  Logger(Logger const &) = delete;
  Logger &operator=(Logger const &) = delete;

  String const &category() const noexcept { return m_category; }
  bool isEnabled(int priority) const noexcept {
    return priority >= m_threshold.load(std::memory_order_relaxed);
  }
  int threshold() const noexcept { return m_threshold.load(std::memory_order_relaxed); }

  void log(int priority, String const &text) {
    if (isEnabled(priority))
      write(priority, text);
  }
  void log(int priority, char const *text) {
    if (isEnabled(priority))
      write(priority, String(text));
  }
  /// printf-style form. The priority test is inline so that a disabled call
  /// costs no more than log().
  template <class... Args> void logf(int priority, char const *fmt, Args... args) {
    if (isEnabled(priority))
      writef(priority, fmt, args...);
  }

private:
  friend class LogFactory;
  friend struct LoggerAccess;
  explicit Logger(String const &category, int threshold);
  void write(int priority, String const &text);
  void writef(int priority, char const *fmt, ...) __attribute__((format(printf, 3, 4)));

  String m_category;
  std::atomic<int> m_threshold;
};

class LogFactory {
public:
  /// The logger of a category; created on first use, alive until exit.
  static Logger &getLogger(char const *category);
  static Logger &getLogger(String const &category) { return getLogger(category.c_str()); }

  /// Reads the logger configuration `fileName`, looked for in `baseDir`, then
  /// in the working directory, then in the installed data folder. Thresholds
  /// not named in the file take `defaultPriority`. A missing file is not an
  /// error: the defaults apply (a rotating file "ostrel.log" under
  /// `baseDir`/logs and standard error for priority 4 and up). A malformed
  /// file is reported once on standard error and the defaults apply.
  /// Returns true when a file was found and read.
  static bool configure(String const &fileName, int defaultPriority, String const &baseDir);
  static bool isConfigured();

  /// Appenders added here receive records besides those of the configuration.
  static void addAppender(std::shared_ptr<LogAppender> const &appender);
  static void removeAppender(std::shared_ptr<LogAppender> const &appender);

  /// Sets the threshold of a category and of every category below it
  /// ("libOstrel" covers "libOstrel.Script"), overriding the configuration.
  static void setThreshold(String const &categoryPrefix, int priority);
  static void setDefaultThreshold(int priority);

  /// Flushes every appender.
  static void flush();
  /// Back to the unconfigured state (threshold 4, standard error only);
  /// appenders added by addAppender are dropped. For tests and shutdown.
  static void reset();
};

} // namespace zel

/// Logs the text expression only when the priority is enabled, so that the
/// expression is not evaluated otherwise.
#define ZEL_LOG(logger, priority, expr)                                                            \
  do {                                                                                             \
    ::zel::Logger &zelLogRef_ = (logger);                                                          \
    if (zelLogRef_.isEnabled(priority))                                                            \
      zelLogRef_.log((priority), ::zel::String(expr));                                             \
  } while (0)
