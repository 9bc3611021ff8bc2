#include "DHCPCore/Queue.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/Threads.hpp"

#include <asio/error.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace DHCPCore {

namespace {

/// Work that one thread does and another waits for.
class Completion {
  public:
    void run(const SerialQueue::Work& work) {
        std::exception_ptr error;
        try {
            work();
        } catch (...) {
            error = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        error_ = std::move(error);
        isDone_ = true;
        changed_.notify_one(); // with the lock held: without it, the waiting side may be gone, and this with it
    }

    /// Throws what the work threw.
    void wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isDone_; });
        if (error_) {
            std::rethrow_exception(error_);
        }
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isDone_ = false;
    std::exception_ptr error_;
};

} // namespace

/// Shared by the queue, its thread and its subscriptions, so that each may go first.
struct SerialQueue::Core {
    asio::io_context context{1};
    asio::executor_work_guard<asio::io_context::executor_type> guard = asio::make_work_guard(context);
    std::thread thread;

    [[nodiscard]] bool isCurrent() { return context.get_executor().running_in_this_thread(); }
    [[nodiscard]] bool hasEnded() const { return context.stopped(); }

    void async(Work work) { asio::post(context, std::move(work)); }

    void runAndWait(const Work& work) {
        if (isCurrent()) {
            work();
            return;
        }
        Completion completion;
        async([&] { completion.run(work); });
        completion.wait();
    }
};

namespace {

/// A repeating timer; touched on its queue only.
struct Ticking : std::enable_shared_from_this<Ticking> {
    Ticking(asio::io_context& context, SerialQueue::Duration first, SerialQueue::Duration period, SerialQueue::Work job)
        : timer(context, first), interval(period), work(std::move(job)) {}

    asio::steady_timer timer;
    SerialQueue::Duration interval;
    SerialQueue::Work work;
    bool cancelled = false;

    void wait() {
        timer.async_wait([self = shared_from_this()](const std::error_code& error) {
            if (error || self->cancelled) {
                return;
            }
            self->work();
            self->scheduleNext();
        });
    }

    void scheduleNext() {
        if (cancelled) { // the work may have dropped its own subscription
            return;
        }
        // Ticks that were missed, as while the host slept, come as one.
        timer.expires_at(std::max(timer.expiry() + interval, asio::steady_timer::clock_type::now()));
        wait();
    }

    void cancel() {
        cancelled = true;
        timer.cancel();
    }
};

/// A descriptor watched for something to read; touched on its queue only.
struct Watching : std::enable_shared_from_this<Watching> {
    Watching(asio::io_context& context, int fd, SerialQueue::Work job) : descriptor(context), work(std::move(job)) {
        std::error_code error;
        descriptor.assign(fd, error);
        if (error) {
            throw Error("can't watch a descriptor: " + error.message());
        }
    }
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;
    Watching(Watching&&) = delete;
    Watching& operator=(Watching&&) = delete;
    ~Watching() { release(); }

    asio::posix::stream_descriptor descriptor;
    SerialQueue::Work work;
    bool cancelled = false;

    void wait() {
        descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                              [self = shared_from_this()](const std::error_code& error) {
                                  if (error || self->cancelled) {
                                      return;
                                  }
                                  self->work();
                                  if (!self->cancelled) { // the work may have dropped its own subscription
                                      self->wait();
                                  }
                              });
    }

    void cancel() {
        cancelled = true;
        release();
    }

    /// Gives the descriptor back unclosed: it is the caller's.
    void release() {
        if (descriptor.is_open()) {
            descriptor.release();
        }
    }
};

template <class State, class Core>
class SubscriptionTo : public Subscription {
  public:
    SubscriptionTo(std::shared_ptr<Core> core, std::shared_ptr<State> state)
        : core_(std::move(core)), state_(std::move(state)) {}
    SubscriptionTo(const SubscriptionTo&) = delete;
    SubscriptionTo& operator=(const SubscriptionTo&) = delete;
    SubscriptionTo(SubscriptionTo&&) = delete;
    SubscriptionTo& operator=(SubscriptionTo&&) = delete;
    ~SubscriptionTo() override {
        if (core_->hasEnded()) {
            state_->cancel();
        } else {
            core_->runAndWait([this] { state_->cancel(); });
        }
    }

