#include "DHCPCore/Server.hpp"

#include "DHCPCore/LocalNetwork.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/Threads.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <thread>
#include <utility>

namespace DHCPCore {

namespace {

constexpr std::chrono::seconds firstTick{1};
constexpr std::chrono::seconds watchInterval{1};
constexpr std::chrono::seconds retryDelay{1};
/// Read at most so many datagrams before they are answered, and timers and callers get their turn.
constexpr std::size_t datagramsPerTurn = 64;
/// When more reports wait, malformed packets are only counted.
constexpr std::size_t manyReports = 1U << 15U;
/// When more wait, so do the messages of devices without a lease.
constexpr std::size_t tooManyReports = 1U << 16U;
/// More reports, some forty megabytes, wait only where the reader has stopped.
constexpr std::size_t mostReports = 1U << 17U;
/// So many messages wait at most, and so long: who is not answered asks again after some seconds (RFC 2131,
/// section 4.1).
constexpr std::size_t mostPostponed = 1024;
constexpr std::chrono::seconds longestPostponed{2};

ServerEvent leaseChanged(const Lease& lease) { return {ServerEvent::LeaseChanged{lease}}; }

} // namespace

DHCPServer::DHCPServer(Options options, std::function<Date()> clock, ServerHost host)
    : options_(std::move(options)), responder_{.config = options_.config}, clock_(std::move(clock)),
      host_(std::move(host)), transport_(host_.makeTransport(options_.mode, options_.config.serverIP)),
      interfaceName_(options_.mode.interfaceName()) {
    queue_.async(Threads::beginPromptly);
}

DHCPServer::~DHCPServer() {
    queue_.sync([this] {
        watchTimer_.reset();
        presenceTimer_.reset();
        closeTransport();
    });
    events_->finish();
}

void DHCPServer::start() {
    queue_.sync([this] { startOnQueue(); });
}

void DHCPServer::stop() {
    queue_.sync([this] { stopOnQueue(); });
    queue_.sync([] {}); // whatever was handed in before has run now
}

LeaseTable DHCPServer::currentTable() {
    return queue_.sync([this] { return table_; });
}

void DHCPServer::forgetLease(const MACAddress& mac) {
    queue_.async(weakly([mac](DHCPServer& server) {
        if (server.table_.remove(mac)) {
            server.emit({ServerEvent::LeaseRemoved{mac}});
            server.persist();
        }
    }));
}

void DHCPServer::clearInactive() {
    queue_.async(weakly([](DHCPServer& server) {
        const Date now = server.clock_();
        std::vector<Lease> inactive = server.table_.leases().all();
        std::erase_if(inactive, [now](const Lease& lease) { return lease.holdsAddress(now); });
        if (inactive.empty()) {
            return;
        }
        server.table_.clearInactive(now);
        for (const Lease& lease : inactive) {
            server.emit({ServerEvent::LeaseRemoved{lease.mac}});
        }
        server.persist();
    }));
}

void DHCPServer::refreshPresence() {
    queue_.async(weakly([](DHCPServer& server) { server.runPresenceCycle(); }));
}

void DHCPServer::startOnQueue() {
    if (running_) {
        return;
    }
    loadLeases();
    openTransport();
    running_ = true;
    emit({ServerEvent::Started{.interface = interfaceName_, .config = options_.config}});
    for (const Lease& lease : table_.leases()) {
        emit(leaseChanged(lease));
    }
    if (!options_.mode.isLoopback()) {
        const Interfaces::MediaStatus status = host_.mediaStatus(interfaceName_);
        linkUp_ = status.linkUp;
        emit({ServerEvent::Link{.up = status.linkUp, .media = status.description}});
        if (!linkUp_) {
            raiseLinkDown();
        }
        host_.triggerAlert(interfaceName_, options_.config.rangeStart);
        watchTimer_ = host_.every(queue_, firstTick, watchInterval, weakly([](DHCPServer& server) { server.watch(); }));
    }
    if (options_.presenceEnabled) {
        presenceTimer_ = host_.every(queue_, firstTick, Timing::presenceInterval,
                                     weakly([](DHCPServer& server) { server.runPresenceCycle(); }));
    }
}

void DHCPServer::stopOnQueue() {
    if (!running_) {
        return;
    }
    running_ = false;
    watchTimer_.reset();
    presenceTimer_.reset();
    closeTransport();
    persist();
    reportUnreported();
    emit({ServerEvent::Stopped{}});
    events_->finish();
}

void DHCPServer::loadLeases() {
    try {
        LeaseFile::LoadResult result = options_.leaseFile.load(clock_());
        table_ = std::move(result.table);
        options_.leaseFile.removeLeftovers();
        if (result.setAsideURL) {
            Notice notice = Notice::leaseFileSetAside(*result.setAsideURL);
            raise(notice.kind, std::move(notice.message));
        }
    } catch (const std::exception& error) {
        leaseFileWritable_ = false; // the file must not be overwritten: its leases may still be wanted
        raise(NoticeKind::leaseSaveFailed,
              fmt::format("Tarnwick can't read leases.json ({}). Leases are kept in memory only and the file is left "
                          "untouched.",
                          error.what()));
    }
    const std::vector<Lease> dropped = table_.dropOutside(options_.config.range());
    for (const Lease& lease : dropped) {
        inform(
            fmt::format("dropped lease {} for {}: outside the range", lease.ip.description(), lease.mac.description()));
        emit({ServerEvent::LeaseRemoved{lease.mac}});
    }
    if (!dropped.empty()) {
        persist();
    }
}

void DHCPServer::openTransport() {
    const TransportMode mode =
        options_.mode.isLoopback() ? options_.mode : TransportMode{TransportMode::Interface{interfaceName_}};
    auto transport = host_.makeTransport(mode, options_.config.serverIP);
    transport->open();
    readSource_ = queue_.whenReadable(transport->fd(), weakly([](DHCPServer& server) { server.receiveWaiting(); }));
    transport_ = std::move(transport);
    isOpen_ = true;
}

void DHCPServer::closeTransport() {
    readSource_.reset();
    postponed_.clear(); // as what waits in a socket that is closed
    transport_->close();
    isOpen_ = false;
}

/// Datagrams that wait together share one save: each is decided in its turn, and answered at once when its answer tells
/// of nothing that is to be saved; then the table is saved, and the others are answered. Reports come in the order in
/// which they would have come one by one.
void DHCPServer::receiveWaiting() {
    waitForReader();
    tellOfUnreported();
    postpones_ = readerIsBehind();
    burst_ = Burst{.steps = std::move(roomForSteps_)};
    handlePostponed();
    handleWaiting();
    sendUnsavedReplies();
    // Who was just offered an address asks for it at once: rather one save for all of them than one more.
    const auto end = std::chrono::steady_clock::now() + patienceBeforeSaving();
    while (burst_->saves && burst_->requestsExpected > 0 && burst_->datagrams < datagramsPerTurn && isOpen_ &&
           transport_->awaitDatagram(end - std::chrono::steady_clock::now())) {
        handleWaiting();
        sendUnsavedReplies();
    }
    // A turn that put everybody off tells nothing about what messages lead to.
    const bool tellsOfReports = burst_->datagrams > 0 && !burst_->postponesAny;
    const std::size_t reportsBefore = lastReports_;
    std::vector<Step> steps = std::move(burst_->steps);
    burst_.reset();
    carryOut(steps);
    steps.clear();
    roomForSteps_ = std::move(steps);
    lastReports_ = tellsOfReports ? lastReports_ : reportsBefore;
    returnToPostponed();
}

/// About a tenth of the time that saving takes.
std::chrono::nanoseconds DHCPServer::patienceBeforeSaving() const {
    constexpr std::chrono::nanoseconds perLease{40};
    constexpr std::chrono::nanoseconds most = std::chrono::milliseconds{1};
    return std::min<std::chrono::nanoseconds>(perLease * table_.leases().size(), most);
}

void DHCPServer::handleWaiting() {
    while (burst_->datagrams < datagramsPerTurn && isOpen_) {
        std::vector<Datagram> datagrams;
        try {
            datagrams = transport_->receiveSome(datagramsPerTurn - burst_->datagrams);
        } catch (const TransportError& error) {
            inform("receive failed: " + error.description());
            burst_->datagrams = datagramsPerTurn;
            return;
        }
        if (datagrams.empty()) {
            return;
        }
        burst_->datagrams += datagrams.size();
        for (Datagram& datagram : datagrams) {
            handle(std::move(datagram));
        }
    }
}

/// All in a row: between two decisions, each reply would wake its receiver anew.
void DHCPServer::sendUnsavedReplies() {
    std::vector<Step> steps = std::exchange(burst_->steps, std::move(roomForSteps_));
    burst_->steps.reserve(steps.size());
    for (Step& step : steps) {
        if (const auto* const reply = std::get_if<UnsavedReply>(&step)) {
            send(reply->reply, true);
        } else {
            burst_->steps.push_back(std::move(step));
        }
    }
    steps.clear();
    roomForSteps_ = std::move(steps);
}

void DHCPServer::carryOut(std::vector<Step>& steps) {
    bool isSaved = false; // the first save has what the later ones would add
    isCarryingOut_ = true;
    reports_.reserve(steps.size());
    for (Step& step : steps) {
        std::visit(Overloaded{[this](ServerEvent& event) { emit(std::move(event)); },
                              [this](const Reply& reply) { send(reply, true); },
                              [this](const UnsavedReply& early) { send(early.reply, true); },
                              [this, &isSaved](const SaveTable&) {
                                  if (!std::exchange(isSaved, true)) {
                                      persist();
                                  }
                              }},
                   step);
    }
    isCarryingOut_ = false;
    lastReports_ = reports_.size();
    events_->yieldAll(reports_);
    clearAwayReplaced();
}

void DHCPServer::handle(Datagram datagram) {
    if (!options_.mode.isLoopback() && arrivedElsewhere(datagram)) {
        return;
    }
    const auto result = DHCPPacket::read(datagram.bytes);
    if (const auto* const fault = std::get_if<PacketError::Value>(&result)) {
        dropMalformed(*fault);
        return;
    }
    const auto& packet = std::get<DHCPPacket>(result);
    if ((postpones_ || !postponed_.empty()) && !goesBeforeOthers(packet)) {
        postpone(std::move(datagram), packet.mac());
        return;
    }
    handle(packet);
}

void DHCPServer::handle(const DHCPPacket& packet) {
    emit({ServerEvent::Received{PacketSummary(packet, interfaceName_)}});
    process(packet, {});
}

/// In a flood, what is malformed is no longer reported one by one, before the reports take all memory.
void DHCPServer::dropMalformed(const PacketError::Value& fault) {
    if (events_->waiting() > manyReports) {
        ++unreported_;
        return;
    }
    const PacketError error(fault);
    emit({ServerEvent::Dropped{.reason = fmt::format("malformed ({})", error.description()), .mac = std::nullopt}});
}

/// While reports are read more slowly than they come, further messages are left to wait in the system's queue. A reader
/// that has stopped altogether is waited for only briefly; none is waited for when the last messages led to no report,
/// as in a flood of malformed ones.
void DHCPServer::waitForReader() {
    constexpr std::chrono::milliseconds step{1};
    constexpr int mostSteps = 5;
    if (lastReports_ == 0) {
        return;
    }
    for (int count = 0; count < mostSteps && events_->waiting() > mostReports; ++count) {
        const std::size_t before = events_->waiting();
        std::this_thread::sleep_for(step);
        if (events_->waiting() >= before) {
            return;
        }
    }
}

void DHCPServer::tellOfUnreported() {
    if (events_->waiting() <= manyReports / 2) {
        reportUnreported();
    }
}

void DHCPServer::reportUnreported() {
    if (unreported_ > 0) {
        inform(fmt::format("{} malformed packets dropped without a line for each: they came faster than lines are read",
                           std::exchange(unreported_, 0)));
    }
    if (refused_ > 0) {
        inform(fmt::format("{} messages of devices without a lease dropped without a line for each: they came faster "
                           "than lines are read",
                           std::exchange(refused_, 0)));
    }
}

/// Whether far too many reports wait for a reader that does read.
bool DHCPServer::readerIsBehind() {
    constexpr std::chrono::milliseconds longestPause{100};
    const auto now = std::chrono::steady_clock::now();
    if (const std::size_t taken = events_->taken(); taken != reportsTaken_) {
        reportsTaken_ = taken;
        readerSeenAt_ = now;
    }
    return events_->waiting() > tooManyReports && now - readerSeenAt_ < longestPause;
}

/// Whether the message is of a device that was ACKed, as far as it says the truth of itself, and overtakes none of its
/// own. A device with an offer only is a stranger still.
bool DHCPServer::goesBeforeOthers(const DHCPPacket& packet) const {
    const auto mac = packet.mac();
    const Lease* const lease = mac ? table_.find(*mac) : nullptr;
    return lease != nullptr && lease->state == Lease::State::bound && lease->holdsAddress(clock_()) &&
           std::ranges::find(postponed_, mac, &Postponed::mac) == postponed_.end();
}

/// Reports can't be made as quickly as strangers can ask. While they are behind, strangers wait, in the order in which
/// they came, so that who has a lease is answered at once; those for whom there is no room will ask again.
void DHCPServer::postpone(Datagram datagram, std::optional<MACAddress> mac) {
    burst_->postponesAny = true;
    if (postponed_.size() < mostPostponed) {
        postponed_.push_back({.datagram = std::move(datagram), .mac = mac, .since = clock_()});
    } else {
        ++refused_;
    }
}

/// Leaves half of the turn to what came meanwhile.
void DHCPServer::handlePostponed() {
    while (!postpones_ && !postponed_.empty() && burst_->datagrams < datagramsPerTurn / 2) {
        const Postponed next = std::move(postponed_.front());
        postponed_.pop_front();
        if (clock_() - next.since > longestPostponed) {
            ++refused_;
            continue;
        }
        ++burst_->datagrams;
        handle(DHCPPacket::parse(next.datagram.bytes));
    }
}

void DHCPServer::returnToPostponed() {
    constexpr std::chrono::milliseconds soon{1};
    if (!postponed_.empty() && !returns_) {
        returns_ = true;
        host_.after(queue_, soon, weakly([](DHCPServer& server) {
                        server.returns_ = false;
                        server.receiveWaiting();
                    }));
    }
}

/// Whether the datagram came by another card; reported here.
bool DHCPServer::arrivedElsewhere(const Datagram& datagram) {
    if (!datagram.interfaceIndex) {
        if (!recvifWarned_) {
            recvifWarned_ = true;
            inform("arrival interface check unavailable; relying on IP_BOUND_IF");
        }
        return false;
    }
    const std::uint32_t index = *datagram.interfaceIndex;
    if (index == transport_->interfaceIndex()) {
        return false;
    }
    const std::string arrival = host_.nameOfInterface(index).value_or(fmt::format("interface {}", index));
    emit({ServerEvent::Dropped{.reason = fmt::format("arrived on {} instead of {}", arrival, interfaceName_),
                               .mac = std::nullopt}});
    return true;
}

void DHCPServer::process(const DHCPPacket& packet, ProbeAnswers probes) {
    Decision decision = responder_.decide(
        packet, {.table = std::move(table_), .presence = presence_, .probes = probes, .now = clock_()});
    const auto* const probe = std::get_if<DecisionAction::Probe>(&decision.action.value);
    if (probe == nullptr) {
        apply(std::move(decision));
        return;
    }
    table_ = std::move(decision.table);
    if (options_.presenceEnabled) {
        probeAndProcess(probe->ip, packet, std::move(probes));
    } else {
        // Its holder can't be asked, so the address counts as still in use.
        probes[probe->ip] = true;
        process(packet, std::move(probes));
    }
}

void DHCPServer::probeAndProcess(IPv4Address ip, const DHCPPacket& packet, ProbeAnswers probes) {
    inform(fmt::format("probing {} before giving it to another device", ip.description()));
    investigate(ip, false, [this, ip, packet, probes = std::move(probes)](const Finding& finding) mutable {
        if (finding.probe.answered) {
            presence_[ip] = PresenceState::online;
        }
        probes[ip] = finding.probe.answered;
        process(packet, std::move(probes));
    });
}

void DHCPServer::apply(Decision decision) {
    table_ = std::move(decision.table);
    for (ServerEvent& note : decision.notes) {
        if (const auto* const raising = std::get_if<ServerEvent::NoticeRaised>(&note.value)) {
            raised_.insert(raising->notice.kind);
        }
        emit(std::move(note));
    }
    if (decision.tableChanged) {
        persist();
    }
    auto* const action = std::get_if<DecisionAction::Reply>(&decision.action.value);
    if (action == nullptr) {
        return;
    }
    if (!burst_) {
        send(action->reply, true);
        return;
    }
    burst_->requestsExpected += action->reply.type == DHCPMessageType::offer ? 1 : -1;
    if (decision.tableChanged && leaseFileWritable_) {
        burst_->steps.emplace_back(std::move(action->reply));
    } else {
        burst_->steps.emplace_back(UnsavedReply{std::move(action->reply)});
    }
}

void DHCPServer::send(const Reply& reply, bool retry) {
    if (!isOpen_) {
        inform(fmt::format("{} not sent: socket closed", description(reply.type)));
        return;
    }
    try {
        transport_->send(reply.packet.serialize(DHCPPacket::minimumReplyLength), reply.destination);
    } catch (const TransportError& error) {
        handleSendFailure(reply, error, retry);
        return;
    } catch (const std::exception& error) {
        inform(fmt::format("{} not sent: {}", description(reply.type), error.what()));
        return;
    }
    clear(NoticeKind::localNetworkDenied);
    emit({ServerEvent::Sent{{.type = reply.type,
                             .ip = reply.ip,
                             .mac = reply.mac,
                             .destination = reply.destination,
                             .interface = interfaceName_,
                             .note = reply.note}}});
}

void DHCPServer::handleSendFailure(const Reply& reply, const TransportError& error, bool retry) {
    const std::string notSent = fmt::format("{} not sent: ", description(reply.type));
    const SendFailure failure = LocalNetwork::classify(error, linkUp_, serverAddressPresent());
    std::visit(Overloaded{[&](const SendFailure::Other& other) { inform(notSent + other.text); },
                          [&](const SendFailure::LinkDown&) { inform(notSent + "link down"); },
                          [&](const SendFailure::AddressMissing&) {
                              inform(fmt::format("{}{} is not on {} right now", notSent,
                                                 options_.config.serverIP.description(), interfaceName_));
                          },
                          [&](const SendFailure::PossiblyDenied&) {
                              if (retry) {
                                  host_.after(queue_, retryDelay,
                                              weakly([reply](DHCPServer& server) { server.send(reply, false); }));
                              } else {
                                  raise(NoticeKind::localNetworkDenied,
                                        "Local Network access is off for Tarnwick. macOS is blocking DHCP broadcasts, "
                                        "so no device can get an address.");
                              }
                          }},
               failure.value);
}

bool DHCPServer::serverAddressPresent() const {
    return std::ranges::any_of(host_.interfaceAddresses(), [this](const InterfaceAddress& entry) {
        return entry.name == interfaceName_ && entry.subnet.address == options_.config.serverIP;
    });
}

void DHCPServer::persist() {
    if (!leaseFileWritable_) {
        return;
    }
    if (burst_) {
        burst_->steps.emplace_back(SaveTable{});
        burst_->saves = true;
        return;
    }
    try {
        replaced_ = std::exchange(saved_, options_.leaseFile.save(table_, document_));
    } catch (const std::exception& error) {
        raise(NoticeKind::leaseSaveFailed, fmt::format("Leases could not be saved: {}", error.what()));
        return;
    }
    if (!isCarryingOut_) { // else somebody waits for an answer
        clearAwayReplaced();
    }
    clear(NoticeKind::leaseSaveFailed);
}

/// Lets go of the file that the last save replaced, on a thread of its own: the next message need not wait for it. One
/// at a time, so that a slow disk does not fill with them.
void DHCPServer::clearAwayReplaced() {
    if (!replaced_.isOpen()) {
        return;
    }
    if (isClearing_->exchange(true)) {
        replaced_.close();
        return;
    }
    clearingQueue_.async([file = std::make_shared<FileDescriptor>(std::move(replaced_)), isClearing = isClearing_] {
        file->close();
        *isClearing = false;
    });
}

void DHCPServer::emit(ServerEvent event) {
    if (burst_) {
        burst_->steps.emplace_back(std::move(event));
    } else if (isCarryingOut_) {
        reports_.push_back(std::move(event));
    } else {
        events_->yield(std::move(event));
    }
}

void DHCPServer::inform(std::string text) { emit({ServerEvent::Info{std::move(text)}}); }

void DHCPServer::raise(NoticeKind kind, std::string message) {
    raised_.insert(kind);
    emit({ServerEvent::NoticeRaised{{.kind = kind, .message = std::move(message)}}});
}

void DHCPServer::clear(NoticeKind kind) {
    if (raised_.erase(kind) > 0) {
        emit({ServerEvent::NoticeCleared{kind}});
    }
}

SerialQueue::Work DHCPServer::weakly(std::function<void(DHCPServer&)> work) {
    return [weak = weak_from_this(), work = std::move(work)] {
        if (const auto server = weak.lock()) {
            work(*server);
        }
    };
}

} // namespace DHCPCore
