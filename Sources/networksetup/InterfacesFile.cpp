#include "networksetup/InterfacesFile.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace NetworkSetup::InterfacesFile {

using DHCPCore::Subnet;

namespace {

/// A line of the file, with those that it continues on by a "\" at their ends.
struct Line {
    std::string_view text; ///< With its line feed, where it has one.
    std::vector<std::string> words;
};

bool isComment(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && line[first] == '#';
}

/// Takes the first line off the rest. A comment is not continued on the next line, whatever its last character.
std::string_view takeLine(std::string_view& rest) {
    std::size_t end = 0;
    do {
        end = rest.find('\n', end);
        end = end == std::string_view::npos ? rest.size() : end + 1;
    } while (end < rest.size() && end >= 2 && rest[end - 2] == '\\' && !isComment(rest));
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end);
    return line;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    bool inWord = false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char character = text[index];
        const bool continues = character == '\\' && index + 1 < text.size() && text[index + 1] == '\n';
        if (continues || character == ' ' || character == '\t' || character == '\n' || character == '\r') {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
        }
        inWord = true;
        words.back() += character;
    }
    return isComment(text) ? std::vector<std::string>{} : words; // a "#" further on belongs to a value
}

std::vector<Line> linesOf(std::string_view text) {
    std::vector<Line> lines;
    while (!text.empty()) {
        const std::string_view line = takeLine(text);
        lines.push_back({.text = line, .words = wordsOf(line)});
    }
    return lines;
}

bool isStanzaOf(const Line& line, std::string_view card) {
    return line.words.size() >= 3 && line.words[0] == "iface" && line.words[1] == card && line.words[2] == "inet";
}

/// Whether the line ends the stanza before it.
bool beginsStanza(const Line& line) {
    constexpr std::array<std::string_view, 10> keywords{
        "iface",  "mapping",    "auto",   "no-auto-down",     "no-scripts",
        "rename", "source-dir", "source", "source-directory", "template"};
    return !line.words.empty() &&
           (std::ranges::find(keywords, line.words[0]) != keywords.end() || line.words[0].starts_with("allow-"));
}

/// Whether the option belongs to the address that the stanza had.
bool isAboutAddress(const Line& line) {
    constexpr std::array<std::string_view, 7> options{"address", "netmask",     "broadcast", "network",
                                                      "gateway", "pointopoint", "scope"};
    return !line.words.empty() && std::ranges::find(options, line.words[0]) != options.end();
}

std::string stanzaHead(std::string_view card, const std::optional<Subnet>& address) {
    if (!address) {
        return fmt::format("iface {} inet dhcp\n", card);
    }
    return fmt::format("iface {} inet static\n    address {}\n    netmask {}\n", card, address->address.description(),
                       address->mask().description());
}

} // namespace

std::vector<std::vector<std::string>> stanzas(std::string_view text, std::string_view card) {
    std::vector<std::vector<std::string>> found;
    for (const Line& line : linesOf(text)) {
        if (isStanzaOf(line, card)) {
            found.emplace_back(line.words.begin() + 3, line.words.end());
        }
    }
    return found;
}

std::string withAddress(std::string_view text, std::string_view card, const std::optional<Subnet>& address) {
    std::string result;
    bool inStanza = false;
    for (const Line& line : linesOf(text)) {
        if (isStanzaOf(line, card)) {
            inStanza = true;
            result += stanzaHead(card, address);
            continue;
        }
        inStanza = inStanza && !beginsStanza(line);
        if (!inStanza || !isAboutAddress(line)) {
            result += line.text;
        }
    }
    return result;
}

} // namespace NetworkSetup::InterfacesFile
