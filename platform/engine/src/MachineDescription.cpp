// The machine-description reader. Three stages:
//   1. the text is parsed by zel::XmlDocument, and a small scanner of the
//      same text finds where every start tag and attribute stands, so that
//      any later complaint can name a line and column;
//   2. the zel tree becomes a plain tree of Node objects, where elements
//      with a `count` attribute are repeated with their {var} substituted;
//   3. the Reader walks that tree section by section and builds the model,
//      checking everything it reads (unknown names, references, types).

#include "MachineDescription.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "zel/AlertTypeImp.h"
#include "zel/CapabilityImp.h"
#include "zel/DataTypeImp.h"
#include "zel/ModuleState.h"
#include "zel/ModuleTypeImp.h"
#include "zel/ParameterImp.h"
#include "zel/PropertyCategoryImp.h"
#include "zel/Table.h"
#include "zel/TipTypeImp.h"
#include "zel/ValueImp.h"
#include "zel/VersionImp.h"
#include "zel/Xml.h"

namespace morvain {

using zel::String;

// --- the error -------------------------------------------------------------------------

namespace {

String composeMessage(String const &file, int line, int column, String const &problem) {
  String out = file;
  if (line > 0) {
    out += ":" + String::fromInt(line);
    if (column > 0)
      out += ":" + String::fromInt(column);
  }
  return out + ": " + problem;
}

} // namespace

MachineDescriptionError::MachineDescriptionError(String const &file, int line, int column,
                                                 String const &problem)
    : zel::BadInput(composeMessage(file, line, column, problem)), m_file(file), m_line(line),
      m_column(column), m_problem(problem) {}

char const *MachineDescriptionError::className() const noexcept {
  return "morvain::MachineDescriptionError";
}

// --- derived GUIDs -------------------------------------------------------------------------

String deriveGuid(char const *kind, String const &id) {
  auto fnv = [](std::string const &s, std::uint64_t h) {
    for (unsigned char c : s) {
      h ^= c;
      h *= 0x100000001b3ull;
    }
    return h;
  };
  std::string k(kind);
  std::uint64_t a = fnv(k + ":" + id.str(), 0xcbf29ce484222325ull);
  std::uint64_t b = fnv(id.str() + "/" + k, 0x84222325cbf29ce4ull);
  // Shaped as a name-based UUID (version 5, RFC 4122 variant) so that it
  // looks like every other GUID the system shows.
  unsigned v1 = static_cast<unsigned>(a >> 32);
  unsigned v2 = static_cast<unsigned>((a >> 16) & 0xffff);
  unsigned v3 = static_cast<unsigned>((a & 0x0fff) | 0x5000);
  unsigned v4 = static_cast<unsigned>(((b >> 48) & 0x3fff) | 0x8000);
  unsigned long long v5 = b & 0xffffffffffffull;
  return String::format("%08x-%04x-%04x-%04x-%012llx", v1, v2, v3, v4, v5);
}

namespace {

// --- stage 1: where things stand in the text ----------------------------------------------

struct TagPosition {
  std::size_t offset = 0; // the '<'
  std::string name;
  std::vector<std::pair<std::string, std::size_t>> attributes; // name, offset
};

bool isNameStart(unsigned char c) { return std::isalpha(c) || c == '_' || c == ':' || c >= 0x80; }
bool isNameChar(unsigned char c) {
  return isNameStart(c) || std::isdigit(c) || c == '-' || c == '.';
}
bool isBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// The start tags of a well-formed document in document order, which is the
/// order in which a pre-order walk of the parsed tree meets the elements.
std::vector<TagPosition> scanStartTags(std::string const &t) {
  std::vector<TagPosition> tags;
  std::size_t n = t.size(), i = 0;
  auto skipPast = [&](char const *end) {
    std::size_t p = t.find(end, i);
    i = p == std::string::npos ? n : p + std::strlen(end);
  };
  while (i < n) {
    std::size_t lt = t.find('<', i);
    if (lt == std::string::npos)
      break;
    i = lt + 1;
    if (t.compare(lt, 4, "<!--") == 0) {
      skipPast("-->");
    } else if (t.compare(lt, 9, "<![CDATA[") == 0) {
      skipPast("]]>");
    } else if (t.compare(lt, 2, "<?") == 0) {
      skipPast("?>");
    } else if (t.compare(lt, 2, "<!") == 0) {
      // A document type declaration, perhaps with an internal subset.
      int depth = 0;
      char quote = 0;
      for (; i < n; ++i) {
        char c = t[i];
        if (quote) {
          if (c == quote)
            quote = 0;
        } else if (c == '"' || c == '\'') {
          quote = c;
        } else if (c == '[') {
          ++depth;
        } else if (c == ']') {
          --depth;
        } else if (c == '>' && depth <= 0) {
          ++i;
          break;
        }
      }
    } else if (t.compare(lt, 2, "</") == 0) {
      skipPast(">");
    } else if (i < n && isNameStart(static_cast<unsigned char>(t[i]))) {
      TagPosition tag;
      tag.offset = lt;
      std::size_t s = i;
      while (i < n && isNameChar(static_cast<unsigned char>(t[i])))
        ++i;
      tag.name = t.substr(s, i - s);
      for (;;) {
        while (i < n && isBlank(static_cast<unsigned char>(t[i])))
          ++i;
        if (i >= n || t[i] == '>' || t[i] == '/') {
          skipPast(">");
          break;
        }
        std::size_t an = i;
        while (i < n && !isBlank(static_cast<unsigned char>(t[i])) && t[i] != '=' && t[i] != '>' &&
               t[i] != '/')
          ++i;
        tag.attributes.emplace_back(t.substr(an, i - an), an);
        while (i < n && isBlank(static_cast<unsigned char>(t[i])))
          ++i;
        if (i < n && t[i] == '=') {
          ++i;
          while (i < n && isBlank(static_cast<unsigned char>(t[i])))
            ++i;
          if (i < n && (t[i] == '"' || t[i] == '\'')) {
            char q = t[i++];
            std::size_t close = t.find(q, i);
            i = close == std::string::npos ? n : close + 1;
          }
        } else if (i == an) {
          ++i; // not a name at all; move on rather than loop
        }
      }
      tags.push_back(std::move(tag));
    }
  }
  return tags;
}

/// Offsets to line and column, counted as zel::XmlDocument counts them (CR
/// LF and a lone CR end a line; columns count code points).
class LineMap {
public:
  explicit LineMap(std::string const &t) : m_text(t) {
    m_starts.push_back(0);
    for (std::size_t i = 0; i < t.size(); ++i) {
      if (t[i] == '\n' || (t[i] == '\r' && (i + 1 >= t.size() || t[i + 1] != '\n')))
        m_starts.push_back(i + 1);
    }
  }
  void position(std::size_t offset, int &line, int &column) const {
    auto it = std::upper_bound(m_starts.begin(), m_starts.end(), offset);
    std::size_t index = static_cast<std::size_t>(it - m_starts.begin()) - 1;
    line = static_cast<int>(index + 1);
    column = 1;
    for (std::size_t i = m_starts[index]; i < offset && i < m_text.size(); ++i) {
      unsigned char c = static_cast<unsigned char>(m_text[i]);
      if (c != '\r' && (c & 0xC0) != 0x80)
        ++column;
    }
  }

private:
  std::string const &m_text;
  std::vector<std::size_t> m_starts;
};

// --- stage 2: the plain tree ----------------------------------------------------------------

struct Node {
  struct Attr {
    String name;
    String value;
    int line = 0;
    int column = 0;
    bool used = false;
  };
  String name;
  int line = 0;
  int column = 0;
  std::vector<Attr> attributes;
  String text;
  bool hasText = false;
  std::vector<Node> children;
};

constexpr int MAX_DEPTH = 200;
constexpr unsigned long long MAX_COUNT = 100000;
constexpr std::size_t MAX_NODES = 3000000;

class Builder {
public:
  Builder(String const &origin, std::string const &text)
      : m_origin(origin), m_tags(scanStartTags(text)), m_lines(text) {}

  [[noreturn]] void fail(int line, int column, String const &problem) const {
    throw MachineDescriptionError(m_origin, line, column, problem);
  }

  void convert(zel::XmlElement const &element, Node &out, int depth) {
    if (depth > MAX_DEPTH)
      fail(out.line, out.column, "elements are nested too deeply");
    out.name = element.Value();
    TagPosition const *tag = nullptr;
    if (m_next < m_tags.size() && m_tags[m_next].name == out.name.str())
      tag = &m_tags[m_next];
    else
      m_aligned = false; // never guess a position from a tag that does not match
    ++m_next;
    if (tag && m_aligned)
      m_lines.position(tag->offset, out.line, out.column);
    for (zel::XmlAttribute const *a = element.FirstAttribute(); a; a = a->Next()) {
      Node::Attr attr;
      attr.name = a->Name();
      attr.value = a->Value();
      attr.line = out.line;
      attr.column = out.column;
      if (tag && m_aligned)
        for (auto const &p : tag->attributes)
          if (p.first == attr.name.str()) {
            m_lines.position(p.second, attr.line, attr.column);
            break;
          }
      out.attributes.push_back(std::move(attr));
    }
    for (zel::XmlNode const *c = element.FirstChild(); c; c = c->NextSibling()) {
      if (c->Type() == zel::XmlNode::ELEMENT) {
        out.children.emplace_back();
        out.children.back().line = out.line;
        out.children.back().column = out.column;
        convert(*c->ToElement(), out.children.back(), depth + 1);
      } else if (c->Type() == zel::XmlNode::TEXT) {
        out.text += c->Value();
      }
    }
    out.hasText = !out.text.trim().isEmpty();
  }

