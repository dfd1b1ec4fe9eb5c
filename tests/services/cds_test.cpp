// The library build over real media files, then Browse and Search through the
// device callback as a control point would send them, and the DIDL-Lite they
// return parsed back.
#include "services/cds.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "content/test_library.h"
#include "fakes/action_request.h"
#include "services/didl.h"

namespace {

// The object elements of a DIDL-Lite document: tag and id in document order.
struct DidlObject {
  std::string tag, id, title;
  std::vector<std::string> res;  // the URLs
  std::string xml;               // the element as written
};

std::vector<DidlObject> parseDidl(const std::string& didl) {
  std::vector<DidlObject> objects;
  IXML_Document* doc = ixmlParseBuffer(didl.c_str());
  EXPECT_NE(doc, nullptr) << didl;
  if (!doc) return objects;
  IXML_Node* root = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(doc));
  for (IXML_Node* n = ixmlNode_getFirstChild(root); n; n = ixmlNode_getNextSibling(n)) {
    DidlObject object{ixmlNode_getNodeName(n),
                      ixmlElement_getAttribute(reinterpret_cast<IXML_Element*>(n), "id"),
                      "",
                      {},
                      ""};
    for (IXML_Node* c = ixmlNode_getFirstChild(n); c; c = ixmlNode_getNextSibling(c)) {
      IXML_Node* text = ixmlNode_getFirstChild(c);
      std::string value = text ? ixmlNode_getNodeValue(text) : "";
      if (strcmp(ixmlNode_getNodeName(c), "dc:title") == 0) object.title = value;
      if (strcmp(ixmlNode_getNodeName(c), "res") == 0) object.res.push_back(value);
    }
    DOMString xml = ixmlPrintNode(n);
    object.xml = xml;
    ixmlFreeDOMString(xml);
    objects.push_back(object);
  }
  ixmlDocument_free(doc);
  return objects;
}

class Library : public LiveLibrary {
 protected:
  void SetUp() override {
    LiveLibrary::SetUp();
    strcpy(g_tDlnaInfo.ip, "192.0.2.7");
    g_tDlnaInfo.port = 50002;
  }

  std::map<std::string, std::string> call(const char* action, const std::string& id,
                                          const std::string& extra, const std::string& filter,
                                          int start = 0, int count = 0) {
    std::string args = "<ObjectID>" + id + "</ObjectID>" + extra + "<Filter>" + filter +
                       "</Filter><StartingIndex>" + std::to_string(start) +
                       "</StartingIndex><RequestedCount>" + std::to_string(count) +
                       "</RequestedCount>";
    return runAction(makeRequest(kCdsServiceId, action, args).get());
  }
  std::map<std::string, std::string> browse(const std::string& id, const char* flag,
                                            const std::string& filter = "*", int start = 0,
                                            int count = 0) {
    return call("Browse", id, std::string("<BrowseFlag>") + flag + "</BrowseFlag>", filter, start,
                count);
  }
  std::map<std::string, std::string> search(const std::string& id, const std::string& criteria,
                                            int start = 0, int count = 0) {
    return call("Search", id, "<SearchCriteria>" + criteria + "</SearchCriteria>", "*", start,
                count);
  }
  std::vector<DidlObject> children(const std::string& id, const std::string& filter = "*") {
    return parseDidl(browse(id, "BrowseDirectChildren", filter)["Result"]);
  }
};

TEST_F(Library, ScanFollowsTheNamingRules) {
  put("a/Music/song.MP3", kTestSong);
  put("a/Music/.hidden.mp3", kTestSong);
  put("a/Music/notes.txt", kTestSong);
  put("b/Holiday/photo.jpg", kTestPhoto);
  put("b/dir.v2/noext", kTestPhoto);
  put("b/clip.avi", "avi_mpeg4_mp3.avi");
  testLibraryBuild("|" + at("a") + "||" + at("b/") + "|");
  EXPECT_EQ(g_tDlnaInfo.musicCount, 1);
  EXPECT_EQ(g_tDlnaInfo.photoCount, 1);
  EXPECT_EQ(g_tDlnaInfo.videoCount, 1);

  auto shares = children("0$4");
  ASSERT_EQ(shares.size(), 2u);
  EXPECT_EQ(shares[0].title, at("a"));
  EXPECT_EQ(shares[1].title, at("b"));

  // The photo without an album is grouped by its folder's name.
  auto albums = children("0$3$33");
  ASSERT_EQ(albums.size(), 1u);
  EXPECT_EQ(albums[0].title, "Holiday");
  auto photos = children(albums[0].id);
  ASSERT_EQ(photos.size(), 1u);
  EXPECT_EQ(photos[0].title, "photo");

  auto tracks = children("0$1$10");
  ASSERT_EQ(tracks.size(), 1u);
  const DidlObject& song = tracks[0];
  const std::string id = song.id.substr(song.id.rfind('$') + 1);
  ASSERT_EQ(song.res.size(), 2u);
  EXPECT_EQ(song.res[0], "http://192.0.2.7:50002/web/DLNA-PNMP3-OP01-FLAGS0170000/" + id + ".MP3");
  EXPECT_EQ(song.res[1], "http://192.0.2.7:50002/web/NON-DLNA/" + id + ".MP3");
  EXPECT_NE(song.xml.find("<dc:date>2009-12-01</dc:date>"), std::string::npos) << song.xml;

  // A NON-DLNA AVI: the plain res and the two aliases, no thumbnail.
  auto videos = children("0$2$20");
  ASSERT_EQ(videos.size(), 1u);
  EXPECT_EQ(videos[0].res.size(), 3u);
  EXPECT_NE(videos[0].xml.find("video/msvideo:DLNA.ORG_OP=01"), std::string::npos);
}

