#pragma once

#include <functional>
#include <string>
#include <thread>

namespace DHCPCore::Threads {

/// Starts a thread under that name (cut to what the system allows), with every signal blocked: signals are the main
/// thread's business, and a system call on a worker is then never interrupted.
[[nodiscard]] std::thread start(std::string name, std::function<void()> body);

/// Names the calling thread, for debuggers and process listings. (Linux/, Darwin/)
void nameCurrent(const std::string& name);

} // namespace DHCPCore::Threads
