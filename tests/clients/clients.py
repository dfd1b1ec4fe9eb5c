"""Independent clients against the real daemon.

Starts dmsd on a copy of the fixture media and drives it with programs we did
not write: a GUPnP control point (discovery, Browse walk, DIDL-Lite parsing,
events), gmediarender as a renderer that pulls media, cvlc as a player,
ffprobe as a media reader and curl for thumbnails. Each check prints PASS or
FAIL with the reason; the exit status is non-zero when any failed. Every URL
comes from what the daemon publishes. Run by run.sh inside a private network
namespace, never directly.
"""

import argparse
import concurrent.futures
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse
import xml.etree.ElementTree as ET

import gi

gi.require_version("GLib", "2.0")
gi.require_version("GSSDP", "1.6")
gi.require_version("GUPnP", "1.6")
gi.require_version("GUPnPAV", "1.0")
from gi.repository import Gio, GLib, GObject, GSSDP, GUPnP, GUPnPAV  # noqa: E402

CDS = "urn:schemas-upnp-org:service:ContentDirectory:1"
AVT = "urn:schemas-upnp-org:service:AVTransport:1"
PAGE = 7  # small enough that every bigger container takes several pages
SERVER_NAME = "Clients & Tests"
DEADLINE = 150  # seconds for the whole run; ctest allows 180


class Failed(Exception):
    pass


expired = []  # set once the run is out of time; also seen where GLib drops exceptions


class Report:
    def __init__(self):
        self.passed = 0
        self.failed = 0
        self.started = time.monotonic()

    def check(self, name, problems):
        """One check: `problems` is a list of texts (empty: passed) or a bool."""
        if problems is True or problems == []:
            self.passed += 1
            print(f"PASS {name} [{time.monotonic() - self.started:.1f} s]", flush=True)
            return True
        if problems is False:
            problems = ["failed"]
        self.failed += 1
        shown = problems[:8] + ([f"... {len(problems) - 8} more"] if len(problems) > 8 else [])
        print(f"FAIL {name} [{time.monotonic() - self.started:.1f} s]: " + "\n    ".join(shown),
              flush=True)
        return False


# --- GLib plumbing ---------------------------------------------------------

def wait_for(predicate, seconds):
    """Runs the main loop until predicate() holds; False after `seconds`."""
    context = GLib.MainContext.default()
    tick = GLib.timeout_add(20, lambda: True)
    end = time.monotonic() + seconds
    try:
        while not predicate():
            if expired:
                raise Failed(expired[0])
            if time.monotonic() > end:
                return False
            context.iteration(True)
        return True
    finally:
        GLib.source_remove(tick)


def text_value(text):
    value = GObject.Value(GObject.TYPE_STRING)
    value.set_string(text)
    return value


def call(proxy, action, args, outs, seconds=10):
    """SOAP action with string arguments; returns the named string outputs."""
    request = GUPnP.ServiceProxyAction.new_from_list(
        action, list(args), [text_value(str(v)) for v in args.values()])
    done = []
    cancel = Gio.Cancellable()
    proxy.call_action_async(request, cancel, lambda p, result: done.append(result))
    if not wait_for(lambda: done, seconds):
        cancel.cancel()
        raise Failed(f"{action}: no answer within {seconds} s")
    try:
        proxy.call_action_finish(done[0])
        ok, values = request.get_result_list(outs, [GObject.TYPE_STRING] * len(outs))
    except GLib.Error as e:
        raise Failed(f"{action} {args}: {e.message}")
    if not ok:
        raise Failed(f"{action}: answer lacks {outs}")
    return dict(zip(outs, values))


def browse(cds, object_id, flag="BrowseDirectChildren", start=0, count=0, outs=("Result",)):
    return call(cds, "Browse", {"ObjectID": object_id, "BrowseFlag": flag, "Filter": "*",
                                "StartingIndex": start, "RequestedCount": count,
                                "SortCriteria": ""}, list(outs))


def discover(context, device_type, seconds=15):
    found = []
    point = GUPnP.ControlPoint.new(context, device_type)
    point.connect("device-proxy-available", lambda p, device: found.append(device))
    point.set_active(True)
    wait_for(lambda: found, seconds)
    return point, found


# --- the content tree as GUPnP-AV sees it ----------------------------------

