#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "zel/FileSystem.h"
#include "zel/GlobalParameters.h"
#include "zel/Logger.h"
#include "zel/Paths.h"
#include "zel/Resource.h"

using zel::FileSystem;
using zel::GlobalParameters;
using zel::Resource;
using zel::String;
using zel::ZELLocale;

namespace {

int countOf(std::string const &haystack, std::string const &needle) {
  int n = 0;
  for (std::size_t at = haystack.find(needle); at != std::string::npos;
       at = haystack.find(needle, at + 1))
    ++n;
  return n;
}

class ResourceTest : public ::testing::Test {
protected:
  void SetUp() override {
    Resource::reset();
    base = FileSystem::makeTempDirectory("resource_test_");
    ASSERT_FALSE(base.isEmpty());
    Resource::setBaseDirectory(base);
    capture = std::make_shared<zel::CaptureAppender>();
    zel::LogFactory::addAppender(capture);
  }
  void TearDown() override {
    zel::LogFactory::removeAppender(capture);
    for (char const *v : {"OSTREL_Engine_Machine", "OSTREL_Ostrel_EngineStartTimeout",
                          "OSTREL_BASE_DIR", "OSTREL_Ostrel_EnumerationTimeout"})
      ::unsetenv(v);
    Resource::reset();
    FileSystem::removeDirectory(base, true);
  }

  void writeSettings(String const &dir, String const &body) {
    ASSERT_TRUE(FileSystem::saveFile(FileSystem::joinPath(dir, "ostrel-settings.xml"),
                                     "<properties>" + body + "</properties>"));
  }
  static String setting(char const *key) {
    String out = "<none>";
    Resource::getString("", key, out, ZELLocale());
    return out;
  }
  int globalReports() const {
    int n = 0;
    for (auto const &r : capture->records())
      if (r.category == "OSTREL-Global" && r.priority == 4)
        ++n;
    return n;
  }

  String base;
  std::shared_ptr<zel::CaptureAppender> capture;
};

} // namespace

TEST_F(ResourceTest, SetStringBeatsEnvironmentBeatsFile) {
  writeSettings(base, "<property key='Engine.Machine' value='file.xml'/>"
                      "<property key='Ostrel.EngineStartTimeout' value='30000'/>");
  EXPECT_EQ(setting("Engine.Machine"), "file.xml");

  ::setenv("OSTREL_Engine_Machine", "env.xml", 1);
  EXPECT_EQ(setting("Engine.Machine"), "env.xml");
  EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "30000"); // other keys still from the file

  Resource::setString("Engine.Machine", "cli.xml");
  EXPECT_EQ(setting("Engine.Machine"), "cli.xml");
  EXPECT_TRUE(Resource::clearString("Engine.Machine"));
  EXPECT_FALSE(Resource::clearString("Engine.Machine"));
  EXPECT_EQ(setting("Engine.Machine"), "env.xml");

  // Set but empty is a value: "this computer", overriding the file.
  ::setenv("OSTREL_Engine_Machine", "", 1);
  EXPECT_EQ(setting("Engine.Machine"), "");
  ::unsetenv("OSTREL_Engine_Machine");
  EXPECT_EQ(setting("Engine.Machine"), "file.xml");

  // The environment alone is enough, without any file.
  ::setenv("OSTREL_Ostrel_EnumerationTimeout", "5000", 1);
  EXPECT_TRUE(FileSystem::removeFile(Resource::getSettingsFile()));
  unsigned int value = 0;
  EXPECT_TRUE(GlobalParameters::ostrelEnumerationTimeoutSeconds(value, ZELLocale()));
  EXPECT_EQ(value, 5000u);
}

TEST_F(ResourceTest, MissingKeysAndUnknownResources) {
  String out = "untouched";
  EXPECT_FALSE(Resource::getString("", "No.Such.Key", out, ZELLocale()));
  EXPECT_FALSE(Resource::getString(nullptr, "No.Such.Key", out, ZELLocale()));
  EXPECT_FALSE(Resource::getString("", "", out, ZELLocale()));
  EXPECT_EQ(out, "untouched");

  writeSettings(base, "<property key='Language' value='de'/>");
  EXPECT_TRUE(Resource::getDefaultValue(Resource::OVERRIDES_RESOURCE, "Language", out, nullptr));
  EXPECT_EQ(out, "de");
  EXPECT_FALSE(Resource::getDefaultValue(99, "Language", out, nullptr));
}

