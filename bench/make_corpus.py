#!/usr/bin/env python3
"""Makes a media library of N real files for the library benchmark.

   bench/make_corpus.py N [--seed S] [--root DIR] [--cache DIR]

ffmpeg encodes one short MP3, one JPEG and one MP4 once into the cache folder;
the corpus is copies of them: 80% MP3 (each with its own ID3v2.3 tag: 200
artists, 500 albums, 30 genres, some texts in UTF-16), 10% JPEG, 10% MP4, in
leaf folders of 20 files, 25 leaves per top folder. The same N and seed give
the same bytes; a corpus already made with them is reused (a marker file
records them). Prints the corpus folder on its last line.
"""

import argparse
import os
import random
import shutil
import struct
import subprocess
import sys

VERSION = 2
FILES_PER_FOLDER = 20
FOLDERS_PER_GROUP = 25
ARTISTS, ALBUMS, GENRES = 200, 500, 30
MARKER = ".corpus"

FF = ["ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y"]
FF_OUT = ["-fflags", "+bitexact", "-flags:v", "+bitexact", "-flags:a", "+bitexact",
          "-map_metadata", "-1"]

# What ffmpeg makes once: name -> arguments after the common ones.
BASES = {
    "base.mp3": ["-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=1",
                 "-c:a", "libmp3lame", "-b:a", "128k", "-id3v2_version", "0",
                 "-write_xing", "0"],
    "base.jpg": ["-f", "lavfi", "-i", "testsrc2=size=320x240:rate=1:duration=1",
                 "-frames:v", "1", "-q:v", "5"],
    "base.mp4": ["-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=1",
                 "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=1",
                 "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-g", "12",
                 "-b:v", "150k", "-c:a", "aac", "-b:a", "64k", "-movflags", "+faststart"],
}

WORDS = ["Blue", "Night", "Echo", "River", "Stone", "Glass", "Velvet", "North",
         "Paper", "Silver", "Quiet", "Electric", "Garden", "Hollow", "Golden"]
# Texts that ID3 cannot hold in Latin-1 go out as UTF-16.
WIDE = ["Ørsted", "Żywiec", "Ελένη", "Дмитрий", "東京", "Çağrı", "Nguyễn"]


def make_bases(cache):
    os.makedirs(cache, exist_ok=True)
    for name, args in BASES.items():
        path = os.path.join(cache, name)
        if not os.path.exists(path):
            partial = path + ".part." + name[-3:]  # ffmpeg picks the muxer by extension
            subprocess.run(FF + args + FF_OUT + [partial], check=True)
            os.replace(partial, path)


def names(rng):
    """Artist, album (with its artist, genre and year) and genre tables."""
    def phrase(i, what):
        text = f"{rng.choice(WORDS)} {rng.choice(WORDS)} {what} {i:03d}"
        return f"{rng.choice(WIDE)} {text}" if i % 9 == 4 else text

    genres = [phrase(i, "Genre") for i in range(GENRES)]
    artists = [phrase(i, "Band") for i in range(ARTISTS)]
    albums = [(phrase(i, "Album"), i % ARTISTS, rng.randrange(GENRES), rng.randrange(1960, 2025))
              for i in range(ALBUMS)]
    return artists, albums, genres


def frame(frame_id, text):
    try:
        data = b"\x00" + text.encode("latin-1")
    except UnicodeEncodeError:
        data = b"\x01" + text.encode("utf-16")  # BOM first
    return frame_id.encode() + struct.pack(">IH", len(data), 0) + data


def id3v23(frames):
    body = b"".join(frames)
    size = len(body)
    syncsafe = bytes([(size >> 21) & 0x7F, (size >> 14) & 0x7F, (size >> 7) & 0x7F, size & 0x7F])
    return b"ID3\x03\x00\x00" + syncsafe + body


def strip_id3(data):
    if data[:3] != b"ID3":
        return data
    size = (data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9]
    return data[10 + size:]


def kinds(n, rng):
    """Exactly 10% JPEG and 10% MP4 (rounded down), the rest MP3, shuffled."""
    photos = videos = n // 10
    order = ["jpg"] * photos + ["mp4"] * videos + ["mp3"] * (n - photos - videos)
    rng.shuffle(order)
    return order


def generate(n, seed, target, cache):
    rng = random.Random(seed)
    artists, albums, genres = names(rng)
    album_order = list(range(ALBUMS))
    rng.shuffle(album_order)
    bases = {}
    for ext in ("mp3", "jpg", "mp4"):
        with open(os.path.join(cache, "base." + ext), "rb") as f:
            bases[ext] = f.read()
    bases["mp3"] = strip_id3(bases["mp3"])
    tracks = 0
    for i, ext in enumerate(kinds(n, rng)):
        leaf = i // FILES_PER_FOLDER
        folder = os.path.join(target, f"d{leaf // FOLDERS_PER_GROUP:02d}", f"f{leaf:04d}")
        if i % FILES_PER_FOLDER == 0:
            os.makedirs(folder)
        if ext == "mp3":
            # Every album gets a track before any gets a second one.
            title, artist, genre, year = albums[album_order[tracks % ALBUMS]]
            tag = id3v23([
                frame("TIT2", f"Track {i:05d}"),
                frame("TPE1", artists[artist]),
                frame("TALB", title),
                frame("TCON", genres[genre]),
                frame("TYER", str(year)),
                frame("TRCK", f"{tracks // ALBUMS + 1}/20"),
            ])
            tracks += 1
            data, name = tag + bases["mp3"], f"track{i:05d}.mp3"
        else:
            data, name = bases[ext], f"{'photo' if ext == 'jpg' else 'clip'}{i:05d}.{ext}"
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("n", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--root", help="corpus folder (default /tmp/dmsd-corpus-N)")
    parser.add_argument("--cache", default="/tmp/dmsd-corpus-cache")
    args = parser.parse_args()
    root = args.root or f"/tmp/dmsd-corpus-{args.n}"
    marker = f"{VERSION} {args.n} {args.seed}\n"
    try:
        with open(os.path.join(root, MARKER)) as f:
            if f.read() == marker:
                print(root)
                return
    except OSError:
        pass
    if os.path.exists(root) and not os.path.exists(os.path.join(root, MARKER)):
        sys.exit(f"{root} exists and is no corpus; not touching it")
    make_bases(args.cache)
    building = root + ".building"
    shutil.rmtree(building, ignore_errors=True)
    os.makedirs(building)
    generate(args.n, args.seed, building, args.cache)
    with open(os.path.join(building, MARKER), "w") as f:
        f.write(marker)
    shutil.rmtree(root, ignore_errors=True)
    os.rename(building, root)
    print(root)


if __name__ == "__main__":
    main()
