#include "DHCPCore/LeaseFile.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/Presence.hpp"
#include "DHCPCore/Responder.hpp"
#include "Fuzzing/Script.hpp"
#include "Model/Session.hpp"
#include "Support/Builders.hpp"
#include "Support/LittleEndianBytes.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// Writes the corpora from which the fuzz targets start: `makeSeeds FOLDER`. The kernel's messages are those about the
/// network in which this runs; `scripts/make-seeds` makes one for it.
namespace DHCPCore::Fuzzing {

namespace {

namespace fs = std::filesystem;
using namespace TestSupport::Literals; // NOLINT(google-build-using-namespace): what they are for
using Model::Step;
using TestSupport::decline;
using TestSupport::discover;
using TestSupport::inform;
using TestSupport::joined;
using TestSupport::littleEndian;
using TestSupport::mac;
using TestSupport::padded;
using TestSupport::release;
using TestSupport::request;

void write(const fs::path& file, const Bytes& bytes) {
    fs::create_directories(file.parent_path());
    TestSupport::writeText(file, std::string{bytes.begin(), bytes.end()});
}

Bytes& operator+=(Bytes& bytes, std::span<const std::uint8_t> more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
}

// Messages and sessions.

/// What a device with a full set of options sends.
DHCPPacket withTexts(const TestSupport::ClientMessage& message) {
    const Bytes clientID{0x01, 0x02, 0, 0, 0, 0, 0x01};
    return message.named("bench-7").ofVendor("APC UPS 9.2").with(OptionCode::clientID, clientID);
}

std::vector<std::pair<std::string, DHCPPacket>> exchange() {
    const IPv4Address server = "10.0.0.1"_ip;
    const IPv4Address ip = "10.0.0.10"_ip;
    return {{"discover", withTexts(discover(mac(1)))},
            {"discover-again", discover(mac(1)).requesting(ip)},
            {"select", withTexts(request(mac(1)).selecting(server).requesting(ip))},
            {"select-other", request(mac(1)).selecting("10.0.0.2"_ip).requesting(ip)},
            {"renew", request(mac(1)).from(ip)},
            {"reboot", request(mac(1)).requesting(ip)},
            {"inform", inform(mac(1)).from("10.0.0.77"_ip)},
            {"decline", decline(mac(1)).selecting(server).requesting(ip)},
            {"release", release(mac(1)).selecting(server).from(ip)},
            {"relayed", discover(mac(1)).relayedBy("10.0.0.3"_ip)},
            {"no-type", discover(mac(1)).without(OptionCode::messageType)}};
}

Bytes scriptOf(const ServerConfig& config) {
    Bytes script{config.rangeStart.bytes()[3], config.rangeEnd.bytes()[3]};
    script += bigEndianBytes(config.leaseSeconds);
    script.push_back(config.router ? 129 : 0);
    return script;
}

void append(Bytes& script, const Step& step) {
    std::visit(Overloaded{[&](const Step::Message& message) {
                              const Bytes datagram = message.packet.serialize(0);
                              script += Bytes{StepCode::message, static_cast<std::uint8_t>(message.answers)};
                              script += bigEndianBytes(static_cast<std::uint16_t>(datagram.size()));
                              script += datagram;
                          },
                          [&](const Step::Wait& wait) {
                              script.push_back(StepCode::wait);
                              script += bigEndianBytes(static_cast<std::uint32_t>(wait.time.count() / 1000));
                          },
                          [&](const Step::Sight& sight) {
                              const auto state = static_cast<std::uint8_t>(sight.presence.value_or(PresenceState{4}));
                              script += Bytes{StepCode::sight, sight.ip.bytes()[3], state};
                          },
                          [&](const Step::Forget& forget) {
                              script.push_back(StepCode::forget);
                              script += forget.mac.bytes;
                          },
                          [&](const Step::ClearInactive&) { script.push_back(StepCode::clearInactive); },
                          [&](const Step::Restart&) { script.push_back(StepCode::restart); }},
               step.value);
}

void writePacketsAndSessions(const fs::path& folder) {
    Bytes whole = scriptOf(TestSupport::smallConfig());
    for (const auto& [name, packet] : exchange()) {
        write(folder / "Packet" / name, packet.serialize(0));
        append(whole, {Model::Step::Message{.packet = packet, .answers = 0}});
    }
    const Decision offer = Responder{TestSupport::smallConfig()}.decide(
        exchange().front().second, {.table = {}, .presence = {}, .probes = {}, .now = TestSupport::now});
    write(folder / "Packet" / "offer",
          std::get<DecisionAction::Reply>(offer.action.value).reply.packet.serialize(DHCPPacket::minimumReplyLength));
    write(folder / "Road" / "exchange", whole);

    // More clients than addresses, so that addresses are probed and taken back.
    Bytes full = scriptOf(TestSupport::smallConfig());
    for (std::uint8_t client = 1; client <= 3; ++client) {
        const IPv4Address ip{10, 0, 0, static_cast<std::uint8_t>(9 + client)};
        append(full, {Model::Step::Message{.packet = request(mac(client)).requesting(ip), .answers = 0}});
        append(full, {Model::Step::Sight{.ip = ip, .presence = PresenceState::offline}});
    }
    append(full, {Model::Step::Message{.packet = discover(mac(9)), .answers = 1}});
    append(full, {Model::Step::Restart{}});
    append(full, {Model::Step::Message{.packet = discover(mac(8)), .answers = 7}});
    write(folder / "Road" / "full-pool", full);

    for (std::uint64_t seed = 1; seed <= 8; ++seed) {
        const Model::Session session = Model::randomSession(seed, 16);
        Bytes script = scriptOf(session.config);
        for (const Step& step : session.steps) {
            append(script, step);
        }
        write(folder / "Road" / ("session-" + std::to_string(seed)), script);
    }
}

// Lease files.

void writeLeaseFiles(const fs::path& folder) {
    const TestSupport::TemporaryDirectory scratch;
    const LeaseFile file{.url = scratch / "leases.json"};
    const auto add = [&](const std::string& name, const LeaseTable& table) {
        file.save(table);
        fs::create_directories(folder / "LeaseFile");
        fs::copy_file(file.url, folder / "LeaseFile" / name, fs::copy_options::overwrite_existing);
    };
    Lease lease = TestSupport::boundLease(mac(1), "10.0.0.10"_ip);
    lease.hostname = "bench-7\\x1b";
    lease.vendorClass = "";
    lease.clientID = "01:02:00:00:00:00:01";
    const Lease released = TestSupport::leaseIn(Lease::State::released, mac(2), "10.0.0.11"_ip);
    add("empty", {});
    add("leases", {{lease, released}, {}});
    add("twice", {{lease, released, lease}, {}});
    add("quarantine", {{lease}, {{.ip = "10.0.0.12"_ip, .until = TestSupport::now, .reportedBy = mac(3)}}});
    write(folder / "LeaseFile" / "damaged", {'{', '"', 'v', 'e', 'r', 's', 'i', 'o', 'n', '"', ':', '1'});
}

// Texts.

using Texts = std::vector<std::pair<std::string, std::string>>;

/// The letter before a text says who reads it.
void writeTexts(const fs::path& folder, const Texts& texts) {
    int number = 0;
    for (const auto& [letter, text] : texts) {
        const std::string content = letter + text;
        write(folder / (letter + "-" + std::to_string(++number)), {content.begin(), content.end()});
    }
}

Texts userTexts() {
    return {{"a", "192.168.0.1"},
            {"a", "010.001.000.009"},
            {"a", "1.2.3.4.5"},
            {"b", "00:1C:42:ab:cd:ef"},
            {"c", "192.168.0.77/24"},
            {"c", "/10.0.0.1//+8"},
            {"d", "255.255.255.0"},
            {"d", "255.0.255.0"},
            {"e", "24h"},
            {"e", "4294967295"},
            {"f", "2025-01-31T13:04:05Z"},
            {"f", "2025-01-31T13:04:05+01:00"},
            {"g", "-12"},
            {"g", "+65535"},
            {"h", "--iface\nen7\n--server\n192.168.0.1/24\n--range\n192.168.0.100-192.168.0.200\n--lease\n24h"},
            {"h", "--test-loopback\n--port\n6767\n--client-port\n6868\n--json\n--leases\n/tmp/l"},
            {"h", "--iface\nen7\n--router\n192.168.0.1\n--dns\n1.1.1.1,9.9.9.9"},
            {"i", "USB 10/100 'LAN'"},
            {"j", "h\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xC3"},
            {"k", "\x1b[31mred\n\xC2\x9B\x7F\xFF"},
            {"l", "0:52: execution error: User canceled. (-128)\n"},
            {"l", "0:4: syntax error: Expected end of line. (-2741)\n"}};
}

Texts hostTexts() {
    const Bytes echo = Prober::echoRequest(7, 1);
    std::string answer{echo.begin(), echo.end()};
    answer[0] = '\0';
    return {
        {"a", "udp4  0  0  *.5067  *.*  786896  9216  mDNSResponder:345\n\nudp4  0  0  *.67  *.*  1  1  bootpd:812  "
              "00100\n"},
        {"b",
         "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
         "   57: 00000000:0043 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 4711 2 0 0\n"},
        {"c", "socket:[4711]"},
        {"d", std::string{"/usr/lib/vmware/bin/vmware-usbarbitrator\0--info\0", 48}},
        {"e", "GENERAL.DEVICE:en7\nGENERAL.HWADDR:00:1C:42:AB:CD:EF\nGENERAL.STATE:100 (connected)\n"
              "GENERAL.CONNECTION:Wired one\nGENERAL.CON-UUID:1234\n\nGENERAL.DEVICE:lo\n"},
        {"e", "ipv4.method:manual\nipv4.addresses:192.168.0.1/24, 10.0.0.1/8\n"},
        {"f", "ADMIN_STATE=configured\nNETWORK_FILE=/etc/systemd/network/10-lab.network\n"},
        {"f", "# lab\n[Match]\nName=en7 !en8 "
              "en*\nMACAddress=00:1c:42:ab:cd:ef\n[Network]\nDHCP=ipv4\nAddress=192.168.0.1/24\n"},
        {"g", "auto lo en7\niface en7 inet static\n  address 192.168.0.1\\\n/24\n  netmask 255.255.255.0\n"
              "source /etc/network/interfaces.d/*\niface en8 inet dhcp\n"},
        {"h", "AX88179 \xC2\x9B"
              "Gigabit\n"},
        {"h", "ID_MODEL_FROM_DATABASE=82574L Gigabit Network Connection\n"},
        {"i", answer}};
}

Texts networkSetupTexts() {
    const std::string file = "# lab\nauto lo\niface lo inet loopback\n\nallow-hotplug en7\niface en7 inet static\n"
                             "    address 192.168.0.9/24\n    gateway 192.168.0.254\n    up true\n\n"
                             "iface en8 inet dhcp\n\thostname lab\n";
    return {{"a", "-setmanual\nUSB LAN\n192.168.0.1\n255.255.255.0"},
            {"a", "-setdhcp\nen7"},
            {"a", "--version"},
            {"b", file},
            {"b", "iface en7 inet dhcp"},
            {"b", "iface en7 inet \\\n static\r\n address 10.0.0.1\n netmask 255.0.0.0\niface en7 inet6 auto\n"},
            {"c", "bench\x1b[31m \xC2\x9B \xC3\xA9"},
            {"d", "connection.id:Wired: one\nconnection.uuid:1234\nconnection.type:802-3-ethernet\n"
                  "connection.interface-name:en7\nGENERAL.DEVICES:en7\n"},
            {"d", "1234:802-3-ethernet\nen5=en5\nen7=en7\n"},
            {"e", file}};
}

// What the kernel says.

void writeDumps(const fs::path& folder) {
    using Netlink::Question;
    const std::vector<std::pair<std::string, Question>> questions{{"links", Question::links},
                                                                  {"addresses", Question::addresses},
                                                                  {"routes", Question::routes},
                                                                  {"neighbours", Question::neighbours}};
    for (const auto& [name, question] : questions) {
        write(folder / "Netlink" / name, Netlink::ask(question).value());
    }
}

// What a BSD kernel says; laid out as docs/macos.md tells.

Bytes forReader(char letter, const Bytes& bytes) { return joined({static_cast<std::uint8_t>(letter)}, bytes); }

Bytes linkLayerAddress(std::uint8_t index) {
    return {20, 18, index, 0, 6, 3, 6, 0, 'e', 'n', '7', 2, 0, 0, 0, 0, 7, 0, 0, 0};
}

Bytes controlMessage(std::size_t length, std::uint8_t type, const Bytes& data) {
    return padded(joined(joined(littleEndian(length, 4), littleEndian(0, 4)), joined(littleEndian(type, 4), data)));
}

Bytes routingEntry(std::uint8_t lastByte) {
    const Bytes address{16, 2, 0, 0, 192, 168, 0, lastByte, 0, 0, 0, 0, 0, 0, 0, 0};
    const Bytes addresses = joined(address, linkLayerAddress(7));
    Bytes header = littleEndian(92 + addresses.size(), 2);
    header.resize(92);
    return joined(header, addresses);
}

void writeKernelBytes(const fs::path& folder) {
    const Bytes timeToLive = controlMessage(13, 24, {64});
    const Bytes arrival = controlMessage(32, 20, linkLayerAddress(7));
    write(folder / "control", forReader('a', joined(timeToLive, arrival)));
    write(folder / "neighbours", forReader('b', joined(routingEntry(100), routingEntry(101))));
    write(folder / "gigabit", forReader('c', {0, 0, 0, 3, 0, 0x10, 0, 0x30}));
    write(folder / "no-cable", forReader('c', {0, 0, 0, 1, 0, 0, 0, 0x22}));
    write(folder / "mask", forReader('d', {7, 0, 0, 0, 255, 255, 255}));
}

} // namespace

void makeSeeds(const fs::path& folder) {
    writePacketsAndSessions(folder);
    writeLeaseFiles(folder);
    writeTexts(folder / "Text", userTexts());
    writeTexts(folder / "Host", hostTexts());
    writeTexts(folder / "NetworkSetup", networkSetupTexts());
    writeDumps(folder);
    writeKernelBytes(folder / "BSD");
}

} // namespace DHCPCore::Fuzzing

int main(int count, char** arguments) {
    const std::span<char*> words(arguments, static_cast<std::size_t>(count));
    if (words.size() != 2) {
        std::cerr << "usage: makeSeeds FOLDER\n";
        return 2;
    }
    DHCPCore::Fuzzing::makeSeeds(words[1]);
    return 0;
}