  /// Repeats the children that carry `count`, substituting their variable.
  void expand(Node &node, int depth) {
    if (depth > MAX_DEPTH)
      fail(node.line, node.column, "elements are nested too deeply");
    std::vector<Node> out;
    out.reserve(node.children.size());
    for (Node &child : node.children) {
      Node::Attr const *count = find(child, "count");
      if (!count) {
        expand(child, depth + 1);
        out.push_back(std::move(child));
        continue;
      }
      unsigned long long n = number(*count, MAX_COUNT);
      unsigned long long first = 0;
      String var("n");
      if (Node::Attr const *f = find(child, "countFrom"))
        first = number(*f, std::numeric_limits<unsigned int>::max());
      if (Node::Attr const *v = find(child, "countVar")) {
        var = v->value;
        bool ok = !var.isEmpty() && isNameStart(static_cast<unsigned char>(var[0]));
        for (std::size_t i = 0; ok && i < var.size(); ++i)
          ok = std::isalnum(static_cast<unsigned char>(var[i])) || var[i] == '_';
        if (!ok)
          fail(v->line, v->column, "countVar \"" + var + "\" is not a plain name");
      }
      std::vector<Node::Attr> kept;
      for (Node::Attr &a : child.attributes)
        if (a.name != "count" && a.name != "countFrom" && a.name != "countVar")
          kept.push_back(a);
      child.attributes = kept;
      std::size_t size = nodeCount(child);
      for (unsigned long long i = 0; i < n; ++i) {
        m_total += size;
        if (m_total > MAX_NODES)
          fail(count->line, count->column, "the repeated elements make the description too large");
        Node copy = child;
        substitute(copy, var, first + i);
        expand(copy, depth + 1);
        out.push_back(std::move(copy));
      }
    }
    node.children = std::move(out);
  }

private:
  static Node::Attr const *find(Node const &n, char const *name) {
    for (Node::Attr const &a : n.attributes)
      if (a.name == name)
        return &a;
    return nullptr;
  }
  static std::size_t nodeCount(Node const &n) {
    std::size_t s = 1;
    for (Node const &c : n.children)
      s += nodeCount(c);
    return s;
  }
  unsigned long long number(Node::Attr const &a, unsigned long long max) const {
    bool ok = false;
    String v = a.value.trim();
    unsigned long long x = 0;
    ok = !v.isEmpty() &&
         std::all_of(v.str().begin(), v.str().end(), [](char c) { return c >= '0' && c <= '9'; });
    if (ok) {
      x = String::strToUInt64(v, 10, &ok);
    }
    if (!ok || x > max)
      fail(a.line, a.column,
           "bad number \"" + a.value + "\" for " + a.name + " (0 to " + String::fromUInt(max) +
               ")");
    return x;
  }

  void substitute(Node &n, String const &var, unsigned long long value) {
    for (Node::Attr &a : n.attributes)
      a.value = substituteText(a.value, var, value, a.line, a.column);
    n.text = substituteText(n.text, var, value, n.line, n.column);
    for (Node &c : n.children)
      substitute(c, var, value);
  }

  /// Replaces {var} and {var:[0]W[x|X]}; other braces stay as they are.
  String substituteText(String const &text, String const &var, unsigned long long value, int line,
                        int column) const {
    std::string const &s = text.str();
    if (s.find('{') == std::string::npos)
      return text;
    std::string out;
    std::size_t i = 0;
    while (i < s.size()) {
      std::size_t open = s.find('{', i);
      if (open == std::string::npos) {
        out.append(s, i, std::string::npos);
        break;
      }
      out.append(s, i, open - i);
      std::size_t close = s.find('}', open);
      if (close == std::string::npos) {
        out.append(s, open, std::string::npos);
        break;
      }
      std::string inner = s.substr(open + 1, close - open - 1);
      std::string name = inner.substr(0, inner.find(':'));
      if (name != var.str()) {
        out.append(s, open, close - open + 1);
        i = close + 1;
        continue;
      }
      std::string form = inner.size() > name.size() ? inner.substr(name.size() + 1) : "";
      bool zero = false, hex = false, upper = false;
      std::size_t p = 0;
      if (p < form.size() && form[p] == '0') {
        zero = true;
        ++p;
      }
      unsigned width = 0;
      while (p < form.size() && form[p] >= '0' && form[p] <= '9' && width < 100)
        width = width * 10 + static_cast<unsigned>(form[p++] - '0');
      if (p < form.size() && (form[p] == 'x' || form[p] == 'X')) {
        hex = true;
        upper = form[p] == 'X';
        ++p;
      }
      if (p != form.size() || width > 32)
        fail(line, column, "bad format \"{" + String(inner) + "}\"");
      char fmt[16];
      std::snprintf(fmt, sizeof fmt, "%%%s%ull%s", zero ? "0" : "", width,
                    hex ? (upper ? "X" : "x") : "u");
      char buf[64];
      std::snprintf(buf, sizeof buf, fmt, value);
      out += buf;
      i = close + 1;
    }
    return String(std::move(out));
  }

  String m_origin;
  std::vector<TagPosition> m_tags;
  LineMap m_lines;
  std::size_t m_next = 0;
  bool m_aligned = true;
  std::size_t m_total = 0;
};

// --- stage 3: the reader --------------------------------------------------------------------

/// Looks a constant up by its accessor name or its string, without regard
/// to case ("USERABORTED" and "User Aborted" both name USERABORTED).
template <class C> bool constantByName(String const &text, C &out) {
  String t = text.trim();
  for (unsigned i = 0; i < C::constantCount(); ++i) {
    C c = C::getConstantByIndex(i);
    if (t.equalNoCase(c.name()) || t.equalNoCase(c.toString())) {
      out = c;
      return true;
    }
  }
  return false;
}

char const *const ALERT_VALUE_KEYS[] = {"ApplicationName",
                                        "ApplicationVersion",
                                        "ModuleName",
                                        "ModuleVersion",
                                        "ExceptionCode",
                                        "FaultOffset",
                                        "StartTime",
                                        "TerminationTime",
                                        "ApplicationPath",
                                        "ModulePath",
                                        "ReportID",
                                        "DeviceID",
                                        "DriverProblemCode",
                                        "DriverProvider",
                                        "DriverVersion",
                                        "DumpPath",
                                        "Cause",
                                        "Code",
                                        "FullCode",
                                        "Parameters",
                                        "Driver",
                                        "Device",
                                        "BSODTimestamp",
                                        "ProbableCauseDriver",
                                        "ProbableCauseDriverTimestamp",
                                        "ProbableCauseDriverChecksum",
                                        "CurrentDriver",
                                        "CurrentDriverTimestamp",
                                        "CurrentDriverChecksum",
                                        "CurrentDriverVersion",
                                        "CurrentDriverCompanyName",
                                        "ProbableCauseDevice",
                                        "OSBootTimeTotal",
                                        "OSBootTimeToDesktop",
                                        "OSBootTimeDesktopToIdle",
                                        "OSBootNumApps",
                                        "OSShutdownTime",
                                        "OSShutdownNotificationsTime",
                                        "OSServicesTime",
                                        "OSDriversTime",
                                        "OSDevicesTime",
                                        "OSKernelTime",
                                        "OSSuspendTime",
                                        "OSResumeTime",
                                        "OSHibernateReadTime",
                                        "OSHibernateWriteTime"};

/// The message-box convention of simulated tests: value 0 the buttons,
/// value 1 the icon, value 2 the default answer; answers 1 ok, 2 cancel,
/// 6 yes, 7 no (see the docs).
struct NamedNumber {
  char const *name;
  std::uint32_t value;
};
NamedNumber const BUTTONS[] = {
    {"ok", 0}, {"okcancel", 1}, {"yesno", 2}, {"yesnocancel", 3}, {"input", 4}};
NamedNumber const ICONS[] = {
    {"none", 0}, {"information", 1}, {"question", 2}, {"warning", 3}, {"error", 4}};
NamedNumber const ANSWERS[] = {{"ok", 1}, {"cancel", 2}, {"yes", 6}, {"no", 7}};

struct DeviceInfo {
  String guid;
  String id;
  bool isStatic = false;
};

class Reader {
public:
  explicit Reader(String const &origin) : m_origin(origin), m_model(new MachineDescription()) {
    m_model->origin = origin;
  }