class Item:
    def __init__(self, obj, raw):
        self.id = obj.get_id()
        self.title = obj.get_title()
        self.upnp_class = obj.get_upnp_class() or ""
        self.res = []  # (uri, protocolInfo text, raw attributes, GUPnP's ProtocolInfo or None)
        raws = raw.get(self.id, [])
        for index, res in enumerate(obj.get_resources()):
            attrib = raws[index] if index < len(raws) else {}
            self.res.append((res.get_uri(), attrib.get("protocolInfo", ""), attrib,
                             res.get_protocol_info()))
        self.album_art = obj.get_album_art()

    def kind(self):
        return next((k for k in ("audio", "video", "image") if f".{k}Item" in self.upnp_class), "")


def parse_didl(text):
    """GUPnP-AV's reading of a Browse Result: (containers, items). The raw res
    attributes come from a second parse, since GUPnP-AV rounds durations to
    whole seconds."""
    containers, items = [], []
    raw = {}
    root = ET.fromstring(text)
    if len(root) == 0:
        return containers, items  # GUPnP-AV calls a DIDL-Lite without objects an error
    for node in root:
        if node.tag.endswith("}item"):
            raw[node.get("id")] = [r.attrib for r in node if r.tag.endswith("}res")]
    parser = GUPnPAV.DIDLLiteParser()
    parser.connect("container-available", lambda p, c: containers.append(c))
    parser.connect("item-available", lambda p, i: items.append(Item(i, raw)))
    parser.parse_didl(text)
    return containers, items


def walk(cds, report_problem):
    """Browses every container from the root, PAGE children at a time."""
    items, containers, child_counts = {}, {}, {}
    queue, seen, calls = ["0"], {"0"}, 0
    while queue:
        parent = queue.pop(0)
        start, total = 0, None
        while True:
            calls += 1
            if calls > 2000:
                raise Failed("more than 2000 Browse calls: the tree does not end")
            out = browse(cds, parent, start=start, count=PAGE,
                         outs=("Result", "NumberReturned", "TotalMatches"))
            try:
                found_containers, found_items = parse_didl(out["Result"])
            except (GLib.Error, ET.ParseError) as e:
                report_problem(f"{parent}@{start}: DIDL-Lite does not parse: {e}")
                break
            count = len(found_containers) + len(found_items)
            if int(out["NumberReturned"]) != count or count > PAGE:
                report_problem(f"{parent}@{start}: NumberReturned {out['NumberReturned']}, "
                               f"{count} objects in Result")
            if total is not None and int(out["TotalMatches"]) != total:
                report_problem(f"{parent}: TotalMatches changed between pages")
            total = int(out["TotalMatches"])
            for c in found_containers:
                if c.get_parent_id() != parent:
                    report_problem(f"{c.get_id()}: parentID {c.get_parent_id()} under {parent}")
                child_counts[c.get_id()] = c.get_child_count()
                containers[c.get_id()] = [c.get_title(), c.get_upnp_class(), None]
                if c.get_id() not in seen:
                    seen.add(c.get_id())
                    queue.append(c.get_id())
            for item in found_items:
                items.setdefault(item.id, item)
            start += count
            if count == 0 or start >= total:
                break
        if parent in containers:
            containers[parent][2] = total
        if start != total:
            report_problem(f"{parent}: {start} children delivered of TotalMatches {total}")
        if parent in child_counts and child_counts[parent] not in (-1, total):
            report_problem(f"{parent}: childCount {child_counts[parent]}, Browse found {total}")
    return containers, items, calls


# --- external programs -----------------------------------------------------

def run(argv, seconds, **kwargs):
    try:
        return subprocess.run(argv, capture_output=True, text=True, timeout=seconds, **kwargs)
    except subprocess.TimeoutExpired:
        return subprocess.CompletedProcess(argv, -1, "", f"no end within {seconds} s")


def probe(target, seekable=True):
    # ffprobe asks for "Range: bytes=0-" unless told the URL cannot seek.
    entries = "format=duration:stream=codec_type,codec_name,width,height"
    result = run(["ffprobe", "-v", "error", "-rw_timeout", "10000000", "-of", "json",
                  "-show_entries", entries] + ([] if seekable else ["-seekable", "0"]) + [target],
                 30)
    if result.returncode != 0:
        return None, result.stderr.strip() or f"exit {result.returncode}"
    return json.loads(result.stdout), ""


def byte_seek(protocol_info):
    """Whether a protocolInfo offers byte ranges (DLNA.ORG_OP=x1); what a DLNA
    client goes by before it sends Range."""
    found = re.search(r"DLNA\.ORG_OP=[01]([01])", protocol_info)
    return bool(found) and found.group(1) == "1"