TEST_F(ResourceTest, MalformedSettingsReportedOncePerVersion) {
  writeSettings(base, "<property key='Ostrel.EngineStartTimeout' value='30000'/>");
  EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "30000");

  String file = Resource::getSettingsFile();
  ASSERT_TRUE(FileSystem::saveFile(file, "<properties><property key='x' value='1'>"));
  testing::internal::CaptureStderr();
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "<none>"); // defaults apply
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(countOf(err, file.str() + ":1:"), 1) << err;
  EXPECT_EQ(globalReports(), 1);

  // Repaired, then broken in another way: the new version is reported again.
  writeSettings(base, "<property key='Ostrel.EngineStartTimeout' value='25000'/>");
  EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "25000");
  ASSERT_TRUE(FileSystem::saveFile(file, "\x01\xff garbage"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "<none>");
  EXPECT_EQ(setting("Ostrel.EngineStartTimeout"), "<none>");
  err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(countOf(err, file.str()), 1) << err;
  EXPECT_EQ(globalReports(), 2);
}

TEST_F(ResourceTest, ChangedFileIsPickedUp) {
  writeSettings(base, "<property key='k' value='one'/>");
  EXPECT_EQ(setting("k"), "one");
  writeSettings(base, "<property key='k' value='two'/>"); // replaced by rename
  EXPECT_EQ(setting("k"), "two");
  {
    // Rewritten in place (same inode), by an editor that truncates.
    std::ofstream f(Resource::getSettingsFile().c_str(), std::ios::trunc);
    f << "<properties><property key='k' value='three!'/></properties>";
  }
  EXPECT_EQ(setting("k"), "three!");
  EXPECT_TRUE(FileSystem::removeFile(Resource::getSettingsFile()));
  EXPECT_EQ(setting("k"), "<none>");
}

TEST_F(ResourceTest, BaseDirectorySwitch) {
  String other = FileSystem::makeTempDirectory("resource_test_other_");
  writeSettings(base, "<property key='k' value='base'/>");
  writeSettings(other, "<property key='k' value='other'/>");
  EXPECT_EQ(setting("k"), "base");
  Resource::setBaseDirectory(other);
  EXPECT_EQ(Resource::getBaseDirectory(), other);
  EXPECT_EQ(setting("k"), "other");
  Resource::setBaseDirectory(base);
  EXPECT_EQ(setting("k"), "base");

  // Without an explicit one: $OSTREL_BASE_DIR, else the working directory.
  Resource::clearBaseDirectory();
  ::setenv("OSTREL_BASE_DIR", other.c_str(), 1);
  EXPECT_EQ(Resource::getBaseDirectory(), other);
  EXPECT_EQ(setting("k"), "other");
  ::unsetenv("OSTREL_BASE_DIR");
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(Resource::getBaseDirectory(), cwd);
  FileSystem::removeDirectory(other, true);
}

TEST_F(ResourceTest, LocalisedStringsFallBackKeyByKey) {
  EXPECT_EQ(Resource::getDefaultDatabaseDirectory(), zel::Paths::dataDirectory() + "/lang");
  String db = FileSystem::joinPath(base, "lang");
  ASSERT_TRUE(FileSystem::makeDirectory(db, false));
  Resource::changeDefaultDatabaseDirectory(db);
  EXPECT_EQ(Resource::getDefaultDatabaseDirectory(), db);

  auto write = [&](char const *name, char const *body) {
    ASSERT_TRUE(FileSystem::saveFile(FileSystem::joinPath(db, name),
                                     String("<properties>") + body + "</properties>"));
  };
  write("texts_en.xml", "<property key='a' value='A-en'/><property key='b' value='B-en'/>"
                        "<property key='c' value='C-en'/>");
  write("texts_de.xml", "<property key='a' value='A-de'/><property key='b' value='B-de'/>");
  write("texts_de_CH.xml", "<property key='b' value='B-ch'/>");
  write("texts_fr.xml", "<property key='a' value='A-fr'"); // malformed: skipped

  ZELLocale deCH(zel::Language("de"), "", "CH");
  ZELLocale fr(zel::Language("fr"), "", "");
  auto get = [](char const *file, char const *key, ZELLocale const &l) {
    String out = "<none>";
    Resource::getString(file, key, out, l);
    return out;
  };
  EXPECT_EQ(get("texts", "a", deCH), "A-de");
  EXPECT_EQ(get("texts", "b", deCH), "B-ch");
  EXPECT_EQ(get("texts", "c", deCH), "C-en");
  EXPECT_EQ(get("texts", "d", deCH), "<none>");
  testing::internal::CaptureStderr();
  EXPECT_EQ(get("texts", "a", fr), "A-en");
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(get("nofile", "a", deCH), "<none>");

  // A scoped resource reads its own directory and uses its name for "".
  String db2 = FileSystem::joinPath(base, "lang2");
  ASSERT_TRUE(FileSystem::makeDirectory(db2, false));
  ASSERT_TRUE(FileSystem::saveFile(FileSystem::joinPath(db2, "texts_en.xml"),
                                   "<properties><property key='a' value='A-2'/></properties>"));
  zel::ScopedResource scoped(db2, "texts");
  String out;
  EXPECT_TRUE(scoped.getString("texts", "a", out, deCH));
  EXPECT_EQ(out, "A-2");
  EXPECT_TRUE(scoped.getString("", "a", out, deCH));
  EXPECT_EQ(out, "A-2");
  EXPECT_FALSE(scoped.getString("texts", "c", out, deCH)); // not the default directory's
  // Without a name, "" reads the settings, as Resource does.
  Resource::setString("Engine.Machine", "m.xml");
  EXPECT_TRUE(zel::ScopedResource(db2, "").getString("", "Engine.Machine", out, deCH));
  EXPECT_EQ(out, "m.xml");
}

