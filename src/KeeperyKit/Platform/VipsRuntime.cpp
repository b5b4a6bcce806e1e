#include "Platform/VipsRuntime.h"

#include <mutex>
#include <stdexcept>
#include <vips/vips.h>

namespace keepery::VipsRuntime {

void ensureStarted() {
    static std::once_flag once;
    static bool started = false;
    std::call_once(once, [] {
        started = VIPS_INIT("keepery") == 0;
        // Every operation the engine runs is run once on fresh input, never again with the same arguments,
        // so the cache would only hold on to decoded pictures and their buffers in a long-running process.
        vips_cache_set_max(0);
        // Damaged files make libvips warn on standard error; the engine reports through its results and
        // never writes there.
        g_log_set_handler(
            "VIPS", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
            [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    });
    if (!started) {
        throw std::runtime_error("libvips could not start");
    }
}

} // namespace keepery::VipsRuntime
