// PNG chunk handling: the IHDR body, the CRC that ends every chunk, and the
// rendering of chunk names for diagnostics.
#include <cstdint>
#include <cstring>

#include "media/png_read.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "png_rutil";

constexpr char png_digit[] = "0123456789ABCDEF";
constexpr size_t kMaxMessage = 63;

bool isAsciiLetter(uint8_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

}  // namespace

int32_t png_handle_IHDR(PngReader* png, uint32_t length) {
  if (!png || !png->info) return -1;
  if (png->mode & kPngHaveIhdr) DMS_LOG(kLogFailure, "Out of place IHDR");
  if (length != kPngIhdrSize) DMS_LOG(kLogEvent, "Invalid IHDR chunk");
  uint8_t body[kPngIhdrSize];
  if (!media_read_data(png->io, body, sizeof body)) return -1;
  png->mode |= kPngHaveIhdr;
  png->info->width = static_cast<int32_t>(media_Get_BigEndianValue(body, 4));
  png->info->height = static_cast<int32_t>(media_Get_BigEndianValue(body + 4, 4));
  png_crc_finish(png, 0);
  return 0;
}

int32_t png_crc_finish(PngReader* png, uint32_t skip) {
  if (!png || skip > INT32_MAX) return 1;
  if (skip > 0) media_skip_data(png->io, static_cast<int32_t>(skip));
  const uint32_t stored = media_get_4BigEndianValue(png->io);
  if (stored == png->crc) return 0;
  char text[kPngFormatBufferSize];
  png_format_buffer(png->chunk_name, text, "CRC error");
  return 1;
}

void png_format_buffer(const uint8_t chunk[4], char* buf, const char* message) {
  if (!buf) return;
  size_t used = 0;
  for (int i = 0; chunk && i < 4; ++i) {
    const uint8_t c = chunk[i];
    if (isAsciiLetter(c)) {
      buf[used++] = static_cast<char>(c);
    } else {
      buf[used++] = '[';
      buf[used++] = png_digit[c >> 4];
      buf[used++] = png_digit[c & 0x0F];
      buf[used++] = ']';
    }
  }
  if (message) {
    buf[used++] = ':';
    buf[used++] = ' ';
    const size_t n = strnlen(message, kMaxMessage);
    memcpy(buf + used, message, n);
    used += n;
  }
  buf[used] = '\0';
}
