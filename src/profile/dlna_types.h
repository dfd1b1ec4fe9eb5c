// Small vocabulary shared by profiling, the content tree and the DIDL writer.
#pragma once

#include <cstdint>

// Media classes of items and profiles.
inline constexpr uint32_t kDlnaClassAudio = 1;
inline constexpr uint32_t kDlnaClassVideo = 2;
inline constexpr uint32_t kDlnaClassImage = 3;
inline constexpr uint32_t kDlnaClassPlaylist = 4;  // matched by Search; no file is one

// Container types; they choose the class a container is published with.
inline constexpr int32_t kDlnaContPlain = 0;        // root, "Music", "Folder"
inline constexpr int32_t kDlnaContMusic = 1;        // music views and year groups
inline constexpr int32_t kDlnaContMusicGenre = 2;   // genre groups and the "Genre" view
inline constexpr int32_t kDlnaContMusicArtist = 3;  // artist groups
inline constexpr int32_t kDlnaContMusicAlbum = 4;   // album groups and the music "Album" view
inline constexpr int32_t kDlnaContVideo = 5;        // video views and groups
inline constexpr int32_t kDlnaContVideoGenre = 6;   // video genre groups
inline constexpr int32_t kDlnaContPhoto = 7;        // photo views and year groups
inline constexpr int32_t kDlnaContPhotoAlbum = 8;   // photo album groups and the photo "Album" view
inline constexpr int32_t kDlnaContFolder = 9;       // a folder of the file system
