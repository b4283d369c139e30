/*
 * TMXSDK: reads spoken-word programmes (audiobooks), hands out their frames,
 * decodes them to PCM and keeps the listening position and bookmarks.
 *
 * Plain C interface. Every function returns a signed 32-bit result code:
 * TMX_OK (0) on success, a negative TMX_ERR_* code otherwise. A null TMXFile
 * is reported first (TMX_ERR_HANDLE), a null required pointer next
 * (TMX_ERR_ARGUMENT). No function throws.
 *
 * Threads: the library starts none and takes no locks. A TMXFile and its
 * streams must be used by one thread at a time; separate TMXFiles may be
 * used on separate threads, decoding included.
 *
 * Resources: whatever counts and sizes a file claims, no single allocation
 * is larger than the stream's size plus 64 KiB, and the work of a call is
 * bounded by the bytes the file holds; a claim its bytes cannot back is
 * refused with TMX_ERR_INCONSISTENT.
 *
 * Ownership: the container stream belongs to the file from TMXOpenFile on,
 * the position stream once the library has opened it; both are closed by
 * TMXCloseFile. The built-in file streams free themselves in Close, so a
 * closed built-in stream must not be used again.
 */
#ifndef TMXSDK_H
#define TMXSDK_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#if defined(_WIN32)
#if defined(TMXSDK_BUILDING)
#define TMX_API __declspec(dllexport)
#elif defined(TMXSDK_STATIC)
#define TMX_API
#else
#define TMX_API __declspec(dllimport)
#endif
#else
#define TMX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define TMX_NOEXCEPT noexcept
extern "C" {
#else
#define TMX_NOEXCEPT
#endif

/* Result codes. */
#define TMX_OK 0
#define TMX_ERR_FILE (-1)         /* a built-in file stream could not be opened or created */
#define TMX_ERR_HANDLE (-2)       /* null or unopened TMXFile (or stream handle) */
#define TMX_ERR_READ (-3)         /* a read failed or came up short; invalid position record */
#define TMX_ERR_WRITE (-4)        /* a write failed or came up short; stream not writable */
#define TMX_ERR_SEEK (-5)         /* a stream seek failed */
#define TMX_ERR_INCONSISTENT (-7) /* information missing or container inconsistent */
#define TMX_ERR_UNSUPPORTED (-8)  /* not a file the library can open */
#define TMX_ERR_MEMORY (-10)      /* out of memory */
#define TMX_ERR_INDEX (-17)       /* chapter, image, link or bookmark index out of range */
#define TMX_ERR_ARGUMENT (-18)    /* null required pointer or invalid argument */
#define TMX_ERR_BUFFER (-19)      /* caller's buffer too small */
#define TMX_ERR_SEEK_RANGE (-21)  /* seek target beyond the audio or unreachable */
#define TMX_ERR_NO_DECODER (-22)  /* no decoder for this file type */
#define TMX_ERR_DECODER (-23)     /* decoder refused its configuration or a frame */
#define TMX_ERR_END (-24)         /* end of the audio */
#define TMX_ERR_NOT_FOUND (-25)   /* no such track, sample, atom, chapter or text */
#define TMX_ERR_STREAM_OPS (-33)  /* the stream lacks a required operation */

/* File types reported by TMXGetFileType. */
#define TMX_FILETYPE_MP4 1          /* MP4-based, brand neither "m4b " nor "tmx " */
#define TMX_FILETYPE_M4B 2          /* MP4-based, brand "m4b " */
#define TMX_FILETYPE_TMX 3          /* MP4-based, brand "tmx " (AAC decoding) */
#define TMX_FILETYPE_LEGACY_C00D 4  /* older container, codec id 0xC00D */
#define TMX_FILETYPE_LEGACY_C00C 5  /* older container, codec id 0xC00C (speech) */
#define TMX_FILETYPE_LEGACY_C010 6  /* older container, codec id 0xC010 (speech) */
#define TMX_FILETYPE_LEGACY_OTHER 7 /* older container, unknown codec: not opened */
#define TMX_FILETYPE_ID3 8          /* ID3v2.3/2.4 tagged stream: not opened */

/* Stream modes for TMXStreamOps.Open. */
#define TMX_STREAM_READ 0
#define TMX_STREAM_READ_WRITE 1

/* Returned by GetSize when the size is unknown and by Tell on error. */
#define TMX_STREAM_UNKNOWN 0xFFFFFFFFu

typedef struct TMXFile TMXFile;
typedef struct TMXStream TMXStream;

/* A byte stream's operations; every one takes the stream first. */
typedef struct TMXStreamOps {
  /* Create (or open) the file for reading and writing. */
  int32_t (*Create)(TMXStream* stream);
  /* Open: mode 0 read only, 1 read and write; any other mode is -18. */
  int32_t (*Open)(TMXStream* stream, int32_t mode);
  /* Close; the built-in streams also free the stream object. */
  int32_t (*Close)(TMXStream* stream);
  /* Total size in bytes, TMX_STREAM_UNKNOWN when unknown. */
  uint32_t (*GetSize)(TMXStream* stream);
  /* Current position, TMX_STREAM_UNKNOWN on error. */
  uint32_t (*Tell)(TMXStream* stream);
  /* Move to an absolute position. */
  int32_t (*Seek)(TMXStream* stream, uint32_t position);
  /* Read up to count bytes; 0 when at least one byte was read. */
  int32_t (*Read)(TMXStream* stream, void* buffer, int32_t count, int32_t* done);
  /* Write up to count bytes; 0 when at least one byte was written. */
  int32_t (*Write)(TMXStream* stream, const void* buffer, int32_t count, int32_t* done);
} TMXStreamOps;

/* A stream object: its first member is the operations table; what follows
   belongs to the stream's implementation. */
struct TMXStream {
  const TMXStreamOps* ops;
};

/* Characters a built-in file stream's path may hold, terminator included. */
#define TMX_PATH_CAPACITY 260

/* The built-in file-backed stream. A caller may allocate one itself (with
   calloc: Close frees it with free), fill in the path and give it to
   TMXInitIOStream or TMXInitInputStream. */
typedef struct TMXFileStream {
  const TMXStreamOps* ops;
  void* handle; /* the stream's own: its open file and read buffer; null until opened */
  wchar_t path[TMX_PATH_CAPACITY];
} TMXFileStream;

/* One sample of the programme, as TMXGetNextFrameInfo describes it. */
typedef struct TMXFrameInfo {
  uint32_t type;      /* four-character code of the sample's track, 0 for none */
  uint32_t startTime; /* milliseconds */
  uint32_t index;     /* index of the sample within its track */
  uint32_t size;      /* payload bytes, 0 when not yet known */
  uint32_t offset;    /* payload position in the container stream */
  uint32_t flags;     /* the track's flags */
} TMXFrameInfo;

/* Streams. */
/* Sets the stream's operations to ops, or to the built-in read/write file
   operations when ops is null. Returns the stream (null for a null stream). */
TMX_API TMXStream* TMXInitIOStream(TMXStream* stream, const TMXStreamOps* ops) TMX_NOEXCEPT;
/* Sets the stream's operations to the built-in input-only file operations. */
TMX_API TMXStream* TMXInitInputStream(TMXStream* stream) TMX_NOEXCEPT;

/* Opening and closing. */
/* Opens a programme from a stream; the stream belongs to the file from here
   on (a failed open closes it). positionStream may be null. On failure *file
   is set to null (unless file itself is null). */
TMX_API int32_t TMXOpenFile(TMXFile** file, TMXStream* stream,
                            TMXStream* positionStream) TMX_NOEXCEPT;
/* Opens a programme by path, with the position file beside it (".pos").
   On failure *file is set to null (unless file itself is null). */
TMX_API int32_t TMXOpenFileWinW(TMXFile** file, const wchar_t* path) TMX_NOEXCEPT;
/* Saves the position, releases everything and closes the streams. */
TMX_API int32_t TMXCloseFile(TMXFile* file) TMX_NOEXCEPT;

/* Option switches: take effect at the next frame request. */
TMX_API int32_t TMXEnableChapterText(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXDisableChapterText(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXEnableChapterLinks(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXDisableChapterLinks(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXEnableChapterImages(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXDisableChapterImages(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXEnableADTSHeaders(TMXFile* file) TMX_NOEXCEPT;
TMX_API int32_t TMXDisableADTSHeaders(TMXFile* file) TMX_NOEXCEPT;
/* Which stored rendition of an image to deliver (default 3); not checked. */
TMX_API int32_t TMXSetImageQuality(TMXFile* file, uint32_t quality) TMX_NOEXCEPT;
/* Text encoding of delivered text: 1 UTF-8, 3 UTF-16, else single-byte. */
TMX_API int32_t TMXSetUnicodeFormat(TMXFile* file, uint32_t format) TMX_NOEXCEPT;

/* Getters: what the container reported at open. */
TMX_API int32_t TMXGetFileType(TMXFile* file, uint32_t* fileType) TMX_NOEXCEPT;
TMX_API int32_t TMXGetSampleRate(TMXFile* file, uint32_t* sampleRate) TMX_NOEXCEPT;
TMX_API int32_t TMXGetAvgBitrate(TMXFile* file, uint32_t* bitrate) TMX_NOEXCEPT;
TMX_API int32_t TMXGetMaxBitrate(TMXFile* file, uint32_t* bitrate) TMX_NOEXCEPT;
/* Total playing time in milliseconds. */
TMX_API int32_t TMXGetDuration(TMXFile* file, uint32_t* duration) TMX_NOEXCEPT;
TMX_API int32_t TMXGetAudioChannelCount(TMXFile* file, uint32_t* channels) TMX_NOEXCEPT;
TMX_API int32_t TMXGetChapterCount(TMXFile* file, uint32_t* count) TMX_NOEXCEPT;
TMX_API int32_t TMXGetImageCount(TMXFile* file, uint32_t* count) TMX_NOEXCEPT;
TMX_API int32_t TMXGetImageQuality(TMXFile* file, uint32_t* quality) TMX_NOEXCEPT;
TMX_API int32_t TMXGetUnicodeFormat(TMXFile* file, uint32_t* format) TMX_NOEXCEPT;

/* Frame access. */
/* Describes the next sample: an audio frame, or a chapter text, link or
   picture when the matching switch is on. -24 after the last audio frame. */
TMX_API int32_t TMXGetNextFrameInfo(TMXFile* file, TMXFrameInfo* info) TMX_NOEXCEPT;
/* Copies the next audio frame (behind a 7-byte ADTS header when enabled)
   into buffer and stores its length in *count. -19 leaves the frame current;
   -24 at the end, after which the next call starts again at frame 0. */
TMX_API int32_t TMXGetEncodedAudio(TMXFile* file, uint8_t* buffer, int32_t size,
                                   uint32_t* count) TMX_NOEXCEPT;
/* Passes over the sample TMXGetNextFrameInfo would describe. */
TMX_API int32_t TMXSkipNextFrame(TMXFile* file) TMX_NOEXCEPT;

/* Seeking, chapters and the saved position. Times are milliseconds. The
   first frame request of an open file restores the saved position, so a seek
   made before it is undone: seek after the first TMXGetNextFrameInfo,
   TMXGetEncodedAudio or TMXGetPlaybackPosition. */
TMX_API int32_t TMXSeek(TMXFile* file, uint32_t ms) TMX_NOEXCEPT;
TMX_API int32_t TMXSeekToChapter(TMXFile* file, uint32_t chapter) TMX_NOEXCEPT;
TMX_API int32_t TMXGetChapterStartTime(TMXFile* file, uint32_t chapter, uint32_t* ms) TMX_NOEXCEPT;
/* The chapter the playback position lies in; -25 without chapters. */
TMX_API int32_t TMXGetCurrentChapter(TMXFile* file, uint32_t* chapter) TMX_NOEXCEPT;
/* The playback position, restoring the saved one on first use. */
TMX_API int32_t TMXGetPlaybackPosition(TMXFile* file, uint32_t* ms) TMX_NOEXCEPT;
/* Writes the position file now. reason: 0 close, 1 seek, 2 periodic (writes
   only when the countdown of delivered frames has run out), 3 end of audio. */
TMX_API int32_t TMXSavePlaybackPosition(TMXFile* file, uint32_t reason) TMX_NOEXCEPT;
/* The seven original-title words of the older container; the first is 0
   (and the others untouched) when the file has none. */
TMX_API int32_t TMXGetOriginalTitle(TMXFile* file, uint32_t* w1, uint32_t* w2, uint32_t* w3,
                                    uint32_t* w4, uint32_t* w5, uint32_t* w6,
                                    uint32_t* w7) TMX_NOEXCEPT;

/* Metadata. Keys are four-character codes such as "@tit" (title), "@aut"
   (author), "@nar" (narrator) and "@car" (cover picture, raw JPEG bytes).
   Text arrives in the format TMXSetUnicodeFormat chose, always terminated and
   cut to the buffer; raw keys ("@car", "@ual") need a buffer of the full size
   (-19 otherwise). */
TMX_API int32_t TMXSetMetadataLocale(TMXFile* file, uint32_t locale) TMX_NOEXCEPT;
/* *count: capacity of locales in, number of distinct locales out. */
TMX_API int32_t TMXGetMetadataLocaleList(TMXFile* file, uint32_t* locales,
                                         uint32_t* count) TMX_NOEXCEPT;
/* Buffer size the value needs in the current text format. */
TMX_API int32_t TMXGetMetadataInfo(TMXFile* file, uint32_t key, uint32_t locale,
                                   uint32_t* size) TMX_NOEXCEPT;
TMX_API int32_t TMXGetChapterMetadataInfo(TMXFile* file, uint32_t chapter, uint32_t key,
                                          uint32_t locale, uint32_t* size) TMX_NOEXCEPT;
TMX_API int32_t TMXGetMetadata(TMXFile* file, uint32_t key, uint8_t* buffer,
                               uint32_t size) TMX_NOEXCEPT;
TMX_API int32_t TMXGetChapterMetadata(TMXFile* file, uint32_t chapter, uint32_t key,
                                      uint8_t* buffer, uint32_t size) TMX_NOEXCEPT;
/* The user alias as text; *size is the buffer's capacity in bytes. */
TMX_API int32_t TMXGetUseralias(TMXFile* file, uint8_t* buffer, uint32_t* size) TMX_NOEXCEPT;

/* Chapter titles, links and pictures. Records come from the Info functions
   or TMXGetNextFrameInfo; reading the sample TMXGetNextFrameInfo just
   reported steps the reader past it. */
TMX_API int32_t TMXGetLinkCount(TMXFile* file, uint32_t* count) TMX_NOEXCEPT;
TMX_API int32_t TMXGetChapterInfo(TMXFile* file, uint32_t chapter, TMXFrameInfo* info) TMX_NOEXCEPT;
TMX_API int32_t TMXGetLinkInfo(TMXFile* file, uint32_t link, TMXFrameInfo* info) TMX_NOEXCEPT;
/* The start time of chapter title `link` (links sit at their chapters). */
TMX_API int32_t TMXGetLinkStartTime(TMXFile* file, uint32_t link, uint32_t* ms) TMX_NOEXCEPT;
/* The image number is not checked against TMXGetImageCount. */
TMX_API int32_t TMXGetImageInfo(TMXFile* file, uint32_t image, TMXFrameInfo* info) TMX_NOEXCEPT;
TMX_API int32_t TMXGetImageStartTime(TMXFile* file, uint32_t image, uint32_t* ms) TMX_NOEXCEPT;
/* The chapter title as text; -25 (and an empty string) for an empty title. */
TMX_API int32_t TMXGetChapterText(TMXFile* file, const TMXFrameInfo* info, uint8_t* buffer,
                                  uint32_t size) TMX_NOEXCEPT;
/* The link address (as stored, terminated) followed by its caption as text. */
TMX_API int32_t TMXGetLink(TMXFile* file, const TMXFrameInfo* info, uint8_t* buffer,
                           uint32_t size) TMX_NOEXCEPT;
/* Reads a picture from byte `start` on; *bytesRead receives the count. */
TMX_API int32_t TMXGetEncodedImage(TMXFile* file, const TMXFrameInfo* info, uint32_t start,
                                   uint8_t* buffer, uint32_t size,
                                   uint32_t* bytesRead) TMX_NOEXCEPT;

/* Decoding. Decodes one encoded frame (as TMXGetEncodedAudio delivered it,
   without ADTS header) into 16-bit PCM, stereo interleaved; pcmCapacity and
   *pcmLength count bytes. -22 for file types without a decoder. Mono AAC
   frames hand over as many samples as the frame had bytes, while *pcmLength
   reports the whole frame; a frame the AAC decoder refuses returns 0 with
   *pcmLength unchanged. The decoder is made on the first call and belongs to
   the file. */
TMX_API int32_t TMXDecodePCMFrame(TMXFile* file, const uint8_t* encoded, uint32_t encodedLength,
                                  int16_t* pcm, uint32_t pcmCapacity,
                                  uint32_t* pcmLength) TMX_NOEXCEPT;

/* Bookmarks. */
/* A bookmark list belongs to one programme (it carries the programme's
   "@pid") and lives as atoms in a stream, usually the position file behind
   its 16-byte record. Bookmarks are numbered from 0 in time order; the
   numbers change as bookmarks come and go. Metadata keys are those of
   TMXGetMetadata; values are stored as given. */
#define TMX_ERR_NO_BOOKMARK_LIST (-35)   /* no bookmark list is open */
#define TMX_ERR_FOREIGN_LIST (-36)       /* the list has no "@pid" or another programme's */
#define TMX_ERR_READ_ONLY_LIST (-37)     /* the list may not be edited */
#define TMX_ERR_DUPLICATE_BOOKMARK (-38) /* a bookmark lies up to 999 ms before the time */

/* Size of the pieces in which atoms are moved; at least 64 (default 1024). */
TMX_API int32_t TMXSetBookmarkBufferSize(TMXFile* file, uint32_t size) TMX_NOEXCEPT;
/* Writes an empty list into stream (Create, write, Close); opens it there if
   it is the position stream or the open list's stream. A caller's stream sees
   Close, Create, Close and Open; a built-in one that is open stays open. */
TMX_API int32_t TMXInitBookmarkList(TMXFile* file, TMXStream* stream) TMX_NOEXCEPT;
/* Opens the list kept in stream, closing the open one first. */
TMX_API int32_t TMXOpenBookmarkList(TMXFile* file, TMXStream* stream) TMX_NOEXCEPT;
/* Closes the open list and its stream (not the programme's or the position stream). */
TMX_API int32_t TMXCloseBookmarkList(TMXFile* file) TMX_NOEXCEPT;
/* The locale the list was made with. */
TMX_API int32_t TMXGetBookmarkListLocale(TMXFile* file, uint32_t* locale) TMX_NOEXCEPT;
/* The number of bookmarks. */
TMX_API int32_t TMXGetBookmarkCount(TMXFile* file, uint32_t* count) TMX_NOEXCEPT;
/* A bookmark's time in milliseconds. */
TMX_API int32_t TMXGetBookmarkTimeStamp(TMXFile* file, uint32_t index, uint32_t* ms) TMX_NOEXCEPT;
/* Seeks playback to a bookmark (as TMXSeek). */
TMX_API int32_t TMXSeekToBookmark(TMXFile* file, uint32_t index) TMX_NOEXCEPT;
/* Adds a bookmark (clamped to the end of the programme); *index receives its number. */
TMX_API int32_t TMXAddBookmark(TMXFile* file, uint32_t ms, uint32_t* index) TMX_NOEXCEPT;
/* Deletes a bookmark with its metadata. */
TMX_API int32_t TMXDeleteBookmark(TMXFile* file, uint32_t index) TMX_NOEXCEPT;
/* Stored size in bytes of a metadata item of the list. */
TMX_API int32_t TMXGetBookmarkListInfo(TMXFile* file, uint32_t key, uint32_t locale,
                                       uint32_t* size) TMX_NOEXCEPT;
/* A metadata item of the list, delivered as TMXGetMetadata delivers it. */
TMX_API int32_t TMXGetBookmarkListMetadata(TMXFile* file, uint32_t key, uint8_t* buffer,
                                           uint32_t size) TMX_NOEXCEPT;
/* Stores a metadata item of the list, replacing one with the same key. */
TMX_API int32_t TMXAddBookmarkListMetadata(TMXFile* file, uint32_t key, const void* value,
                                           uint32_t size) TMX_NOEXCEPT;
/* Removes a metadata item of the list. */
TMX_API int32_t TMXDeleteBookmarkListMetadata(TMXFile* file, uint32_t key) TMX_NOEXCEPT;
/* Stored size in bytes of a metadata item of a bookmark. */
TMX_API int32_t TMXGetBookmarkInfo(TMXFile* file, uint32_t index, uint32_t key, uint32_t locale,
                                   uint32_t* size) TMX_NOEXCEPT;
/* A metadata item of a bookmark, delivered as TMXGetMetadata delivers it. */
TMX_API int32_t TMXGetBookmarkMetadata(TMXFile* file, uint32_t index, uint32_t key, uint8_t* buffer,
                                       uint32_t size) TMX_NOEXCEPT;
/* Stores a metadata item of a bookmark, replacing one with the same key. */
TMX_API int32_t TMXAddBookmarkMetadata(TMXFile* file, uint32_t index, uint32_t key,
                                       const void* value, uint32_t size) TMX_NOEXCEPT;
/* Removes a metadata item of a bookmark. */
TMX_API int32_t TMXDeleteBookmarkMetadata(TMXFile* file, uint32_t index, uint32_t key) TMX_NOEXCEPT;

/* Base64 (RFC 4648 alphabet, "=" padding, no terminator, no line breaks).
   Encoding writes 4 * ceil(length / 3) characters and returns that count;
   decoding returns the number of bytes decoded. The caller sizes output. */
TMX_API int32_t TW_Base64Encode(const unsigned char* input, int32_t length,
                                char* output) TMX_NOEXCEPT;
TMX_API int32_t TW_Base64Decode(const char* input, int32_t length,
                                unsigned char* output) TMX_NOEXCEPT;

/* Copies the programmes directory (with a trailing separator) into buffer,
   whose capacity is counted in characters. Returns 1 on success, else 0.
   Windows: registry value; elsewhere: environment variable TesmoraProgramsDir. */
TMX_API int32_t TesmoraGetTMFilesPath(wchar_t* buffer, uint32_t capacity) TMX_NOEXCEPT;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* TMXSDK_H */
