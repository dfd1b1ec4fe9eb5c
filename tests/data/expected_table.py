#!/usr/bin/env python3
"""Writes expected.tsv: ffprobe's view of each fixture (<file>.json) reduced
to the fields the reader test compares, one row per file, so the test binary
needs neither ffprobe nor a JSON parser. Run by make_fixtures.sh inside the
media directory; an absent number is written as 0, an absent text as '-'."""
import glob, json

COLUMNS = ["file", "format", "duration", "bit_rate", "size",
           "vcodec", "width", "height", "fps", "vbit_rate", "vduration", "profile", "level",
           "acodec", "channels", "sample_rate", "abit_rate"]

def first(streams, kind):
    return next((s for s in streams if s.get("codec_type") == kind), {})

rows = ["\t".join(COLUMNS)]
for path in sorted(glob.glob("*.json")):
    view = json.load(open(path))
    fmt = view.get("format", {})
    v, a = first(view.get("streams", []), "video"), first(view.get("streams", []), "audio")
    values = [path[:-5], fmt.get("format_name"), fmt.get("duration"), fmt.get("bit_rate"),
              fmt.get("size"), v.get("codec_name"), v.get("width"), v.get("height"),
              v.get("r_frame_rate"), v.get("bit_rate"), v.get("duration"), v.get("profile"),
              v.get("level"), a.get("codec_name"), a.get("channels"), a.get("sample_rate"),
              a.get("bit_rate")]
    rows.append("\t".join("-" if x is None and i in (1, 5, 8, 11, 13) else str(x or 0)
                          for i, x in enumerate(values)))
open("expected.tsv", "w").write("\n".join(rows) + "\n")
