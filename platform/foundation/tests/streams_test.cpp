// Streams: what file modes 1 and 3 do to existing files, failure without
// throwing, whole-line writes from concurrent appenders, number formatting,
// and line reading across buffer boundaries.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "zel/Streams.h"

using zel::FileMode;
using zel::IFStream;
using zel::OFStream;
using zel::String;

namespace {

struct TempDir {
  std::string path;
  TempDir() {
    char templ[] = "/tmp/pellor-streams-XXXXXX";
    path = mkdtemp(templ);
  }
  ~TempDir() { (void)!system(("rm -rf '" + path + "'").c_str()); }
  std::string file(char const *name) const { return path + "/" + name; }
};

std::string readFile(std::string const &path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeFile(std::string const &path, std::string const &text) { std::ofstream(path) << text; }

} // namespace

TEST(OFStream, StartAndAddModes) {
  TempDir dir;
  std::string path = dir.file("check.log");
  writeFile(path, "old content that must go\n");

  OFStream out;
  ASSERT_TRUE(out.openFile(String(path), FileMode(1)));
  EXPECT_TRUE(out.isOpen());
  out << "first\n";
  EXPECT_TRUE(out.close());
  EXPECT_FALSE(out.isOpen());
  EXPECT_EQ(readFile(path), "first\n");

  ASSERT_TRUE(out.openFile(String(path), FileMode::APPEND()));
  out << "second\n";
  // Reopening closes (and flushes) the previous file first.
  ASSERT_TRUE(out.openFile(String(path), FileMode(3)));
  out << "third\n";
  out.close();
  EXPECT_EQ(readFile(path), "first\nsecond\nthird\n");

  // Mode 3 creates a missing file; mode 1 empties an existing one.
  std::string fresh = dir.file("fresh.log");
  ASSERT_TRUE(out.openFile(String(fresh), FileMode::APPEND()));
  out << "x\n";
  out.close();
  EXPECT_EQ(readFile(fresh), "x\n");
  ASSERT_TRUE(out.openFile(String(fresh), FileMode::WRITE()));
  out.close();
  EXPECT_EQ(readFile(fresh), "");
}

TEST(OFStream, FailuresAreResultsNotExceptions) {
  TempDir dir;
  OFStream out;
  EXPECT_FALSE(out.openFile(String(dir.path + "/missing/dir/file.log"), FileMode::WRITE()));
  EXPECT_FALSE(out.isOpen());
  EXPECT_FALSE(out.openFile(String(dir.file("f")), FileMode::READ()));
  EXPECT_FALSE(out.openFile(String(dir.file("f")), FileMode(0)));
  EXPECT_FALSE(out.openFile(String(), FileMode::WRITE()));
  EXPECT_FALSE(out.write("lost", 4));
  EXPECT_TRUE(out.close()) << "closing nothing is harmless";
}

TEST(OFStream, WholeLinesReachTheFileTailWaitsForFlush) {
  TempDir dir;
  std::string path = dir.file("lines.log");
  {
    std::unique_ptr<zel::OStream> stream;
    auto *file = new OFStream;
    stream.reset(file);
    ASSERT_TRUE(file->openFile(String(path), FileMode::WRITE()));
    *stream << "a line" << ' ' << 1 << "\npartial";
    EXPECT_EQ(readFile(path), "a line 1\n");
    *stream << " done\ntail";
    EXPECT_EQ(readFile(path), "a line 1\npartial done\n");
    EXPECT_TRUE(stream->flush());
    EXPECT_EQ(readFile(path), "a line 1\npartial done\ntail");
    *stream << "+more";
  } // deleted through the base: closes and writes the rest
  EXPECT_EQ(readFile(path), "a line 1\npartial done\ntail+more");
}

TEST(OFStream, ConcurrentAppendersNeverMixLines) {
  TempDir dir;
  std::string path = dir.file("shared.log");
  constexpr int kLines = 400;
  auto appender = [&](char const *who) {
    OFStream out;
    ASSERT_TRUE(out.openFile(String(path), FileMode::APPEND()));
    for (int i = 0; i < kLines; ++i)
      out << who << " - line " << i << " - " << String(std::string(60, who[0])) << "\n";
  };
  std::thread a(appender, "alpha"), b(appender, "beta");
  a.join();
  b.join();

  std::istringstream lines(readFile(path));
  std::string line;
  int alpha = 0, beta = 0;
  while (std::getline(lines, line)) {
    bool isAlpha =
        line.rfind("alpha - line ", 0) == 0 && line.find(std::string(60, 'a')) != std::string::npos;
    bool isBeta =
        line.rfind("beta - line ", 0) == 0 && line.find(std::string(60, 'b')) != std::string::npos;
    ASSERT_TRUE(isAlpha || isBeta) << "mixed line: " << line;
    (isAlpha ? alpha : beta)++;
  }
  EXPECT_EQ(alpha, kLines);
  EXPECT_EQ(beta, kLines);
}

TEST(StringOStream, FormatsTextAndNumbers) {
  zel::StringOStream out;
  char const *nothing = nullptr;
  out << "a" << String("b") << nothing << 42 << ' ' << -7 << ' ' << 3000000000u << ' '
      << -9000000000000000000LL << ' ' << 18446744073709551615ULL << ' ' << 0.5 << ' ' << 0.1;
  EXPECT_EQ(out.str(), "ab42 -7 3000000000 -9000000000000000000 18446744073709551615 0.5 0.1");
  out.clear();
  EXPECT_TRUE(out.write(String("x")));
  EXPECT_EQ(out.str(), "x");
}

TEST(IFStream, ReadsLinesAndRest) {
  TempDir dir;
  std::string path = dir.file("in.txt");
  std::string longLine(40000, 'x'); // crosses the reader's block size
  writeFile(path, "a\r\nb\n\n" + longLine + "\nlast-without-newline");

  IFStream in;
  EXPECT_FALSE(in.openFile(String(dir.file("missing"))));
  ASSERT_TRUE(in.openFile(String(path)));
  String line;
  std::vector<std::string> got;
  while (in.readLine(line))
    got.push_back(line.str());
  ASSERT_EQ(got.size(), 5u);
  EXPECT_EQ(got[0], "a");
  EXPECT_EQ(got[1], "b");
  EXPECT_EQ(got[2], "");
  EXPECT_EQ(got[3], longLine);
  EXPECT_EQ(got[4], "last-without-newline");
  EXPECT_FALSE(in.readLine(line));
  EXPECT_EQ(line, "");

  ASSERT_TRUE(in.openFile(String(path)));
  ASSERT_TRUE(in.readLine(line));
  String rest;
  ASSERT_TRUE(in.readAll(rest));
  EXPECT_EQ(rest, String("b\n\n" + longLine + "\nlast-without-newline"));
  in.close();
  EXPECT_FALSE(in.readAll(rest));
}
