// Image rules over picture sizes: the icon squares, the size tables, the
// portrait rule, the GIF reader's mark, and TIFF/BMP always without a profile.
#include "profile/image.h"

#include <gtest/gtest.h>

#include "profile_test_util.h"

namespace {

using profile_test::Want;

TEST(ProfileImage, SizeTables) {
  // clang-format off
  const struct { const DlnaProfile* (*probe)(MediaInfo*); int32_t width; int32_t height; Want want; const char* format = ""; } cases[] = {
      {probe_jpeg, 48, 48, {"JPEG_SM_ICO", "image/jpeg"}},
      {probe_jpeg, 47, 48, {"JPEG_TN", "image/jpeg"}},
      {probe_jpeg, 120, 120, {"JPEG_LRG_ICO", "image/jpeg"}},
      {probe_jpeg, 0, 0, {"JPEG_TN", "image/jpeg"}},
      {probe_jpeg, 160, 160, {"JPEG_TN", "image/jpeg"}},
      {probe_jpeg, 161, 160, {"JPEG_SM", "image/jpeg"}},
      {probe_jpeg, 640, 481, {"JPEG_MED", "image/jpeg"}},
      {probe_jpeg, 480, 640, {"JPEG_MED", "image/jpeg"}},
      {probe_jpeg, 4096, 4096, {"JPEG_LRG", "image/jpeg"}},
      {probe_jpeg, 4097, 10, {"NON-DLNA", "image/jpeg"}},
      {probe_jpeg, -1, 10, {"NON-DLNA", "image/jpeg"}},
      {probe_png, 47, 48, {"PNG_SM_ICO", "image/png"}},
      {probe_png, 100, 120, {"PNG_LRG_ICO", "image/png"}},
      {probe_png, 120, 121, {"PNG_TN", "image/png"}},
      {probe_png, 4096, 200, {"PNG_LRG", "image/png"}},
      {probe_png, 200, 4097, {"NON-DLNA", "image/png"}},
      {probe_gif, 1600, 1200, {"GIF_LRG", "image/gif"}},
      {probe_gif, 1601, 1, {"NON-DLNA", "image/gif"}},
      {probe_gif, 16, 16, {"NON-DLNA", "image/gif"}, "NON-DLNA"},
      {probe_tif, 16, 16, {"NON-DLNA", "image/tiff"}},
      {probe_bmp, 16, 16, {"NON-DLNA", "image/bmp"}},
  };
  // clang-format on
  for (const auto& c : cases) {
    auto info = profile_test::newInfo(c.format);
    info->width = c.width;
    info->height = c.height;
    profile_test::expectProfile(c.probe(info.get()), c.want,
                                std::to_string(c.width) + "x" + std::to_string(c.height));
  }
  for (auto probe : {probe_jpeg, probe_png, probe_gif, probe_tif, probe_bmp}) {
    EXPECT_EQ(probe(nullptr), nullptr);
  }
}

}  // namespace
