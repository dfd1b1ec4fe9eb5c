// The registry, the parser walk over files read by recording fake readers,
// SourceProtocolInfo growth, protocolInfo texts, extension and duration
// parsing, and the copy of a MediaInfo into the per-file result.
#include "profile/profile.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "content/metadata.h"
#include "content/state_var.h"
#include "fakes/fake_upnp_device.h"
#include "profile_test_util.h"

namespace {

using profile_test::newInfo;

TEST(ProfileRegistry, ExtensionMatching) {
  const std::string longExt(31, 'e');
  const std::string longToken = "mp3," + longExt + "xyz";
  const std::string longPath = "/m/a." + longExt;
  // clang-format off
  const struct { const char* path; const char* list; int32_t want; } cases[] = {
      {"/m/song.MP3", "mp3", 1},
      {"/m/archive.tar.mp3", "wav,mp3", 1},
      {"/m/archive.mp3.tar", "mp3", 0},
      {"/m/noext", "mp3", 0},
      {nullptr, "mp3", 0},
      {"/m/a.ts", "mp2t,ts", 1},
      {"/m/a.t", "ts", 0},
      {"/m/a.mp", "mp3", 0},
      {"/m/a.", "a,,b", 1},
      // A token longer than 31 characters is cut to 31.
      {longPath.c_str(), longToken.c_str(), 1},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(_dlnaMatchFileExt(c.path, c.list), c.want) << (c.path ? c.path : "null");
  }
  EXPECT_STREQ(dlnaGetFileExt("/d.x/file"), "x/file");
  EXPECT_EQ(dlnaGetFileExt("/dir/file"), nullptr);
}

TEST(ProfileRegistry, ProtocolInfoTextsAndClasses) {
  // clang-format off
  const struct { int32_t mode; const char* name; const char* mime; uint32_t mediaClass;
                 const char* want; const char* upnpClass; } cases[] = {
      {1, "MP3", "audio/mpeg", kDlnaClassAudio, "http-get:*:audio/mpeg:DLNA.ORG_PN=MP3;DLNA.ORG_OP=01;DLNA.ORG_FLAGS=01700000000000000000000000000000",
       "object.item.audioItem.musicTrack"},
      {1, "JPEG_SM", "image/jpeg", kDlnaClassImage, "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_SM;DLNA.ORG_FLAGS=00f00000000000000000000000000000",
       "object.item.imageItem.photo"},
      {1, "NON-DLNA", "video/x-flv", kDlnaClassVideo, "http-get:*:video/x-flv:*", "object.item.videoItem"},
      {0, "MPEG_PS_PAL", "video/mpeg", kDlnaClassVideo, "video/mpeg:DLNA.ORG_PN=MPEG_PS_PAL;DLNA.ORG_OP=01;DLNA.ORG_FLAGS=01700000000000000000000000000000",
       "object.item.videoItem"},
      {2, "NON-DLNA", "image/bmp", kDlnaClassImage, "image/bmp:*", "object.item.imageItem.photo"},
      {1, "X", "a/b", 0, "http-get:*:a/b:DLNA.ORG_PN=X;DLNA.ORG_OP=01;DLNA.ORG_FLAGS=01700000000000000000000000000000", nullptr},
  };
  // clang-format on
  for (const auto& c : cases) {
    DlnaEntry entry;
    entry.media = std::make_unique<DlnaItemMedia>();
    entry.media->profileName = c.name;
    entry.media->mime = c.mime;
    entry.media->mediaClass = c.mediaClass;
    EXPECT_EQ(dlnaWriteProtocolInfo(c.mode, 0, &entry), c.want) << c.name;
    EXPECT_STREQ(dlnaGetItemClassStr(&entry), c.upnpClass) << c.name;
  }
  DlnaEntry container;
  EXPECT_EQ(dlnaWriteProtocolInfo(1, 0, &container), "");
  EXPECT_EQ(dlnaGetItemClassStr(&container), nullptr);
  EXPECT_EQ(dlnaGetItemClassStr(nullptr), nullptr);
}

// What the fake readers put into a record, and how often they ran.
MediaInfo g_fill;
int32_t g_fillResult = 0;
int g_readerCalls = 0;

int32_t fakeReader(MediaIo*, MediaInfo* info) {
  ++g_readerCalls;
  const char* path = info->path;
  *info = g_fill;
  info->path = path;
  return g_fillResult;
}

class ProfileWalk : public testing::Test {
 protected:
  void SetUp() override {
    dlnaInitVarValue();
    fakeClearNotifications();
    for (MediaReaderFn& reader : readers_.readers) reader = fakeReader;
    dlnaSetMediaReaders(&readers_);
    g_fill = MediaInfo{};
    g_fillResult = 0;
    g_readerCalls = 0;
    registry_ = dlnaMMInit();
    dlnaSetExtCheck(registry_, 1);
    dlnaRegMediaProfile(registry_);
  }
  void TearDown() override {
    dlnaMMUninit(registry_);
    dlnaSetMediaReaders(nullptr);
    dlnaFreeVarValue();
    fakeClearNotifications();
  }

