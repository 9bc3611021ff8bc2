#pragma once

#include <functional>
#include <string>
#include <thread>

namespace DHCPCore::Threads {

/// Starts a thread under that name (cut to what the system allows), with every signal blocked: signals are the main
/// thread's business, and a system call on a worker is then never interrupted.
[[nodiscard]] std::thread start(std::string name, std::function<void()> body);

/// Has the calling thread make way for the others of the process when there is more to do than the processors can: for
/// work that keeps nobody waiting. (Linux/, Darwin/)
void makeWayForOthers();

/// Has the calling thread run when a processor has nothing else to do, and hardly otherwise, where the system can be
/// asked for that: for work that can wait for seconds. (Linux/, Darwin/)
void leaveProcessorsToOthers();

/// Has the calling thread begin soon after there is something for it to do, even while other threads are busy, where
/// the system can be asked for it: for work in short pieces that somebody waits for. (Linux/, Darwin/)
void beginPromptly();

/// Names the calling thread, for debuggers and process listings. (Linux/, Darwin/)
void nameCurrent(const std::string& name);

} // namespace DHCPCore::Threads
