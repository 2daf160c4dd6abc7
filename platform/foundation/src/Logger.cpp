#include "zel/Logger.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/sinks/ansicolor_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <pugixml.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <unordered_map>
#include <vector>

#include "zel/Paths.h"

namespace zel {

LogAppender::~LogAppender() = default;

// ---------------------------------------------------------------- capture

struct CaptureAppender::State {
  mutable std::mutex m;
  std::vector<LogRecord> records;
};

CaptureAppender::CaptureAppender() : m_state(std::make_shared<State>()) {}
CaptureAppender::~CaptureAppender() = default;

void CaptureAppender::append(LogRecord const &record) {
  std::lock_guard<std::mutex> g(m_state->m);
  m_state->records.push_back(record);
}

std::vector<LogRecord> CaptureAppender::records() const {
  std::lock_guard<std::mutex> g(m_state->m);
  return m_state->records;
}

std::vector<String> CaptureAppender::texts(String const &category) const {
  std::lock_guard<std::mutex> g(m_state->m);
  std::vector<String> out;
  for (auto const &r : m_state->records)
    if (category.isEmpty() || r.category == category)
      out.push_back(r.text);
  return out;
}

bool CaptureAppender::contains(String const &text, String const &category) const {
  std::lock_guard<std::mutex> g(m_state->m);
  for (auto const &r : m_state->records)
    if (r.text == text && (category.isEmpty() || r.category == category))
      return true;
  return false;
}

bool CaptureAppender::containsFragment(String const &fragment) const {
  std::lock_guard<std::mutex> g(m_state->m);
  for (auto const &r : m_state->records)
    if (r.text.contains(fragment))
      return true;
  return false;
}

void CaptureAppender::clear() {
  std::lock_guard<std::mutex> g(m_state->m);
  m_state->records.clear();
}

// ---------------------------------------------------------------- spdlog-backed appenders

namespace {

spdlog::level::level_enum toSpdLevel(int priority) {
  switch (priority) {
  case 1:
    return spdlog::level::trace;
  case 2:
    return spdlog::level::debug;
  case 3:
    return spdlog::level::info;
  case 4:
    return spdlog::level::warn;
  default:
    return priority <= 0 ? spdlog::level::trace : spdlog::level::err;
  }
}

char const *const kPattern = "%Y-%m-%d %H:%M:%S.%e [%l] %n: %v";

// Hands records to an spdlog sink, which does formatting, rotation and its
// own locking.
class SinkAppender : public LogAppender {
public:
  explicit SinkAppender(std::shared_ptr<spdlog::sinks::sink> sink) : m_sink(std::move(sink)) {
    m_sink->set_pattern(kPattern);
    m_sink->set_level(spdlog::level::trace);
  }
  void append(LogRecord const &r) override {
    using namespace std::chrono;
    spdlog::details::log_msg msg(spdlog::string_view_t(r.category.data(), r.category.size()),
                                 toSpdLevel(r.priority),
                                 spdlog::string_view_t(r.text.data(), r.text.size()));
    msg.time = spdlog::log_clock::time_point(
        duration_cast<spdlog::log_clock::duration>(microseconds(r.timeMicros)));
    msg.thread_id = r.threadId;
    m_sink->log(msg);
  }
  void flush() override { m_sink->flush(); }

private:
  std::shared_ptr<spdlog::sinks::sink> m_sink;
};

std::shared_ptr<LogAppender> makeStderrAppender(int threshold) {
  auto a = std::make_shared<SinkAppender>(std::make_shared<spdlog::sinks::stderr_sink_mt>());
  a->setThreshold(threshold);
  return a;
}

constexpr int kUnconfiguredThreshold = 4;

struct Registry {
  std::mutex m;
  std::unordered_map<std::string, std::unique_ptr<Logger>> loggers;
  bool configured = false;
  int defaultThreshold = kUnconfiguredThreshold;
  std::map<std::string, int> configThresholds; // from the file, by category prefix
  std::map<std::string, int> overrides;        // setThreshold, by category prefix
  std::vector<std::shared_ptr<LogAppender>> configAppenders;
  std::vector<std::shared_ptr<LogAppender>> extraAppenders;
  // Snapshot read by writers without the registry lock.
  std::shared_ptr<const std::vector<std::shared_ptr<LogAppender>>> active;

