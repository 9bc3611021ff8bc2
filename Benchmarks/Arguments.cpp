#include "Arguments.hpp"

#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>

namespace DHCPLoad {

using namespace DHCPCore;

Arguments::Arguments(std::span<const std::string> words, const std::set<std::string_view>& flags,
                     const std::set<std::string_view>& options) {
    while (!words.empty() && words.front() != "--") {
        const std::string& name = words.front();
        if (flags.contains(name)) {
            flags_.insert(name);
            words = words.subspan(1);
            continue;
        }
        if (!options.contains(name)) {
            throw UsageError("unknown option " + name);
        }
        if (words.size() < 2) {
            throw UsageError(name + " needs a value");
        }
        values_[name] = words[1];
        words = words.subspan(2);
    }
    if (!words.empty()) {
        rest_.assign(words.begin() + 1, words.end());
    }
}

std::optional<std::string> Arguments::text(std::string_view option) const {
    const auto found = values_.find(option);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

std::string Arguments::requiredText(std::string_view option) const {
    if (auto value = text(option)) {
        return *std::move(value);
    }
    throw UsageError(fmt::format("{} is needed", option));
}

std::uint32_t Arguments::number(std::string_view option, std::uint32_t otherwise, std::uint32_t least,
                                std::uint32_t most) const {
    const auto value = text(option);
    if (!value) {
        return otherwise;
    }
    const auto number = parseDecimal<std::uint32_t>(*value);
    if (!number || *number < least || *number > most) {
        throw UsageError(fmt::format("{} needs a number from {} to {}", option, least, most));
    }
    return *number;
}

IPv4Address Arguments::address(std::string_view option, IPv4Address otherwise) const {
    const auto value = text(option);
    if (!value) {
        return otherwise;
    }
    const auto address = IPv4Address::parse(*value);
    if (!address) {
        throw UsageError(fmt::format("{} must be an IPv4 address", option));
    }
    return *address;
}

} // namespace DHCPLoad