  // Profiles a real (empty) file of that name; the fake readers fill the record.
  std::unique_ptr<DlnaMediaResult, void (*)(DlnaMediaResult*)> profile(const char* name) {
    std::string path = profile_test::writeFile(name, {});
    return {dlnaGetMediaProfile(registry_, path.c_str()), dlnaFreeItemTmp};
  }

  static std::string sourceInfo() {
    return dlnaGetVarValue(kCmsServiceId, "SourceProtocolInfo").value_or("<unset>");
  }

  MediaReaderTable readers_{};
  DlnaProfileRegistry* registry_ = nullptr;
};

void fillMp3() {
  g_fill = MediaInfo{};
  strcpy(g_fill.format, "mp3");
  g_fill.has_audio = 1;
  g_fill.audio_codec = kMediaCodecMp3;
  g_fill.sample_rate = 44100;
  g_fill.channels = 2;
  g_fill.audio_bit_rate = 128000;
  g_fill.duration = 61000000;
  strcpy(g_fill.title, "Song");
}

TEST_F(ProfileWalk, TestToneIsLpcmWithoutReadingTheFile) {
  std::unique_ptr<DlnaMediaResult, void (*)(DlnaMediaResult*)> result(
      dlnaGetMediaProfile(registry_, "/no/such/dir/B-LPCM-3.pcm"), dlnaFreeItemTmp);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(g_readerCalls, 0);
  EXPECT_EQ(result->mediaClass, kDlnaClassAudio);
  EXPECT_STREQ(result->profileName, "LPCM");
  EXPECT_STREQ(result->mime, "audio/L16;rate=48000;channels=1");
  EXPECT_EQ(result->duration, "0:01:00");
  EXPECT_EQ(result->title, "B-LPCM-3.pcm");
  EXPECT_EQ(result->album, "Unknown");
  EXPECT_EQ(result->mediaInfo, nullptr);
  EXPECT_EQ(sourceInfo(), "http-get:*:audio/L16;rate=48000;channels=1:DLNA.ORG_PN=LPCM");

  // Any other ".pcm" name is a 44.1 kHz stereo tone; a bare name is no tone.
  std::unique_ptr<DlnaMediaResult, void (*)(DlnaMediaResult*)> other(
      dlnaGetMediaProfile(registry_, "/no/such/tone.pcm.bak"), dlnaFreeItemTmp);
  ASSERT_NE(other, nullptr);
  EXPECT_STREQ(other->mime, "audio/L16;rate=44100;channels=2");
  EXPECT_EQ(dlnaGetMediaProfile(registry_, "B-LPCM-1.pcm"), nullptr);
}

// The album fallback goes by the class of the parser that claims the file,
// also when an audio parser read the file first and refused it.
TEST_F(ProfileWalk, OnlyAudioGetsUnknownForAMissingAlbum) {
  const struct {
    const char* name;
    const char* format;
    uint32_t audioCodec, videoCodec;
    const char* album;
    const char* want;
    uint32_t mediaClass;
  } cases[] = {
      {"song.mp3", "mp3", kMediaCodecMp3, 0, "", "Unknown", kDlnaClassAudio},
      {"tagged.mp3", "mp3", kMediaCodecMp3, 0, "Live", "Live", kDlnaClassAudio},
      {"song.wav", "wav", kMediaCodecPcmS16Le, 0, "", "Unknown", kDlnaClassAudio},
      {"song.m4a", "mp4", kMediaCodecAac, 0, "", "Unknown", kDlnaClassAudio},
      {"song.wma", "asf", kMediaCodecWmaV2, 0, "", "Unknown", kDlnaClassAudio},
      {"clip.mp4", "mp4", kMediaCodecAac, kMediaCodecH264, "", "", kDlnaClassVideo},
      {"clip.flv", "flv", 0, 0, "", "", kDlnaClassVideo},
      {"photo.jpg", "", 0, 0, "", "", kDlnaClassImage},
  };
  for (const auto& c : cases) {
    fillMp3();
    strcpy(g_fill.format, c.format);
    strcpy(g_fill.album, c.album);
    g_fill.audio_codec = c.audioCodec;
    g_fill.audio_config_size = 2;
    g_fill.audio_config[0] = 2 << 3;  // AAC LC
    g_fill.has_video = c.videoCodec != 0;
    g_fill.video_codec = c.videoCodec;
    g_fill.width = g_fill.height = 100;
    auto result = profile(c.name);
    ASSERT_NE(result, nullptr) << c.name;
    EXPECT_EQ(result->mediaClass, c.mediaClass) << c.name;
    EXPECT_EQ(result->album, c.want) << c.name;
    EXPECT_EQ(result->artist, "Unknown") << c.name;
  }
}

TEST_F(ProfileWalk, UnclaimedAndUnreadableFilesAreDropped) {
  fillMp3();
  EXPECT_EQ(profile("notes.xyz"), nullptr);
  EXPECT_EQ(g_readerCalls, 0);
  g_fillResult = -1;
  EXPECT_EQ(profile("broken.mp3"), nullptr);
  EXPECT_EQ(sourceInfo(), "");

  // Without the extension check every parser sees the file: the JPEG one first.
  g_fillResult = 0;
  g_fill = MediaInfo{};
  g_fill.width = g_fill.height = 100;
  dlnaSetExtCheck(registry_, 0);
  auto photo = profile("photo.xyz");
  ASSERT_NE(photo, nullptr);
  EXPECT_STREQ(photo->profileName, "JPEG_TN");
  EXPECT_EQ(photo->mediaClass, kDlnaClassImage);

  dlnaFreeVarValue();
  dlnaSetExtCheck(registry_, 1);
  fillMp3();
  EXPECT_EQ(profile("song.mp3"), nullptr) << "no SourceProtocolInfo variable";
}

TEST_F(ProfileWalk, AnEntryContainedInAnotherIsNotAdded) {
  ASSERT_EQ(dlnaAddSourceProtocolInfo("MP3X", "audio/mpeg"), 0);
  ASSERT_EQ(dlnaAddSourceProtocolInfo("MP3", "audio/mpeg"), 0);
  EXPECT_EQ(sourceInfo(), "http-get:*:audio/mpeg:DLNA.ORG_PN=MP3X");
  ASSERT_EQ(dlnaAddSourceProtocolInfo("NON-DLNA", "audio/mpeg"), 0);
  EXPECT_EQ(sourceInfo(), "http-get:*:audio/mpeg:DLNA.ORG_PN=MP3X,http-get:*:audio/mpeg:*");
}

}  // namespace
