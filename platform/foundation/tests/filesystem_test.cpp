#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "zel/FileSystem.h"
#include "zel/ZELLocale.h"

using zel::FileSystem;
using zel::String;

namespace {

struct TempDir {
  String path = FileSystem::makeTempDirectory("fs_test_");
  ~TempDir() { FileSystem::removeDirectory(path, true); }
  String operator/(char const *name) const { return FileSystem::joinPath(path, name); }
};

void touch(String const &path, String const &content = "x") {
  ASSERT_TRUE(FileSystem::saveFile(path, content)) << path;
}

} // namespace

TEST(FileSystemPaths, SplittingTable) {
  struct Row {
    char const *path, *dir, *name, *base;
  } rows[] = {
      {"/a/b/c.xml", "/a/b", "c.xml", "c"},
      {"/a/b/", "/a", "b", "b"},
      {"c.tar.gz", "", "c.tar.gz", "c.tar"},
      {"/c", "/", "c", "c"},
      {".profile", "", ".profile", ".profile"},
      {"/", "/", "", ""},
      {"", "", "", ""},
      {"a//b.txt", "a", "b.txt", "b"},
      {"dir.d/file", "dir.d", "file", "file"},
      {"///", "/", "", ""},
  };
  for (Row const &r : rows) {
    EXPECT_EQ(FileSystem::extractDirectory(r.path), r.dir) << r.path;
    EXPECT_EQ(FileSystem::extractFileName(r.path), r.name) << r.path;
    EXPECT_EQ(FileSystem::extractBaseFileName(r.path), r.base) << r.path;
  }
}

TEST(FileSystemPaths, JoinAndSlashes) {
  EXPECT_EQ(FileSystem::joinPath("/a/", "b"), "/a/b");
  EXPECT_EQ(FileSystem::joinPath("/a//", "b"), "/a/b");
  EXPECT_EQ(FileSystem::joinPath("/", "b"), "/b");
  EXPECT_EQ(FileSystem::joinPath("", "b"), "b");
  EXPECT_EQ(FileSystem::joinPath("a", ""), "a");
  EXPECT_EQ(FileSystem::joinPath("a", "/abs"), "/abs");
  EXPECT_EQ(FileSystem::translateSlashes("C:\\logs\\x.log"), "C:/logs/x.log");
}

RC_GTEST_PROP(FileSystemPaths, DirectoryAndNameRebuildThePath, ()) {
  // For a normalised path (no empty or trailing component) the directory and
  // the file name join back to the path.
  auto comps = *rc::gen::nonEmpty(rc::gen::container<std::vector<std::string>>(rc::gen::nonEmpty(
      rc::gen::container<std::string>(rc::gen::elementOf(std::string("abc.-_ xyz\xc3\xa9"))))));
  bool absolute = *rc::gen::arbitrary<bool>();
  std::string p = absolute ? "/" : "";
  for (std::size_t i = 0; i < comps.size(); ++i)
    p += (i ? "/" : "") + comps[i];
  String path(p);
  RC_ASSERT(FileSystem::joinPath(FileSystem::extractDirectory(path),
                                 FileSystem::extractFileName(path)) == path);
}

TEST(FileSystemFiles, OddPathsAreRefusedQuietly) {
  EXPECT_FALSE(FileSystem::exists(""));
  EXPECT_FALSE(FileSystem::makeDirectory("", true));
  EXPECT_TRUE(FileSystem::makeDirectory(".", false)); // exists already: success
  EXPECT_TRUE(FileSystem::isDirectory("."));
  EXPECT_FALSE(FileSystem::isFile("."));
  EXPECT_FALSE(FileSystem::removeFile(""));
  EXPECT_FALSE(FileSystem::removeDirectory("", true));
  String out = "keep";
  EXPECT_FALSE(FileSystem::loadFile("", out));
  EXPECT_FALSE(FileSystem::loadFile(".", out)); // a directory is not a file
  EXPECT_EQ(out, "keep");
  EXPECT_EQ(FileSystem::fileSize("/nonexistent/x"), -1);
  EXPECT_TRUE(FileSystem::listDirectory("/nonexistent/x").isEmpty());
}

TEST(FileSystemFiles, MakeAndRemoveDirectories) {
  TempDir t;
  ASSERT_FALSE(t.path.isEmpty());
  String deep = t / "a/b/c/d/";
  EXPECT_FALSE(FileSystem::makeDirectory(t / "x/y", false)); // parent missing
  EXPECT_TRUE(FileSystem::makeDirectory(deep, true));
  EXPECT_TRUE(FileSystem::isDirectory(t / "a/b/c/d"));
  EXPECT_TRUE(FileSystem::makeDirectory(deep, true)); // again: still success
  EXPECT_TRUE(FileSystem::makeDirectory(t / "a//b//e", true));
  EXPECT_TRUE(FileSystem::isDirectory(t / "a/b/e"));

  touch(t / "a/file");
  EXPECT_FALSE(FileSystem::makeDirectory(t / "a/file", true)); // a file stands there
  EXPECT_FALSE(FileSystem::makeDirectory(t / "a/file/sub", true));

  zel::Array<String> names = FileSystem::listDirectory(t / "a");
  ASSERT_EQ(names.size(), 2u); // sorted, without "." and ".."
  EXPECT_EQ(names[0], "b");
  EXPECT_EQ(names[1], "file");

  EXPECT_FALSE(FileSystem::removeDirectory(t / "a", false)); // not empty
  EXPECT_FALSE(FileSystem::removeFile(t / "a"));             // not a file
  // A link to outside must be removed, not followed.
  TempDir outside;
  touch(outside / "precious");
  ASSERT_EQ(::symlink(outside.path.c_str(), (t / "a/b/link").c_str()), 0);
  EXPECT_TRUE(FileSystem::removeDirectory(t / "a/", true));
  EXPECT_FALSE(FileSystem::exists(t / "a"));
  EXPECT_TRUE(FileSystem::isFile(outside / "precious"));
}