def seconds_of(text):
    """res@duration H+:MM:SS.FFF as seconds."""
    h, m, s = text.split(":")
    return int(h) * 3600 + int(m) * 60 + float(s)


def as_unprivileged(argv):
    """cvlc will not run as root: run it as uid 65534, by setpriv when we are
    really root, else through a user namespace of its own."""
    with open("/proc/self/uid_map") as f:
        really_root = f.read().split() == ["0", "0", "4294967295"]
    if really_root:
        return ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--"] + argv
    return ["unshare", "--user", "--map-user=65534", "--map-group=65534", "--"] + argv


class Daemon:
    def __init__(self, binary, work, media, data_dir):
        self.share = os.path.join(work, "share")
        self.extra = os.path.join(work, "extra")
        os.makedirs(os.path.join(self.share, "empty"))
        os.makedirs(self.extra)
        for name in sorted(os.listdir(media)):
            # png_crlf_damaged.png is damaged on purpose: no player shows it.
            if not name.endswith(".json") and "damaged" not in name:
                shutil.copy(os.path.join(media, name), self.share)
        # A title that needs escaping and is not ASCII: it comes from the file name.
        shutil.copy(os.path.join(media, "mp3_cbr_44k_128k_stereo.mp3"),
                    os.path.join(self.share, "Café & Bar.mp3"))
        shutil.copy(os.path.join(media, "mp3_vbr_xing.mp3"), self.extra)
        self.request = os.path.join(work, "folder_request.conf")
        config = os.path.join(work, "dms.conf")
        with open(config, "w") as f:
            f.write(f"Enable = 1\nPort = 0\nRescanTime = 0\nIPAddress = 127.0.0.1\n"
                    f"Interface = lo\nDmsName = {SERVER_NAME}\nContentList = {self.share}\n")
        self.log_path = os.path.join(work, "dmsd.log")
        self.log = open(self.log_path, "w")
        self.process = subprocess.Popen(
            [binary, "--config", config, "--folder-request", self.request, "--data-dir", data_dir,
             "--log-level", "8"], stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log)

    def log_size(self):
        return os.path.getsize(self.log_path)

    def log_since(self, offset):
        with open(self.log_path, errors="replace") as f:
            f.seek(offset)
            return f.read()

    def folder_request(self, path):
        with open(self.request, "w") as f:
            f.write(f"Enable = 1\nFolderPath = {path}\n")
        self.process.send_signal(signal.SIGUSR1)

    def stop(self, seconds=15):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            return None


def fetched(daemon, offset, url, seconds=10):
    """Whether the daemon opened the file behind `url` after log offset
    `offset` (it logs every open, with the URL path, at --log-level 8)."""
    path = re.escape("/".join(urllib.parse.urlparse(url).path.split("/")[-2:]))
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if re.search(r"open\b.*" + path + r"\b", daemon.log_since(offset)):
            return True
        time.sleep(0.05)
    return False


# --- the checks ------------------------------------------------------------

def wait_ready(daemon, cds, seconds=30):
    """The server advertises itself before its library is built, fails
    Browse for a moment and then shows the tree while it grows, as designed:
    the walk waits for the build's summary in the log."""
    end = time.monotonic() + seconds
    while not re.search(r"music:\d+; photo:\d+; video:\d+", daemon.log_since(0)):
        if time.monotonic() > end:
            raise Failed("the daemon never finished building its library")
        wait_for(lambda: False, 0.05)
    while True:
        try:
            return browse(cds, "0", "BrowseMetadata")
        except Failed:
            if time.monotonic() > end:
                raise
            wait_for(lambda: False, 0.1)


