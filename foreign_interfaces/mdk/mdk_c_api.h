// The media library's C interface (mdk.dll), declared by hand for loading the library at run
// time: the exported functions, the player's function table and the records passed through it.
// Only the members this program calls carry their real function types; every other slot is kept
// as a pointer-wide placeholder so that the table has the library's layout. Slots 56 to 67 are
// null in runtimes older than the member.
//
// Callbacks are passed by value as { function, opaque } records; a record whose opaque pointer is
// null means "no callback" (and removes one that was registered).

#ifndef KESTRUN_FOREIGN_INTERFACES_MDK_MDK_C_API_H_
#define KESTRUN_FOREIGN_INTERFACES_MDK_MDK_C_API_H_

#include <cstddef>
#include <cstdint>

struct ID3D11DeviceContext;
struct ID3D11DeviceChild;

extern "C" {

enum MDK_State { MDK_State_Stopped = 0, MDK_State_Playing = 1, MDK_State_Paused = 2 };

enum MDK_MediaStatus {
  MDK_MediaStatus_NoMedia = 0,
  MDK_MediaStatus_Unloaded = 1,
  MDK_MediaStatus_Loading = 1 << 1,
  MDK_MediaStatus_Loaded = 1 << 2,
  MDK_MediaStatus_Stalled = 1 << 3,
  MDK_MediaStatus_Buffering = 1 << 4,
  MDK_MediaStatus_Buffered = 1 << 5,
  MDK_MediaStatus_End = 1 << 6,
  MDK_MediaStatus_Seeking = 1 << 7,
  MDK_MediaStatus_Prepared = 1 << 8,
  MDK_MediaStatus_Invalid = static_cast<int>(0x80000000u),
};

enum MDK_SeekFlag {
  MDK_SeekFlag_From0 = 1,
  MDK_SeekFlag_FromStart = 1 << 1,
  MDK_SeekFlag_FromNow = 1 << 2,
  MDK_SeekFlag_KeyFrame = 1 << 8,
  MDK_SeekFlag_InCache = 1 << 10,
  MDK_SeekFlag_Default = MDK_SeekFlag_KeyFrame | MDK_SeekFlag_FromStart | MDK_SeekFlag_InCache,
};

enum MDK_MediaType {
  MDK_MediaType_Unknown = -1,
  MDK_MediaType_Video = 0,
  MDK_MediaType_Audio = 1,
  MDK_MediaType_Subtitle = 3,
};

enum MDK_RenderAPI { MDK_RenderAPI_Invalid = 0, MDK_RenderAPI_D3D11 = 4 };

// Result of a seek that was skipped because an earlier one had not finished.
constexpr std::int64_t kMdkSeekSkipped = -2;

struct mdkPlayer;
struct mdkRenderAPI;  // opaque: a pointer to one of the per-API records below is passed as this

struct mdkRenderCallback {
  void (*cb)(void* vo_opaque, void* opaque);
  void* opaque;
};
struct mdkStateChangedCallback {
  void (*cb)(MDK_State state, void* opaque);
  void* opaque;
};
struct mdkMediaStatusChangedCallback {
  bool (*cb)(MDK_MediaStatus status, void* opaque);
  void* opaque;
};
struct mdkMediaEvent {
  std::int64_t error;
  const char* category;
  const char* detail;
  union {
    struct {
      int stream;
    } decoder;
    struct {
      int width;
      int height;
    } video;
  };
};
struct mdkMediaEventCallback {
  bool (*cb)(const mdkMediaEvent* event, void* opaque);
  void* opaque;
};
struct mdkCurrentMediaChangedCallback {
  void (*cb)(void* opaque);
  void* opaque;
};
struct mdkSeekCallback {
  void (*cb)(std::int64_t ms, void* opaque);
  void* opaque;
};

// Only the head of the media information is read: its first two fields never moved.
struct mdkMediaInfo {
  std::int64_t start_time;  // ms
  std::int64_t duration;    // ms
};

// Rendering into a render target of a device the caller owns. The type word is
// MDK_RenderAPI_D3D11 | size form (bit 30) | sizeof(record) << 16.
struct mdkD3D11RenderAPI {
  std::uint32_t type;
  ID3D11DeviceContext* context;
  ID3D11DeviceChild* rtv;  // a render target view or a 2D texture
  void* reserved[2];
  bool debug;
  int buffers;
  int adapter;
  float feature_level;
  const char* vendor;
};

using mdkMediaEventToken = std::uint64_t;

struct mdkPlayerAPI {
  mdkPlayer* object;                                                            // 0
  void (*setMute)(mdkPlayer*, bool);                                            // 1
  void (*setVolume)(mdkPlayer*, float);                                         // 2
  void (*setMedia)(mdkPlayer*, const char* url);                                // 3
  void* setMediaForType;                                                        // 4
  const char* (*url)(mdkPlayer*);                                               // 5
  void* setPreloadImmediately;                                                  // 6
  void (*setNextMedia)(mdkPlayer*, const char* url, std::int64_t start_position,
                       MDK_SeekFlag flags);                                     // 7
  void (*currentMediaChanged)(mdkPlayer*, mdkCurrentMediaChangedCallback);      // 8
  void* setAudioBackends;                                                       // 9
  void* setAudioDecoders;                                                       // 10
  void* setVideoDecoders;                                                       // 11
  void* setTimeout;                                                             // 12
  void* prepare;                                                                // 13
  const mdkMediaInfo* (*mediaInfo)(mdkPlayer*);                                 // 14
  void (*setState)(mdkPlayer*, MDK_State);                                      // 15
  MDK_State (*state)(mdkPlayer*);                                               // 16
  void (*onStateChanged)(mdkPlayer*, mdkStateChangedCallback);                  // 17
  bool (*waitFor)(mdkPlayer*, MDK_State, long timeout_ms);                      // 18
  MDK_MediaStatus (*mediaStatus)(mdkPlayer*);                                   // 19
  void (*onMediaStatusChanged)(mdkPlayer*, mdkMediaStatusChangedCallback);      // 20
  void* updateNativeSurface;                                                    // 21
  void* createSurface;                                                          // 22
  void* resizeSurface;                                                          // 23
  void* showSurface;                                                            // 24
  void* getVideoFrame;                                                          // 25
  void (*setVideoSurfaceSize)(mdkPlayer*, int width, int height, void* vo_opaque);  // 26
  void* setVideoViewport;                                                       // 27
  void (*setAspectRatio)(mdkPlayer*, float value, void* vo_opaque);             // 28
  void* rotate;                                                                 // 29
  void* scale;                                                                  // 30
  double (*renderVideo)(mdkPlayer*, void* vo_opaque);                           // 31
  void* setBackgroundColor;                                                     // 32
  void (*setRenderCallback)(mdkPlayer*, mdkRenderCallback);                     // 33
  void* onVideo;                                                                // 34
  void* onAudio;                                                                // 35
  void* beforeVideoRender;                                                      // 36
  void* afterVideoRender;                                                       // 37
  std::int64_t (*position)(mdkPlayer*);                                         // 38
  bool (*seekWithFlags)(mdkPlayer*, std::int64_t pos, MDK_SeekFlag flags,
                        mdkSeekCallback cb);                                    // 39
  bool (*seek)(mdkPlayer*, std::int64_t pos, mdkSeekCallback cb);               // 40
  void* setPlaybackRate;                                                        // 41
  void* playbackRate;                                                           // 42
  void* buffered;                                                               // 43
  void* switchBitrate;                                                          // 44
  void* switchBitrateSingleConnection;                                          // 45
  void (*onEvent)(mdkPlayer*, mdkMediaEventCallback cb, mdkMediaEventToken* token);  // 46
  void* setBufferRange;                                                         // 47
  void* snapshot;                                                               // 48
  void* setProperty;                                                            // 49
  void* getProperty;                                                            // 50
  void* record;                                                                 // 51
  void* setLoopRange;                                                           // 52
  void (*setLoop)(mdkPlayer*, int count);                                       // 53
  void* onLoop;                                                                 // 54
  void* setRange;                                                               // 55
  void (*setRenderAPI)(mdkPlayer*, const mdkRenderAPI* api, void* vo_opaque);   // 56
  void* renderAPI;                                                              // 57
  void* mapPoint;                                                               // 58
  void* onSync;                                                                 // 59
  void* setVideoEffect;                                                         // 60
  void* setActiveTracks;                                                        // 61
  void (*setDecoders)(mdkPlayer*, MDK_MediaType type, const char** names);      // 62
  void* setChannelVolume;                                                       // 63
  void* setFrameRate;                                                           // 64
  void* setPointMap;                                                            // 65
  void* setColorSpace;                                                          // 66
  void* onMediaStatus;                                                          // 67
  union {
    void* reserved2;
    int size;  // sizeof(mdkPlayerAPI) of the runtime's own build; 0 before it was introduced
  };                                                                            // 68
  void* enqueueVideo;                                                           // 69
  void* bufferedTimeRanges;                                                     // 70
  void* appendBuffer;                                                           // 71
  void* subtitleText;                                                           // 72
  void* setAudioMix;                                                            // 73
  void* onSubtitleText;                                                         // 74
};

// The exports resolved at run time.
using MdkPlayerApiNewFn = const mdkPlayerAPI* (*)();
using MdkPlayerApiDeleteFn = void (*)(const mdkPlayerAPI**);
using MdkVersionFn = int (*)();

}  // extern "C"

