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

/// Names the calling thread, for debuggers and process listings. (Linux/, Darwin/)
void nameCurrent(const std::string& name);

} // namespace DHCPCore::Threads
