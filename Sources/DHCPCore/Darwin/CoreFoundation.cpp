#include "DHCPCore/Darwin/CoreFoundation.hpp"

#include <cstddef>
#include <cstdint>

namespace DHCPCore::CoreFoundation {

namespace {

bool isOfType(CFTypeRef value, CFTypeID type) { return value != nullptr && CFGetTypeID(value) == type; }

CFTypeRef valueFor(CFStringRef key, CFTypeRef dictionary) {
    if (!isOfType(dictionary, CFDictionaryGetTypeID())) {
        return nullptr;
    }
    return CFDictionaryGetValue(static_cast<CFDictionaryRef>(dictionary), key);
}

} // namespace

Owned<CFArrayRef> arrayOf(std::initializer_list<CFStringRef> strings) {
    std::vector<CFTypeRef> values(strings.begin(), strings.end());
    return owned(CFArrayCreate(nullptr, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
}

std::optional<std::string> text(CFTypeRef value) {
    if (!isOfType(value, CFStringGetTypeID())) {
        return std::nullopt;
    }
    const auto string = static_cast<CFStringRef>(value);
    const CFIndex length = CFStringGetLength(string);
    const CFIndex room = CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
    constexpr std::uint8_t replacement = '?'; // for what is half a character
    std::string bytes(static_cast<std::size_t>(room), '\0');
    CFIndex used = 0;
    CFStringGetBytes(string, CFRangeMake(0, length), kCFStringEncodingUTF8, replacement, /*isExternal*/ 0,
                     reinterpret_cast<UInt8*>(bytes.data()), room, &used);
    bytes.resize(static_cast<std::size_t>(used));
    return bytes;
}

std::optional<std::string> textFor(CFStringRef key, CFTypeRef dictionary) { return text(valueFor(key, dictionary)); }

std::optional<std::string> firstTextFor(CFStringRef key, CFTypeRef dictionary) {
    const CFTypeRef value = valueFor(key, dictionary);
    if (!isOfType(value, CFArrayGetTypeID())) {
        return std::nullopt;
    }
    const auto array = static_cast<CFArrayRef>(value);
    return CFArrayGetCount(array) == 0 ? std::nullopt : text(CFArrayGetValueAtIndex(array, 0));
}

} // namespace DHCPCore::CoreFoundation
