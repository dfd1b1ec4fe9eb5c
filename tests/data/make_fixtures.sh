#!/usr/bin/env bash
# Regenerates the small media files the reader tests run against, and beside
# each one ffprobe's view of it (<file>.json) as the reference the tests
# compare with. Needs ffmpeg/ffprobe, mkvmerge (mkvtoolnix), exiftool,
# ImageMagick and python3.
#
# Every run rebuilds the whole directory. Sources are synthetic (testsrc2,
# sine/aevalsrc, ImageMagick gradients) and the muxers run bit-exact, so the
# output is stable for a given tool version. Structures no encoder writes
# (hand-made ID3 tags, odd WAV and BMP layouts, damaged headers) are built
# byte by byte with python3.
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
OUT="$HERE/media"
TMP="$(mktemp -d)"
trap 'rm -rf "$TMP"' EXIT

rm -rf "$OUT"
mkdir -p "$OUT"
cd "$OUT"

FF=(ffmpeg -nostdin -hide_banner -loglevel error -y)
BX=(-fflags +bitexact -flags:v +bitexact -flags:a +bitexact)
NOTAGS=(-map_metadata -1)
X264=(-c:v libx264 -preset veryfast -threads 1 -g 12)

# Two different tones so left and right differ; rate and length vary per file.
# Optional third argument: samples per frame (the DVD LPCM muxer wants small
# packets).
stereo() { echo "aevalsrc=0.4*sin(440*2*PI*t)|0.4*sin(660*2*PI*t):s=$1:d=$2:n=${3:-1024}"; }
mono() { echo "sine=frequency=440:sample_rate=$1:duration=$2"; }
video() { echo "testsrc2=size=$1:rate=$2:duration=$3"; }

# ---------------------------------------------------------------- MP3
"${FF[@]}" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a libmp3lame -b:a 128k -id3v2_version 0 -write_xing 0 mp3_cbr_44k_128k_stereo.mp3
"${FF[@]}" -f lavfi -i "$(mono 22050 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a libmp3lame -b:a 64k -ac 1 -id3v2_version 0 -write_xing 0 mp3_cbr_22k_64k_mono.mp3
"${FF[@]}" -f lavfi -i "$(stereo 44100 2)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a libmp3lame -q:a 4 -id3v2_version 0 mp3_vbr_xing.mp3
# Bare frames that the hand-built tags are put in front of.
"${FF[@]}" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a libmp3lame -b:a 64k -id3v2_version 0 -write_xing 0 "$TMP/bare.mp3"

# All ID3 tags of the tagged files are assembled here: ffmpeg drops ID3v1
# whenever ID3v2 is switched off, writes no TYER/TCON "(n)" frames and never
# sets the unsynchronisation flag.
python3 - "$TMP/bare.mp3" <<'PY'
import struct, sys

def synchsafe(n):
    return bytes([(n >> 21) & 0x7F, (n >> 14) & 0x7F, (n >> 7) & 0x7F, n & 0x7F])

def frame23(fid, payload):
    return fid.encode() + struct.pack(">I", len(payload)) + b"\0\0" + payload

def frame24(fid, payload):
    return fid.encode() + synchsafe(len(payload)) + b"\0\0" + payload

def latin1(s):
    return b"\x00" + s.encode("latin-1")

def utf16_bom(s):
    return b"\x01\xff\xfe" + s.encode("utf-16-le")

def id3v1(title, artist, album, year, track, genre):
    field = lambda s, n: s.encode("latin-1").ljust(n, b"\0")[:n]
    # ID3v1.1: a zero at byte 125 makes byte 126 the track number.
    return (b"TAG" + field(title, 30) + field(artist, 30) + field(album, 30) + field(year, 4)
            + b"\0" * 28 + bytes([0, track, genre]))

def tag(version, flags, frames, padding):
    body = b"".join(frames) + b"\0" * padding
    return b"ID3" + bytes([version, 0, flags]) + synchsafe(len(body)) + body

bare = open(sys.argv[1], "rb").read()
bare_v1 = bare + id3v1("Title From V1", "Artist From V1", "Album From V1", "2001", 0, 17)

open("mp3_id3v1_only.mp3", "wb").write(
    bare + id3v1("Fixture Title V1", "Fixture Artist V1", "Fixture Album V1", "1999", 5, 8))

v23 = tag(3, 0, [
    frame23("TIT2", latin1("Fixture Title")),
    frame23("TPE1", utf16_bom("Fixture Ärtist")),
    frame23("TALB", latin1("Fixture Album Été")),
    frame23("TCON", latin1("(17)")),
    frame23("TYER", latin1("2009-12-31")),
    frame23("TRCK", latin1("3/12")),
], padding=64)
open("mp3_id3v23_genre_date.mp3", "wb").write(v23 + bare)