  std::shared_ptr<MachineDescription const> read(Node &root) {
    if (root.name != "Machine")
      fail(root, "the root element must be <Machine>, not <" + root.name + ">");
    m_model->name = text(root, "name", baseName(m_origin));
    noText(root);
    finish(root);

    std::vector<Node *> sources, devices, modules, alerts, timeline;
    for (Node &c : root.children) {
      if (c.name == "Sources")
        sources.push_back(&c);
      else if (c.name == "Devices")
        devices.push_back(&c);
      else if (c.name == "Modules")
        modules.push_back(&c);
      else if (c.name == "Alerts")
        alerts.push_back(&c);
      else if (c.name == "Timeline")
        timeline.push_back(&c);
      else
        unknownElement(c, root);
    }
    for (Node *s : sources)
      readSources(*s);
    String fallback = "simulated machine " + baseName(m_origin);
    if (m_model->deviceSources.empty()) {
      m_model->deviceSources.emplace_back();
      m_model->deviceSources.back().name = fallback;
    }
    if (m_model->testSources.empty()) {
      m_model->testSources.emplace_back();
      m_model->testSources.back().kind = SourceModel::Kind::TESTS;
      m_model->testSources.back().name = fallback;
    }

    // Every device id of the file, the timeline's too, so that references
    // may point at devices declared anywhere.
    for (Node *d : devices)
      collectDeviceIds(*d, true);
    for (Node *t : timeline)
      for (Node &at : t->children)
        collectDeviceIds(at, false);
    for (Node *m : modules)
      collectModuleIds(*m);

    for (Node *d : devices)
      readDevices(*d);
    checkParents();
    for (Node *m : modules)
      readModules(*m);
    for (Node *a : alerts)
      readAlerts(*a);
    for (Node *t : timeline)
      readTimeline(*t);
    checkTimeline();
    return m_model;
  }

  // ---- failing -----------------------------------------------------------------

  [[noreturn]] void fail(int line, int column, String const &problem) const {
    String full;
    for (String const &c : m_context)
      full += c + ": ";
    throw MachineDescriptionError(m_origin, line, column, full + problem);
  }
  [[noreturn]] void fail(Node const &n, String const &problem) const {
    fail(n.line, n.column, problem);
  }
  [[noreturn]] void fail(Node::Attr const &a, String const &problem) const {
    fail(a.line, a.column, problem);
  }

  struct Context {
    Context(Reader &r, String const &what) : reader(r) { r.m_context.push_back(what); }
    ~Context() { reader.m_context.pop_back(); }
    Reader &reader;
  };

private:
  static String quoted(String const &s) { return "\"" + s + "\""; }
  static String baseName(String const &path) {
    std::size_t slash = path.str().find_last_of('/');
    return slash == std::string::npos ? path : path.substring(slash + 1);
  }

  // ---- attributes ----------------------------------------------------------------

  Node::Attr *attr(Node &n, char const *name) {
    for (Node::Attr &a : n.attributes)
      if (a.name == name) {
        a.used = true;
        return &a;
      }
    return nullptr;
  }
  String text(Node &n, char const *name, String const &fallback = String()) {
    Node::Attr *a = attr(n, name);
    return a ? a->value : fallback;
  }
  Node::Attr &required(Node &n, char const *name) {
    Node::Attr *a = attr(n, name);
    if (!a)
      fail(n, String("<") + n.name + "> needs the attribute \"" + name + "\"");
    return *a;
  }
  String requiredText(Node &n, char const *name) {
    Node::Attr &a = required(n, name);
    if (a.value.trim().isEmpty())
      fail(a, String("the attribute \"") + name + "\" of <" + n.name + "> is empty");
    return a.value;
  }
  bool flag(Node &n, char const *name, bool fallback) {
    Node::Attr *a = attr(n, name);
    if (!a)
      return fallback;
    String v = a->value.trim();
    if (v.equalNoCase("true") || v.equalNoCase("yes") || v == "1")
      return true;
    if (v.equalNoCase("false") || v.equalNoCase("no") || v == "0")
      return false;
    fail(*a, "bad truth value " + quoted(a->value) + " for " + name + " (true or false)");
  }
  unsigned long long unsignedNumber(Node::Attr const &a, unsigned long long max) {
    String v = a.value.trim();
    bool ok = !v.isEmpty() && std::all_of(v.str().begin(), v.str().end(),
                                          [](char c) { return c >= '0' && c <= '9'; });
    unsigned long long x = ok ? String::strToUInt64(v, 10, &ok) : 0;
    if (!ok || x > max)
      fail(a, "bad number " + quoted(a.value) + " for " + a.name + " (a whole number from 0 to " +
                  String::fromUInt(max) + ")");
    return x;
  }
  unsigned int u32(Node &n, char const *name, unsigned int fallback,
                   unsigned int max = std::numeric_limits<unsigned int>::max()) {
    Node::Attr *a = attr(n, name);
    return a ? static_cast<unsigned int>(unsignedNumber(*a, max)) : fallback;
  }
  long long signedNumber(Node &n, char const *name, long long fallback) {
    Node::Attr *a = attr(n, name);
    if (!a)
      return fallback;
    bool ok = false;
    String v = a->value.trim();
    long long x = v.isEmpty() ? 0 : String::strToInt64(v, 10, &ok);
    if (!ok)
      fail(*a, "bad number " + quoted(a->value) + " for " + name);
    return x;
  }
  double real(Node::Attr const &a) {
    bool ok = false;
    String v = a.value.trim();
    double x = v.isEmpty() ? 0 : String::strToReal64(v, &ok);
    if (!ok || x != x)
      fail(a, "bad number " + quoted(a.value) + " for " + a.name);
    return x;
  }
  std::vector<unsigned int> passList(Node::Attr const &a) {
    std::vector<unsigned int> out;
    for (String const &p : splitList(a.value)) {
      Node::Attr one = a;
      one.value = p;
      unsigned long long v = unsignedNumber(one, std::numeric_limits<unsigned int>::max());
      if (v == 0)
        fail(a, "passes count from 1, not 0");
      out.push_back(static_cast<unsigned int>(v));
    }
    if (out.empty())
      fail(a, "the attribute \"" + a.name + "\" names no pass");
    return out;
  }
  /// Items separated by commas, "|" or blanks; empty items skipped.
  static std::vector<String> splitList(String const &text) {
    std::vector<String> out;
    std::string cur;
    for (char c : text.str()) {
      if (c == ',' || c == '|' || isBlank(static_cast<unsigned char>(c))) {
        if (!cur.empty())
          out.emplace_back(cur);
        cur.clear();
      } else {
        cur += c;
      }
    }
    if (!cur.empty())
      out.emplace_back(cur);
    return out;
  }

  zel::CapabilityImp capabilities(Node::Attr const &a) {
    for (String const &name : splitList(a.value))
      if (zel::CapabilityImp::rowByString(name.c_str(), false) == zel::CapabilityImp::SENTINEL)
        fail(a, "unknown capability " + quoted(name));
    return zel::CapabilityImp(a.value);
  }
  zel::PropertyCategoryImp categories(Node::Attr const &a) {
    for (String const &name : splitList(a.value))
      if (zel::PropertyCategoryImp::rowByString(name.c_str(), false) ==
          zel::PropertyCategoryImp::SENTINEL)
        fail(a, "unknown property category " + quoted(name));
    return zel::PropertyCategoryImp::createFromString(a.value);
  }
  template <class C> C constant(Node &n, char const *name, C fallback, char const *what) {
    Node::Attr *a = attr(n, name);
    if (!a)
      return fallback;
    C out = fallback;
    if (!constantByName(a->value, out))
      fail(*a, String("unknown ") + what + " " + quoted(a->value));
    return out;
  }
  zel::TestResultImp result(Node &n, char const *name, zel::TestResultImp fallback) {
    return constant(n, name, fallback, "result");
  }
  std::uint32_t namedNumber(Node &n, char const *name, NamedNumber const *table, std::size_t size,
                            std::uint32_t fallback) {
    Node::Attr *a = attr(n, name);
    if (!a)
      return fallback;
    for (std::size_t i = 0; i < size; ++i)
      if (a->value.trim().equalNoCase(table[i].name))
        return table[i].value;
    String names;
    for (std::size_t i = 0; i < size; ++i)
      names += String(i ? ", " : "") + table[i].name;
    String trimmed = a->value.trim();
    bool digits = !trimmed.isEmpty();
    for (char c : trimmed.str())
      digits = digits && c >= '0' && c <= '9';
    if (!digits)
      fail(*a,
           "unknown " + a->name + " " + quoted(a->value) + " (a number or one of " + names + ")");
    return static_cast<std::uint32_t>(unsignedNumber(*a, 0xffffffffu));
  }

  /// Every attribute was read; otherwise the first one that was not is unknown.
  void finish(Node &n) {
    for (Node::Attr &a : n.attributes)
      if (!a.used)
        fail(a, "unknown attribute " + quoted(a.name) + " on <" + n.name + ">");
  }
  void noText(Node &n) {
    if (n.hasText)
      fail(n, "<" + n.name + "> holds no text");
  }
  void noChildren(Node &n) {
    if (!n.children.empty())
      fail(n.children.front(), "<" + n.name + "> holds no elements");
  }
  [[noreturn]] void unknownElement(Node const &c, Node const &parent) {
    fail(c, "unknown element <" + c.name + "> in <" + parent.name + ">");
  }
  void leaf(Node &n) {
    noText(n);
    noChildren(n);
    finish(n);
  }

  // ---- references ------------------------------------------------------------------

