// PNG reader: signature, then chunk headers up to IHDR. A signature whose last
// four bytes were mangled by a text-mode copy is still read, since the
// chunks behind it are usually intact.
#include "media/png_read.h"

#include <cstring>

#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "png_read";

constexpr uint8_t kPngSignature[kPngSignatureSize] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
constexpr size_t kPngSignatureStem = 4;  // the part a line-ending conversion leaves alone
constexpr uint8_t kIhdr[4] = {'I', 'H', 'D', 'R'};

bool isAsciiLetter(uint8_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

bool validChunkName(const uint8_t name[4]) {
  for (int i = 0; i < 4; ++i)
    if (!isAsciiLetter(name[i])) return false;
  return true;
}

int32_t png_parse_info(PngReader* png) {
  uint8_t sig[kPngSignatureSize] = {};
  media_read_data(png->io, sig, sizeof sig);
  if (png_sig_cmp(sig, 0, kPngSignatureSize) != 0) {
    if (png_sig_cmp(sig, 0, kPngSignatureStem) != 0) return -1;
    DMS_LOG(kLogTrace, "PNG file corrupted by ASCII conversion");
  }
  // Chunk bodies are not skipped: IHDR comes first in any valid file. Each
  // pass reads 8 more bytes, so the end of the file ends the loop.
  for (;;) {
    if (png_read_chunk_header(png) != 0) return -1;
    if (memcmp(png->chunk_name, kIhdr, sizeof kIhdr) == 0)
      return png_handle_IHDR(png, png->chunk_length);
  }
}

}  // namespace

int32_t png_sig_cmp(const uint8_t* sig, size_t start, size_t n) {
  if (!sig || n == 0 || start >= kPngSignatureSize) return -1;
  if (n > kPngSignatureSize - start) n = kPngSignatureSize - start;
  return memcmp(sig + start, kPngSignature + start, n);
}

int32_t png_read_chunk_header(PngReader* png) {
  if (!png) return -1;
  uint8_t header[8];
  if (!media_read_data(png->io, header, sizeof header)) return -1;
  png->chunk_length = static_cast<uint32_t>(media_Get_BigEndianValue(header, 4));
  memcpy(png->chunk_name, header + 4, sizeof png->chunk_name);
  if (!validChunkName(png->chunk_name)) {
    // Rendered for a debugger's eyes only; the walk goes on regardless.
    char text[kPngFormatBufferSize];
    png_format_buffer(png->chunk_name, text, "invalid chunk type");
  }
  return 0;
}

int32_t png_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  PngReader png{};
  png.io = io;
  png.info = info;
  return png_parse_info(&png);
}
