// Files of the page that the program carries inside; the build makes their definitions.
#pragma once

namespace host {

extern const char* const kWebPage;      ///< page/page.html
extern const char* const kWebStyle;     ///< page/page.css
extern const char* const kWebIcon;      ///< page/icon.svg
extern const char* const kWebMain;      ///< page/main.mjs
extern const char* const kWebApi;       ///< page/api.mjs
extern const char* const kWebGeometry;  ///< page/geometry.mjs
extern const char* const kWebOverlay;   ///< page/overlay.mjs
extern const char* const kWebPick;      ///< page/pick.mjs
extern const char* const kWebTimeline;  ///< page/timeline.mjs
extern const char* const kWebSave;      ///< page/save.mjs
extern const char* const kWebSettings;  ///< page/settings.mjs
extern const char* const kWebOpenApi;   ///< openapi.json

}  // namespace host