  DeviceInfo const *deviceRef(String const &ref) const {
    auto it = m_deviceIds.find(ref);
    if (it != m_deviceIds.end())
      return &it->second;
    auto g = m_deviceGuidToId.find(ref);
    if (g != m_deviceGuidToId.end())
      return &m_deviceIds.at(g->second);
    return nullptr;
  }
  String deviceGuid(Node::Attr const &a) {
    DeviceInfo const *d = deviceRef(a.value.trim());
    if (!d)
      fail(a, "unknown device " + quoted(a.value));
    return d->guid;
  }
  static bool globMatch(char const *pattern, char const *text) {
    // Iterative '*' matching with one backtrack point.
    char const *star = nullptr, *resume = nullptr;
    while (*text) {
      if (*pattern == '*') {
        star = pattern++;
        resume = text;
      } else if (*pattern == *text) {
        ++pattern;
        ++text;
      } else if (star) {
        pattern = star + 1;
        text = ++resume;
      } else {
        return false;
      }
    }
    while (*pattern == '*')
      ++pattern;
    return *pattern == 0;
  }
  /// A list of device ids, GUIDs or id patterns with "*"; each must match.
  std::vector<String> deviceList(Node::Attr const &a) {
    std::vector<String> out;
    std::set<String> seen;
    for (String const &ref : splitList(a.value)) {
      std::size_t before = out.size();
      if (ref.contains("*")) {
        for (String const &id : m_deviceOrder)
          if (globMatch(ref.c_str(), id.c_str()) && seen.insert(m_deviceIds[id].guid).second)
            out.push_back(m_deviceIds[id].guid);
        if (out.size() == before &&
            !std::any_of(m_deviceOrder.begin(), m_deviceOrder.end(),
                         [&](String const &id) { return globMatch(ref.c_str(), id.c_str()); }))
          fail(a, "the pattern " + quoted(ref) + " matches no device");
      } else {
        DeviceInfo const *d = deviceRef(ref);
        if (!d)
          fail(a, "unknown device " + quoted(ref));
        if (seen.insert(d->guid).second)
          out.push_back(d->guid);
      }
    }
    return out;
  }

  void collectDeviceIds(Node &section, bool isStatic) {
    for (Node &c : section.children) {
      if (c.name != "Device")
        continue;
      String id = text(c, "id"), guid = text(c, "guid");
      for (Node::Attr &a : c.attributes)
        a.used = false; // read properly later
      if (id.isEmpty())
        id = guid;
      if (guid.isEmpty() && !id.isEmpty())
        guid = deriveGuid("device", id);
      if (!id.isEmpty()) {
        auto it = m_deviceIds.find(id);
        if (it == m_deviceIds.end()) {
          m_deviceIds[id] = DeviceInfo{guid, id, isStatic};
          m_deviceOrder.push_back(id);
          auto g = m_deviceGuidToId.find(guid);
          if (g != m_deviceGuidToId.end())
            fail(c, "device " + quoted(id) + ": duplicate GUID " + quoted(guid) + " (also device " +
                        quoted(g->second) + ")");
          m_deviceGuidToId[guid] = id;
        } else if (it->second.guid != guid) {
          fail(c, "device " + quoted(id) + " is declared twice with different GUIDs");
        } else if (isStatic && it->second.isStatic) {
          fail(c, "duplicate device id " + quoted(id));
        }
      }
      collectDeviceIds(c, isStatic);
    }
  }

  void collectModuleIds(Node &section) {
    for (Node &c : section.children) {
      if (c.name != "Module")
        continue;
      String id = text(c, "id"), guid = text(c, "guid");
      for (Node::Attr &a : c.attributes)
        a.used = false;
      if (id.isEmpty())
        id = guid;
      if (guid.isEmpty() && !id.isEmpty())
        guid = deriveGuid("module", id);
      if (!id.isEmpty())
        m_moduleIds[id] = guid;
    }
  }

  // ---- sources -----------------------------------------------------------------------

  void readSources(Node &section) {
    noText(section);
    finish(section);
    for (Node &c : section.children) {
      SourceModel s;
      if (c.name == "DeviceSource")
        s.kind = SourceModel::Kind::DEVICES;
      else if (c.name == "TestSource")
        s.kind = SourceModel::Kind::TESTS;
      else
        unknownElement(c, section);
      s.name = requiredText(c, "name");
      Context ctx(*this, "source " + quoted(s.name));
      s.delayMs = u32(c, "delayMs", 0);
      s.failReason = text(c, "fail");
      if (Node::Attr *f = attr(c, "fail"))
        if (f->value.trim().isEmpty())
          fail(*f, "a failing source needs a reason");
      s.failTimes = u32(c, "failTimes", 0);
      s.warning = text(c, "warning");
      leaf(c);
      auto &list =
          s.kind == SourceModel::Kind::DEVICES ? m_model->deviceSources : m_model->testSources;
      for (SourceModel const &o : list)
        if (o.name == s.name)
          fail(c, "duplicate source name");
      list.push_back(s);
    }
  }
  std::size_t sourceIndex(Node &n, std::vector<SourceModel> const &list, std::size_t fallback) {
    Node::Attr *a = attr(n, "source");
    if (!a)
      return fallback;
    for (std::size_t i = 0; i < list.size(); ++i)
      if (list[i].name == a->value)
        return i;
    fail(*a, "unknown source " + quoted(a->value));
  }

  // ---- values and properties -------------------------------------------------------------

  zel::ValueImp parseValue(Node::Attr const *where, Node const &n, String const &txt,
                           zel::DataTypeImp type) {
    try {
      return zel::ValueImp(txt, type);
    } catch (zel::Exception const &) {
      String problem = "value " + quoted(txt) + " does not fit data type " + type.toString();
      if (where)
        fail(*where, problem);
      fail(n, problem);
    }
  }

  zel::Table readTable(Node &p) {
    struct Placed {
      Node *cell;
      unsigned short row, col, rowSpan, colSpan;
      bool header;
    };
    std::vector<Placed> cells;
    std::vector<std::vector<bool>> taken;
    unsigned rows = 0, cols = 0;
    unsigned r = 0;
    for (Node &row : p.children) {
      if (row.name != "Row")
        continue;
      bool headerRow = flag(row, "header", false);
      noText(row);
      finish(row);
      unsigned c = 0;
      for (Node &cell : row.children) {
        if (cell.name != "Cell")
          unknownElement(cell, row);
        unsigned rs = u32(cell, "rowSpan", 1, 1000), cs = u32(cell, "colSpan", 1, 1000);
        if (rs == 0 || cs == 0)
          fail(cell, "a cell spans at least one row and one column");
        auto isTaken = [&](unsigned rr, unsigned cc) {
          return rr < taken.size() && cc < taken[rr].size() && taken[rr][cc];
        };
        while (isTaken(r, c))
          ++c;
        for (unsigned rr = r; rr < r + rs; ++rr)
          for (unsigned cc = c; cc < c + cs; ++cc) {
            if (isTaken(rr, cc))
              fail(cell, "the cell overlaps a cell that spans into it");
            if (rr >= taken.size())
              taken.resize(rr + 1);
            if (cc >= taken[rr].size())
              taken[rr].resize(cc + 1, false);
            taken[rr][cc] = true;
          }
        rows = std::max(rows, r + rs);
        cols = std::max(cols, c + cs);
        if (static_cast<unsigned long long>(rows) * cols > 100000)
          fail(cell, "the table is too large");
        cells.push_back(Placed{&cell, static_cast<unsigned short>(r),
                               static_cast<unsigned short>(c), static_cast<unsigned short>(rs),
                               static_cast<unsigned short>(cs), headerRow});
        c += cs;
      }
      ++r;
    }
    if (rows > r)
      fail(p, "a cell spans past the last row");
    zel::Table table(static_cast<unsigned short>(rows), static_cast<unsigned short>(cols));
    try {
      for (Placed const &pl : cells)
        if (pl.rowSpan > 1 || pl.colSpan > 1)
          table.setCellSpans(pl.row, pl.col, pl.rowSpan, pl.colSpan);
      for (Placed const &pl : cells) {
        Node &cell = *pl.cell;
        bool header = flag(cell, "header", pl.header);
        Node::Attr *typeAttr = attr(cell, "type");
        zel::DataTypeImp type = zel::DataTypeImp::STRING;
        if (typeAttr && !constantByName(typeAttr->value, type))
          fail(*typeAttr, "unknown data type " + quoted(typeAttr->value));
        zel::ZELValue v;
        if (!cell.text.isEmpty()) {
          zel::ValueImp x = parseValue(typeAttr, cell, cell.text, type);
          switch (type.enumValue()) {
          case zel::DataTypeImp::INT32:
            v = zel::ZELValue(static_cast<int>(x.value()));
            break;
          case zel::DataTypeImp::UINT32:
            v = zel::ZELValue(static_cast<unsigned int>(x.value()));
            break;
          case zel::DataTypeImp::INT64:
            v = zel::ZELValue(static_cast<long long>(x.value()));
            break;
          case zel::DataTypeImp::UINT64:
            v = zel::ZELValue(static_cast<unsigned long long>(x.value()));
            break;
          case zel::DataTypeImp::DOUBLE:
            v = zel::ZELValue(x.valueDouble());
            break;
          case zel::DataTypeImp::BOOLEAN:
            v = zel::ZELValue(x.valueBool());
            break;
          case zel::DataTypeImp::STRING:
            v = zel::ZELValue(cell.text);
            break;
          default:
            fail(*typeAttr, "a table cell holds INT32, UINT32, INT64, UINT64, DOUBLE, BOOLEAN "
                            "or STRING, not " +
                                type.toString());
          }
        }
        zel::Table::Cell &out = table.setCell(pl.row, pl.col, v, header);
        if (Node::Attr *al = attr(cell, "align")) {
          String a = al->value.trim();
          if (a.equalNoCase("default"))
            out.setAlignment(zel::Table::ALIGN_DEFAULT);
          else if (a.equalNoCase("left"))
            out.setAlignment(zel::Table::ALIGN_LEFT);
          else if (a.equalNoCase("center"))
            out.setAlignment(zel::Table::ALIGN_CENTER);
          else if (a.equalNoCase("right"))
            out.setAlignment(zel::Table::ALIGN_RIGHT);
          else
            fail(*al,
                 "unknown alignment " + quoted(al->value) + " (default, left, center or right)");
        }
        out.setIdentifierString(text(cell, "id"));
        noChildren(cell);
        finish(cell);
      }
    } catch (zel::Table::Exception const &e) {
      fail(p, String("bad table: ") + e.getMessage());
    }
    return table;
  }