# ASCII only, so the unsynchronisation scheme would change nothing; the flag
# alone is what readers must react to.
v24 = tag(4, 0x80, [
    frame24("TIT2", b"\x03" + b"Title From V2.4"),
    frame24("TPE1", b"\x03" + b"Artist From V2.4"),
], padding=32)
open("mp3_id3v24_unsync.mp3", "wb").write(v24 + bare_v1)
PY

"${FF[@]}" -f lavfi -i "color=c=orange:size=64x64:duration=1" -frames:v 1 "${BX[@]}" \
  -c:v mjpeg -q:v 5 "$TMP/cover.jpg"
"${FF[@]}" -i "$TMP/bare.mp3" -i "$TMP/cover.jpg" -map 0:a -map 1:v -c copy "${BX[@]}" \
  -id3v2_version 3 -metadata title="Fixture With Cover" -metadata artist="Fixture Artist" \
  -metadata:s:v title="Front" -metadata:s:v comment="Cover (front)" mp3_apic.mp3

# ---------------------------------------------------------------- AVI
"${FF[@]}" -f lavfi -i "$(video 176x144 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v mpeg4 -b:v 150k -g 12 -c:a libmp3lame -b:a 64k avi_mpeg4_mp3.avi
"${FF[@]}" -f lavfi -i "$(video 176x144 25 1)" -f lavfi -i "$(mono 11025 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v mpeg4 -b:v 150k -g 12 -c:a pcm_u8 avi_pcm_u8.avi

# ---------------------------------------------------------------- WAV
"${FF[@]}" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a pcm_s16le wav_conventional.wav

# No tool writes this layout: no RIFF size, fmt size stored big-endian.
# One second of samples, so a size-based duration comes out as a whole second.
python3 <<'PY'
import math, struct
rate, channels, bits = 48000, 2, 16
align = channels * bits // 8
samples = bytearray()
for i in range(rate):
    v = int(12000 * math.sin(2 * math.pi * 440 * i / rate))
    samples += struct.pack("<hh", v, -v)
fmt = struct.pack("<HHIIHH", 1, channels, rate, rate * align, align, bits)
data = b"RIFF" + b"WAVE" + b"fmt " + struct.pack(">I", len(fmt)) + fmt
data += b"data" + struct.pack("<I", len(samples)) + bytes(samples)
open("wav_accepted_layout.wav", "wb").write(data)
PY

# ---------------------------------------------------------------- still images
IMG=(-strip -define "png:exclude-chunks=date,time")
convert -size 320x240 gradient:navy-orange "${IMG[@]}" -quality 85 jpeg_plain.jpg
convert -size 320x240 gradient:teal-yellow "${IMG[@]}" -quality 85 -interlace Plane jpeg_progressive.jpg

# Camera-like file: EXIF dates (0x0132 is ModifyDate to exiftool), pixel dimensions, XP texts and a 160x120
# thumbnail in IFD1.
convert -size 640x480 gradient:darkgreen-white "${IMG[@]}" -quality 85 jpeg_exif_thumb.jpg
convert -size 160x120 gradient:darkgreen-white "${IMG[@]}" -quality 75 "$TMP/thumb.jpg"
exiftool -q -overwrite_original \
  -IFD0:Make="Fixture Cam" -IFD0:Model="FC-1" \
  -IFD0:ModifyDate="2011:07:15 10:20:30" -ExifIFD:DateTimeOriginal="2011:07:15 10:20:30" \
  -ExifIFD:ExifImageWidth=640 -ExifIFD:ExifImageHeight=480 \
  -IFD0:XPTitle="Harbour at Dusk" -IFD0:XPAuthor="Fixture Photographer" -IFD0:XPSubject="Holiday" \
  "-ThumbnailImage<=$TMP/thumb.jpg" jpeg_exif_thumb.jpg
# EXIF present but without any size tag.
cp jpeg_plain.jpg jpeg_exif_nosize.jpg
exiftool -q -overwrite_original -IFD0:ModifyDate="2012:01:02 03:04:05" jpeg_exif_nosize.jpg

