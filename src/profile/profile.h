// Media profiling: the registry of format parsers, the per-file profiling
// result, protocolInfo texts and the ConnectionManager's SourceProtocolInfo.
//
// A file is profiled by dlnaGetMediaProfile: the parsers are tried in
// registration order, each reading the file (at most once per file) into a
// MediaInfo and asking its decision function for a DlnaProfile. Profiles and
// their texts are constants or process-lifetime cache entries: every name and
// MIME pointer handed out stays valid until the process ends and is never
// freed by the caller. The registry is read-only once registered; profiling
// may run on several threads at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/media_parse.h"
#include "profile/dlna_types.h"

inline constexpr char kDlnaNonDlna[] = "NON-DLNA";

// A DLNA media profile: its DLNA.ORG_PN value (or "NON-DLNA"), MIME type and
// media class. Both texts are borrowed for the life of the process.
struct DlnaProfile {
  const char* name;
  const char* mime;
  uint32_t mediaClass;
};

// What profiling tells of a file and its item keeps for as long as it is
// published. Texts are owned; the profile name and MIME are borrowed.
struct DlnaMedia {
  uint64_t fileSize = 0;
  const char* profileName = nullptr;
  const char* mime = nullptr;
  std::string duration;
  std::string title;
  uint32_t bitrate = 0;
  int32_t month = 0;
  int32_t day = 0;
  int32_t track = 0;
  int16_t year = 0;  // 1902 to 2099, or 0
  uint16_t width = 0;
  uint16_t height = 0;
  uint8_t mediaClass = 0;  // kDlnaClass*; 0: not profiled
};

// The per-file result, handed to the library build and released with
// dlnaFreeItemTmp: the kept record and the tag texts the library files the
// item under.
struct DlnaMediaResult : DlnaMedia {
  std::string artist;
  std::string genre;
  std::string album;
  MediaInfo* mediaInfo = nullptr;  // owned (GetUB); only while the parsers run
};

// A parser's decision over a filled MediaInfo (it may adjust the record).
using DlnaDecideFn = const DlnaProfile* (*)(MediaInfo* info);
// A parser's parse operation: reads the file at path and decides.
using DlnaParseFn = const DlnaProfile* (*)(DlnaMediaResult* result, const char* path);

// One format parser: a constant record.
struct DlnaMediaParser {
  int32_t id;              // unique within a registry
  uint32_t mediaClass;     // becomes the file's class
  const char* extensions;  // comma-separated, no dots; null accepts every file
  DlnaParseFn parse;
};

// The registry: parsers in registration order. Create with dlnaMMInit.
struct DlnaProfileRegistry {
  int32_t initialised = 0;
  int32_t extCheck = 0;  // non-zero: a parser sees only files of its extensions
  std::vector<const DlnaMediaParser*> parsers;
};

// The parser records, in registration order, and the unregistered AMR one.
extern const DlnaMediaParser* const g_tDlnaMediaParsers[18];
extern const DlnaMediaParser dlna_profile_audio_amr;

DlnaProfileRegistry* dlnaMMInit();
void dlnaMMUninit(DlnaProfileRegistry* registry);
void dlnaSetExtCheck(DlnaProfileRegistry* registry, int32_t on);
// Registers the eighteen parsers in order; an uninitialised registry is left as it is.
void dlnaRegMediaProfile(DlnaProfileRegistry* registry);
// Appends record unless one with its id is registered already.
void _dlnaRegProfile(DlnaProfileRegistry* registry, const DlnaMediaParser* record);

// Profiles the file at path: a result (free with dlnaFreeItemTmp) or null when
// no parser claims it. Tells the installed sink of its profile.
DlnaMediaResult* dlnaGetMediaProfile(DlnaProfileRegistry* registry, const char* path);
void dlnaFreeItemTmp(DlnaMediaResult* result);

// The body of every parse operation: fills result's MediaInfo with the reader
// of `kind` unless already filled, copies the kept fields, then decides.
const DlnaProfile* dlnaParseMediaProfile(DlnaDecideFn decide, DlnaMediaResult* result,
                                         const char* path, uint32_t kind);
void dlnaTansferMediaInfo(DlnaMediaResult* result, const MediaInfo* info);

// Told the (profile, MIME) of every file profiled; non-zero refuses the file.
// The daemon installs the SourceProtocolInfo update here.
using DlnaProfileSink = int32_t (*)(const char* name, const char* mime);
void dlnaSetProfileSink(DlnaProfileSink sink);

// protocolInfo text of a profile: mode 1 gives the full "http-get:*:MIME:..."
// text, any other mode only "MIME:...".
std::string dlnaProtocolInfoText(int32_t mode, const char* name, const char* mime,
                                 uint32_t mediaClass);
// "H:MM:SS.fff" to milliseconds; the fraction counts milliseconds as written.
uint64_t dlnaParseDuration(const char* text);
// Just behind the path's last '.', or null.
const char* dlnaGetFileExt(const char* path);
// 1 when the path's extension is in the comma-separated list (any case), else 0.
int32_t _dlnaMatchFileExt(const char* path, const char* list);

// The readers profiling uses; null restores the built-in ones. Tests install
// their own to profile files without real media readers. Not for use while
// profiling runs.
void dlnaSetMediaReaders(const MediaReaderTable* readers);