  zel::ValueImp arrayFromItems(Node &p, zel::DataTypeImp type) {
    zel::Array<String> strings;
    zel::Array<unsigned int> u32s;
    zel::Array<int> i32s;
    zel::Array<zel::DiscreteMeasurement> measurements;
    zel::Array<zel::LocalizedString> localized;
    for (Node &item : p.children) {
      if (item.name != "Item")
        continue;
      String t = item.text;
      switch (type.enumValue()) {
      case zel::DataTypeImp::STRINGARRAY:
        strings.append(t);
        break;
      case zel::DataTypeImp::UINT32ARRAY:
        u32s.append(static_cast<unsigned int>(
            parseValue(nullptr, item, t, zel::DataTypeImp::UINT32).value()));
        break;
      case zel::DataTypeImp::INT32ARRAY:
        i32s.append(
            static_cast<int>(parseValue(nullptr, item, t, zel::DataTypeImp::INT32).value()));
        break;
      case zel::DataTypeImp::DISCRETEMEASUREMENTARRAY:
        measurements.append(parseValue(nullptr, item, t, zel::DataTypeImp::DISCRETEMEASUREMENT)
                                .valueDiscreteMeasurement());
        break;
      case zel::DataTypeImp::LOCALIZEDSTRINGARRAY:
        localized.append(zel::LocalizedString(text(item, "resource"), t));
        break;
      default:
        fail(item, "<Item> is only for the array types, not " + type.toString());
      }
      noChildren(item);
      finish(item);
    }
    switch (type.enumValue()) {
    case zel::DataTypeImp::UINT32ARRAY:
      return zel::ValueImp(u32s);
    case zel::DataTypeImp::INT32ARRAY:
      return zel::ValueImp(i32s);
    case zel::DataTypeImp::DISCRETEMEASUREMENTARRAY:
      return zel::ValueImp(measurements);
    case zel::DataTypeImp::LOCALIZEDSTRINGARRAY:
      return zel::ValueImp(localized);
    default:
      return zel::ValueImp(strings);
    }
  }

  /// Reads a property and its child properties into `out` (parent first).
  void readProperty(Node &p, std::vector<boost::shared_ptr<zel::PropertyImp>> &out,
                    std::set<String> &keys) {
    String key = requiredText(p, "key");
    Context ctx(*this, "property " + quoted(key));
    if (!keys.insert(key).second)
      fail(p, "duplicate property key");
    zel::DataTypeImp type = zel::DataTypeImp::STRING;
    if (Node::Attr *t = attr(p, "type"))
      if (!constantByName(t->value, type))
        fail(*t, "unknown data type " + quoted(t->value));
    boost::shared_ptr<zel::PropertyImp> prop(new zel::PropertyImp());
    prop->setKey(key).setType(type);
    prop->setLocalizedName(text(p, "name", key));
    prop->setLocalizedDescription(text(p, "description"));
    if (Node::Attr *c = attr(p, "category"))
      prop->setCategory(categories(*c));
    if (Node::Attr *m = attr(p, "module")) {
      auto it = m_moduleIds.find(m->value);
      if (it == m_moduleIds.end())
        fail(*m, "unknown module " + quoted(m->value));
      prop->setModuleGuid(it->second);
    }
    bool later = flag(p, "later", false);
    prop->setWillBeDiscoveredLater(later);
    Node::Attr *valueAttr = attr(p, "value");
    String resource = text(p, "resource");

    bool hasItems = false, hasRows = false;
    for (Node &c : p.children) {
      if (c.name == "Item")
        hasItems = true;
      else if (c.name == "Row")
        hasRows = true;
      else if (c.name != "Property")
        unknownElement(c, p);
    }
    int sources =
        (valueAttr ? 1 : 0) + (p.hasText ? 1 : 0) + (hasItems ? 1 : 0) + (hasRows ? 1 : 0);
    if (sources > 1)
      fail(p, "give the value one way only (value attribute, text, <Item> or <Row>)");
    if (hasRows && type != zel::DataTypeImp::TABLE)
      fail(p, "<Row> is only for TABLE properties");
    if (hasItems && type == zel::DataTypeImp::TABLE)
      fail(p, "a TABLE property is given with <Row> and <Cell>");
    if (!resource.isEmpty() && type != zel::DataTypeImp::LOCALIZEDSTRING)
      fail(p, "\"resource\" is only for LOCALIZEDSTRING properties");
    if (type == zel::DataTypeImp::TABLE) {
      if (valueAttr || p.hasText)
        fail(p, "a TABLE property is given with <Row> and <Cell>");
      prop->setValue(zel::ValueImp(readTable(p)));
    } else if (hasItems) {
      prop->setValue(arrayFromItems(p, type));
    } else if (valueAttr || p.hasText || !later) {
      String v = valueAttr ? valueAttr->value : (p.hasText ? p.text : String());
      zel::ValueImp value = parseValue(valueAttr, p, v, type);
      if (type == zel::DataTypeImp::LOCALIZEDSTRING)
        value = zel::ValueImp(zel::LocalizedString(resource, v));
      prop->setValue(value);
    }
    finish(p);
    out.push_back(prop);
    for (Node &c : p.children)
      if (c.name == "Property") {
        prop->addChildKey(text(c, "key"));
        for (Node::Attr &a : c.attributes)
          a.used = false;
        readProperty(c, out, keys);
      }
  }

  // ---- devices --------------------------------------------------------------------------

  void readDevices(Node &section) {
    noText(section);
    finish(section);
    for (Node &c : section.children) {
      if (c.name != "Device")
        unknownElement(c, section);
      readDevice(c, String(), m_model->devices, 0);
    }
  }

  /// Reads a device and the devices nested in it into `out`.
  void readDevice(Node &d, String const &nestedParent, std::vector<DeviceModel> &out,
                  std::size_t inheritedSource) {
    String id = text(d, "id");
    String guid = text(d, "guid");
    if (id.isEmpty() && guid.isEmpty())
      fail(d, "a device needs an id or a guid");
    if (id.isEmpty())
      id = guid;
    if (guid.isEmpty())
      guid = deriveGuid("device", id);
    Context ctx(*this, "device " + quoted(id));
    Node::Attr &typeAttr = required(d, "type");
    zel::CapabilityImp type = capabilities(typeAttr);
    if (type.isEmpty())
      fail(typeAttr, "a device needs a type");
    zel::CapabilityImp caps = type;
    if (Node::Attr *c = attr(d, "capabilities"))
      caps |= capabilities(*c);
    String parent = nestedParent;
    if (Node::Attr *p = attr(d, "parent")) {
      if (!nestedParent.isEmpty())
        fail(*p, "a nested device has its parent already");
      parent = deviceGuid(*p);
      if (parent == guid)
        fail(*p, "a device cannot be its own parent");
    }
    boost::shared_ptr<zel::IDeviceImp> device(
        new zel::IDeviceImp(guid, text(d, "name", id), type, parent));
    device->setCapabilities(caps);
    device->setDescription(text(d, "description"));
    device->setOsLocator(text(d, "osLocator"));
    device->setHwLocator(text(d, "hwLocator"));
    device->setDeviceState(
        constant(d, "state", zel::DeviceStateImp(zel::DeviceStateImp::FUNCTIONAL), "device state"));
    DeviceModel model;
    model.id = id;
    model.device = device;
    model.heldBusy = flag(d, "busy", false);
    model.source = sourceIndex(d, m_model->deviceSources, inheritedSource);
    noText(d);
    finish(d);
    std::vector<boost::shared_ptr<zel::PropertyImp>> props;
    std::set<String> keys;
    for (Node &c : d.children) {
      if (c.name == "Property")
        readProperty(c, props, keys);
      else if (c.name != "Device")
        unknownElement(c, d);
    }
    for (auto const &p : props)
      device->setProperty(p);
    m_parentOf[guid] = parent;
    m_deviceLine[guid] = d.line;
    out.push_back(model);
    for (Node &c : d.children)
      if (c.name == "Device")
        readDevice(c, guid, out, model.source);
  }

