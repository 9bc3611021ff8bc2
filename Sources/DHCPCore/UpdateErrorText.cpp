#include "DHCPCore/UpdateErrorText.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace DHCPCore {

namespace {

/// What was nested in an error when it was thrown; null when nothing was.
std::exception_ptr nestedIn(const std::exception& error) {
    const auto* const nesting = dynamic_cast<const std::nested_exception*>(&error);
    return nesting == nullptr ? nullptr : nesting->nested_ptr();
}

/// Adds the description of the error, if it is one that has any. @return what is nested in it.
std::exception_ptr describeNext(const std::exception_ptr& error, std::vector<std::string>& descriptions) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& inner) {
        descriptions.emplace_back(inner.what());
        return nestedIn(inner);
    } catch (...) {
        return nullptr; // nothing is known about it
    }
}

} // namespace

PlatformError::PlatformError(std::string localizedDescription) : descriptions_{std::move(localizedDescription)} {}

PlatformError::PlatformError(std::string localizedDescription, PlatformError underlyingError)
    : descriptions_(std::move(underlyingError.descriptions_)) {
    descriptions_.push_back(std::move(localizedDescription));
}

PlatformError::PlatformError(const std::exception& error) : descriptions_{error.what()} {
    for (std::exception_ptr next = nestedIn(error); next;) {
        next = describeNext(next, descriptions_);
    }
    std::ranges::reverse(descriptions_);
}

std::optional<PlatformError> PlatformError::underlyingError() const {
    if (descriptions_.size() < 2) {
        return std::nullopt;
    }
    PlatformError underlying = *this;
    underlying.descriptions_.pop_back();
    return underlying;
}

std::string UpdateErrorText::describe(const PlatformError& error) {
    // Without its apostrophe, which systems write in more than one way.
    constexpr std::string_view uninformative = "The operation couldn";
    const std::vector<std::string>& chain = error.descriptions();
    const auto headline = chain.end() - 1;
    const auto deepest = std::find_if(chain.begin(), headline,
                                      [&](const std::string& text) { return !text.starts_with(uninformative); });
    if (deepest == headline || *deepest == *headline) {
        return *headline;
    }
    return fmt::format("{} ({})", *headline, *deepest);
}

} // namespace DHCPCore
