#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace NetworkSetup {

/// A card of the host.
struct Card {
    std::string name;
    bool isWired = false;
    bool hasLink = false;

    bool operator==(const Card&) const = default;
};

/// What NetworkManager holds.
struct NetworkManagerFacts {
    /// A connection profile. Several may have the same name; the UUID is its identity.
    struct Connection {
        std::string name;
        std::string uuid;
        std::string type;                ///< As nmcli prints it: "802-3-ethernet".
        std::optional<std::string> card; ///< The card on which it is active, else the one that it is tied to.
        bool isActive = false;

        bool operator==(const Connection&) const = default;
    };

    std::string nmcli; ///< The path of its command-line tool.
    std::vector<Connection> connections;
    std::set<std::string> cards; ///< The cards that it manages, with or without a connection.

    bool operator==(const NetworkManagerFacts&) const = default;
};

/// What systemd-networkd configures.
struct NetworkdFacts {
    std::string networkctl;                   ///< The path of its command-line tool.
    std::string directory;                    ///< Where the administrator's files lie: "/etc/systemd/network".
    std::map<std::string, std::string> files; ///< By card, the path of the .network file that configures it.
    std::optional<std::string> presentText;   ///< What stands where this program's own file for the card goes.

    bool operator==(const NetworkdFacts&) const = default;
};

/// What ifupdown reads.
struct IfupdownFacts {
    struct File {
        std::string path;
        std::string text;
        bool operator==(const File&) const = default;
    };

    std::string ifup; ///< The paths of its two programs.
    std::string ifdown;
    std::vector<File> files;       ///< The interfaces file, then those it takes in.
    std::set<std::string> upCards; ///< The cards that it has brought up.

    bool operator==(const IfupdownFacts&) const = default;
};

/// The host, as far as it matters for one service. A manager that does not run, or is not installed, is absent.
struct Facts {
    std::vector<Card> cards; ///< Without the loopback device.
    std::optional<NetworkManagerFacts> networkManager;
    std::optional<NetworkdFacts> networkd;
    std::optional<IfupdownFacts> ifupdown;

    bool operator==(const Facts&) const = default;
};

} // namespace NetworkSetup