convert -size 300x200 gradient:red-blue "${IMG[@]}" png_plain.png
# A text-mode transfer turning "\r\n" into "\n" inside the signature. The
# damage is kept within bytes 4..7 so the chunks stay where they were.
python3 <<'PY'
data = bytearray(open("png_plain.png", "rb").read())
tail = bytes(data[4:8]).replace(b"\r\n", b"\n")
data[4:8] = (tail + b"\n" * 4)[:4]
assert data[:4] == b"\x89PNG" and data[4:8] != b"\r\n\x1a\n"
open("png_crlf_damaged.png", "wb").write(data)
PY

convert -size 100x80 gradient:blue-white "${IMG[@]}" -colors 16 GIF87:gif87a.gif
convert -size 120x90 gradient:red-white "${IMG[@]}" -colors 16 gif89a.gif

# ImageMagick writes bottom-up bitmaps only; a top-down one stores -height.
python3 <<'PY'
import struct
w, h = 64, 48
rows = bytearray()
for y in range(h):
    for x in range(w):
        rows += bytes([x * 4, y * 5, 128])
offset = 14 + 40
header = b"BM" + struct.pack("<IHHI", offset + len(rows), 0, 0, offset)
info = struct.pack("<IiiHHIIiiII", 40, w, -h, 1, 24, 0, len(rows), 2835, 2835, 0, 0)
open("bmp_topdown.bmp", "wb").write(header + info + rows)
PY

convert -size 120x80 gradient:purple-white "${IMG[@]}" -compress zip -define tiff:endian=lsb tiff_le.tif
convert -size 120x80 gradient:purple-white "${IMG[@]}" -compress zip -define tiff:endian=msb tiff_be.tif

# ---------------------------------------------------------------- MP4 family
FAST=(-movflags +faststart)
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a aac -b:a 64k "${FAST[@]}" mp4_h264_aac.mp4
"${FF[@]}" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a aac -b:a 64k "${FAST[@]}" m4a_aac.m4a
# No AMR encoder in this ffmpeg build: H.263 + AAC mono instead.
"${FF[@]}" -f lavfi -i "$(video 176x144 15 1)" -f lavfi -i "$(mono 22050 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v h263 -b:v 100k -g 12 -c:a aac -b:a 32k -ac 1 "${FAST[@]}" gp3_brand.3gp
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v mpeg4 -b:v 200k -g 12 -c:a aac -b:a 64k "${FAST[@]}" mp4_mpeg4part2.mp4
# ffmpeg's default layout: mdat first, moov at the end.
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a aac -b:a 64k mp4_moov_after_mdat.mp4

# ---------------------------------------------------------------- Matroska
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 48000 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -profile:v high -b:v 200k -c:a ac3 -b:a 128k mkv_h264_high_ac3.mkv
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a aac -b:a 64k mkv_h264_aac.mkv
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a libmp3lame -b:a 64k mkv_h264_mp3.mkv
# The levels the HD profiles ask for (High 4.1, Main 3.1) on a small picture,
# which those rules do not look at. ffmpeg writes a track's CodecID before its
# TrackType, mkvmerge after it. AudioSpecificConfig: 2 bytes for AAC-LC taken
# from ADTS (ffmpeg's own encoder adds a 3-byte "no SBR" extension), 5 for the
# mkvmerge track that declares SBR over a 24 kHz core.
"${FF[@]}" -f lavfi -i "$(video 320x240 25 0.5)" -f lavfi -i "$(stereo 48000 0.5)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -profile:v high -level:v 4.1 -b:v 200k -c:a ac3 -b:a 128k mkv_h264_high41_ac3.mkv
"${FF[@]}" -f lavfi -i "$(video 320x240 25 0.5)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -profile:v main -level:v 3.1 -b:v 200k "$TMP/main31.mp4"
"${FF[@]}" -f lavfi -i "$(stereo 48000 0.5)" "${BX[@]}" "${NOTAGS[@]}" -c:a aac -b:a 64k -f adts "$TMP/lc48k.aac"
"${FF[@]}" -f lavfi -i "$(stereo 24000 0.5)" "${BX[@]}" "${NOTAGS[@]}" -c:a aac -b:a 32k -f adts "$TMP/core24k.aac"
"${FF[@]}" -i "$TMP/main31.mp4" -i "$TMP/lc48k.aac" "${BX[@]}" "${NOTAGS[@]}" -c copy mkv_h264_main31_aac.mkv
MKVMERGE=(mkvmerge -q --deterministic 14 --disable-track-statistics-tags)
"${MKVMERGE[@]}" -o mkvmerge_h264_main31_heaac.mkv "$TMP/main31.mp4" --aac-is-sbr 0:1 "$TMP/core24k.aac"
"${MKVMERGE[@]}" -o mkvmerge_h264_high41_ac3.mkv mkv_h264_high41_ac3.mkv
# VP8 (libvpx) with Vorbis.
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v libvpx -b:v 200k -g 12 -deadline good -cpu-used 5 -threads 1 \
  -c:a libvorbis -b:a 64k webm_vp8.webm

