#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "Encoding.h"

using zel::String;
namespace enc = zel::encoding;

namespace {

struct Nested {
  boost::shared_ptr<Nested> child;
  String name;
};

template <class A> void save(A &ar, Nested const &n) {
  ar(n.name);
  enc::saveShared(ar, n.child);
}
template <class A> void load(A &ar, Nested &n) {
  ar(n.name);
  enc::loadShared(ar, n.child);
}

} // namespace

TEST(Encoding, FoundationValuesRoundTrip) {
  zel::Array<String> a{"x", "", String("nul\0byte", 8), "caf\xC3\xA9"};
  zel::Array<String> back;
  enc::decode(enc::encode(a), back);
  EXPECT_EQ(back, a);

  zel::Buffer<unsigned char> bytes =
      zel::Buffer<unsigned char>::fromString(String("\x01\xff\x00", 3));
  zel::Buffer<unsigned char> bytesBack;
  enc::decode(enc::encode(bytes), bytesBack);
  EXPECT_EQ(bytesBack, bytes);
}

TEST(Encoding, EveryTruncationAndTrailingGarbageIsRejected) {
  zel::Array<String> a{"alpha", "beta"};
  String bytes = enc::encode(a);
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    zel::Array<String> out;
    EXPECT_THROW(enc::decode(bytes.data(), cut, out), zel::BadInput) << "cut at " << cut;
  }
  String longer = bytes + "!";
  zel::Array<String> out;
  EXPECT_THROW(enc::decode(longer, out), zel::BadInput);
}

TEST(Encoding, HugeCountsFailBeforeAllocating) {
  // Endianness byte, then a size tag claiming 2^62 strings.
  std::string evil("\x01", 1);
  std::uint64_t n = 1ull << 62;
  evil.append(reinterpret_cast<char const *>(&n), sizeof n);
  zel::Array<String> out;
  EXPECT_THROW(enc::decode(evil.data(), evil.size(), out), zel::BadInput);
  String s;
  EXPECT_THROW(enc::decode(evil.data(), evil.size(), s), zel::BadInput);
}

TEST(Encoding, NestingIsBounded) {
  Nested root;
  Nested *at = &root;
  for (int i = 0; i < 200; ++i) {
    at->child.reset(new Nested);
    at = at->child.get();
  }
  String bytes = enc::encode(root);
  Nested back;
  EXPECT_THROW(enc::decode(bytes, back), zel::BadInput);

  Nested shallow;
  shallow.child.reset(new Nested);
  shallow.child->name = "leaf";
  Nested shallowBack;
  enc::decode(enc::encode(shallow), shallowBack);
  ASSERT_TRUE(shallowBack.child);
  EXPECT_EQ(shallowBack.child->name, "leaf");
}

RC_GTEST_PROP(EncodingProperties, RandomBytesNeverCrash, (std::vector<unsigned char> bytes)) {
  zel::Array<String> out;
  Nested nested;
  try {
    enc::decode(reinterpret_cast<char const *>(bytes.data()), bytes.size(), out);
  } catch (zel::BadInput const &) {
  }
  try {
    enc::decode(reinterpret_cast<char const *>(bytes.data()), bytes.size(), nested);
  } catch (zel::BadInput const &) {
  }
}