  void checkParents() {
    for (DeviceModel const &d : m_model->devices) {
      String const &parent = d.device->parentGuid();
      if (parent.isEmpty())
        continue;
      auto info = m_deviceGuidToId.find(parent);
      int line = m_deviceLine[d.device->guid()];
      if (info == m_deviceGuidToId.end() || !m_deviceIds[info->second].isStatic)
        fail(line, 0,
             "device " + quoted(d.id) + ": its parent " + quoted(parent) +
                 " is not among the devices there from the start");
      // A chain of parents longer than the device list is a loop.
      String p = parent;
      std::size_t steps = 0;
      while (!p.isEmpty() && steps <= m_model->devices.size()) {
        p = m_parentOf[p];
        ++steps;
      }
      if (!p.isEmpty())
        fail(line, 0, "device " + quoted(d.id) + ": its parents form a loop");
    }
  }

  // ---- modules, tests, indicators ------------------------------------------------------------

  zel::TipImp readTip(Node &t) {
    zel::TipImp tip;
    tip.setKey(requiredText(t, "key"));
    tip.setType(constant(t, "type", zel::TipTypeImp(zel::TipTypeImp::TEXT_TIP), "tip type"));
    tip.setTitle(zel::LocalizedString(String(), text(t, "title")));
    tip.setContent(zel::LocalizedString(String(), text(t, "content")));
    tip.setContentEx(zel::LocalizedString(String(), text(t, "extended")));
    leaf(t);
    return tip;
  }

  zel::ParameterImp readParameter(Node &p) {
    String key = requiredText(p, "key");
    Context ctx(*this, "parameter " + quoted(key));
    zel::DataTypeImp type = zel::DataTypeImp::STRING;
    if (Node::Attr *t = attr(p, "type"))
      if (!constantByName(t->value, type))
        fail(*t, "unknown data type " + quoted(t->value));
    if (type == zel::DataTypeImp::TABLE)
      fail(p, "a parameter cannot be a TABLE");
    Node::Attr *v = attr(p, "value");
    zel::ValueImp value = parseValue(v, p, v ? v->value : String(), type);
    zel::ParameterImp param(key, type, value, text(p, "name", key), text(p, "description"),
                            u32(p, "priority", 0));
    leaf(p);
    return param;
  }

  void readModules(Node &section) {
    noText(section);
    finish(section);
    for (Node &c : section.children) {
      if (c.name != "Module")
        unknownElement(c, section);
      readModule(c);
    }
  }

  void readModule(Node &m) {
    String id = text(m, "id"), guid = text(m, "guid");
    if (id.isEmpty() && guid.isEmpty())
      fail(m, "a module needs an id or a guid");
    if (id.isEmpty())
      id = guid;
    if (guid.isEmpty())
      guid = deriveGuid("module", id);
    Context ctx(*this, "module " + quoted(id));
    if (!m_moduleGuids.insert(guid).second)
      fail(m, "duplicate module GUID " + quoted(guid));
    ModuleModel model;
    model.id = id;
    model.module.reset(new zel::ModuleImp(guid));
    zel::ModuleImp &mod = *model.module;
    mod.setLocalizedName(text(m, "name", id));
    mod.setLocalizedDescription(text(m, "description"));
    if (Node::Attr *v = attr(m, "version")) {
      zel::VersionImp version;
      if (!zel::VersionImp::parse(v->value, version))
        fail(*v, "bad version " + quoted(v->value) + " (major.minor.build.revision)");
      mod.setVersion(version);
    }
    mod.setCompany(text(m, "company"));
    mod.setBuildDate(text(m, "buildDate"));
    mod.setPath(text(m, "path"));
    mod.setHelpConcept(text(m, "help"));
    mod.setType(constant(m, "type", zel::ModuleTypeImp(zel::ModuleTypeImp::DIAG), "module type"));
    if (Node::Attr *c = attr(m, "capabilities"))
      mod.setSupportedCapabilities(capabilities(*c));
    mod.setState(zel::ModuleState::ENUMERATED);
    mod.setEnumReceived(true);
    model.source = sourceIndex(m, m_model->testSources, 0);
    noText(m);
    finish(m);
    std::set<String> parameterKeys;
    for (Node &c : m.children) {
      if (c.name == "Tip") {
        mod.addTip(readTip(c));
      } else if (c.name == "Parameter") {
        zel::ParameterImp p = readParameter(c);
        if (!parameterKeys.insert(p.key().toLower()).second)
          fail(c, "duplicate parameter " + quoted(p.key()));
        mod.addParameter(p);
      } else if (c.name == "Test" || c.name == "Benchmark") {
        model.tests.push_back(readTest(c, guid));
      } else if (c.name == "Indicator") {
        model.indicators.push_back(readIndicator(c, guid));
      } else {
        unknownElement(c, m);
      }
    }
    m_model->modules.push_back(std::move(model));
  }

  TestModel readTest(Node &t, String const &moduleGuid) {
    String key = requiredText(t, "key");
    Context ctx(*this, (t.name == "Test" ? "test " : "benchmark ") + quoted(key));
    TestModel model;
    unsigned type = t.name == "Test" ? zel::TestImp::TEST : zel::TestImp::BENCHMARK;
    model.test.reset(
        new zel::TestImp(moduleGuid, key, type, text(t, "name", key), text(t, "description")));
    zel::TestImp &test = *model.test;
    if (!m_testGuids.insert(test.guid()).second)
      fail(t, "duplicate test key in this module");
    test.setInteractive(flag(t, "interactive", false));
    test.setDestructive(flag(t, "destructive", false));
    test.setSupportsParallelTesting(flag(t, "parallel", false));
    test.setEnabled(flag(t, "enabled", true));
    test.setCreatesOwnGUI(flag(t, "ownGui", false));
    test.setCustomerErrorCode(text(t, "customerErrorCode"));
    test.setHelpConcept(text(t, "help"));
    if (Node::Attr *c = attr(t, "capabilities"))
      test.setDeviceCapabilitiesSupported(capabilities(*c));
    if (Node::Attr *d = attr(t, "devices")) {
      model.explicitDevices = true;
      model.deviceGuids = deviceList(*d);
    }
    noText(t);
    finish(t);
    bool haveScript = false;
    std::set<String> parameterKeys;
    for (Node &c : t.children) {
      if (c.name == "Parameter") {
        zel::ParameterImp p = readParameter(c);
        if (!parameterKeys.insert(p.key().toLower()).second)
          fail(c, "duplicate parameter " + quoted(p.key()));
        test.addParameter(p);
      } else if (c.name == "Tip") {
        test.addTip(readTip(c));
      } else if (c.name != "Script") {
        unknownElement(c, t);
      }
    }
    m_currentTest = &test;
    for (Node &c : t.children) {
      if (c.name != "Script")
        continue;
      if (haveScript)
        fail(c, "a test has one <Script>");
      haveScript = true;
      readScript(c, model.script);
    }
    m_currentTest = nullptr;
    if (!haveScript) {
      // A test without a script works a tenth of a second and passes.
      Step work;
      work.kind = Step::Kind::WORK;
      work.ms = 100;
      work.count = 4;
      work.hasPercent = true;
      work.percent = 100;
      model.script.steps.push_back(work);
    }
    return model;
  }

  void readScript(Node &s, ScriptModel &script) {
    script.result = result(s, "result", zel::TestResultImp::PASS);
    script.errorCode = text(s, "errorCode");
    if (Node::Attr *f = attr(s, "failOnPass"))
      script.failPasses = passList(*f);
    script.failResult = result(s, "failResult", zel::TestResultImp::FAIL);
    script.failErrorCode = text(s, "failErrorCode");
    noText(s);
    finish(s);
    readSteps(s, script.steps);
  }

  void readSteps(Node &parent, Steps &out) {
    for (Node &c : parent.children)
      out.push_back(readStep(c, parent));
  }

  void branchEnd(Node &n, PromptBranch &b) {
    if (attr(n, "result") || attr(n, "errorCode")) {
      Step end;
      end.kind = Step::Kind::END;
      end.line = n.line;
      end.result = result(n, "result", zel::TestResultImp::PASS);
      end.errorCode = text(n, "errorCode");
      b.steps.push_back(end);
    }
  }

