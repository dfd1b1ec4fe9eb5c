// The views and classes of the content tree as data: what each container type
// lists and the UPnP class it is published with, the class of each kind of
// item, and what a view groups its items by. The library files items with it,
// Browse and Search list and match with it, and the DIDL writer prints it.
#pragma once

#include <cstdint>

#include "profile/dlna_types.h"

// What a view groups its items by, told by the last digit of its well-known id
// (10 all music, 11 its genres, 12 artists, 13 albums, 14 years; 20, 24; 30,
// 33, 34).
enum class DlnaViewKind : int32_t { kAll = 0, kGenre = 1, kArtist = 2, kAlbum = 3, kYear = 4 };

constexpr DlnaViewKind dlnaViewKind(int32_t viewId) {
  return static_cast<DlnaViewKind>(viewId % 10);
}

struct DlnaContainerTypeRow {
  int32_t type;
  uint8_t groupClass;       // class of the items a group of this type lists
  uint8_t allClass;         // class of the items an all-items view of this type lists
  const char* didlClass;    // upnp:class in Browse results
  const char* searchClass;  // upnp:class as Search matches it
};

// Indexed by type. Search never calls a folder a storageFolder: kept, clients
// search for items.
// clang-format off
inline constexpr DlnaContainerTypeRow kDlnaContainerTypes[] = {
    {kDlnaContPlain,       0,               0,               "object.container",                    "object.container"},
    {kDlnaContMusic,       kDlnaClassAudio, kDlnaClassAudio, "object.container",                    "object.container"},
    {kDlnaContMusicGenre,  kDlnaClassAudio, 0,               "object.container.genre.musicGenre",   "object.container.genre.musicGenre"},
    {kDlnaContMusicArtist, kDlnaClassAudio, 0,               "object.container.person.musicArtist", "object.container.person.musicArtist"},
    {kDlnaContMusicAlbum,  kDlnaClassAudio, 0,               "object.container.Album.musicAlbum",   "object.container.Album.musicAlbum"},
    {kDlnaContVideo,       kDlnaClassVideo, kDlnaClassVideo, "object.container",                    "object.container"},
    {kDlnaContVideoGenre,  kDlnaClassVideo, 0,               "object.container.genre.movieGenre",   "object.container.genre.movieGenre"},
    {kDlnaContPhoto,       kDlnaClassImage, kDlnaClassImage, "object.container",                    "object.container"},
    {kDlnaContPhotoAlbum,  kDlnaClassImage, 0,               "object.container.Album.photoAlbum",   "object.container.Album.photoAlbum"},
    {kDlnaContFolder,      0,               0,               "object.container.storageFolder",      "object.container"},
};
// clang-format on

// The row of a container type; the plain container's for an unknown type.
constexpr const DlnaContainerTypeRow& dlnaContainerType(int32_t type) {
  for (const DlnaContainerTypeRow& row : kDlnaContainerTypes)
    if (row.type == type) return row;
  return kDlnaContainerTypes[0];
}

struct DlnaItemClassRow {
  uint32_t mediaClass;
  const char* didlClass;    // null: never published
  const char* searchClass;  // as Search matches it: a video is a movie there
};

// clang-format off
inline constexpr DlnaItemClassRow kDlnaItemClasses[] = {
    {kDlnaClassAudio,    "object.item.audioItem.musicTrack", "object.item.audioItem.musicTrack"},
    {kDlnaClassVideo,    "object.item.videoItem",            "object.item.videoItem.movie"},
    {kDlnaClassImage,    "object.item.imageItem.photo",      "object.item.imageItem.photo"},
    {kDlnaClassPlaylist, nullptr,                            "object.item.playlistItem"},
};
// clang-format on

// The row of an item class, or null.
constexpr const DlnaItemClassRow* dlnaItemClass(uint32_t mediaClass) {
  for (const DlnaItemClassRow& row : kDlnaItemClasses)
    if (row.mediaClass == mediaClass) return &row;
  return nullptr;
}

// The container type of a group of a `kind` view over items of `mediaClass`:
// the class's own type unless the kind has a more telling one; -1 for a class
// without views.
constexpr int32_t dlnaGroupType(uint32_t mediaClass, DlnaViewKind kind) {
  switch (mediaClass) {
    case kDlnaClassAudio:
      return kind == DlnaViewKind::kGenre    ? kDlnaContMusicGenre
             : kind == DlnaViewKind::kArtist ? kDlnaContMusicArtist
             : kind == DlnaViewKind::kAlbum  ? kDlnaContMusicAlbum
                                             : kDlnaContMusic;
    case kDlnaClassVideo:
      return kind == DlnaViewKind::kGenre ? kDlnaContVideoGenre : kDlnaContVideo;
    case kDlnaClassImage:
      return kind == DlnaViewKind::kAlbum ? kDlnaContPhotoAlbum : kDlnaContPhoto;
    default:
      return -1;
  }
}