def check_tree(report, cds):
    problems = []
    containers, items, calls = walk(cds, problems.append)
    print(f"     walked {len(containers)} containers, {len(items)} items, {calls} Browse calls")
    report.check("Browse walk: paging, counts and DIDL-Lite parse", problems)
    report.check("an empty folder browses as an empty container",
                 [] if ["empty", "object.container.storageFolder", 0] in containers.values()
                 else ["no empty storage folder titled 'empty'"])
    problems = []
    for item in items.values():
        if not item.res:
            problems.append(f"{item.id} {item.title!r}: no res")
        for uri, info, _, parsed in item.res:
            try:
                GUPnPAV.ProtocolInfo.new_from_string(info)
            except GLib.Error as e:
                problems.append(f"{item.id} {uri}: protocolInfo {info!r}: {e.message}")
                continue
            if parsed is None or parsed.get_protocol() != "http-get":
                problems.append(f"{item.id} {uri}: protocolInfo {info!r} not http-get for GUPnP")
            if not uri or urllib.parse.urlparse(uri).scheme != "http":
                problems.append(f"{item.id}: res URL {uri!r}")
    report.check("every item has a res with a protocolInfo GUPnP parses", problems)
    titles = {i.title for i in items.values()}
    report.check("escaped, non-ASCII title reads back", [] if "Café & Bar" in titles
                 else [f"'Café & Bar' not among {sorted(titles)[:10]}"])
    return containers, items


def check_events(report, daemon, cds):
    values = []
    lost = []
    cds.connect("subscription-lost", lambda p, error: lost.append(error.message))
    cds.add_notify("SystemUpdateID", GObject.TYPE_UINT,
                   lambda p, var, value, d: values.append(value), None)
    # GUPnP drops a NOTIFY that arrives before it has read the SUBSCRIBE
    # answer (one subscription in three when the initial event followed the
    # answer at once); the daemon holds the initial event back a little, so
    # one subscription must do.
    cds.set_subscribed(True)
    wait_for(lambda: values or lost, 5)
    if not report.check("subscription gives the initial SystemUpdateID",
                        values and not lost or [f"no initial event; {lost}"]):
        return
    first = values[-1]
    daemon.folder_request(daemon.extra)
    report.check("a folder request changes SystemUpdateID",
                 wait_for(lambda: any(v != first for v in values) or lost, 15) and not lost
                 or [f"values {values}, still {first}; {lost}"])
    problems = []
    containers, items, _ = walk(cds, problems.append)
    added = [c for c, (title, _, _) in containers.items() if title == daemon.extra]
    if not added:
        problems.append(f"no container titled {daemon.extra}")
    elif not any(i.title == "mp3_vbr_xing" and i.id.startswith(added[0] + "$")
                 for i in items.values()):
        problems.append(f"{added[0]} does not hold the new folder's file")
    report.check("the requested folder browses with its file", problems)


def pick(items, kind, name):
    """The item of `kind` with title `name`, and its first http-get res."""
    for item in items.values():
        if item.kind() == kind and item.title == name and item.res:
            return item, item.res[0][0]
    raise Failed(f"no {kind} item titled {name}")


