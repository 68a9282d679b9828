// Credentials from Info.plist and when the client falls back to it.
#include <plist/plist.h>
#include <sys/stat.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "client/InfoPlist.h"
#include "client_support.h"

namespace qipg_test {
namespace {

using qipg::QuandrelIPG;
using qipg::Text;

struct PlistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using Plist = std::unique_ptr<void, PlistDeleter>;

// A dictionary with the given entries; `fill` adds them.
Plist dictionary(const std::function<void(plist_t)>& fill) {
  plist_t dict = plist_new_dict();
  fill(dict);
  return Plist(dict);
}

std::string toXml(const Plist& plist) {
  char* data = nullptr;
  uint32_t length = 0;
  plist_to_xml(static_cast<plist_t>(plist.get()), &data, &length);
  std::string out(data, length);
  plist_to_xml_free(data);
  return out;
}

std::string toBinary(const Plist& plist) {
  char* data = nullptr;
  uint32_t length = 0;
  plist_to_bin(static_cast<plist_t>(plist.get()), &data, &length);
  std::string out(data, length);
  plist_to_bin_free(data);
  return out;
}

Plist credentialsPlist() {
  return dictionary([](plist_t d) {
    plist_dict_set_item(d, "CFBundleName", plist_new_string("Shop"));
    plist_dict_set_item(d, "merchantID", plist_new_string("PLISTMID1"));
    plist_dict_set_item(d, "encryptionKey", plist_new_string("PlistKey0123"));
  });
}

class InfoPlistTest : public ClientTest {
 protected:
  // What the client's reader hands its completion, and how often it calls it.
  std::pair<Text, Text> read() {
    auto client = QuandrelIPG::create();
    EXPECT_NE(client, nullptr);
    int calls = 0;
    std::pair<Text, Text> values{"unset", "unset"};
    client->getMerchantIDandEncryptionKeyFromPList([&](const Text& mid, const Text& key) {
      ++calls;
      values = {mid, key};
    });
    EXPECT_EQ(calls, 1);
    return values;
  }

  std::filesystem::path plistPath() const { return bundle() / "Info.plist"; }
};

TEST_F(InfoPlistTest, ReadsXmlAndBinaryDocuments) {
  const std::pair<Text, Text> expected{"PLISTMID1", "PlistKey0123"};
  writeFile(plistPath(), toXml(credentialsPlist()));
  EXPECT_EQ(read(), expected);
  writeFile(plistPath(), toBinary(credentialsPlist()));
  EXPECT_EQ(read(), expected);
}

TEST_F(InfoPlistTest, MissingOrUnusableValuesAreAbsent) {
  const Text absent;
  static const char kGarbage[] = "\x00\xff<plist><dict><key>merchantID";
  struct Row {
    const char* name;
    std::string bytes;
    std::pair<Text, Text> expected;
  };
  const Row rows[] = {
      {"only the MID",
       toXml(dictionary(
           [](plist_t d) { plist_dict_set_item(d, "merchantID", plist_new_string("M1")); })),
       {"M1", absent}},
      {"non-string values (binary)",
       toBinary(dictionary([](plist_t d) {
         plist_dict_set_item(d, "merchantID", plist_new_uint(42));
         plist_dict_set_item(d, "encryptionKey", plist_new_bool(1));
       })),
       {absent, absent}},
      {"a dictionary value",
       toXml(dictionary([](plist_t d) {
         plist_dict_set_item(d, "merchantID", plist_new_dict());
         plist_dict_set_item(d, "encryptionKey", plist_new_string(""));
       })),
       {absent, ""}},
      {"root is an array", toXml(Plist(plist_new_array())), {absent, absent}},
      {"garbage", std::string(kGarbage, sizeof kGarbage - 1), {absent, absent}},
      {"truncated binary", toBinary(credentialsPlist()).substr(0, 40), {absent, absent}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    writeFile(plistPath(), row.bytes);
    EXPECT_EQ(read(), row.expected);
  }
}

TEST_F(InfoPlistTest, MissingFileDirectoryOrFifoGiveAbsentValues) {
  const std::pair<Text, Text> none;
  EXPECT_EQ(read(), none);
  std::filesystem::create_directory(plistPath());
  EXPECT_EQ(read(), none);
  std::filesystem::remove(plistPath());
  ASSERT_EQ(mkfifo(plistPath().c_str(), 0600), 0);
  EXPECT_EQ(read(), none);  // and does not wait for a writer
}

TEST_F(InfoPlistTest, HostileDocumentsAreRefusedWithoutCrashing) {
  const std::pair<Text, Text> none;
  // Larger than the cap, though well formed.
  std::string xml = toXml(credentialsPlist());
  xml.insert(xml.find("<plist"), std::string(qipg::internal::kMaxInfoPlistBytes, ' '));
  writeFile(plistPath(), xml);
  EXPECT_EQ(read(), none);

  // Nested far deeper than any real Info.plist, in both formats.
  std::string deep = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>merchantID</key>";
  for (int i = 0; i < 100000; ++i) deep += "<array>";
  for (int i = 0; i < 100000; ++i) deep += "</array>";
  deep += "</dict></plist>";
  writeFile(plistPath(), deep);
  EXPECT_EQ(read(), none);

  plist_t root = plist_new_dict();
  plist_t inner = plist_new_array();
  plist_dict_set_item(root, "merchantID", inner);
  for (int i = 0; i < 40; ++i) {
    plist_t next = plist_new_array();
    plist_array_append_item(inner, next);
    inner = next;
  }
  writeFile(plistPath(), toBinary(Plist(root)));
  EXPECT_EQ(read(), none);
}

// checkForMIDandEncString, called as the operations call it: with the values just stored.
TEST_F(InfoPlistTest, PropertyListIsConsultedOnlyWhenBothAreMissing) {
  const Text absent;
  struct Row {
    const char* name;
    bool withPlist;
    Text mid, key;
    Text expectedMid, expectedKey;
  };
  const Row rows[] = {
      {"empty MID, absent key", true, "", absent, "PLISTMID1", "PlistKey0123"},
      {"both absent", true, absent, absent, "PLISTMID1", "PlistKey0123"},
      {"MID given, key empty", true, "M1", "", "M1", ""},
      {"key given, MID absent", true, absent, "K1", absent, "K1"},
      {"both given", true, "M1", "K1", "M1", "K1"},
      {"both missing, no property list", false, "", "", absent, absent},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(plistPath());
    if (row.withPlist) writeFile(plistPath(), toXml(credentialsPlist()));
    auto client = QuandrelIPG::create();
    ASSERT_NE(client, nullptr);
    client->setMerchantIDString(row.mid);
    client->setEncryptionKeyString(row.key);
    client->checkForMIDandEncString(row.mid, row.key);
    EXPECT_EQ(client->merchantIDString(), row.expectedMid);
    EXPECT_EQ(client->encryptionKeyString(), row.expectedKey);
  }
}

}  // namespace
}  // namespace qipg_test
