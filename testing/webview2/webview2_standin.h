// Test control of the WebView2Loader.dll stand-in. Test programs link the stand-in, which puts
// its WebView2Loader.dll into the process before the host looks it up by name; the host itself
// only ever uses the loader's real entry point.
//
// Browser objects made through the stand-in are numbered 1, 2, ... in the order their
// controllers are created ("views"). Every completion and event reaches the program through the
// message loop of the thread that created the environment, as the real browser's do.
//
// The stand-in is as strict as the documented browser. By default: events already queued for a
// navigation are still delivered after a later Navigate, carrying their own navigation's id;
// Close releases pending completion handlers (a capture in flight) without calling them; scripts
// added to run on document creation complete after the call returns and apply only to documents
// of navigations started after their completion; a browser-process exit (kind 0) closes the view,
// and every later call on a closed view fails with HRESULT_FROM_WIN32(ERROR_INVALID_STATE).

#ifndef KESTRUN_TESTING_WEBVIEW2_WEBVIEW2_STANDIN_H_
#define KESTRUN_TESTING_WEBVIEW2_WEBVIEW2_STANDIN_H_

#include <windows.h>

#ifdef KESTRUN_WEBVIEW2_STANDIN_IMPL
#define WEBVIEW2_STANDIN_API extern "C" __declspec(dllexport)
#else
#define WEBVIEW2_STANDIN_API extern "C" __declspec(dllimport)
#endif

// What the stand-in knows about one view.
struct WebView2StandinView {
  HWND parent;
  HWND host;           // the browser's child window of the parent (null once closed)
  HWND page;           // the page window inside it
  BOOL closed;
  BOOL visible;
  RECT bounds;
  double zoom;
  BYTE background[4];  // A, R, G, B
  // Settings in the order: context menus, dev tools, status bar, built-in error page, script
  // dialogs (TRUE until the program turns them off).
  BOOL settings[5];
  int navigations;     // Navigate calls, reloads included
  int reloads;
  int handlers;        // event handlers registered and not removed
  wchar_t url[1024];   // the last URL navigated
};

// Back to the defaults: creations succeed at once, navigations complete with success and fire
// DOM content loaded, captures fail, every strict behaviour on. Views already made are kept.
WEBVIEW2_STANDIN_API void WebView2Standin_Reset();
// Strict behaviours, each on by default (see above); a test may turn one off to show what it
// guards against.
#define WEBVIEW2_STANDIN_LATE_EVENTS 0x1u         // queued events survive a later Navigate
#define WEBVIEW2_STANDIN_CLOSE_DROPS_PENDING 0x2u // Close releases captures without calling them
#define WEBVIEW2_STANDIN_ASYNC_SCRIPTS 0x4u       // script additions complete later
WEBVIEW2_STANDIN_API void WebView2Standin_SetStrict(UINT behaviours);
// Environment creations whose user-data folder lies in `folder` (a null folder means the default
// one, "<program>.WebView2" beside the executable) fail with E_ACCESSDENIED, as under Program
// Files. Null allows every folder again.
WEBVIEW2_STANDIN_API void WebView2Standin_DenyUserDataFolder(LPCWSTR folder);
// The user-data folder the last environment creation asked for ("" for the default one), and
// the scripts that ran on the current document of a view, joined by line feeds. Each answers the
// text's length, writing at most `size` characters with the terminating null.
WEBVIEW2_STANDIN_API UINT WebView2Standin_LastUserDataFolder(wchar_t* buffer, UINT size);
WEBVIEW2_STANDIN_API UINT WebView2Standin_DocumentScripts(int view, wchar_t* buffer, UINT size);
// Results of later environment and controller creations (S_OK or a failure code).
WEBVIEW2_STANDIN_API void WebView2Standin_SetCreationResults(HRESULT environment,
                                                             HRESULT controller);
// While held, creation completions wait; releasing posts them in order. Answers how many.
WEBVIEW2_STANDIN_API void WebView2Standin_HoldCreations(BOOL hold);
WEBVIEW2_STANDIN_API int WebView2Standin_ReleaseCreations();
// Which navigation events follow a Navigate by themselves.
WEBVIEW2_STANDIN_API void WebView2Standin_SetAutomaticEvents(BOOL navigation_completed,
                                                             BOOL dom_content_loaded);
// Events of the current navigation of a view, posted to the message loop. FALSE for an unknown
// or closed view.
WEBVIEW2_STANDIN_API BOOL WebView2Standin_CompleteNavigation(int view, BOOL success);
WEBVIEW2_STANDIN_API BOOL WebView2Standin_FireDomContentLoaded(int view);
// A process of the view fails; kind 0 (the browser process) also closes the view.
WEBVIEW2_STANDIN_API BOOL WebView2Standin_FailProcess(int view, int kind);
// The view gets the keyboard focus (GotFocus is raised, as when a user clicks it).
WEBVIEW2_STANDIN_API BOOL WebView2Standin_Focus(int view);
// An accelerator key is pressed in the view; TRUE when a handler marked it handled.
WEBVIEW2_STANDIN_API BOOL WebView2Standin_PressAccelerator(int view, UINT virtual_key);
// The image every later capture writes (PNG bytes), or a failure code.
WEBVIEW2_STANDIN_API void WebView2Standin_SetCapture(HRESULT result, const BYTE* bytes,
                                                     UINT32 size);

// The number of the last view made (0 before any).
WEBVIEW2_STANDIN_API int WebView2Standin_LastView();
WEBVIEW2_STANDIN_API BOOL WebView2Standin_GetView(int view, WebView2StandinView* state);
// Stand-in COM objects alive (environments, controllers, web views, settings, event arguments).
WEBVIEW2_STANDIN_API int WebView2Standin_LiveObjects();
// Completions and events posted and not yet delivered (held creations included).
WEBVIEW2_STANDIN_API int WebView2Standin_PendingEvents();
// Dispatches the calling thread's messages until nothing is pending; FALSE after 30 s (which only
// a fault reaches, such as held creations never released).
WEBVIEW2_STANDIN_API BOOL WebView2Standin_DeliverPending();

#endif  // KESTRUN_TESTING_WEBVIEW2_WEBVIEW2_STANDIN_H_