  private:
    std::shared_ptr<Core> core_; // declared first: the state's timer or descriptor needs the context to the end
    std::shared_ptr<State> state_;
};

} // namespace

SerialQueue::SerialQueue(std::string name) : core_(std::make_shared<Core>()) {
    core_->thread = Threads::start(std::move(name), [core = core_] { core->context.run(); });
}

SerialQueue::~SerialQueue() {
    core_->async([core = core_.get()] { core->context.stop(); });
    if (core_->isCurrent()) {
        core_->thread.detach();
    } else {
        core_->thread.join();
    }
}

// The core is held while work is handed in: that work may destroy the queue before the hand-over has returned.

void SerialQueue::async(Work work) {
    const auto core = core_;
    core->async(std::move(work));
}

void SerialQueue::runAndWait(const Work& work) {
    const auto core = core_;
    core->runAndWait(work);
}

void SerialQueue::after(Duration delay, Work work) {
    auto timer = std::make_shared<asio::steady_timer>(core_->context, delay);
    timer->async_wait([timer, work = std::move(work)](const std::error_code& error) {
        if (!error) {
            work();
        }
    });
}

std::unique_ptr<Subscription> SerialQueue::every(Duration first, Duration interval, Work work) {
    auto ticking = std::make_shared<Ticking>(core_->context, first, interval, std::move(work));
    core_->runAndWait([&] { ticking->wait(); });
    return std::make_unique<SubscriptionTo<Ticking, Core>>(core_, std::move(ticking));
}

std::unique_ptr<Subscription> SerialQueue::whenReadable(int fd, Work work) {
    auto watching = std::make_shared<Watching>(core_->context, fd, std::move(work));
    core_->runAndWait([&] { watching->wait(); });
    return std::make_unique<SubscriptionTo<Watching, Core>>(core_, std::move(watching));
}

std::function<void(SerialQueue::Work)> SerialQueue::remote() const {
    return [weak = std::weak_ptr<Core>(core_)](Work work) {
        if (const auto core = weak.lock()) {
            core->async(std::move(work));
        }
    };
}

/// Shared by the queue and its threads: the last thread may still be ending when the queue is gone.
struct ConcurrentQueue::Core {
    static constexpr std::chrono::seconds idleTime{5};

    explicit Core(std::string label) : name(std::move(label)) {}

    const std::string name;
    std::mutex mutex;
    std::condition_variable workArrived;
    std::condition_variable threadEnded;
    std::deque<Work> waiting;
    std::size_t threads = 0;
    std::size_t idle = 0;
    bool closing = false;

    /// The life of one thread: work until there was none for a while.
    void runThread() {
        std::unique_lock lock(mutex);
        for (;;) {
            ++idle;
            workArrived.wait_for(lock, idleTime, [this] { return closing || !waiting.empty(); });
            --idle;
            if (waiting.empty()) { // idle for long enough, or closing
                break;
            }
            Work work = std::move(waiting.front());
            waiting.pop_front();
            lock.unlock();
            work();
            work = nullptr; // what the job holds goes before the lock is taken again
            lock.lock();
        }
        --threads;
        threadEnded.notify_all();
    }
};

ConcurrentQueue::ConcurrentQueue(std::string name) : core_(std::make_shared<Core>(std::move(name))) {}

ConcurrentQueue::~ConcurrentQueue() {
    std::deque<Work> dropped; // destroyed without the lock: what a job holds may do anything as it goes
    std::unique_lock lock(core_->mutex);
    core_->closing = true;
    dropped.swap(core_->waiting);
    core_->workArrived.notify_all();
    lock.unlock();
    dropped.clear();
    lock.lock();
    core_->threadEnded.wait(lock, [this] { return core_->threads == 0; });
}

void ConcurrentQueue::async(Work work) {
    const std::lock_guard lock(core_->mutex);
    core_->waiting.push_back(std::move(work));
    core_->workArrived.notify_one();
    if (core_->waiting.size() <= core_->idle || core_->threads == maximumThreads) {
        return;
    }
    try {
        Threads::start(core_->name, [core = core_] { core->runThread(); }).detach();
        ++core_->threads;
    } catch (const std::system_error&) {
        // The system gives no further thread: the job waits for one of those there are, or for the next call.
        return;
    }
}

} // namespace DHCPCore