TEST_F(Library, GroupsAreSharedAcrossFoldersAndBrowsedByWellKnownIds) {
  put("x/one.mp3", kTestSong);
  put("y/two.mp3", kTestSong);
  build({"x", "y"});
  auto albums = parseDidl(browse("7", "BrowseDirectChildren")["Result"]);
  ASSERT_EQ(albums.size(), 1u);
  EXPECT_EQ(albums[0].id.rfind("0$1$13$", 0), 0u) << albums[0].id;
  EXPECT_NE(albums[0].xml.find("childCount=\"2\""), std::string::npos);
  EXPECT_EQ(children(albums[0].id).size(), 2u);
  // Each kind of group is published with its own class.
  auto artists = parseDidl(browse("0$1$12", "BrowseDirectChildren")["Result"]);
  ASSERT_EQ(artists.size(), 1u);
  EXPECT_NE(artists[0].xml.find(">object.container.person.musicArtist<"), std::string::npos);
  EXPECT_NE(albums[0].xml.find(">object.container.Album.musicAlbum<"), std::string::npos);

  // A page of one still reports the container's count.
  auto page = browse("0$1$10", "BrowseDirectChildren", "*", 1, 1);
  EXPECT_EQ(page["NumberReturned"], "1");
  EXPECT_EQ(page["TotalMatches"], "2");

  // Filters: nothing optional, res without attributes.
  auto bare = children("0$1$10", "");
  ASSERT_EQ(bare.size(), 2u);
  EXPECT_TRUE(bare[0].res.empty());
  EXPECT_EQ(bare[0].xml.find("dc:date"), std::string::npos);
  auto resOnly = children("0$1$10", "res");
  EXPECT_EQ(resOnly[0].res.size(), 2u);
  EXPECT_EQ(resOnly[0].xml.find("size="), std::string::npos);

  // Failures: metadata past index 0, an unknown flag, a missing filter, an item's children.
  EXPECT_TRUE(browse("0", "BrowseMetadata", "*", 1).empty());
  EXPECT_TRUE(browse("0", "BrowseEverything").empty());
  EXPECT_TRUE(runAction(makeRequest(kCdsServiceId, "Browse",
                                    "<ObjectID>0</ObjectID><BrowseFlag>BrowseMetadata</BrowseFlag>")
                            .get())
                  .empty());
  EXPECT_TRUE(browse(bare[0].id, "BrowseDirectChildren").empty());
}

TEST_F(Library, SearchWalksFoldersDescendantsFirst) {
  put("s/sub/one.mp3", kTestSong);
  put("s/pic.jpg", kTestPhoto);
  build({"s"});
  auto all = search("0", "*");
  std::vector<std::string> tags;
  std::string subId;
  for (auto& o : parseDidl(all["Result"])) {
    tags.push_back(o.tag + ":" + o.title);
    if (o.title == "sub") subId = o.id;
  }
  EXPECT_EQ(tags, (std::vector<std::string>{"item:pic", "item:Fixture Title", "container:sub",
                                            "container:" + at("s")}));
  EXPECT_EQ(all["TotalMatches"], "4");

  auto music = search("0", "upnp:class derivedfrom \"object.item.audioItem\"");
  EXPECT_EQ(music["NumberReturned"], "1");
  auto page = search(subId, "*", 0, 1);
  EXPECT_EQ(page["NumberReturned"], "1");
  EXPECT_EQ(page["TotalMatches"], "0");
  // Outside the folder tree the criteria are not looked at.
  EXPECT_EQ(search("0$1", "dc:title = \"nothing\"")["NumberReturned"], "5");
}