TEST_F(ResourceTest, GlobalParametersTypedValues) {
  ZELLocale l;
  unsigned int v = 7;
  EXPECT_FALSE(GlobalParameters::ostrelEnumerationTimeoutSeconds(v, l));
  EXPECT_EQ(v, 7u);
  EXPECT_EQ(GlobalParameters::promptUserText(l), "enabled");
  EXPECT_EQ(GlobalParameters::engineVersionText(l), "5.0.0");
  String machine = "x";

  writeSettings(base, "<property key='Ostrel.EnumerationTimeout' value=' 90000 '/>"
                      "<property key='Ostrel.RealtimeIdleInterval' value='0'/>"
                      "<property key='Ostrel.UseUiUserLangOnlyForOptimalLang' value='Yes'/>"
                      "<property key='Ostrel.PromptUser' value=' disabled '/>"
                      "<property key='Engine.Version' value='5.1.2'/>"
                      "<property key='Engine.Machine' value=''/>");
  EXPECT_TRUE(GlobalParameters::ostrelEnumerationTimeoutSeconds(v, l));
  EXPECT_EQ(v, 90000u);
  EXPECT_TRUE(GlobalParameters::realtimeIdleInterval(v, l));
  EXPECT_EQ(v, 0u);
  EXPECT_TRUE(GlobalParameters::ostrelUseUiUserLangOnlyForOptimalLang(l));
  EXPECT_EQ(GlobalParameters::promptUserText(l), "disabled");
  EXPECT_EQ(GlobalParameters::engineVersionText(l), "5.1.2");
  EXPECT_TRUE(GlobalParameters::engineMachine(machine, l));
  EXPECT_EQ(machine, "");
}

TEST_F(ResourceTest, GlobalParametersMalformedValues) {
  ZELLocale l;
  for (char const *bad : {"abc", "12abc", "-1", "4294967296", "", "1e3"}) {
    Resource::setString("Ostrel.RealtimeIdleInterval", bad);
    unsigned int v = 7;
    EXPECT_FALSE(GlobalParameters::realtimeIdleInterval(v, l)) << bad;
    EXPECT_EQ(v, 7u) << bad;
  }
  Resource::setString("Ostrel.RealtimeIdleInterval", "4294967295");
  unsigned int v = 0;
  EXPECT_TRUE(GlobalParameters::realtimeIdleInterval(v, l));
  EXPECT_EQ(v, 4294967295u);

  // One log line per malformed value, however often it is read.
  capture->clear();
  Resource::setString("Ostrel.UseUiUserLangOnlyForOptimalLang", "maybe");
  for (int i = 0; i < 3; ++i)
    EXPECT_FALSE(GlobalParameters::ostrelUseUiUserLangOnlyForOptimalLang(l));
  EXPECT_EQ(globalReports(), 1);
  Resource::setString("Ostrel.EnumerationTimeout", "soon");
  for (int i = 0; i < 3; ++i)
    EXPECT_FALSE(GlobalParameters::ostrelEnumerationTimeoutSeconds(v, l));
  EXPECT_EQ(globalReports(), 2);
  EXPECT_TRUE(capture->containsFragment("Ostrel.EnumerationTimeout"));
}

TEST_F(ResourceTest, ConcurrentReadersWhileSettingsChange) {
  // Readers must always get one of the written values; run under TSan too.
  writeSettings(base, "<property key='k' value='v0'/>");
  std::atomic<bool> stop{false};
  std::atomic<int> bad{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t)
    readers.emplace_back([&] {
      while (!stop) {
        String out;
        if (!Resource::getString("", "k", out, ZELLocale()) || !out.startsWith("v"))
          ++bad;
      }
    });
  for (int i = 1; i < 40; ++i) {
    writeSettings(base, "<property key='k' value='v" + String::fromInt(i) + "'/>");
    if (i % 10 == 0)
      Resource::setString("k", "v-set");
    if (i % 10 == 5)
      Resource::clearString("k");
  }
  stop = true;
  for (auto &r : readers)
    r.join();
  EXPECT_EQ(bad.load(), 0);
}
