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

// The groups of a view as "title:childCount", in the order Browse lists them.
std::vector<std::string> groups(const e2e::SoapResult& r) {
  std::vector<std::string> out;
  std::optional<e2e::Xml> didl = e2e::parseXml(field(r, "Result"));
  if (!didl) return out;
  for (const e2e::Xml& c : didl->children) {
    const e2e::Xml* title = c.child("title");
    out.push_back((title ? title->text : "") + ":" +
                  e2e::findField(c.attributes, "childCount").value_or("?"));
  }
  return out;
}

// Songs without tags gather under "Unknown", never under their folder's name;
// the camcorder stream is published with its AVC profile.
TEST_F(Browse, UntaggedSongsAndCamcorderStreams) {
  using Groups = std::vector<std::string>;
  const struct {
    const char* id;
    Groups want;
  } views[] = {
      {"0$1$11", {"Rock:1", "Unknown:2"}},
      {"0$1$12", {"Fixture \xc3\x84rtist:1", "Unknown:2"}},
      {"0$1$13", {"Fixture Album \xc3\x89t\xc3\xa9:1", "Unknown:2"}},
  };
  for (const auto& v : views) {
    e2e::SoapResult r = browse(v.id, "BrowseDirectChildren");
    ASSERT_TRUE(r.ok()) << r.http.raw;
    Groups got = groups(r);
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, v.want) << v.id;
  }

  const std::string avc = "http-get:*:video/vnd.dlna.mpeg-tts:DLNA.ORG_PN=AVC_TS_MP_HD_AC3_T";
  e2e::SoapResult video = browse("0$2$20", "BrowseDirectChildren");
  ASSERT_TRUE(video.ok());
  EXPECT_NE(field(video, "Result").find(avc + ";DLNA.ORG_OP=01;"), std::string::npos)
      << field(video, "Result");
  // A renderer gets the whole stream with the profile in its headers.
  std::string url;
  if (std::optional<e2e::Xml> didl = e2e::parseXml(field(video, "Result"))) {
    for (const e2e::Xml& item : didl->children) {
      const e2e::Xml* title = item.child("title");
      const e2e::Xml* res = item.child("res");
      if (title && res && title->text == "cam") url = res->text;
    }
  }
  ASSERT_FALSE(url.empty()) << field(video, "Result");
  e2e::HttpResponse got = e2e::httpRequest(
      url, "GET", {{"transferMode.dlna.org", "Streaming"}, {"getcontentFeatures.dlna.org", "1"}});
  EXPECT_EQ(got.status, 200);
  EXPECT_EQ(got.body.size(), fs::file_size(share_ + "/cam.m2ts"));
  EXPECT_EQ(got.header("Content-Type").value_or(""), "video/vnd.dlna.mpeg-tts");
  EXPECT_EQ(
      got.header("contentFeatures.dlna.org").value_or("").find("DLNA.ORG_PN=AVC_TS_MP_HD_AC3_T;"),
      0u);
  e2e::SoapResult protocols =
      e2e::soapAction("http://127.0.0.1:49152/web/cms_control",
                      "urn:schemas-upnp-org:service:ConnectionManager:1", "GetProtocolInfo");
  ASSERT_TRUE(protocols.ok()) << protocols.http.raw;
  EXPECT_NE(field(protocols, "Source").find(avc), std::string::npos) << field(protocols, "Source");
}

}  // namespace
