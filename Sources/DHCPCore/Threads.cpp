#include "DHCPCore/Threads.hpp"

#include <csignal>
#include <utility>

namespace DHCPCore::Threads {

namespace {

/// Blocks every signal on this thread as long as it lives: a new thread inherits the mask of the one that starts it.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all{};
        sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &previous_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    SignalsBlocked(SignalsBlocked&&) = delete;
    SignalsBlocked& operator=(SignalsBlocked&&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

  private:
    sigset_t previous_{};
};

} // namespace

std::thread start(std::string name, std::function<void()> body) {
    const SignalsBlocked blocked;
    return std::thread([name = std::move(name), body = std::move(body)] {
        nameCurrent(name);
        body();
    });
}

} // namespace DHCPCore::Threads
