#pragma once

// The image library's process-wide start. Any thread.
namespace keepery::VipsRuntime {

// Starts libvips once per process; later calls, from any thread, return at once after the first has
// finished. Its warnings are silenced (nothing reaches standard error) and its operation cache is off. Throws
// std::runtime_error when libvips cannot start (every later call throws the same).
void ensureStarted();

} // namespace keepery::VipsRuntime