  Step readStep(Node &n, Node &parent) {
    Step s;
    s.line = n.line;
    if (n.name == "Progress") {
      s.kind = Step::Kind::PROGRESS;
      if (attr(n, "percent")) {
        s.hasPercent = true;
        s.percent = u32(n, "percent", 0, 100);
      }
      s.text = text(n, "text");
      leaf(n);
    } else if (n.name == "Work") {
      s.kind = Step::Kind::WORK;
      s.ms = u32(n, "ms", 0);
      s.count = u32(n, "steps", 1, 10000);
      if (s.count == 0)
        fail(n, "a <Work> has at least one step");
      if (attr(n, "to")) {
        s.hasPercent = true;
        s.percent = u32(n, "to", 0, 100);
      }
      s.text = text(n, "text");
      leaf(n);
    } else if (n.name == "IgnoreStop") {
      s.kind = Step::Kind::IGNORE_STOP;
      required(n, "ms");
      s.ms = u32(n, "ms", 0);
      leaf(n);
    } else if (n.name == "Hang") {
      s.kind = Step::Kind::HANG;
      s.text = text(n, "text");
      leaf(n);
    } else if (n.name == "Event") {
      s.kind = Step::Kind::EVENT;
      s.event.reset(new EventModel());
      EventModel &e = *s.event;
      e.key = requiredText(n, "key");
      e.type = constant(n, "type", zel::EventTypeImp(zel::EventTypeImp::INFORMATIVE), "event type");
      e.code = u32(n, "code", 0);
      e.codeString = text(n, "codeString");
      e.customerCode = text(n, "customerCode");
      Node::Attr *m = attr(n, "message");
      if (m && n.hasText)
        fail(n, "give the message as the attribute or as the text, not both");
      e.message = m ? m->value : n.text.trim();
      finish(n);
      for (Node &c : n.children) {
        if (c.name != "Tip")
          unknownElement(c, n);
        e.tips.addTip(readTip(c));
      }
    } else if (n.name == "Measurement") {
      s.kind = Step::Kind::MEASUREMENT;
      s.name = requiredText(n, "name");
      s.value = real(required(n, "value"));
      s.unit = text(n, "unit");
      leaf(n);
    } else if (n.name == "Prompt") {
      s.kind = Step::Kind::PROMPT;
      s.prompt.reset(new PromptModel());
      PromptModel &p = *s.prompt;
      p.request = zel::MessageBox2Request(
          requiredText(n, "message"), text(n, "title"),
          namedNumber(n, "buttons", BUTTONS, sizeof BUTTONS / sizeof *BUTTONS, 0),
          namedNumber(n, "icon", ICONS, sizeof ICONS / sizeof *ICONS, 0),
          namedNumber(n, "default", ANSWERS, sizeof ANSWERS / sizeof *ANSWERS, 0), 0);
      p.timeoutMs = u32(n, "timeoutMs", 0);
      noText(n);
      finish(n);
      for (Node &c : n.children) {
        PromptBranch b;
        if (c.name == "OnAnswer") {
          if (attr(c, "value")) {
            b.matchValue = true;
            b.value = namedNumber(c, "value", ANSWERS, sizeof ANSWERS / sizeof *ANSWERS, 0);
          }
          if (Node::Attr *in = attr(c, "input")) {
            b.matchInput = true;
            b.input = in->value;
          }
        } else if (c.name != "OnRefused" && c.name != "OnTimeout") {
          unknownElement(c, n);
        }
        noText(c);
        readSteps(c, b.steps);
        branchEnd(c, b);
        finish(c);
        if (c.name == "OnAnswer") {
          p.answers.push_back(std::move(b));
        } else {
          auto &slot = c.name == "OnRefused" ? p.refused : p.timedOut;
          if (slot)
            fail(c, "<" + c.name + "> is given twice");
          slot.reset(new PromptBranch(std::move(b)));
        }
      }
    } else if (n.name == "End") {
      s.kind = Step::Kind::END;
      s.result = result(n, "result", zel::TestResultImp::PASS);
      s.errorCode = text(n, "errorCode");
      leaf(n);
    } else if (n.name == "If") {
      s.kind = Step::Kind::IF;
      if (Node::Attr *p = attr(n, "pass"))
        s.passes = passList(*p);
      if (Node::Attr *d = attr(n, "device"))
        s.deviceGuids = deviceList(*d);
      if (Node::Attr *p = attr(n, "parameter")) {
        s.parameter = p->value;
        boost::shared_ptr<zel::ParameterImp> param = m_currentTest
                                                         ? m_currentTest->parameter(p->value)
                                                         : boost::shared_ptr<zel::ParameterImp>();
        if (!param)
          fail(*p, "the test has no parameter " + quoted(p->value));
        Node::Attr &eq = required(n, "equals");
        s.hasParameterValue = true;
        s.parameterValue = parseValue(&eq, n, eq.value, param->type()).toString();
      } else if (Node::Attr *eq = attr(n, "equals")) {
        fail(*eq, "\"equals\" goes with \"parameter\"");
      }
      noText(n);
      finish(n);
      bool sawElse = false;
      for (Node &c : n.children) {
        if (c.name == "Else") {
          if (sawElse)
            fail(c, "an <If> has one <Else>");
          sawElse = true;
          noText(c);
          finish(c);
          readSteps(c, s.otherwise);
        } else {
          if (sawElse)
            fail(c, "<Else> comes last in <If>");
          s.body.push_back(readStep(c, n));
        }
      }
    } else if (n.name == "Repeat") {
      s.kind = Step::Kind::REPEAT;
      required(n, "times");
      s.count = u32(n, "times", 1, 100000);
      noText(n);
      finish(n);
      readSteps(n, s.body);
    } else if (n.name == "Crash") {
      s.kind = Step::Kind::CRASH;
      leaf(n);
    } else if (n.name == "Throw") {
      s.kind = Step::Kind::THROW;
      s.text = text(n, "message", "simulated failure");
      leaf(n);
    } else {
      unknownElement(n, parent);
    }
    return s;
  }

  IndicatorModel readIndicator(Node &i, String const &moduleGuid) {
    String key = requiredText(i, "key");
    Context ctx(*this, "indicator " + quoted(key));
    IndicatorModel model;
    String guid = text(i, "guid");
    if (guid.isEmpty())
      guid = deriveGuid("indicator", moduleGuid + "/" + key);
    if (!m_indicatorGuids.insert(guid).second)
      fail(i, "duplicate indicator GUID " + quoted(guid));
    String device;
    if (Node::Attr *d = attr(i, "device"))
      device = deviceGuid(*d);
    model.indicator = zel::IndicatorImp(guid, moduleGuid, key, text(i, "name", key), device);
    model.indicator.setLocalizedDescription(text(i, "description"));
    model.indicator.setInterval(u32(i, "interval", 0));
    noText(i);
    finish(i);
    for (Node &r : i.children) {
      if (r.name != "Reading")
        unknownElement(r, i);
      IndicatorReading reading;
      if (Node::Attr *d = attr(r, "device"))
        reading.deviceGuid = deviceGuid(*d);
      else if (!device.isEmpty())
        reading.deviceGuid = device;
      else
        fail(r, "a reading of a free indicator names its device");
      noText(r);
      finish(r);
      std::set<String> keys;
      for (Node &p : r.children) {
        if (p.name != "Property")
          unknownElement(p, r);
        readProperty(p, reading.properties, keys);
      }
      if (reading.properties.empty())
        fail(r, "a reading holds at least one <Property>");
      model.readings.push_back(std::move(reading));
    }
    return model;
  }

  // ---- alerts ----------------------------------------------------------------------------

  void readAlerts(Node &section) {
    noText(section);
    finish(section);
    for (Node &c : section.children) {
      if (c.name != "Alert")
        unknownElement(c, section);
      boost::shared_ptr<zel::IAlertImp> alert = readAlert(c);
      if (!m_initialAlerts.insert(alert->guid()).second)
        fail(c, "duplicate alert GUID " + quoted(alert->guid()));
      m_model->alerts.push_back(alert);
    }
  }

  boost::shared_ptr<zel::IAlertImp> readAlert(Node &a) {
    String key = requiredText(a, "key");
    String id = text(a, "id");
    String guid = text(a, "guid");
    if (id.isEmpty())
      id = guid.isEmpty() ? key : guid;
    if (guid.isEmpty())
      guid = deriveGuid("alert", id);
    Context ctx(*this, "alert " + quoted(id));
    auto known = m_alertIds.find(id);
    if (known != m_alertIds.end() && known->second != guid)
      fail(a, "alert id " + quoted(id) + " is used for two GUIDs");
    m_alertIds[id] = guid;
    m_alertGuids.insert(guid);
    boost::shared_ptr<zel::IAlertImp> alert(new zel::IAlertImp(
        guid, key, constant(a, "type", zel::AlertTypeImp(zel::AlertTypeImp::MESSAGE), "alert type"),
        zel::LocalizedString(String(), text(a, "title")),
        zel::LocalizedString(String(), text(a, "message"))));
    if (Node::Attr *d = attr(a, "device"))
      alert->setDeviceGuid(deviceGuid(*d));
    alert->setTimeTriggered(signedNumber(a, "time", 0));
    alert->setTimeIsReal(flag(a, "timeIsReal", true));
    noText(a);
    finish(a);
    for (Node &c : a.children) {
      if (c.name == "Tip") {
        alert->addTip(readTip(c));
      } else if (c.name == "Value") {
        Node::Attr &k = required(c, "key");
        bool known = false;
        for (char const *name : ALERT_VALUE_KEYS)
          known = known || k.value == name;
        if (!known)
          fail(k, "unknown alert value key " + quoted(k.value));
        alert->addValue(k.value, c.text);
        noChildren(c);
        finish(c);
      } else {
        unknownElement(c, a);
      }
    }
    return alert;
  }

  // ---- timeline ------------------------------------------------------------------------------

