// The DLNA header table and steps, and the file callbacks, over a library built
// from real media: what a renderer's request headers and URLs come to.
#include "http/http.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "content/test_library.h"
#include "http/http_header.h"
#include "media/media_thumbnail.h"
#include "platform/alloc.h"

namespace fs = std::filesystem;

namespace {

TEST(DlnaBytesRange, Syntax) {
  struct Case {
    const char* value;
    int result;
    int64_t first, last;
  } cases[] = {
      {"bytes=0-", 0, 0, 0},       {"bytes=100-199/1000", 0, 100, 199},
      {"bytes=0-99/*", 0, 0, 99},  {"bytes=-500", 0, 0, 500},
      {"x bytes=5-9", 0, 5, 9},    {"bytes=7-x", 0, 7, 0},  // no '/': the last byte is not checked
      {"bytes=a-5", -1, 0, 0},     {"bytes 0-5", -1, 0, 0},
      {"bytes", -1, 0, 0},         {"bytes=5", -1, 0, 0},
      {"bytes=1-2x/10", -1, 0, 0}, {"bytes=1-2/1x", -1, 0, 0},
      {"bytes=1-2/**", -1, 0, 0},  {"Bytes=0-1", -1, 0, 0},
  };
  for (const Case& c : cases) {
    DlnaBytesRange range;
    int status = 200;
    EXPECT_EQ(parseDlnaBytesRange(c.value, &range, &status), c.result) << c.value;
    EXPECT_EQ(status, c.result == 0 ? 200 : 400) << c.value;
    if (c.result != 0) continue;
    EXPECT_EQ(range.first, c.first) << c.value;
    EXPECT_EQ(range.last, c.last) << c.value;
  }
  EXPECT_EQ(findNotNum("12a4-", 4), 1u);
  EXPECT_EQ(findNotNum("1", 10), 0u);  // stops at the end of the text
}

// The library over copies of fixture media: one MP3 with a picture, one
// without, a JPEG with an EXIF thumbnail, a PNG and an AVI.
class HttpFiles : public LiveLibrary {
 protected:
  void SetUp() override {
    LiveLibrary::SetUp();
    for (auto [name, fixture] : kFiles) put(name, fixture);
    testLibraryBuild(root_);
    g_tDmsPaths.dataDir = "/defaults";
  }
  void TearDown() override {
    g_tDmsPaths = DmsPaths();
    LiveLibrary::TearDown();
  }

  // "/web/<id>.<ext>" of the item made from `name`.
  std::string url(const std::string& name, const std::string& prefix = "/web/") {
    std::string title = name.substr(name.rfind('/') + 1);
    title.resize(title.rfind('.'));
    for (auto& [id, item] : g_tDlnaInfo.items)
      if (item->title == title) return prefix + item->urlName;
    ADD_FAILURE() << name;
    return "";
  }

  // The status of the header check for `headers` (a Host header is added).
  int check(const std::string& target, std::vector<DlnaHttpHeader> headers, bool host = true) {
    if (host) headers.push_back({"Host", 4, 7, "127.0.0.1"});
    DlnaHttpRequest request = {"GET", headers.data(), headers.size()};
    int status = 0;
    EXPECT_EQ(_dlnaHttpHeaderCheck(&request, target.c_str(), &status), 0);
    return status;
  }

