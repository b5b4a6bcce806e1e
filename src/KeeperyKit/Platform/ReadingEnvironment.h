#pragma once

// Tesseract parallelises recognition with OpenMP, which on a small machine costs about four times the CPU
// time for the same text, and the thread limit is read only once, when the process starts. Every program
// that recognises text therefore runs with OMP_THREAD_LIMIT=1 in its environment from the start.
namespace keepery::ReadingEnvironment {

// Whether OMP_THREAD_LIMIT is 1 in this process's environment.
[[nodiscard]] bool isSingleThreaded();

// Call first thing in `main`. When the limit is not set to 1, sets it and starts this program again in
// place (execv of /proc/self/exe with the same arguments), so that the call returns only in a process
// that has it from the start. If the program cannot be started again the call returns and recognition
// runs with OpenMP's threads. Main thread, before any other thread exists.
void ensureSingleThreaded(char** argv) noexcept;

} // namespace keepery::ReadingEnvironment
