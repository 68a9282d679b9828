// Credentials from Info.plist and when the client falls back to it.
#include <plist/plist.h>
#include <sys/stat.h>

#include <functional>
#include <string>

#include "client/InfoPlist.h"
#include "unit/client/ClientSupport.h"

namespace qipg_test {
namespace {

using qipg::QuandrelIPG;
using qipg::Text;

// Writes out `root` as an XML or binary property list and frees it.
std::string encode(plist_t root, bool binary) {
  char* data = nullptr;
  uint32_t length = 0;
  binary ? plist_to_bin(root, &data, &length) : plist_to_xml(root, &data, &length);
  std::string out(data, length);
  binary ? plist_to_bin_free(data) : plist_to_xml_free(data);
  plist_free(root);
  return out;
}

// A dictionary filled by `fill`, encoded.
std::string dictionary(const std::function<void(plist_t)>& fill, bool binary = false) {
  plist_t dict = plist_new_dict();
  fill(dict);
  return encode(dict, binary);
}

std::string credentials(bool binary = false) {
  return dictionary(
      [](plist_t d) {
        plist_dict_set_item(d, "CFBundleName", plist_new_string("Shop"));
        plist_dict_set_item(d, "merchantID", plist_new_string("PLISTMID1"));
        plist_dict_set_item(d, "encryptionKey", plist_new_string("PlistKey0123"));
      },
      binary);
}

class InfoPlistTest : public ClientTest {
 protected:
  // What the client's reader hands its completion, which it calls exactly once.
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

TEST_F(InfoPlistTest, ValuesFromDocumentsOfEveryKind) {
  const Text absent;
  const std::pair<Text, Text> both{"PLISTMID1", "PlistKey0123"}, none;
  static const char kGarbage[] = "\x00\xff<plist><dict><key>merchantID";
  std::string oversized = credentials();  // well formed, but larger than the cap
  oversized.insert(oversized.find("<plist"), std::string(qipg::internal::kMaxInfoPlistBytes, ' '));
  // Nested far deeper than any real Info.plist.
  std::string deepXml = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>merchantID</key>";
  for (int i = 0; i < 100000; ++i) deepXml += "<array>";
  for (int i = 0; i < 100000; ++i) deepXml += "</array>";
  deepXml += "</dict></plist>";
  const struct {
    const char* name;
    std::string bytes;
    std::pair<Text, Text> expected;
  } rows[] = {
      {"XML", credentials(), both},
      {"binary", credentials(true), both},
      {"only the MID",
       dictionary([](plist_t d) { plist_dict_set_item(d, "merchantID", plist_new_string("M1")); }),
       {"M1", absent}},
      {"non-string values (binary)",
       dictionary(
           [](plist_t d) {
             plist_dict_set_item(d, "merchantID", plist_new_uint(42));
             plist_dict_set_item(d, "encryptionKey", plist_new_bool(1));
           },
           true),
       none},
      {"garbage", std::string(kGarbage, sizeof kGarbage - 1), none},
      {"oversized", oversized, none},
      {"deep XML", deepXml, none},
  };
  for (const auto& row : rows) {
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

// checkForMIDandEncString, called as the operations call it: with the values just stored.
TEST_F(InfoPlistTest, PropertyListIsConsultedOnlyWhenBothAreMissing) {
  const Text absent;
  const struct {
    const char* name;
    bool withPlist;
    Text mid, key;
    Text expectedMid, expectedKey;
  } rows[] = {
      {"empty MID, absent key", true, "", absent, "PLISTMID1", "PlistKey0123"},
      {"both absent", true, absent, absent, "PLISTMID1", "PlistKey0123"},
      {"MID given, key empty", true, "M1", "", "M1", ""},
      {"key given, MID absent", true, absent, "K1", absent, "K1"},
      {"both given", true, "M1", "K1", "M1", "K1"},
      {"both missing, no property list", false, "", "", absent, absent},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(plistPath());
    if (row.withPlist) writeFile(plistPath(), credentials());
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