  Registry() {
    configAppenders.push_back(makeStderrAppender(1));
    publish();
  }

  void publish() {
    auto v = std::make_shared<std::vector<std::shared_ptr<LogAppender>>>(configAppenders);
    v->insert(v->end(), extraAppenders.begin(), extraAppenders.end());
    std::atomic_store(&active, std::shared_ptr<const std::vector<std::shared_ptr<LogAppender>>>(v));
  }

  static int lookup(std::map<std::string, int> const &rules, std::string const &category,
                    int fallback, bool *found) {
    // Longest rule that equals the category or is a dot-prefix of it.
    int best = fallback;
    std::size_t bestLen = 0;
    *found = false;
    for (auto const &[prefix, t] : rules) {
      bool match = category == prefix || (category.size() > prefix.size() &&
                                          category.compare(0, prefix.size(), prefix) == 0 &&
                                          (category[prefix.size()] == '.' || prefix.back() == '.'));
      if (match && (!*found || prefix.size() >= bestLen)) {
        best = t;
        bestLen = prefix.size();
        *found = true;
      }
    }
    return best;
  }

  int thresholdFor(std::string const &category) const {
    bool found = false;
    int t = lookup(overrides, category, 0, &found);
    if (found)
      return t;
    return lookup(configThresholds, category, defaultThreshold, &found);
  }

