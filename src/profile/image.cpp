// Image rules: JPEG, PNG and GIF profiles by picture size, TIFF and BMP always
// without a DLNA profile; and the image parse operations.
#include "profile/image.h"

#include <cstring>

namespace {

constexpr char kJpeg[] = "image/jpeg";
constexpr char kPng[] = "image/png";
constexpr char kGif[] = "image/gif";

// clang-format off
constexpr DlnaProfile g_tJpegSmIco = {"JPEG_SM_ICO", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tJpegLrgIco = {"JPEG_LRG_ICO", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tJpegTn = {"JPEG_TN", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tJpegSm = {"JPEG_SM", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tJpegMed = {"JPEG_MED", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tJpegLrg = {"JPEG_LRG", kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tExJpeg = {kDlnaNonDlna, kJpeg, kDlnaClassImage};
constexpr DlnaProfile g_tPngSmIco = {"PNG_SM_ICO", kPng, kDlnaClassImage};
constexpr DlnaProfile g_tPngLrgIco = {"PNG_LRG_ICO", kPng, kDlnaClassImage};
constexpr DlnaProfile g_tPngTn = {"PNG_TN", kPng, kDlnaClassImage};
constexpr DlnaProfile g_tPngLrg = {"PNG_LRG", kPng, kDlnaClassImage};
constexpr DlnaProfile g_tExPng = {kDlnaNonDlna, kPng, kDlnaClassImage};
constexpr DlnaProfile g_tGif = {"GIF_LRG", kGif, kDlnaClassImage};
constexpr DlnaProfile g_tExGif = {kDlnaNonDlna, kGif, kDlnaClassImage};
constexpr DlnaProfile g_tExTif = {kDlnaNonDlna, "image/tiff", kDlnaClassImage};
constexpr DlnaProfile g_tExBmp = {kDlnaNonDlna, "image/bmp", kDlnaClassImage};

struct SizeRow {
  const DlnaProfile* profile;
  uint32_t maxWidth;
  uint32_t maxHeight;
};

constexpr SizeRow jpeg_profiles_mapping[] = {
    {&g_tJpegTn, 160, 160},
    {&g_tJpegSm, 640, 480},
    {&g_tJpegMed, 1024, 768},
    {&g_tJpegLrg, 4096, 4096},
    {nullptr, 0, 0},
};

constexpr SizeRow png_profiles_mapping[] = {
    {&g_tPngSmIco, 48, 48},
    {&g_tPngLrgIco, 120, 120},
    {&g_tPngTn, 160, 160},
    {&g_tPngLrg, 4096, 4096},
    {nullptr, 0, 0},
};

constexpr SizeRow gif_profiles_mapping[] = {
    {&g_tGif, 1600, 1200},
    {nullptr, 0, 0},
};
// clang-format on

// The first row the picture fits, as it is (a portrait picture is not turned).
const DlnaProfile* fitSize(const SizeRow* rows, const MediaInfo* info, const DlnaProfile* none) {
  uint32_t w = static_cast<uint32_t>(info->width);
  uint32_t h = static_cast<uint32_t>(info->height);
  for (const SizeRow* row = rows; row->profile; ++row) {
    if (w <= row->maxWidth && h <= row->maxHeight) return row->profile;
  }
  return none;
}

bool isSquare(const MediaInfo* info, int32_t side) {
  return info->width == side && info->height == side;
}

}  // namespace

const DlnaProfile* probe_jpeg(MediaInfo* info) {
  if (!info) return nullptr;
  if (isSquare(info, 48)) return &g_tJpegSmIco;
  if (isSquare(info, 120)) return &g_tJpegLrgIco;
  return fitSize(jpeg_profiles_mapping, info, &g_tExJpeg);
}

const DlnaProfile* probe_png(MediaInfo* info) {
  if (!info) return nullptr;
  if (isSquare(info, 48)) return &g_tPngSmIco;
  if (isSquare(info, 120)) return &g_tPngLrgIco;
  return fitSize(png_profiles_mapping, info, &g_tExPng);
}

const DlnaProfile* probe_gif(MediaInfo* info) {
  if (!info) return nullptr;
  // The GIF reader marks files it will not have profiled this way.
  if (strncmp(info->format, kDlnaNonDlna, sizeof(info->format)) == 0) return &g_tExGif;
  return fitSize(gif_profiles_mapping, info, &g_tExGif);
}

const DlnaProfile* probe_tif(MediaInfo* info) {
  return info ? &g_tExTif : nullptr;
}

const DlnaProfile* probe_bmp(MediaInfo* info) {
  return info ? &g_tExBmp : nullptr;
}

const DlnaProfile* parse_jpeg(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_jpeg, result, path, kMediaFileJpeg);
}

const DlnaProfile* parse_png(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_png, result, path, kMediaFilePng);
}

const DlnaProfile* parse_gif(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_gif, result, path, kMediaFileGif);
}

const DlnaProfile* parse_tif(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_tif, result, path, kMediaFileTiff);
}

const DlnaProfile* parse_bmp(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_bmp, result, path, kMediaFileBmp);
}
