// Profiling the real fixture media through the real readers: the profile,
// MIME type and class every file is published with, and the protocol list
// that the walk builds from them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "content/state_var.h"
#include "fakes/fake_upnp_device.h"
#include "profile/profile.h"

namespace {

class FixtureProfiles : public testing::Test {
 protected:
  void SetUp() override {
    dlnaInitVarValue();
    fakeClearNotifications();
    registry_ = dlnaMMInit();
    dlnaSetExtCheck(registry_, 1);
    dlnaRegMediaProfile(registry_);
  }
  void TearDown() override {
    dlnaMMUninit(registry_);
    dlnaFreeVarValue();
  }
  DlnaProfileRegistry* registry_ = nullptr;
};

TEST_F(FixtureProfiles, EveryFileGetsItsProfile) {
  struct Case {
    const char* file;
    const char* profile;  // null: no parser claims the file
    const char* mime;
    uint32_t mediaClass;
  } cases[] = {
      {"mp3_cbr_44k_128k_stereo.mp3", "MP3", "audio/mpeg", 1},
      {"mp3_cbr_22k_64k_mono.mp3", "MP3X", "audio/mpeg", 1},
      {"mp3_vbr_xing.mp3", "MP3", "audio/mpeg", 1},
      {"wav_accepted_layout.wav", "LPCM", "audio/L16;rate=48000;channels=2", 1},
      {"wav_conventional.wav", nullptr, nullptr, 0},
      {"wma_wmav2.wma", "WMABASE", "audio/x-ms-wma", 1},
      {"m4a_aac.m4a", "AAC_ISO_320", "audio/mp4", 1},
      {"jpeg_plain.jpg", "JPEG_SM", "image/jpeg", 3},
      {"jpeg_exif_thumb.jpg", "JPEG_SM", "image/jpeg", 3},
      {"jpeg_progressive.jpg", nullptr, nullptr, 0},
      {"png_plain.png", "PNG_LRG", "image/png", 3},
      {"png_crlf_damaged.png", "PNG_LRG", "image/png", 3},
      {"gif89a.gif", "GIF_LRG", "image/gif", 3},
      {"gif87a.gif", "NON-DLNA", "image/gif", 3},
      {"tiff_le.tif", "NON-DLNA", "image/tiff", 3},
      {"bmp_topdown.bmp", "NON-DLNA", "image/bmp", 3},
      {"mpeg1_vcd.mpg", "MPEG1", "video/mpeg", 2},
      {"mpeg2_ps_pal_ac3.mpg", "MPEG_PS_PAL", "video/mpeg", 2},
      {"mpeg2_ts.ts", "MPEG_TS_SD_EU_ISO", "video/mpeg", 2},
      {"h264_aac.ts", "NON-DLNA", "video/vnd.dlna.mpeg-tts", 2},
      {"mp4_h264_aac.mp4", "NON-DLNA", "video/mp4", 2},
      {"mp4_mpeg4part2.mp4", "NON-DLNA", "video/mp4", 2},
      {"avi_mpeg4_mp3.avi", "NON-DLNA", "video/x-msvideo", 2},
      {"asf_wmv2.wmv", "NON-DLNA", "video/x-ms-wmv", 2},
      {"flv_h264_aac_meta.flv", "NON-DLNA", "video/x-flv", 2},
      {"mkv_h264_high_ac3.mkv", "NON-DLNA", "video/x-matroska", 2},  // level 1.3
      {"mkv_h264_high41_ac3.mkv", "AVC_MKV_HP_HD_AC3", "video/x-matroska", 2},
      {"mkvmerge_h264_high41_ac3.mkv", "AVC_MKV_HP_HD_AC3", "video/x-matroska", 2},
      {"mkv_h264_main31_aac.mkv", "AVC_MKV_MP_HD_AAC_MULT5", "video/x-matroska", 2},
      {"mkvmerge_h264_main31_heaac.mkv", "AVC_MKV_MP_HD_HEAAC_L4", "video/x-matroska", 2},
      {"h264_ac3_1080.m2ts", "AVC_TS_MP_HD_AC3_T", "video/vnd.dlna.mpeg-tts", 2},
      {"mpeg2_m2ts.m2ts", "MPEG_TS_SD_EU_T", "video/vnd.dlna.mpeg-tts", 2},
      {"webm_vp8.webm", nullptr, nullptr, 0},
  };
  std::vector<std::string> entries;  // what SourceProtocolInfo must hold, once each
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = std::string(DMSD_TEST_MEDIA) + "/" + c.file;
    DlnaMediaResult* result = dlnaGetMediaProfile(registry_, path.c_str());
    if (!c.profile) {
      EXPECT_EQ(result, nullptr);
      continue;
    }
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result->profileName, c.profile);
    EXPECT_STREQ(result->mime, c.mime);
    EXPECT_EQ(result->mediaClass, c.mediaClass);
    dlnaFreeItemTmp(result);
    const std::string pn =
        strcmp(c.profile, "NON-DLNA") ? std::string("DLNA.ORG_PN=") + c.profile : "*";
    entries.push_back("http-get:*:" + std::string(c.mime) + ":" + pn);
  }
  // One event for each entry added; profiled ones lead the list, the latest
  // first, and untyped ones trail it.
  EXPECT_EQ(fakeNotifications().size(), std::set(entries.begin(), entries.end()).size());
  const std::string list = dlnaGetVarValue(kCmsServiceId, "SourceProtocolInfo").value_or("");
  std::vector<std::string> got;
  for (size_t at = 0; at <= list.size();) {
    size_t comma = std::min(list.find(',', at), list.size());
    got.push_back(list.substr(at, comma - at));
    at = comma + 1;
  }
  for (const std::string& entry : entries) {
    EXPECT_EQ(std::count(got.begin(), got.end(), entry), 1) << entry << " in " << list;
  }
  auto untyped = [](const std::string& e) { return e.ends_with(":*"); };
  EXPECT_TRUE(std::is_partitioned(got.begin(), got.end(), std::not_fn(untyped))) << list;
  EXPECT_EQ(got.front(), *std::find_if_not(entries.rbegin(), entries.rend(), untyped));
}

}  // namespace
