// RunThreads: the threads that runs execute on.
//
// A job goes to an idle thread when there is one and to a new thread
// otherwise, so a busy shell makes no thread per command line. A thread that
// finished its job waits for the next one; beyond MaxIdle idle threads it
// ends instead. Every thread is made with the same explicit stack size,
// chosen for the 32-bit target (the deepest expression the evaluator accepts
// and the deepest nesting of command lines the host allows fit in it).
// Nothing is detached: JoinAll ends the idle threads and joins all of them.
#pragma once

#include <cstddef>
#include <functional>

namespace RunThreads {

// 512 KiB; builds with sanitizers get four times that, since their checks
// make every frame larger.
std::size_t StackSize();
constexpr unsigned int MaxIdle = 16;

// Hands `job` to an idle thread or a new one. False, with `job` not run,
// when there was no idle thread and none could be made.
bool Dispatch(std::function<void()> job);

// Ends the idle threads and joins every thread, waiting for jobs still under
// way; call it when no run is left. Later dispatches make threads anew.
void JoinAll();

}  // namespace RunThreads
