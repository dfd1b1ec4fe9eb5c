// The daemon started on a folder of real media publishes it: Browse and Search
// over SOAP as a control point sends them, every DIDL-Lite Result well-formed.
#include <gtest/gtest.h>

#include <string>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace {

// The objects of a Result with the tag `tag`; -1 when it is not well-formed XML.
int countObjects(const e2e::SoapResult& r, const char* tag) {
  auto didl = e2e::parseXml(e2e::findField(r.out, "Result").value_or(""));
  if (!didl) return -1;
  int n = 0;
  for (const e2e::Xml& object : didl->children) n += object.name == tag;
  return n;
}

e2e::SoapResult call(const std::string& action, const std::string& id, const std::string& flag,
                     const std::string& filter = "*") {
  const bool search = action == "Search";
  return e2e::soapAction(std::string(e2e::kBase) + "/web/cds_control", e2e::kCdsType, action,
                         {{search ? "ContainerID" : "ObjectID", id},
                          {search ? "SearchCriteria" : "BrowseFlag", flag},
                          {"Filter", filter},
                          {"StartingIndex", "0"},
                          {"RequestedCount", "0"},
                          {"SortCriteria", ""}});
}

TEST(Browse, ViewsAndSearchPublishTheFolder) {
  DmsdProcess dmsd;
  dmsd.copyFixture("share/Album & Co/a&b.mp3", "mp3_id3v23_genre_date.mp3");
  dmsd.copyFixture("share/photo.jpg", "jpeg_exif_thumb.jpg");
  dmsd.copyFixture("share/clip.avi", "avi_mpeg4_mp3.avi");
  // Untagged songs in a folder of their own, and a camcorder stream.
  dmsd.copyFixture("share/Music/tone.mp3", "mp3_cbr_44k_128k_stereo.mp3");
  dmsd.copyFixture("share/Music/tone.wav", "wav_accepted_layout.wav");
  dmsd.copyFixture("share/cam.m2ts", "h264_ac3_1080.m2ts");
  ASSERT_TRUE(dmsd.serve(dmsd.dir() + "/share", "music:3; photo:1; video:2")) << dmsd.log();

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
    e2e::SoapResult r = call("Browse", c.id, "BrowseDirectChildren");
    ASSERT_TRUE(r.ok()) << r.http.raw;
    EXPECT_EQ(countObjects(r, c.tag), c.count);
    EXPECT_EQ(e2e::findField(r.out, "NumberReturned"), std::to_string(c.count));
    EXPECT_EQ(e2e::findField(r.out, "UpdateID"), "0");
  }
  EXPECT_EQ(countObjects(call("Browse", "0", "BrowseMetadata"), "container"), 1);
  EXPECT_EQ(
      countObjects(call("Search", "0", "upnp:class derivedfrom \"object.item.imageItem\""), "item"),
      1);
  EXPECT_EQ(countObjects(call("Search", "0", "dc:title contains \"Fixture\"", "dc:title"), "item"),
            1);
}

}  // namespace