def check_renderer(report, daemon, context, cds, items, args, work):
    failed_before = report.failed
    log = open(os.path.join(work, "renderer.log"), "w")
    renderer = subprocess.Popen(
        ["gmediarender", "-I", args.renderer_interface, "-f", "Clients Renderer",
         "-u", "9d1f6c1e-4f5a-4a57-9a3c-0c1d2e3f4a5b", "--gstout-audiopipe=fakesink sync=true",
         "--gstout-videopipe=fakesink sync=true", "--logfile=stderr"],
        stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    try:
        _, found = discover(context, "urn:schemas-upnp-org:device:MediaRenderer:1")
        if not report.check("the renderer is discovered", bool(found) or ["no MediaRenderer"]):
            return
        # gmediarender answers actions before it has set up its transport
        # state, and an action in that gap trips an assertion in it.
        wait_for(lambda: "Ready for rendering" in open(log.name, errors="replace").read(), 10)
        transport = found[0].get_service(AVT)
        states = []
        transport.add_notify("LastChange", GObject.TYPE_STRING,
                             lambda p, var, value, d: states.extend(
                                 re.findall(r'TransportState val="(\w+)"', value or "")), None)
        transport.set_subscribed(True)
        for kind, title in (("audio", "mp3_vbr_xing"), ("video", "mp4_h264_aac")):
            item, url = pick(items, kind, title)
            meta = browse(cds, item.id, "BrowseMetadata")["Result"]
            offset = daemon.log_size()
            del states[:]
            try:
                call(transport, "SetAVTransportURI",
                     {"InstanceID": 0, "CurrentURI": url, "CurrentURIMetaData": meta}, [])
                call(transport, "Play", {"InstanceID": 0, "Speed": 1}, [])

                def playing():
                    if "PLAYING" not in states:
                        info = call(transport, "GetTransportInfo", {"InstanceID": 0},
                                    ["CurrentTransportState"])
                        states.append(info["CurrentTransportState"])
                    return "PLAYING" in states
                reached = wait_for(playing, 20)
                # PLAYING comes as soon as the renderer has started its
                # pipeline: the fetch itself follows.
                pulled = reached and fetched(daemon, offset, url)
                call(transport, "Stop", {"InstanceID": 0}, [])
            except Failed as e:
                reached = pulled = False
                states.append(str(e))
            report.check(f"renderer plays the {kind} {url}",
                         reached or [f"TransportState never PLAYING: {states[-5:]}"])
            report.check(f"renderer fetched the {kind} from the daemon",
                         pulled or ["the daemon never opened it"])
    finally:
        renderer.terminate()
        try:
            renderer.wait(10)
        except subprocess.TimeoutExpired:
            renderer.kill()
            renderer.wait()
        if report.failed > failed_before:
            with open(log.name, errors="replace") as f:
                lines = [line for line in f if "Registering support" not in line]
            print("---- renderer log (last 20 lines)\n" + "".join(lines[-20:]))


def check_players(report, daemon, items, work):
    home = os.path.join(work, "vlc-home")
    os.makedirs(home)
    os.chmod(home, 0o777)
    for kind, title in (("audio", "Fixture With Cover"), ("video", "mp4_h264_aac"),
                        ("image", "jpeg_plain")):
        item, url = pick(items, kind, title)
        offset = daemon.log_size()
        arg, mrl, source = url, url, os.devnull
        if kind == "image":
            # cvlc asks for "Range: bytes=0-" whatever the protocolInfo offers,
            # and the daemon refuses ranges on images with 406 as DLNA wants
            # for content without byte seeking (--http-continuous avoids the
            # Range but fetches the picture again and again): curl fetches it
            # and cvlc plays it from its standard input.
            picture = os.path.join(work, "picture")
            got = run(["curl", "-sS", "-f", "--max-time", "10", "-o", picture, url], 20)
            if not report.check(f"curl fetches the image {url}",
                                got.returncode == 0 or [got.stderr.strip()]):
                continue
            arg, mrl, source = "-", "fd://0", picture
        with open(source, "rb") as stdin:
            result = run(as_unprivileged(
                ["env", f"HOME={home}", "cvlc", "--intf", "dummy", "--vout", "dummy", "--aout",
                 "dummy", "--no-media-library", "--play-and-exit", "--image-duration=1", "-vv",
                 arg]), 60, stdin=stdin)
        # cvlc exits 0 whatever happened: its debug log tells whether it
        # opened the media, decoded it and reached the end.
        out = result.stdout + result.stderr
        problems = []
        if f"`{mrl}' successfully opened" not in out:
            problems.append("not opened")
        decoder = "video" if kind == "image" else kind
        if not re.search(f"using {decoder} decoder module", out):
            problems.append(f"no {decoder} decoder")
        if "main input debug: EOF reached" not in out:
            problems.append("no end of stream")
        problems += [line for line in out.splitlines() if "main input error" in line
                     or "stream error" in line][:3]
        if result.returncode != 0:
            problems.append(f"exit {result.returncode}")
        if not problems and not fetched(daemon, offset, url):
            problems.append("the daemon never opened it")
        report.check(f"cvlc plays the {kind} {url} to the end", problems)


def check_probe(report, items):
    """ffprobe on every media URL: it must read each one, and agree with the
    published duration and resolution. 0x0 and 00:00:00.000 are what the
    daemon publishes when its reader found no value (EXIF without size tags,
    FLV without metadata): nothing to compare. Duration tolerance 0.1 s + 5 %:
    the daemon reports a stream's time span (MPEG, AVI) or whole seconds
    (constant-bit-rate MP3) where ffprobe adds the last frame."""
    targets = {}
    for item in items.values():
        for uri, info, attrib, _ in item.res:
            if "JPEG_TN" not in info:
                targets.setdefault(uri, (item, attrib))
    problems = []
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        results = dict(zip(targets, pool.map(
            lambda uri: probe(uri, byte_seek(targets[uri][1].get("protocolInfo", ""))), targets)))
    for uri, (item, attrib) in sorted(targets.items()):
        view, error = results[uri]
        where = f"{uri} ({item.title})"
        if view is None:
            problems.append(f"{where}: {error}")
            continue
        streams = view.get("streams", [])
        kinds = {s.get("codec_type") for s in streams}
        wanted = "video" if item.kind() == "image" else item.kind()
        if wanted not in kinds:
            problems.append(f"{where}: no {wanted} stream, ffprobe sees {sorted(kinds)}")
        duration = attrib.get("duration")
        probed = view.get("format", {}).get("duration")
        if duration and seconds_of(duration) > 0 and probed is not None:
            if abs(seconds_of(duration) - float(probed)) > 0.1 + 0.05 * float(probed):
                problems.append(f"{where}: duration {duration}, ffprobe {probed}")
        resolution = attrib.get("resolution")
        video = next((s for s in streams if s.get("codec_type") == "video"), None)
        if resolution and resolution != "0x0" and video is not None:
            if resolution != f"{video.get('width')}x{video.get('height')}":
                problems.append(f"{where}: resolution {resolution}, "
                                f"ffprobe {video.get('width')}x{video.get('height')}")
    print(f"     probed {len(targets)} URLs")
    report.check("ffprobe reads every media URL and agrees on duration and resolution",
                 problems if targets else ["no media URL"])


def check_thumbnails(report, items, work):
    urls = sorted({uri for i in items.values() for uri, info, _, _ in i.res if "JPEG_TN" in info}
                  | {i.album_art for i in items.values() if i.album_art})
    problems = []
    for n, url in enumerate(urls):
        path = os.path.join(work, f"thumb{n}")
        got = run(["curl", "-sS", "-f", "--max-time", "10", "-o", path, "-w", "%{content_type}",
                   url], 20)
        if got.returncode != 0:
            problems.append(f"{url}: curl {got.stderr.strip()}")
            continue
        if not got.stdout.startswith("image/jpeg"):
            problems.append(f"{url}: Content-Type {got.stdout!r}")
        view, error = probe(path)
        codecs = [s.get("codec_name") for s in (view or {}).get("streams", [])]
        if codecs != ["mjpeg"]:
            problems.append(f"{url}: ffprobe reads {codecs or error}, not one JPEG picture")
    print(f"     fetched {len(urls)} thumbnails")
    report.check("curl fetches every thumbnail and ffprobe reads it as JPEG",
                 problems if urls else ["no thumbnail URL published"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--dmsd", required=True)
    parser.add_argument("--media", required=True)
    parser.add_argument("--data-dir", required=True)
    parser.add_argument("--renderer-interface", required=True)
    args = parser.parse_args()

    def out_of_time(*_):
        expired.append(f"the run took more than {DEADLINE} s")
        raise Failed(expired[0])
    signal.signal(signal.SIGALRM, out_of_time)
    signal.alarm(DEADLINE)

    report = Report()
    work = tempfile.mkdtemp(prefix="dmsd-clients-")
    os.chmod(work, 0o755)
    daemon = None
    try:
        daemon = Daemon(args.dmsd, work, args.media, args.data_dir)
        context = GUPnP.Context.new_full("lo", None, 0, GSSDP.UDAVersion.VERSION_1_0)
        _, found = discover(context, "urn:schemas-upnp-org:device:MediaServer:1")
        servers = [d for d in found if SERVER_NAME in (d.get_friendly_name() or "")]
        if not report.check("SSDP discovery finds the server by its friendly name",
                            bool(servers) or [f"found {[d.get_friendly_name() for d in found]}"]):
            raise Failed("nothing to talk to")
        print(f"     description at {servers[0].get_location()}")
        cds = servers[0].get_service(CDS)
        wait_ready(daemon, cds)
        containers, items = check_tree(report, cds)
        check_thumbnails(report, items, work)
        check_probe(report, items)
        check_players(report, daemon, items, work)
        check_renderer(report, daemon, context, cds, items, args, work)
        check_events(report, daemon, cds)
    except Failed as e:
        report.check("run", [str(e)])
    finally:
        signal.alarm(0)
        if daemon:
            status = daemon.stop()
            report.check("the daemon stops cleanly on SIGTERM",
                         status == 0 or [f"exit status {status}"])
            if report.failed:
                lines = [line for line in daemon.log_since(0).splitlines() if " [8] " not in line]
                print("---- daemon log below traces (last 40 lines)\n" + "\n".join(lines[-40:]))
        if os.environ.get("DMSD_CLIENTS_KEEP"):
            print(f"     kept {work}")
        else:
            shutil.rmtree(work, ignore_errors=True)
    print(f"clients: {report.passed} passed, {report.failed} failed "
          f"in {time.monotonic() - report.started:.1f} s")
    return 1 if report.failed or not report.passed else 0


if __name__ == "__main__":
    sys.exit(main())
