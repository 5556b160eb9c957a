// For executables in which GLib's or GStreamer's own threads run. The thread sanitizer does not know the locks that
// they build on futexes, and takes what these threads exchange under them for races; nor does it see that cpp-httplib's
// threads look at a guard before they read what one of them has made.

#include "tarvex/export.h"

extern "C" TARVEX_EXPORT const char* __tsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)
const char* __tsan_default_suppressions() {                          // NOLINT(bugprone-reserved-identifier)
    return "race:libglib-2.0.so\nrace:libgio-2.0.so\nrace:libgobject-2.0.so\nrace:libgst*.so\ndeadlock:libgst*.so\n"
           "race:libcpp-httplib.so\n";
}
