#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/EventStream.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Presence.hpp"
#include "DHCPCore/Queue.hpp"
#include "DHCPCore/Responder.hpp"
#include "DHCPCore/ServerHost.hpp"
#include "DHCPCore/Transport.hpp"

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace DHCPCore {

/// The running server. All of its state belongs to its queue "tarnwick.server"; create it with `std::make_shared`.
/// A server that is dropped while running ends without saving.
class DHCPServer : public std::enable_shared_from_this<DHCPServer> {
  public:
    struct Options {
        ServerConfig config;
        TransportMode mode;
        std::optional<MACAddress> cardMAC; ///< Finds the card again when it comes back under another name.
        LeaseFile leaseFile;
        bool presenceEnabled = false;
    };

    explicit DHCPServer(Options options, std::function<Date()> clock = currentDate,
                        ServerHost host = ServerHost::system());
    DHCPServer(const DHCPServer&) = delete;
    DHCPServer& operator=(const DHCPServer&) = delete;
    DHCPServer(DHCPServer&&) = delete;
    DHCPServer& operator=(DHCPServer&&) = delete;
    ~DHCPServer();

    /// Everything that happens, in order, for one consumer; finished by `stop` and by dropping the server.
    [[nodiscard]] std::shared_ptr<EventStream<ServerEvent>> events() const { return events_; }

    /// Loads the leases and begins to serve; does nothing when running. May be called again after a failure.
    /// @throws TransportError when the socket can't be opened, Error when it can't be watched.
    void start();

    /// Saves the leases and ends; does nothing when not running. A server is not started again afterwards.
    void stop();

    [[nodiscard]] LeaseTable currentTable();

    /// Removes that client's lease. Returns at once.
    void forgetLease(const MACAddress& mac);
    /// Removes every released, reclaimed or expired lease. Returns at once.
    void clearInactive();
    /// Runs one presence cycle now. Returns at once.
    void refreshPresence();

  private:
    /// What a job on the presence queue found out about one address.
    struct Finding {
        ProbeResult probe;
        std::optional<MACAddress> arpMAC;
    };
    using FindingHandler = std::function<void(const Finding&)>;

    /// What handling a datagram leads to, put off while further ones wait.
    struct SaveTable {};
    struct UnsavedReply {
        Reply reply; ///< Tells of nothing that is to be saved.
    };
    using Step = std::variant<ServerEvent, Reply, UnsavedReply, SaveTable>;

    /// Datagrams that are handled together.
    struct Burst {
        std::vector<Step> steps{};
        std::size_t datagrams = 0;
        bool saves = false;
        int requestsExpected = 0; ///< Offers that were not answered yet.
        bool postponesAny = false;
    };

    /// A stranger's message that is handled later.
    struct Postponed {
        Datagram datagram;
        std::optional<MACAddress> mac;
        Date since;
    };

    void startOnQueue();
    void stopOnQueue();
    void loadLeases();
    void openTransport();
    void closeTransport();

    void receiveWaiting();
    void handleWaiting();
    void sendUnsavedReplies();
    [[nodiscard]] std::chrono::nanoseconds patienceBeforeSaving() const;
    void carryOut(std::vector<Step>& steps);
    void handle(Datagram datagram);
    void handle(const DHCPPacket& packet);
    void dropMalformed(const PacketError::Value& fault);
    void waitForReader();
    void tellOfUnreported();
    void reportUnreported();
    [[nodiscard]] bool readerIsBehind();
    [[nodiscard]] bool goesBeforeOthers(const DHCPPacket& packet) const;
    void postpone(Datagram datagram, std::optional<MACAddress> mac);
    void handlePostponed();
    void returnToPostponed();
    [[nodiscard]] bool arrivedElsewhere(const Datagram& datagram);
    void process(const DHCPPacket& packet, ProbeAnswers probes);
    void probeAndProcess(IPv4Address ip, const DHCPPacket& packet, ProbeAnswers probes);
    void apply(Decision decision);
    void send(const Reply& reply, bool retry);
    void handleSendFailure(const Reply& reply, const TransportError& error, bool retry);
    [[nodiscard]] bool serverAddressPresent() const;
    void persist();
    void clearAwayReplaced();

    void watch();
    void watchOpenCard();
    void waitForAdapter();
    void raiseLinkDown();
    void markAllOffline(const std::string& reason);

    void runPresenceCycle();
    void probeDevicesDue();
    void investigate(IPv4Address ip, bool withARP, FindingHandler handler);
    void conclude(IPv4Address ip, const Finding& finding);
    void classifyPresence(IPv4Address ip, const MACAddress& mac, const Finding& finding);

    void emit(ServerEvent event);
    void inform(std::string text);
    void raise(NoticeKind kind, std::string message);
    void clear(NoticeKind kind);

    /// A handler that does nothing once the server is gone.
    [[nodiscard]] SerialQueue::Work weakly(std::function<void(DHCPServer&)> work);

    const Options options_;
    const Responder responder_;
    const std::function<Date()> clock_;
    const ServerHost host_;
    const std::shared_ptr<EventStream<ServerEvent>> events_ = std::make_shared<EventStream<ServerEvent>>();

    std::unique_ptr<UDPTransport> transport_; ///< Replaced on every opening.
    std::string interfaceName_;               ///< Changes when the adapter comes back under another name.
    bool isOpen_ = false;                     ///< The transport is open and watched.
    LeaseTable table_;
    LeaseDocument document_;  ///< As it was saved last.
    FileDescriptor saved_;    ///< The file that was saved last.
    FileDescriptor replaced_; ///< The one in whose place it was put.
    const std::shared_ptr<std::atomic<bool>> isClearing_ = std::make_shared<std::atomic<bool>>(false);
    PresenceMap presence_;
    std::optional<Burst> burst_; ///< Present while waiting datagrams are being handled.
    bool isCarryingOut_ = false;
    std::vector<ServerEvent> reports_; ///< Of the steps that are being carried out.
    std::vector<Step> roomForSteps_;   ///< Empty, with the room of the last ones.
    std::size_t lastReports_ = 0;      ///< How many the last burst led to.
    std::uint64_t unreported_ = 0;     ///< Malformed packets that were dropped in silence.
    std::deque<Postponed> postponed_;
    bool postpones_ = false;       ///< Strangers wait.
    bool returns_ = false;         ///< Work that handles what is postponed is on its way.
    std::uint64_t refused_ = 0;    ///< Messages of strangers that were dropped in silence.
    std::size_t reportsTaken_ = 0; ///< By the reader, when it was last seen to read.
    std::chrono::steady_clock::time_point readerSeenAt_;
    bool linkUp_ = true;
    bool running_ = false;
    std::set<NoticeKind> raised_;   ///< Raised and not yet cleared.
    bool recvifWarned_ = false;     ///< Once is enough.
    bool leaseFileWritable_ = true; ///< Never again after the file could not be read: it must not be overwritten.
    std::unordered_map<IPv4Address, std::vector<FindingHandler>> investigations_; ///< At most one job per address.
    std::deque<MACAddress> devicesDue_; ///< Those that the presence cycle has yet to probe.
    std::size_t deviceProbesOut_ = 0;   ///< Of the presence cycle.

    // Last, so destroyed first: no handler and no job outlives what it touches.
    SerialQueue queue_{"tarnwick.server"};
    ConcurrentQueue probeQueue_{"tarnwick.presence"};
    ConcurrentQueue clearingQueue_{"tarnwick.clearing"};
    std::unique_ptr<Subscription> readSource_;
    std::unique_ptr<Subscription> watchTimer_;
    std::unique_ptr<Subscription> presenceTimer_;
};

} // namespace DHCPCore
