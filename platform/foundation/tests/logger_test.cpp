#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "zel/AssertionFailure.h"
#include "zel/Exception.h"
#include "zel/Logger.h"

using zel::LogFactory;
using zel::String;

namespace {

class LoggerTest : public ::testing::Test {
protected:
  void SetUp() override {
    LogFactory::reset();
    capture = std::make_shared<zel::CaptureAppender>();
    LogFactory::addAppender(capture);
    char tmpl[] = "/tmp/ostrel-logger-XXXXXX";
    dir = ::mkdtemp(tmpl);
  }
  void TearDown() override {
    LogFactory::reset();
    std::string cmd = "rm -rf '" + dir + "'";
    if (std::system(cmd.c_str()) != 0)
      ADD_FAILURE() << "cleanup failed";
  }
  void write(std::string const &name, std::string const &text) {
    std::ofstream(dir + "/" + name) << text;
  }
  static std::string slurp(std::string const &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }

  std::shared_ptr<zel::CaptureAppender> capture;
  std::string dir;
};

} // namespace

TEST_F(LoggerTest, UnconfiguredLoggersWriteOnlyPriorityFourAndUp) {
  auto &log = LogFactory::getLogger("libOstrel.ClientLink");
  EXPECT_EQ(&log, &LogFactory::getLogger(String("libOstrel.ClientLink")));
  log.log(3, "dropped");
  log.log(4, "kept");
  log.logf(5, "Recent failure count for device with GUID %s is %u.", "g1", 2u);
  EXPECT_EQ(capture->texts(),
            (std::vector<String>{"kept", "Recent failure count for device with GUID g1 is 2."}));
  EXPECT_FALSE(LogFactory::isConfigured());
}

TEST_F(LoggerTest, ConfigurationSetsPerCategoryThresholdsByDottedPrefix) {
  write("OstrelLoggerConfig.xml", R"(<?xml version="1.0"?>
<OstrelLoggerConfig threshold="4">
  <appender type="file" path="test.log" threshold="1"/>
  <category name="libOstrel" threshold="2"/>
  <category name="libOstrel.Script" threshold="1"/>
  <category name="Verbose." threshold="5"/>
</OstrelLoggerConfig>)");
  EXPECT_TRUE(LogFactory::configure("OstrelLoggerConfig.xml", 5, String(dir)));
  EXPECT_EQ(LogFactory::getLogger("libOstrel.Script").threshold(), 1);
  EXPECT_EQ(LogFactory::getLogger("libOstrel.Device").threshold(), 2);
  EXPECT_EQ(LogFactory::getLogger("libOstrelX").threshold(), 4); // not a dotted child
  EXPECT_EQ(LogFactory::getLogger("Verbose.libOstrel.Script").threshold(), 5);
  EXPECT_EQ(LogFactory::getLogger("TestRun").threshold(), 4);

  LogFactory::getLogger("libOstrel.Device").log(2, "to the file");
  LogFactory::flush();
  std::string text = slurp(dir + "/logs/test.log");
  EXPECT_NE(text.find("libOstrel.Device: to the file"), std::string::npos) << text;
}

TEST_F(LoggerTest, MissingFileUsesDefaultsAndMalformedFileIsReportedOnce) {
  EXPECT_FALSE(LogFactory::configure("NoSuchLoggerConfig.xml", 5, String(dir)));
  EXPECT_TRUE(LogFactory::isConfigured());
  EXPECT_EQ(LogFactory::getLogger("OSTREL-Global").threshold(), 5);

  write("Bad.xml", "<OstrelLoggerConfig threshold=\"9\">\n</OstrelLoggerConfig>");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(LogFactory::configure("Bad.xml", 3, String(dir)));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("threshold must be a number from 1 to 5"), std::string::npos) << err;
  EXPECT_EQ(err.find('\n'), err.size() - 1) << "reported more than once: " << err;
  EXPECT_EQ(LogFactory::getLogger("OSTREL-Global").threshold(), 3);

  write("Broken.xml", "<OstrelLoggerConfig>\n  <category name=\"x\"\n</OstrelLoggerConfig>");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(LogFactory::configure("Broken.xml", 3, String(dir)));
  err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("line 3"), std::string::npos) << err;
}

TEST_F(LoggerTest, ConcurrentLoggingLosesNothing) {
  LogFactory::setThreshold("Stress", 1);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      auto &log = LogFactory::getLogger(String::format("Stress.%d", t));
      for (int i = 0; i < 500; ++i)
        log.logf(1, "%d:%d", t, i);
    });
  for (auto &t : threads)
    t.join();
  EXPECT_EQ(capture->records().size(), 2000u);
}

TEST_F(LoggerTest, LazyMacroDoesNotEvaluateDisabledText) {
  int evaluated = 0;
  auto text = [&] {
    ++evaluated;
    return String("x");
  };
  ZEL_LOG(LogFactory::getLogger("Lazy"), 1, text());
  ZEL_LOG(LogFactory::getLogger("Lazy"), 5, text());
  EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggerTest, AssertionReportsExpressionThenRaisesCodeSeven) {
  unsigned long before = zel::AssertionFailure::count();
  int index = 3, size = 2;
  try {
    ZEL_ASSERT(index < size);
    FAIL() << "no exception";
  } catch (zel::Exception const &) {
    FAIL() << "an assertion must not be a zel::Exception";
  } catch (zel::StructuredException const &e) {
    EXPECT_EQ(e.getCode(), 7u);
    EXPECT_EQ(e.getText(), "Assertion failed: index < size");
  }
  EXPECT_EQ(zel::AssertionFailure::count(), before + 1);
  auto records = capture->records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].category, "DEFECT.GENERIC");
  EXPECT_EQ(records[0].priority, 5);
  EXPECT_NE(records[0].text.find("index < size"), String::npos);
  EXPECT_NE(records[0].text.find("logger_test.cpp"), String::npos);
}

TEST(Exceptions, CarryTheirMessageAndClass) {
  zel::IllegalState e("Script not set");
  zel::Exception const &base = e;
  EXPECT_EQ(base.getMessage(), "Script not set");
  EXPECT_EQ(base.toString(), "zel::IllegalState: Script not set");
  zel::NoSuchFile copy = zel::NoSuchFile("/tmp/x.xml");
  EXPECT_STREQ(copy.what(), "/tmp/x.xml");
}

RC_GTEST_PROP(LoggerConfigProperties, AnyFileContentLeavesAWorkingLogger,
              (std::string const &text)) {
  char tmpl[] = "/tmp/ostrel-logcfg-XXXXXX";
  std::string dir = ::mkdtemp(tmpl);
  // Half the cases start like a real configuration, so the parser gets past
  // the root element and meets the damage inside.
  std::string content =
      *rc::gen::arbitrary<bool>() ? "<OstrelLoggerConfig threshold=\"2\">" + text : text;
  std::ofstream(dir + "/OstrelLoggerConfig.xml") << content;
  testing::internal::CaptureStderr();
  LogFactory::configure("OstrelLoggerConfig.xml", 3, String(dir));
  testing::internal::GetCapturedStderr();
  int t = LogFactory::getLogger("Fuzz.Category").threshold();
  RC_ASSERT(t >= 1);
  RC_ASSERT(t <= 5);
  LogFactory::reset();
  std::string cmd = "rm -rf '" + dir + "'";
  RC_ASSERT(std::system(cmd.c_str()) == 0);
}