  void readTimeline(Node &section) {
    noText(section);
    finish(section);
    for (Node &at : section.children) {
      if (at.name != "At")
        unknownElement(at, section);
      Node::Attr &msAttr = required(at, "ms");
      TimelineEntry entry;
      entry.atMs = unsignedNumber(msAttr, std::numeric_limits<std::uint64_t>::max());
      Context ctx(*this, "timeline at " + String::fromUInt(entry.atMs) + " ms");
      noText(at);
      finish(at);
      for (Node &c : at.children) {
        TimelineAction action;
        if (c.name == "Device") {
          action.kind = TimelineAction::Kind::ADD_DEVICES;
          readDevice(c, String(), action.devices, 0);
        } else if (c.name == "SetProperty") {
          action.kind = TimelineAction::Kind::SET_PROPERTIES;
          action.deviceGuid = deviceGuid(required(c, "device"));
          noText(c);
          finish(c);
          std::set<String> keys;
          for (Node &p : c.children) {
            if (p.name != "Property")
              unknownElement(p, c);
            readProperty(p, action.properties, keys);
          }
          if (action.properties.empty())
            fail(c, "<SetProperty> holds at least one <Property>");
        } else if (c.name == "SetState") {
          action.kind = TimelineAction::Kind::SET_STATE;
          action.deviceGuid = deviceGuid(required(c, "device"));
          required(c, "state").used = false;
          action.state = constant(c, "state", zel::DeviceStateImp(zel::DeviceStateImp::FUNCTIONAL),
                                  "device state");
          leaf(c);
        } else if (c.name == "SetBusy") {
          action.kind = TimelineAction::Kind::SET_BUSY;
          action.deviceGuid = deviceGuid(required(c, "device"));
          action.busy = flag(c, "busy", true);
          leaf(c);
        } else if (c.name == "RemoveProperty") {
          action.kind = TimelineAction::Kind::REMOVE_PROPERTY;
          action.deviceGuid = deviceGuid(required(c, "device"));
          action.key = requiredText(c, "key");
          leaf(c);
        } else if (c.name == "RemoveDevice") {
          action.kind = TimelineAction::Kind::REMOVE_DEVICE;
          action.deviceGuid = deviceGuid(required(c, "device"));
          leaf(c);
        } else if (c.name == "Alert") {
          action.kind = TimelineAction::Kind::ADD_ALERT;
          action.alert = readAlert(c);
        } else if (c.name == "RemoveAlert") {
          action.kind = TimelineAction::Kind::REMOVE_ALERT;
          Node::Attr &ref = required(c, "alert");
          auto it = m_alertIds.find(ref.value);
          if (it != m_alertIds.end())
            action.key = it->second;
          else if (m_alertGuids.count(ref.value))
            action.key = ref.value;
          else
            fail(ref, "unknown alert " + quoted(ref.value) + " (declared before this entry?)");
          leaf(c);
        } else {
          unknownElement(c, at);
        }
        m_actionLines.push_back(c.line);
        entry.actions.push_back(std::move(action));
      }
      m_model->timeline.push_back(std::move(entry));
    }
  }

  /// Plays the timeline on a model of what is present, so that every
  /// change names something that is there at its time and every addition
  /// something that is not. Within one entry, additions and changes come
  /// before removals, as a client applies them.
  void checkTimeline() {
    std::vector<std::size_t> order(m_model->timeline.size());
    for (std::size_t i = 0; i < order.size(); ++i)
      order[i] = i;
    std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
      return m_model->timeline[a].atMs < m_model->timeline[b].atMs;
    });
    std::set<String> present;
    for (DeviceModel const &d : m_model->devices)
      present.insert(d.device->guid());
    std::set<String> alerts = m_initialAlerts;
    std::map<String, std::set<String>> keys;
    std::map<String, String> parents;
    for (DeviceModel const &d : m_model->devices) {
      parents[d.device->guid()] = d.device->parentGuid();
      for (auto const &p : d.device->properties())
        keys[d.device->guid()].insert(p->key());
    }
    std::size_t actionIndex = 0;
    std::vector<std::size_t> firstAction(m_model->timeline.size());
    for (std::size_t i = 0; i < m_model->timeline.size(); ++i) {
      firstAction[i] = actionIndex;
      actionIndex += m_model->timeline[i].actions.size();
    }
    for (std::size_t e : order) {
      TimelineEntry const &entry = m_model->timeline[e];
      Context ctx(*this, "timeline at " + String::fromUInt(entry.atMs) + " ms");
      auto where = [&](std::size_t a) { return m_actionLines[firstAction[e] + a]; };
      auto needDevice = [&](std::size_t a, String const &guid) {
        if (!present.count(guid))
          fail(where(a), 0,
               "device " + quoted(m_deviceGuidToId[guid]) + " is not there at this time");
      };
      for (int pass = 0; pass < 2; ++pass) {
        for (std::size_t a = 0; a < entry.actions.size(); ++a) {
          TimelineAction const &act = entry.actions[a];
          bool removal = act.kind == TimelineAction::Kind::REMOVE_PROPERTY ||
                         act.kind == TimelineAction::Kind::REMOVE_DEVICE ||
                         act.kind == TimelineAction::Kind::REMOVE_ALERT;
          if (removal != (pass == 1))
            continue;
          switch (act.kind) {
          case TimelineAction::Kind::ADD_DEVICES:
            for (DeviceModel const &d : act.devices) {
              String const &guid = d.device->guid();
              if (present.count(guid))
                fail(where(a), 0, "device " + quoted(d.id) + " is there already");
              String const &parent = d.device->parentGuid();
              if (!parent.isEmpty() && !present.count(parent))
                fail(where(a), 0,
                     "device " + quoted(d.id) + ": its parent " + quoted(m_deviceGuidToId[parent]) +
                         " is not there at this time");
              present.insert(guid);
              parents[guid] = parent;
              keys[guid].clear();
              for (auto const &p : d.device->properties())
                keys[guid].insert(p->key());
            }
            break;
          case TimelineAction::Kind::SET_PROPERTIES:
            needDevice(a, act.deviceGuid);
            for (auto const &p : act.properties)
              keys[act.deviceGuid].insert(p->key());
            break;
          case TimelineAction::Kind::SET_STATE:
          case TimelineAction::Kind::SET_BUSY:
            needDevice(a, act.deviceGuid);
            break;
          case TimelineAction::Kind::REMOVE_PROPERTY:
            needDevice(a, act.deviceGuid);
            if (!keys[act.deviceGuid].erase(act.key))
              fail(where(a), 0,
                   "device " + quoted(m_deviceGuidToId[act.deviceGuid]) + " has no property " +
                       quoted(act.key) + " at this time");
            break;
          case TimelineAction::Kind::REMOVE_DEVICE: {
            needDevice(a, act.deviceGuid);
            // The device goes with everything below it.
            std::vector<String> gone{act.deviceGuid};
            for (std::size_t i = 0; i < gone.size(); ++i)
              for (auto const &p : parents)
                if (p.second == gone[i] && present.count(p.first))
                  gone.push_back(p.first);
            for (String const &g : gone)
              present.erase(g);
            break;
          }
          case TimelineAction::Kind::ADD_ALERT:
            if (!alerts.insert(act.alert->guid()).second)
              fail(where(a), 0, "alert " + quoted(act.alert->key()) + " is there already");
            break;
          case TimelineAction::Kind::REMOVE_ALERT:
            if (!alerts.erase(act.key))
              fail(where(a), 0, "the alert is not there at this time");
            break;
          }
        }
      }
    }
    std::vector<TimelineEntry> sorted;
    for (std::size_t e : order)
      sorted.push_back(std::move(m_model->timeline[e]));
    m_model->timeline = std::move(sorted);
  }

  String m_origin;
  std::shared_ptr<MachineDescription> m_model;
  std::vector<String> m_context;
  std::unordered_map<String, DeviceInfo> m_deviceIds;
  std::unordered_map<String, String> m_deviceGuidToId;
  std::vector<String> m_deviceOrder;
  std::unordered_map<String, String> m_moduleIds;
  std::map<String, String> m_parentOf;
  std::map<String, int> m_deviceLine;
  std::set<String> m_moduleGuids;
  std::set<String> m_testGuids;
  std::set<String> m_indicatorGuids;
  std::map<String, String> m_alertIds;
  std::set<String> m_alertGuids;
  std::set<String> m_initialAlerts;
  zel::TestImp *m_currentTest = nullptr;
  std::vector<int> m_actionLines;
};

std::shared_ptr<MachineDescription const> readText(std::string const &text, String const &origin) {
  zel::XmlDocument doc;
  if (!doc.Parse(String(text))) {
    String desc = doc.ErrorDesc();
    std::size_t colon = desc.find(": ");
    if (colon != String::npos)
      desc = desc.substring(colon + 2);
    throw MachineDescriptionError(origin, doc.ErrorRow(), doc.ErrorCol(),
                                  "not well-formed XML: " + desc);
  }
  zel::XmlElement const *root = doc.RootElement();
  if (!root)
    throw MachineDescriptionError(origin, 0, 0, "the document has no root element");
  Builder builder(origin, text);
  Node tree;
  tree.line = 1;
  builder.convert(*root, tree, 0);
  builder.expand(tree, 0);
  Reader reader(origin);
  return reader.read(tree);
}

} // namespace

std::shared_ptr<MachineDescription const> readMachineDescription(String const &path) {
  std::ifstream in(path.c_str(), std::ios::binary);
  if (!in) {
    int err = errno;
    throw MachineDescriptionError(
        path, 0, 0, String("cannot read the file: ") + std::strerror(err ? err : ENOENT));
  }
  std::ostringstream buffer;
  buffer << in.rdbuf();
  if (in.bad())
    throw MachineDescriptionError(path, 0, 0, "cannot read the file");
  std::string text = buffer.str();
  // The scanner counts positions in the text as given; skip a byte order
  // mark the parser would skip too, so that columns of line 1 agree.
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0)
    text.erase(0, 3);
  return readText(text, path);
}

std::shared_ptr<MachineDescription const> readMachineDescriptionText(String const &xml,
                                                                     String const &name) {
  std::string text = xml.str();
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0)
    text.erase(0, 3);
  return readText(text, name);
}

} // namespace morvain