  static constexpr std::pair<const char*, const char*> kFiles[] = {
      {"Music/song.mp3", "mp3_apic.mp3"},
      {"Music/plain.mp3", "mp3_cbr_44k_128k_stereo.mp3"},
      {"Photos/photo.jpg", "jpeg_exif_thumb.jpg"},
      {"Photos/picture.png", "png_plain.png"},
      {"clip.avi", "avi_mpeg4_mp3.avi"},
  };
};

DlnaHttpHeader header(const char* name, const char* value) {
  return {name, strlen(name), -1, value};
}

TEST_F(HttpFiles, HeaderCheckAcceptsOrRefuses) {
  const std::string mp3 = url("Music/song.mp3"), jpg = url("Photos/photo.jpg");
  const std::string avi = url("clip.avi");
  struct Case {
    std::string target;
    DlnaHttpHeader header;
    int status;
  } cases[] = {
      {avi, header("transferMode.dlna.org", "Streaming"), 200},
      {jpg, header("transferMode.dlna.org", "Streaming"), 406},
      {jpg, header("transferMode.dlna.org", "Interactive"), 200},
      {mp3, header("transferMode.dlna.org", "Interactive"), 406},
      {mp3, header("transferMode.dlna.org", "Background"), 200},
      {mp3, header("transferMode.dlna.org", ""), 406},
      {mp3, header("getcontentFeatures.dlna.org", "0"), 400},
      {mp3, header("getcontentFeatures.dlna.org", "1"), 200},
      {mp3, header("RANGE", "bytes=0-99"), 200},
      {mp3, header("range", "bytes=a-5"), 400},
      {jpg, header("Range", "bytes=0-99"), 406},
      {mp3, header("TimeSeekRange.dlna.org", "npt=0-"), 200},
      {mp3, header("PlaySpeed.dlna.org", "speed=2"), 200},
      {mp3, header("realTimeInfo.dlna.org", "DLNA.ORG_TLAG=*"), 200},
  };
  for (const Case& c : cases)
    EXPECT_EQ(check(c.target, {c.header}), c.status) << c.header.name << ": " << c.header.value;
  EXPECT_EQ(check(mp3, {header("getcontentFeatures.dlna.org", "1")}, false), 400);
  // The first refusal in priority order wins: content features before range.
  EXPECT_EQ(check(jpg, {header("Range", "bytes=0-1"), header("getcontentFeatures.dlna.org", "2")}),
            400);
  EXPECT_EQ(_dlnaHttpHeaderCheck(nullptr, mp3.c_str(), nullptr), -1);
}

TEST_F(HttpFiles, HeaderResponseAnnouncesFeaturesAndEchoesTheMode) {
  std::vector<DlnaHttpHeader> headers = {header("Range", "bytes=0-"),
                                         header("transferMode.dlna.org", "Streaming"),
                                         header("getcontentFeatures.dlna.org", "1")};
  headers[0].id = 35;
  DlnaHttpRequest request = {"GET", headers.data(), headers.size()};
  const std::string target = url("Music/song.mp3", "/web/DLNA-PNMP3/");
  int status = 0;
  ASSERT_EQ(_dlnaHttpHeaderCheck(&request, target.c_str(), &status), 0);
  DlnaHttpResponseHeaders response;
  EXPECT_EQ(_dlnaHttpHeaderResp(&request, target.c_str(), &response, nullptr), 0);
  EXPECT_EQ(response.lines,
            "contentFeatures.dlna.org: DLNA.ORG_PN=MP3;DLNA.ORG_OP=01;DLNA.ORG_FLAGS=01700000" +
                std::string(24, '0') + "\r\ntransferMode.dlna.org: Streaming\r\n");
}

TEST_F(HttpFiles, MediaUrlsNameTheFileOnDisk) {
  for (const char* prefix : {"/web/", "/anything/", "/web/DLNA-PNMP3/"}) {
    DlnaReqFileInfo info;
    ASSERT_EQ(parseFileInfo(url("Music/song.mp3", prefix).c_str(), &info), 0);
    EXPECT_STREQ(info.path, at("Music/song.mp3").c_str());
    EXPECT_EQ(info.valid, 1);
    EXPECT_EQ(info.isImage, 0);
    RetUB(info.path);
  }
  DlnaReqFileInfo info;
  EXPECT_EQ(parseFileInfo("/web/99999.mp3", &info), -1);
  DlnaFileInfo file = {};
  ASSERT_EQ(_dlnaHttpGetInfo(url("clip.avi").c_str(), &file), 0);
  EXPECT_EQ(file.file_length, static_cast<int64_t>(fs::file_size(at("clip.avi"))));
  EXPECT_STREQ(file.content_type, "video/x-msvideo");
  free(file.content_type);
  fs::remove(at("clip.avi"));
  EXPECT_EQ(_dlnaHttpGetInfo(url("clip.avi").c_str(), &file), -1);
  EXPECT_EQ(_dlnaHttpOpen(url("clip.avi").c_str(), 0), nullptr);
}

TEST(HttpMemoryFile, SeeksUpToItsSizeAndNoFurther) {
  auto* file = _dlnaGetFileMem("/web/index.html", "  ", 2);
  ASSERT_NE(file, nullptr);
  char buf[4];
  EXPECT_EQ(_dlnaHttpSeek(file, 2, SEEK_SET), 0);
  EXPECT_EQ(_dlnaHttpRead(file, buf, sizeof buf), 0);
  EXPECT_EQ(_dlnaHttpSeek(file, 3, SEEK_SET), -1);
  EXPECT_EQ(_dlnaHttpSeek(file, -1, SEEK_END), 0);
  EXPECT_EQ(_dlnaHttpRead(file, buf, sizeof buf), 1);
  EXPECT_EQ(_dlnaHttpSeek(file, -2, SEEK_CUR), 0);
  EXPECT_EQ(_dlnaHttpSeek(file, 0, 7), -1);
  int fd = -1;
  EXPECT_EQ(_dlnaHttpSendfile(file, &fd), 0);
  EXPECT_EQ(_dlnaHttpWrite(file, buf, 1), 0);
  EXPECT_EQ(_dlnaHttpClose(file), 0);
  EXPECT_EQ(_dlnaHttpOpen("/web/index.html", 1), nullptr);
}

}  // namespace
