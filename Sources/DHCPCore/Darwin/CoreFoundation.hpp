#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

/// What every use of Core Foundation needs. For `.cpp` files only: it brings system headers.
namespace DHCPCore::CoreFoundation {

struct Release {
    void operator()(CFTypeRef reference) const { CFRelease(reference); }
};

/// Owns what a function with "Create" or "Copy" in its name gave, and releases it; may hold nothing. What other
/// functions give belongs to the object asked, and must not be owned.
template <class Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Release>;

template <class Reference>
[[nodiscard]] Owned<Reference> owned(Reference reference) {
    return Owned<Reference>(reference);
}

/// A new array of these strings.
[[nodiscard]] Owned<CFArrayRef> arrayOf(std::initializer_list<CFStringRef> strings);

/// A string's text; nothing for no value and for a value of another type.
[[nodiscard]] std::optional<std::string> text(CFTypeRef value);

/// A dictionary's text for a key; nothing for any other value, and where it is no dictionary that is asked.
[[nodiscard]] std::optional<std::string> textFor(CFStringRef key, CFTypeRef dictionary);

/// The first element, where it is a text, of the array that a dictionary holds for a key.
[[nodiscard]] std::optional<std::string> firstTextFor(CFStringRef key, CFTypeRef dictionary);

/// The elements of an array, which keeps owning them.
template <class Element>
[[nodiscard]] std::vector<Element> elements(const Owned<CFArrayRef>& array) {
    std::vector<Element> result;
    const CFIndex count = array ? CFArrayGetCount(array.get()) : 0;
    for (CFIndex index = 0; index < count; ++index) {
        result.push_back(static_cast<Element>(CFArrayGetValueAtIndex(array.get(), index)));
    }
    return result;
}

} // namespace DHCPCore::CoreFoundation