constexpr std::uint32_t kMdkD3D11RenderApiTypeWord =
    static_cast<std::uint32_t>(MDK_RenderAPI_D3D11) | (1u << 30) |
    (static_cast<std::uint32_t>(sizeof(mdkD3D11RenderAPI)) << 16);

#if defined(_WIN64) || defined(__x86_64__)
static_assert(sizeof(mdkPlayerAPI) == 600, "the player table has 75 pointer-wide slots");
static_assert(offsetof(mdkPlayerAPI, renderVideo) == 248, "renderVideo is slot 31");
static_assert(offsetof(mdkPlayerAPI, position) == 304, "position is slot 38");
static_assert(offsetof(mdkPlayerAPI, onEvent) == 368, "onEvent is slot 46");
static_assert(offsetof(mdkPlayerAPI, setLoop) == 424, "setLoop is slot 53");
static_assert(offsetof(mdkPlayerAPI, setRenderAPI) == 448, "setRenderAPI is slot 56");
static_assert(offsetof(mdkPlayerAPI, setDecoders) == 496, "setDecoders is slot 62");
static_assert(offsetof(mdkPlayerAPI, size) == 544, "size is slot 68");
static_assert(sizeof(mdkD3D11RenderAPI) == 64, "D3D11 render record");
static_assert(offsetof(mdkD3D11RenderAPI, rtv) == 16 && offsetof(mdkD3D11RenderAPI, buffers) == 44 &&
                  offsetof(mdkD3D11RenderAPI, vendor) == 56,
              "D3D11 render record layout");
static_assert(kMdkD3D11RenderApiTypeWord == 0x40400004u, "D3D11 type word");
static_assert(sizeof(mdkMediaEvent) == 32, "media event record");
static_assert(sizeof(mdkSeekCallback) == 16, "callback records are two pointers");
static_assert(sizeof(MDK_State) == 4 && sizeof(MDK_MediaStatus) == 4, "enums are 32-bit");
#endif

#endif  // KESTRUN_FOREIGN_INTERFACES_MDK_MDK_C_API_H_
