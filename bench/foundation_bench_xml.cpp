// Parsing speed of zel::XmlDocument against raw pugixml, measured in the same
// run on the same generated ~10 MB script-like document. XmlDocument creates
// node objects only when navigation asks for them, so parsing should cost
// what pugixml's parse costs; BM_XmlParseRatio reports the ratio directly
// (target: at least 0.9).

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <chrono>
#include <string>

#include "zel/Xml.h"

namespace {

// The options XmlDocument::Parse uses: comments, declarations and the rest
// are kept, the text is taken as UTF-8.
constexpr unsigned int PUGI_OPTIONS = pugi::parse_full;

std::string const &scriptDocument() {
  static std::string const text = [] {
    std::string s;
    s.reserve(11u << 20);
    s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!-- generated diagnostic script -->\n"
         "<script name=\"bench\" passes=\"3\" description=\"caf\xC3\xA9 &amp; co\">\n";
    int set = 0;
    while (s.size() < (10u << 20)) {
      s += "  <testset description=\"set " + std::to_string(set) + "\" isParallel=\"false\">\n";
      s += "    <!-- devices of set " + std::to_string(set) + " -->\n";
      for (int d = 0; d < 8; ++d) {
        s += "    <device capabilities=\"MEMORY,STORAGE\" osLocator=\"/dev/sd" +
             std::string(1, static_cast<char>('a' + d)) + "\" deviceIndex=\"" + std::to_string(d) +
             "\" required=\"true\">\n";
        for (int t = 0; t < 6; ++t) {
          s += "      <test key=\"test." + std::to_string(t) +
               "\" module=\"{6F1C2A8E-0000-4C3B-9F1A-0000000000" + std::to_string(10 + t) +
               "}\" isInteractive=\"false\" maxtime=\"600\">\n";
          s += "        <!-- parameters -->\n";
          for (int p = 0; p < 4; ++p)
            s += "        <parameter key=\"param" + std::to_string(p) + "\" value=\"" +
                 std::to_string(p * 1000 + t) + "\"/>\n";
          s += "      </test>\n";
        }
        s += "    </device>\n";
      }
      s += "  </testset>\n";
      ++set;
    }
    s += "</script>\n";
    return s;
  }();
  return text;
}

void BM_PugixmlParse(benchmark::State &state) {
  std::string const &text = scriptDocument();
  for (auto _ : state) {
    pugi::xml_document doc;
    pugi::xml_parse_result result =
        doc.load_buffer(text.data(), text.size(), PUGI_OPTIONS, pugi::encoding_utf8);
    benchmark::DoNotOptimize(result.status);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_PugixmlParse)->Unit(benchmark::kMillisecond);

void BM_XmlDocumentParse(benchmark::State &state) {
  zel::String const text(scriptDocument());
  for (auto _ : state) {
    zel::XmlDocument doc;
    bool ok = doc.Parse(text);
    benchmark::DoNotOptimize(ok);
    if (!ok)
      state.SkipWithError(doc.ErrorDesc().c_str());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_XmlDocumentParse)->Unit(benchmark::kMillisecond);

// Both parses alternately in one loop, so that machine noise hits both alike;
// "ratio" is XmlDocument's speed as a fraction of pugixml's.
void BM_XmlParseRatio(benchmark::State &state) {
  std::string const &raw = scriptDocument();
  zel::String const text(raw);
  using Clock = std::chrono::steady_clock;
  Clock::duration pugiTime{}, zelTime{};
  for (auto _ : state) {
    Clock::time_point start = Clock::now();
    {
      pugi::xml_document doc;
      benchmark::DoNotOptimize(
          doc.load_buffer(raw.data(), raw.size(), PUGI_OPTIONS, pugi::encoding_utf8).status);
    }
    Clock::time_point middle = Clock::now();
    {
      zel::XmlDocument doc;
      benchmark::DoNotOptimize(doc.Parse(text));
    }
    Clock::time_point end = Clock::now();
    pugiTime += middle - start;
    zelTime += end - middle;
  }
  state.counters["ratio"] =
      zelTime.count() > 0 ? static_cast<double>(pugiTime.count()) / zelTime.count() : 0.0;
  state.SetBytesProcessed(2 * static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(raw.size()));
}
BENCHMARK(BM_XmlParseRatio)->Unit(benchmark::kMillisecond);

} // namespace