  void refreshThresholds();
};

Registry &registry() {
  // Never destroyed: loggers may be used from static destructors.
  static Registry *r = new Registry;
  return *r;
}

unsigned long currentThreadId() {
  static thread_local unsigned long id = static_cast<unsigned long>(::gettid());
  return id;
}

} // namespace

// ---------------------------------------------------------------- Logger

Logger::Logger(String const &category, int threshold)
    : m_category(category), m_threshold(threshold) {}

void Logger::write(int priority, String const &text) {
  auto appenders = std::atomic_load(&registry().active);
  if (!appenders || appenders->empty())
    return;
  LogRecord r;
  r.category = m_category;
  r.priority = priority;
  r.text = text;
  r.timeMicros = std::chrono::duration_cast<std::chrono::microseconds>(
                     std::chrono::system_clock::now().time_since_epoch())
                     .count();
  r.threadId = currentThreadId();
  for (auto const &a : *appenders)
    if (priority >= a->threshold())
      a->append(r);
}

void Logger::writef(int priority, char const *fmt, ...) {
  va_list args;
  va_start(args, fmt);
  String text = String::vformat(fmt, args);
  va_end(args);
  write(priority, text);
}

struct LoggerAccess {
  static void setThreshold(Logger &l, int t) { l.m_threshold.store(t, std::memory_order_relaxed); }
};

void Registry::refreshThresholds() {
  for (auto &[name, logger] : loggers)
    LoggerAccess::setThreshold(*logger, thresholdFor(name));
}

// ---------------------------------------------------------------- LogFactory

Logger &LogFactory::getLogger(char const *category) {
  Registry &r = registry();
  std::string name(category ? category : "");
  std::lock_guard<std::mutex> g(r.m);
  auto it = r.loggers.find(name);
  if (it != r.loggers.end())
    return *it->second;
  auto logger = std::unique_ptr<Logger>(new Logger(String(name), r.thresholdFor(name)));
  Logger &ref = *logger;
  r.loggers.emplace(name, std::move(logger));
  return ref;
}

namespace {

bool fileExists(std::string const &p) {
  struct stat st;
  return !p.empty() && ::stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string joinPath(std::string const &dir, std::string const &name) {
  if (dir.empty() || dir == ".")
    return name;
  if (!name.empty() && name[0] == '/')
    return name;
  return dir.back() == '/' ? dir + name : dir + "/" + name;
}

// Line and column of a byte offset, for error messages.
std::pair<int, int> lineColumn(std::string const &text, std::ptrdiff_t offset) {
  int line = 1, col = 1;
  for (std::ptrdiff_t i = 0; i < offset && i < static_cast<std::ptrdiff_t>(text.size()); ++i) {
    if (text[static_cast<std::size_t>(i)] == '\n') {
      ++line;
      col = 1;
    } else {
      ++col;
    }
  }
  return {line, col};
}

bool parseThreshold(pugi::xml_attribute a, int *out) {
  if (!a)
    return true;
  bool ok = false;
  int v = String::strToInt(String(a.value()), 10, &ok);
  if (!ok || v < 1 || v > 5)
    return false;
  *out = v;
  return true;
}

struct ParsedConfig {
  int threshold;
  std::map<std::string, int> categories;
  std::vector<std::shared_ptr<LogAppender>> appenders;
};

std::vector<std::shared_ptr<LogAppender>> defaultAppenders(std::string const &baseDir) {
  std::vector<std::shared_ptr<LogAppender>> out;
  out.push_back(makeStderrAppender(4));
  try {
    std::string path = joinPath(joinPath(baseDir.empty() ? "." : baseDir, "logs"), "ostrel.log");
    out.push_back(std::make_shared<SinkAppender>(
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, 5u * 1024 * 1024, 3)));
  } catch (std::exception const &e) {
    std::fprintf(stderr, "OstrelLoggerConfig: cannot open the log file: %s\n", e.what());
  }
  return out;
}

// Reads the configuration; on failure returns false with a message.
bool parseConfig(std::string const &path, std::string const &baseDir, int defaultThreshold,
                 ParsedConfig *cfg, std::string *error) {
  std::FILE *f = std::fopen(path.c_str(), "rb");
  if (!f) {
    *error = "cannot be read";
    return false;
  }
  std::string text;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
    text.append(buf, n);
  std::fclose(f);

  pugi::xml_document doc;
  pugi::xml_parse_result res = doc.load_buffer(text.data(), text.size());
  if (!res) {
    auto [line, col] = lineColumn(text, res.offset);
    *error = "line " + std::to_string(line) + ", column " + std::to_string(col) + ": " +
             res.description();
    return false;
  }
  pugi::xml_node root = doc.document_element();
  if (std::string(root.name()) != "OstrelLoggerConfig") {
    *error = "root element must be OstrelLoggerConfig";
    return false;
  }
  auto where = [&](pugi::xml_node node) {
    auto [line, col] = lineColumn(text, node.offset_debug());
    return "line " + std::to_string(line) + ", column " + std::to_string(col) + ": ";
  };
  cfg->threshold = defaultThreshold;
  if (!parseThreshold(root.attribute("threshold"), &cfg->threshold)) {
    *error = where(root) + "threshold must be a number from 1 to 5";
    return false;
  }
  for (pugi::xml_node child : root.children()) {
    if (child.type() != pugi::node_element)
      continue;
    std::string name = child.name();
    if (name == "category") {
      std::string cat = child.attribute("name").value();
      int t = 0;
      if (cat.empty() || !child.attribute("threshold") ||
          !parseThreshold(child.attribute("threshold"), &t)) {
        *error = where(child) + "category needs a name and a threshold from 1 to 5";
        return false;
      }
      cfg->categories[cat] = t;
    } else if (name == "appender") {
      std::string type = child.attribute("type").value();
      int t = 1;
      if (!parseThreshold(child.attribute("threshold"), &t)) {
        *error = where(child) + "appender threshold must be a number from 1 to 5";
        return false;
      }
      std::shared_ptr<LogAppender> a;
      if (type == "stderr") {
        a = makeStderrAppender(t);
      } else if (type == "file") {
        std::string file = child.attribute("path").as_string("ostrel.log");
        bool ok1 = true, ok2 = true;
        unsigned long long maxBytes =
            child.attribute("maxBytes")
                ? String::strToUInt64(String(child.attribute("maxBytes").value()), 10, &ok1)
                : 5ull * 1024 * 1024;
        unsigned int maxFiles =
            child.attribute("maxFiles")
                ? String::strToUInt(String(child.attribute("maxFiles").value()), 10, &ok2)
                : 3;
        if (!ok1 || !ok2 || maxBytes == 0 || maxFiles > 200000) {
          *error = where(child) + "maxBytes and maxFiles must be positive numbers";
          return false;
        }
        std::string full = joinPath(joinPath(baseDir.empty() ? "." : baseDir, "logs"), file);
        try {
          a = std::make_shared<SinkAppender>(
              std::make_shared<spdlog::sinks::rotating_file_sink_mt>(full, maxBytes, maxFiles));
        } catch (std::exception const &e) {
          *error = where(child) + "cannot open " + full + ": " + e.what();
          return false;
        }
      } else {
        *error = where(child) + "unknown appender type \"" + type + "\" (file or stderr)";
        return false;
      }
      a->setThreshold(t);
      cfg->appenders.push_back(a);
    } else {
      *error = where(child) + "unknown element <" + name + ">";
      return false;
    }
  }
  return true;
}

} // namespace

bool LogFactory::configure(String const &fileName, int defaultPriority, String const &baseDir) {
  std::string base = baseDir.str();
  std::vector<std::string> candidates;
  std::string name = fileName.str();
  if (!name.empty() && name[0] == '/') {
    candidates.push_back(name);
  } else {
    if (!base.empty())
      candidates.push_back(joinPath(base, name));
    candidates.push_back(name);
    candidates.push_back(joinPath(Paths::dataDirectory().str(), name));
  }
  std::string found;
  for (auto const &c : candidates)
    if (fileExists(c)) {
      found = c;
      break;
    }

  ParsedConfig cfg;
  cfg.threshold = defaultPriority;
  bool read = false;
  if (!found.empty()) {
    std::string error;
    if (parseConfig(found, base, defaultPriority, &cfg, &error)) {
      read = true;
    } else {
      std::fprintf(stderr, "%s: %s; using the default logging configuration\n", found.c_str(),
                   error.c_str());
      cfg = ParsedConfig{defaultPriority, {}, {}};
    }
  }
  if (!read)
    cfg.appenders = defaultAppenders(base);

  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  r.configured = true;
  r.defaultThreshold = cfg.threshold;
  r.configThresholds = std::move(cfg.categories);
  r.configAppenders = std::move(cfg.appenders);
  r.publish();
  r.refreshThresholds();
  return read;
}

bool LogFactory::isConfigured() {
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  return r.configured;
}

void LogFactory::addAppender(std::shared_ptr<LogAppender> const &appender) {
  if (!appender)
    return;
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  r.extraAppenders.push_back(appender);
  r.publish();
}

void LogFactory::removeAppender(std::shared_ptr<LogAppender> const &appender) {
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  for (auto it = r.extraAppenders.begin(); it != r.extraAppenders.end(); ++it)
    if (*it == appender) {
      r.extraAppenders.erase(it);
      break;
    }
  r.publish();
}

void LogFactory::setThreshold(String const &categoryPrefix, int priority) {
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  r.overrides[categoryPrefix.str()] = priority;
  r.refreshThresholds();
}

void LogFactory::setDefaultThreshold(int priority) {
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  r.defaultThreshold = priority;
  r.refreshThresholds();
}

void LogFactory::flush() {
  auto appenders = std::atomic_load(&registry().active);
  if (appenders)
    for (auto const &a : *appenders)
      a->flush();
}

void LogFactory::reset() {
  Registry &r = registry();
  std::lock_guard<std::mutex> g(r.m);
  for (auto const &a : r.configAppenders)
    a->flush();
  r.configured = false;
  r.defaultThreshold = kUnconfiguredThreshold;
  r.configThresholds.clear();
  r.overrides.clear();
  r.configAppenders.clear();
  r.configAppenders.push_back(makeStderrAppender(1));
  r.extraAppenders.clear();
  r.publish();
  r.refreshThresholds();
}

} // namespace zel
