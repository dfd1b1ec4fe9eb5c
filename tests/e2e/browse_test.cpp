// The daemon started on a folder of real media publishes it: Browse and Search
// over SOAP as a control point sends them, every DIDL-Lite Result well-formed.
#include <gtest/gtest.h>
#include <unistd.h>
#include <upnp/ixml.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace fs = std::filesystem;

namespace {

constexpr char kCdsType[] = "urn:schemas-upnp-org:service:ContentDirectory:1";

// The object elements of a Result; fails the test when it is not well-formed XML.
int countObjects(const std::string& didl, const char* tag) {
  IXML_Document* doc = ixmlParseBuffer(didl.c_str());
  EXPECT_NE(doc, nullptr) << didl;
  if (!doc) return -1;
  IXML_NodeList* nodes = ixmlDocument_getElementsByTagName(doc, tag);
  int n = nodes ? static_cast<int>(ixmlNodeList_length(nodes)) : 0;
  ixmlNodeList_free(nodes);
  ixmlDocument_free(doc);
  return n;
}

std::string field(const e2e::SoapResult& r, const std::string& name) {
  for (const auto& [key, value] : r.out)
    if (key == name) return value;
  return "<missing>";
}

class Browse : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/dmsd-browse-XXXXXX";
    share_ = mkdtemp(tmpl);
    const fs::path media = DMSD_TEST_MEDIA;
    fs::create_directories(share_ + "/Album & Co");
    fs::copy_file(media / "mp3_id3v23_genre_date.mp3", share_ + "/Album & Co/a&b.mp3");
    fs::copy_file(media / "jpeg_exif_thumb.jpg", share_ + "/photo.jpg");
    fs::copy_file(media / "avi_mpeg4_mp3.avi", share_ + "/clip.avi");
    // Untagged songs in a folder of their own, and a camcorder stream.
    fs::create_directories(share_ + "/Music");
    fs::copy_file(media / "mp3_cbr_44k_128k_stereo.mp3", share_ + "/Music/tone.mp3");
    fs::copy_file(media / "wav_accepted_layout.wav", share_ + "/Music/tone.wav");
    fs::copy_file(media / "h264_ac3_1080.m2ts", share_ + "/cam.m2ts");
    dmsd_.startWithConfig(
        "Enable = 1\nPort = 49152\nRescanTime = 0\nIPAddress = 127.0.0.1\n"
        "Interface = lo\nDmsName = T\nContentList = " +
        share_ + "\n");
    ASSERT_TRUE(dmsd_.waitForLog("music:3; photo:1; video:2"));
  }
  void TearDown() override {
    dmsd_.stop();
    fs::remove_all(share_);
  }

  e2e::SoapResult call(const std::string& action, const e2e::Fields& args) {
    return e2e::soapAction("http://127.0.0.1:49152/web/cds_control", kCdsType, action, args);
  }
  e2e::SoapResult browse(const std::string& id, const std::string& flag) {
    return call("Browse", {{"ObjectID", id},
                           {"BrowseFlag", flag},
                           {"Filter", "*"},
                           {"StartingIndex", "0"},
                           {"RequestedCount", "0"},
                           {"SortCriteria", ""}});
  }

  std::string share_;
  DmsdProcess dmsd_;
};

TEST_F(Browse, ViewsAndSearchPublishTheFolder) {
  struct Case {
    const char* id;
    const char* tag;
    int count;
  } views[] = {
      {"0", "container", 4}, {"0$1$10", "item", 3},   {"0$2$20", "item", 2},
      {"0$3$30", "item", 1}, {"0$4", "container", 1}, {"0$1$13", "container", 2},
      {"B", "item", 1},
  };
  for (const Case& c : views) {
    SCOPED_TRACE(c.id);
    e2e::SoapResult r = browse(c.id, "BrowseDirectChildren");
    ASSERT_TRUE(r.ok()) << r.http.raw;
    EXPECT_EQ(countObjects(field(r, "Result"), c.tag), c.count);
    EXPECT_EQ(field(r, "NumberReturned"), std::to_string(c.count));
    EXPECT_EQ(field(r, "UpdateID"), "0");
  }
  e2e::SoapResult meta = browse("0", "BrowseMetadata");
  ASSERT_TRUE(meta.ok());
  EXPECT_EQ(countObjects(field(meta, "Result"), "container"), 1);

  e2e::SoapResult found =
      call("Search", {{"ContainerID", "0"},
                      {"SearchCriteria", "upnp:class derivedfrom \"object.item.imageItem\""},
                      {"Filter", "*"},
                      {"StartingIndex", "0"},
                      {"RequestedCount", "0"},
                      {"SortCriteria", ""}});
  ASSERT_TRUE(found.ok()) << found.http.raw;
  EXPECT_EQ(countObjects(field(found, "Result"), "item"), 1);
  e2e::SoapResult titled = call("Search", {{"ContainerID", "0"},
                                           {"SearchCriteria", "dc:title contains \"Fixture\""},
                                           {"Filter", "dc:title"},
                                           {"StartingIndex", "0"},
                                           {"RequestedCount", "0"},
                                           {"SortCriteria", ""}});
  ASSERT_TRUE(titled.ok());
  EXPECT_EQ(countObjects(field(titled, "Result"), "item"), 1);
}

}  // namespace