TEST(FileSystemFiles, LoadAndSaveAreBinarySafe) {
  TempDir t;
  std::string bytes;
  for (int i = 0; i < 256; ++i)
    bytes += static_cast<char>(i);
  bytes += std::string(200000, '\0'); // bigger than one read buffer
  String content(bytes);
  ASSERT_TRUE(FileSystem::saveFile(t / "bin", content));
  EXPECT_EQ(FileSystem::fileSize(t / "bin"), static_cast<std::int64_t>(bytes.size()));
  String back;
  ASSERT_TRUE(FileSystem::loadFile(t / "bin", back));
  EXPECT_EQ(back.str(), bytes);

  ASSERT_TRUE(FileSystem::saveFile(t / "empty", ""));
  ASSERT_TRUE(FileSystem::loadFile(t / "empty", back));
  EXPECT_TRUE(back.isEmpty());
  EXPECT_FALSE(FileSystem::saveFile(t / "missing-dir/f", "x"));
  EXPECT_FALSE(FileSystem::saveFile(t.path, "x")); // a directory stands there
}

TEST(FileSystemFiles, SaveReplacesAtomicallyAndKeepsMode) {
  TempDir t;
  String f = t / "settings";
  touch(f, "old");
  ASSERT_EQ(::chmod(f.c_str(), 0640), 0);

  // Readers racing with writers must only ever see one whole version.
  String a(std::string(100000, 'a')), b(std::string(50000, 'b'));
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0};
  std::thread reader([&] {
    while (!stop) {
      String seen;
      if (FileSystem::loadFile(f, seen) && seen != "old" && seen != a && seen != b)
        ++torn;
    }
  });
  for (int i = 0; i < 200; ++i)
    ASSERT_TRUE(FileSystem::saveFile(f, i % 2 ? a : b));
  stop = true;
  reader.join();
  EXPECT_EQ(torn.load(), 0);

  struct stat st;
  ASSERT_EQ(::stat(f.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  // No temporary files are left behind.
  EXPECT_EQ(FileSystem::listDirectory(t.path).size(), 1u);

  // Saving through a link replaces the target and keeps the link.
  ASSERT_EQ(::symlink(f.c_str(), (t / "link").c_str()), 0);
  ASSERT_TRUE(FileSystem::saveFile(t / "link", "via link"));
  String back;
  ASSERT_TRUE(FileSystem::loadFile(f, back));
  EXPECT_TRUE(back == "via link");
  struct stat lst;
  ASSERT_EQ(::lstat((t / "link").c_str(), &lst), 0);
  EXPECT_TRUE(S_ISLNK(lst.st_mode));
}

TEST(FileSystemFiles, TempDirectories) {
  String d1 = FileSystem::makeTempDirectory("pre/fix");
  String d2 = FileSystem::makeTempDirectory("pre/fix");
  ASSERT_FALSE(d1.isEmpty());
  EXPECT_NE(d1, d2);
  EXPECT_TRUE(FileSystem::extractFileName(d1).startsWith("pre_fix"));
  EXPECT_EQ(FileSystem::extractDirectory(d1), FileSystem::getTempDirectory());
  struct stat st;
  ASSERT_EQ(::stat(d1.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  EXPECT_TRUE(FileSystem::removeDirectory(d1, false));
  EXPECT_TRUE(FileSystem::removeDirectory(d2, false));
}

TEST(FileSystemLocale, LookupOrderAndFallback) {
  TempDir t;
  zel::ZELLocale deCH(zel::Language("de"), "", "CH");
  zel::ZELLocale deDE(zel::Language("de"), "", "DE");
  zel::ZELLocale fr(zel::Language("fr"), "", "");
  zel::ZELLocale none(zel::Language(), "", "CH");

  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", deCH), "");
  touch(t / "cat.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", deCH), t / "cat.xml");
  touch(t / "cat_de.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", deCH), t / "cat_de.xml");
  touch(t / "cat_de_CH.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", "xml", deCH),
            t / "cat_de_CH.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", deDE), t / "cat_de.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", fr), t / "cat.xml");
  // No language: the variant alone never selects a file.
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "cat", ".xml", none), t / "cat.xml");
  // A directory with a candidate's name is not a file.
  ASSERT_TRUE(FileSystem::makeDirectory(t / "dir_fr.xml", false));
  touch(t / "dir.xml");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "dir", ".xml", fr), t / "dir.xml");
  // No extension at all.
  touch(t / "plain_de");
  EXPECT_EQ(FileSystem::getExistingLocaleBasedFile(t.path, "plain", "", deCH), t / "plain_de");
}