TEST(ObjectIds, WellKnownNumbersMapToTheirContainers) {
  struct Case {
    const char* text;
    int id;
    const char* canonical;
  } cases[] = {
      {"0", 0, "0"},
      {"B", 30, "0$3$30"},
      {"abc", -1, "abc"},
      {"1", 200, "0$4$200"},
      {"4", 10, "0$1$10"},
      {"7", 13, "0$1$13"},
      {"8", 20, "0$2$20"},
      {"13", 5, "0$5"},
      {"17", 4, "0$4"},
      {"-3", 4, "0$4"},
      {"0$1$12$345", 345, "0$1$12$345"},
      {"16", 30, "0$3$30"},
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    EXPECT_EQ(_dlnaGetIdFromStr(&text), c.id) << c.text;
    EXPECT_EQ(text, c.canonical) << c.text;
  }
  std::string tooLong(256, '1');
  EXPECT_EQ(_dlnaGetIdFromStr(&tooLong), -1);
}

TEST(Didl, FilterTokensAndItemDetails) {
  EXPECT_EQ(_dlnaFilterHasVal("res@size", "@size"), 1);
  EXPECT_EQ(_dlnaFilterHasVal("@size", "@size"), 1);
  EXPECT_EQ(_dlnaFilterHasVal("dc:date, upnp:album", "dc:date"), 1);
  EXPECT_EQ(_dlnaFilterHasVal("dc:date, upnp:album", "upnp:album"), 0);
  EXPECT_EQ(_dlnaFilterHasVal("size", "@size"), 0);

  DlnaEntry item;
  item.id = 205;
  item.title = "file";
  item.urlName = "205&x.mp3";
  item.childCount = -1;
  item.media = std::make_unique<DlnaItemMedia>();
  item.media->mediaClass = kDlnaClassAudio;
  item.media->year = 2005;
  item.media->month = 13;
  item.media->day = 40;
  item.media->title = "A & B";
  item.media->profileName = "NON-DLNA";
  item.media->mime = "audio/mpeg";
  TextBuffer out;
  _dlnaDidlAddItem(&out, &item, "0$4$201$205", "*");
  const std::string& xml = out.str();
  EXPECT_NE(xml.find("<dc:title>A &amp; B</dc:title>"), std::string::npos) << xml;
  EXPECT_NE(xml.find("<dc:date>2005-01-01</dc:date>"), std::string::npos);
  EXPECT_NE(xml.find("/web/NON-DLNA/205&x.mp3</res>"), std::string::npos);
  EXPECT_EQ(xml.find("<res", xml.find("<res") + 1), std::string::npos) << "one res only";
  EXPECT_NE(xml.find("parentID=\"0$4$201\""), std::string::npos);
  item.media->year = 1900;
  TextBuffer old;
  _dlnaDidlAddItem(&old, &item, "0$4$201$205", "*");
  EXPECT_EQ(old.str().find("dc:date"), std::string::npos);
}

TEST(Search, CriteriaEvaluateLeftToRight) {
  DlnaEntry audio, video, folder;
  for (DlnaEntry* e : {&audio, &video}) {
    e->childCount = -1;
    e->media = std::make_unique<DlnaItemMedia>();
    e->media->profileName = "NON-DLNA";
  }
  audio.media->mediaClass = kDlnaClassAudio;
  audio.title = "Song";
  video.media->mediaClass = kDlnaClassVideo;
  video.media->title = "banana";
  folder.title = "Shows";
  folder.children = std::make_unique<DlnaChildList>();
  folder.children->type = kDlnaContFolder;
  struct Case {
    const char* criteria;
    int audio, video, folder;
  } cases[] = {
      {"*", 1, 1, 1},
      {"upnp:class derivedfrom \"object.item.audioItem\"", 1, 0, 0},
      {"upnp:class = \"object.item\"", 0, 0, 0},
      {"upnp:class = \"object.container\"", 0, 0, 1},
      {"upnp:artist = \"nobody\"", 1, 1, 1},
      {"dc:title contains \"an\"", 0, 1, 0},
      {"(dc:title contains \"an\")", 0, 0, 0},
      {"dc:title contains \"a\" and upnp:class derivedfrom \"object.item.videoItem\"", 0, 1, 0},
      {"dc:title = \"Song\" or dc:title = \"Shows\" and upnp:class = \"x\"", 1, 0, 0},
      {"res@protocolInfo exists false", 0, 0, 1},
      {"dc:title contains \"unclosed", 0, 0, 0},
      {"dc:title = Song", 1, 0, 0},
      {"dc:title exists true xor", 0, 0, 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(_dlnaMatchSearch(c.criteria, &audio), c.audio) << c.criteria;
    EXPECT_EQ(_dlnaMatchSearch(c.criteria, &video), c.video) << c.criteria;
    EXPECT_EQ(_dlnaMatchSearch(c.criteria, &folder), c.folder) << c.criteria;
  }
  std::string deep(100000, '(');
  EXPECT_EQ(_dlnaMatchSearch(deep.c_str(), &audio), 0);
}

}  // namespace