# ---------------------------------------------------------------- ASF
"${FF[@]}" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:a wmav2 -b:a 64k wma_wmav2.wma
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v wmv2 -b:v 200k -g 12 -c:a wmav2 -b:a 64k asf_wmv2.wmv

# ---------------------------------------------------------------- FLV
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a aac -b:a 64k flv_h264_aac_meta.flv
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -c:v flv1 -b:v 200k -g 12 -c:a libmp3lame -b:a 64k -ar 44100 flv_sorenson_mp3.flv

# ffmpeg always writes onMetaData; drop the script tags and re-chain the
# previous-tag sizes.
python3 <<'PY'
import struct
src = open("flv_h264_aac_meta.flv", "rb").read()
header_size = struct.unpack(">I", src[5:9])[0]
out = bytearray(src[:header_size]) + b"\0\0\0\0"
pos = header_size + 4
dropped = 0
while pos + 11 <= len(src):
    size = int.from_bytes(src[pos + 1:pos + 4], "big")
    tag = src[pos:pos + 11 + size]
    pos += 11 + size + 4
    if tag[0] & 0x1F == 18:
        dropped += 1
        continue
    out += tag + struct.pack(">I", len(tag))
assert dropped >= 1
open("flv_nometa.flv", "wb").write(out)
PY

# ---------------------------------------------------------------- MPEG PS / TS
# testsrc2 is busy; without a rate cap MPEG-2 overshoots its target. The PS
# files get a longer mux delay so the muxer's buffer model is not underrun;
# the AC-3 one still reports harmless underruns, which are filtered out.
M2V=(-c:v mpeg2video -b:v 600k -maxrate 600k -bufsize 600k -g 12)
"${FF[@]}" -f lavfi -i "$(video 352x288 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  -target pal-vcd mpeg1_vcd.mpg
"${FF[@]}" -f lavfi -i "$(video 720x576 25 1)" -f lavfi -i "$(stereo 48000 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${M2V[@]}" -c:a ac3 -b:a 128k -muxdelay 1 -f vob mpeg2_ps_pal_ac3.mpg 2>&1 |
  { grep -v -e 'buffer underflow' -e 'Last message repeated' || true; } >&2
"${FF[@]}" -f lavfi -i "$(video 720x576 25 0.5)" -f lavfi -i "$(stereo 48000 0.5 256)" "${BX[@]}" "${NOTAGS[@]}" \
  "${M2V[@]}" -c:a pcm_s16be -muxdelay 1 -f vob mpeg2_ps_pal_lpcm.mpg
"${FF[@]}" -f lavfi -i "$(video 352x288 25 1)" -f lavfi -i "$(stereo 48000 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${M2V[@]}" -c:a mp2 -b:a 128k -f mpegts mpeg2_ts.ts
"${FF[@]}" -f lavfi -i "$(video 352x288 25 1)" -f lavfi -i "$(stereo 48000 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${M2V[@]}" -c:a mp2 -b:a 128k -f mpegts -mpegts_m2ts_mode 1 mpeg2_m2ts.m2ts
"${FF[@]}" -f lavfi -i "$(video 320x240 25 1)" -f lavfi -i "$(stereo 44100 1)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -b:v 200k -c:a aac -b:a 64k -f mpegts h264_aac.ts
"${FF[@]}" -f lavfi -i "$(video 1920x1080 25 0.5)" -f lavfi -i "$(stereo 48000 0.5)" "${BX[@]}" "${NOTAGS[@]}" \
  "${X264[@]}" -profile:v main -b:v 1M -c:a ac3 -b:a 128k -f mpegts -mpegts_m2ts_mode 1 h264_ac3_1080.m2ts

# ---------------------------------------------------------------- ffprobe views
# Run from inside the directory so "filename" holds the bare name. A file
# ffprobe complains about (the damaged PNG, the odd WAV) gets no view: a
# half-read view would only mislead the comparisons.
for f in *; do
  case "$f" in *.json) continue ;; esac
  if ! ffprobe -v error -show_format -show_streams -of json "$f" >"$f.json" 2>"$TMP/probe.err" ||
    [ -s "$TMP/probe.err" ]; then
    rm -f "$f.json"
    echo "no ffprobe view for $f" >&2
  fi
done

# The fields the reader test compares, one row per view: the test binary
# reads this table, not the views.
python3 "$HERE/expected_table.py"
